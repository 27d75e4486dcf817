cmake_minimum_required(VERSION 3.25)
# Brings the host's cross-check reference up to date: configures the host release tree when
# there is none yet (as the release preset does), then builds its crosscheck_reference target.
# Inputs: -DSOURCE_DIR=<source tree> -DHOST_TREE=<host release build tree>
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
