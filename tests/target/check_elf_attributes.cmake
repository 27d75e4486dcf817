# The ARM object's attributes (a flag change that drops one still compiles): -DREADELF -DLIBRARY
execute_process(COMMAND ${READELF} -A -h ${LIBRARY} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${READELF} failed on ${LIBRARY}")
endif()
set(required
    "Class: +ELF32"
    "Machine: +ARM"
    "hard-float ABI"
    "Tag_CPU_arch: v7\n"
    "Tag_Advanced_SIMD_arch: NEON"
    "Tag_ABI_VFP_args: VFP registers"
    "Tag_ABI_FP_number_model: IEEE 754")
foreach(pattern ${required})
    if(NOT out MATCHES "${pattern}")
        message(FATAL_ERROR "missing in ${LIBRARY}: ${pattern}\nreadelf output:\n${out}")
    endif()
endforeach()
message(STATUS "${LIBRARY}: ARMv7-A, NEON, hard float, IEEE 754")
