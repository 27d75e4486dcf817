cmake_minimum_required(VERSION 3.25)
# Configures the host release tree if needed, then builds its crosscheck_reference target.
if(NOT EXISTS ${HOST_TREE}/CMakeCache.txt)
    message(STATUS "configuring the host tree ${HOST_TREE}")
    execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${HOST_TREE}
                            -DCMAKE_BUILD_TYPE=Release -DQENAEC_BUILD_TESTS=ON
                    RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "configuring the host tree failed")
    endif()
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${HOST_TREE} --parallel 2
                        --target crosscheck_reference
                RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "building the host reference in ${HOST_TREE} failed")
endif()
