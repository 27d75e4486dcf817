# gst-inspect-1.0 qenaec must describe the element's pads, formats and properties.
execute_process(COMMAND ${INSPECT} qenaec
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "gst-inspect-1.0 qenaec failed (${rc}):\n${out}${err}")
endif()
set(expected
    "SINK template: 'near_sink'" "SINK template: 'far_sink'" "SRC template: 'src'"
    "Availability: Always" "format: S16LE" "layout: interleaved"
    "rate: { (int)8000, (int)16000, (int)32000, (int)48000 }" "channels: [ 1, 2 ]"
    "Element Properties:")
foreach(property mode comfort-noise intensity edges ratio far-delay config stats-interval erle)
    list(APPEND expected "\n  ${property} ")
endforeach()
foreach(text IN LISTS expected)
    string(FIND "${out}" "${text}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "gst-inspect-1.0 qenaec does not show '${text}':\n${out}")
    endif()
endforeach()
