# The plugin redirects the library's output calls to its debug category at link time. A
# call the redirection does not cover would still reach the pipeline's standard output: it
# would show here as an undefined reference to one of these functions.
execute_process(COMMAND ${NM} -D --undefined-only ${PLUGIN}
    OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "nm failed on ${PLUGIN}")
endif()
foreach(fn printf vprintf puts putchar putchar_unlocked puts_unlocked fprintf dprintf
           __printf_chk __vprintf_chk __fprintf_chk __vfprintf_chk __dprintf_chk)
    if(out MATCHES "[ \t]${fn}(@|\n)")
        message(FATAL_ERROR "the plugin calls ${fn} unredirected")
    endif()
endforeach()
