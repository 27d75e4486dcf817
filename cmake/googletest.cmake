# GoogleTest for the test suites. The host build uses the installed package; a cross build
# has no target package to find, so it compiles the sources libgtest-dev ships, with the
# target's compiler, as part of this tree (only the libraries the tests link are built).
if(NOT CMAKE_CROSSCOMPILING)
    find_package(GTest REQUIRED)
    return()
endif()

set(QENAEC_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH
    "GoogleTest sources compiled for the target in cross builds")
if(NOT EXISTS ${QENAEC_GTEST_SOURCE_DIR}/CMakeLists.txt)
    message(FATAL_ERROR "No GoogleTest sources at ${QENAEC_GTEST_SOURCE_DIR} (install libgtest-dev)")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(${QENAEC_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
# Our -Werror is for our code; GCC 12 reports false positives inside GoogleTest itself.
foreach(target gtest gtest_main gmock gmock_main)
    target_compile_options(${target} PRIVATE -Wno-error -Wno-restrict)
endforeach()
