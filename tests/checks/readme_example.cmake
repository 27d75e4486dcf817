cmake_minimum_required(VERSION 3.25)
# The README shows the example program verbatim. Inputs: -DREADME=<path> -DEXAMPLE=<path>
file(READ ${README} readme)
file(READ ${EXAMPLE} example)
string(FIND "${readme}" "${example}" at)
if(at EQUAL -1)
    message(FATAL_ERROR "${README} does not contain ${EXAMPLE} verbatim")
endif()
