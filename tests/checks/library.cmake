cmake_minimum_required(VERSION 3.25)
# The shared object exports the 13 QenAec_* functions only, and carries the three identification
# records byte for byte, also once stripped. -DNM -DSTRIP -DLIBRARY -DWORK_DIR
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
set(records
    "JQW1##Q7LP####g9a315##COM##########WQJ"
    "JQW1##Q7LP####g047fa##AEC##########WQJ"
    "AECSET##FLOAT1NLMS0TAIL8APIVERSION13PN128CONVERGE0ECHODIFF0MSGLEVEL07##SETAEC")
file(MAKE_DIRECTORY ${WORK_DIR})
set(stripped ${WORK_DIR}/libqenaec-stripped.so)
file(COPY_FILE ${LIBRARY} ${stripped})
execute_process(COMMAND ${STRIP} --strip-all ${stripped} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "${STRIP} failed")
endif()
foreach(file ${LIBRARY} ${stripped})
    file(STRINGS ${file} texts REGEX "JQW1|AECSET")
    foreach(record ${records})
        string(FIND "${texts}" "${record}" at)
        if(at EQUAL -1)
            message(FATAL_ERROR "record ${record} not found in ${file}")
        endif()
    endforeach()
endforeach()
message(STATUS "exports: the 13 QenAec_* functions only; identification records present, also stripped")
