# Debian packages found by path, so the same lookup works for the host and for multiarch
# cross builds.
# The library's FFT engine (qenaec_fft): Ne10's NEON real transforms on ARM (Debian packages
# Ne10 for armhf only), KissFFT elsewhere. QENAEC_FFT_LIBRARY names it for qenaec.pc.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    find_path(NE10_INCLUDE_DIR NE10_dsp.h PATH_SUFFIXES ne10 REQUIRED)
    find_library(NE10_LIBRARY NAMES NE10 REQUIRED)
    add_library(qenaec_fft INTERFACE)
    target_include_directories(qenaec_fft SYSTEM INTERFACE ${NE10_INCLUDE_DIR})
    target_compile_definitions(qenaec_fft INTERFACE QENAEC_FFT_NE10)
    target_link_libraries(qenaec_fft INTERFACE ${NE10_LIBRARY})
    set(QENAEC_FFT_LIBRARY NE10)
else()
    find_path(KISSFFT_INCLUDE_DIR kissfft/kiss_fftr.h REQUIRED)
    find_library(KISSFFT_LIBRARY NAMES kissfft-float REQUIRED)
    add_library(qenaec_kissfft INTERFACE)
    target_include_directories(qenaec_kissfft SYSTEM INTERFACE ${KISSFFT_INCLUDE_DIR})
    target_compile_definitions(qenaec_kissfft INTERFACE kiss_fft_scalar=float)
    target_link_libraries(qenaec_kissfft INTERFACE ${KISSFFT_LIBRARY})
    add_library(qenaec_fft ALIAS qenaec_kissfft)
    set(QENAEC_FFT_LIBRARY kissfft-float)
endif()

find_path(CJSON_INCLUDE_DIR cjson/cJSON.h REQUIRED)
find_library(CJSON_LIBRARY NAMES cjson REQUIRED)
add_library(qenaec_cjson INTERFACE)
target_include_directories(qenaec_cjson SYSTEM INTERFACE ${CJSON_INCLUDE_DIR})
target_link_libraries(qenaec_cjson INTERFACE ${CJSON_LIBRARY})

find_path(SIMDE_INCLUDE_DIR simde/arm/neon.h REQUIRED)
