cmake_minimum_required(VERSION 3.25)
# Fails when the shared object exports anything but the 13 QenAec_* functions. -DNM -DLIBRARY
set(expected
    QenAec_GetBufferSize QenAec_Init QenAec_Config QenAec_GetConfig QenAec_Reset QenAec_Free
    QenAec_Run QenAec_ADF_Run QenAec_NLP_Run QenAec_GetLibVersion QenAec_SetRecursiveRatio
    QenAec_GetAPIVersion QenAec_SetHandleId)
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE listing RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${listing}")
set(found "")
foreach(line ${lines})
    if(line MATCHES "^[0-9a-fA-F]* *([A-Za-z]) ([^ @]+)")
        set(type ${CMAKE_MATCH_1})
        set(name ${CMAKE_MATCH_2})
        if(type STREQUAL "A")  # version nodes, not code or data
            continue()
        endif()
        if(NOT name IN_LIST expected)
            message(FATAL_ERROR "unexpected exported symbol: ${line}")
        endif()
        list(APPEND found ${name})
    endif()
endforeach()
foreach(name ${expected})
    if(NOT name IN_LIST found)
        message(FATAL_ERROR "missing exported function: ${name}")
    endif()
endforeach()
list(LENGTH found count)
message(STATUS "exports: ${count} functions, all QenAec_*")
