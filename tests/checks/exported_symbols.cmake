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
    # Type A: version nodes, not code or data.
    if(line MATCHES "^[0-9a-fA-F]* *([A-Za-z]) ([^ @]+)" AND NOT CMAKE_MATCH_1 STREQUAL "A")
        list(APPEND found ${CMAKE_MATCH_2})
    endif()
endforeach()
list(SORT found)
list(SORT expected)
if(NOT found STREQUAL expected)
    message(FATAL_ERROR "exported: ${found}\nexpected exactly: ${expected}")
endif()
message(STATUS "exports: the 13 QenAec_* functions only")
