# Debian packages found by path, so the same lookup works for the host and for multiarch
# cross builds.
find_path(KISSFFT_INCLUDE_DIR kissfft/kiss_fftr.h REQUIRED)
find_library(KISSFFT_LIBRARY NAMES kissfft-float REQUIRED)
add_library(qenaec_kissfft INTERFACE)
target_include_directories(qenaec_kissfft SYSTEM INTERFACE ${KISSFFT_INCLUDE_DIR})
target_compile_definitions(qenaec_kissfft INTERFACE kiss_fft_scalar=float)
target_link_libraries(qenaec_kissfft INTERFACE ${KISSFFT_LIBRARY})

find_path(CJSON_INCLUDE_DIR cjson/cJSON.h REQUIRED)
find_library(CJSON_LIBRARY NAMES cjson REQUIRED)
add_library(qenaec_cjson INTERFACE)
target_include_directories(qenaec_cjson SYSTEM INTERFACE ${CJSON_INCLUDE_DIR})
target_link_libraries(qenaec_cjson INTERFACE ${CJSON_LIBRARY})

find_path(SIMDE_INCLUDE_DIR simde/arm/neon.h REQUIRED)
