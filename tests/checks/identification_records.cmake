cmake_minimum_required(VERSION 3.25)
# Finds the three identification records, byte for byte, in the shared object and in a
# stripped copy of it. Inputs: -DSTRIP=<strip> -DLIBRARY=<path> -DWORK_DIR=<dir>
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
message(STATUS "identification records present in the library and its stripped copy")
