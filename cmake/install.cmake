# Installs the library, the public header, a CMake package (qenaec::qenaec) and qenaec.pc.
include(CMakePackageConfigHelpers)

install(TARGETS qenaec qenaec_static EXPORT qenaecTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/qen_aec.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT qenaecTargets NAMESPACE qenaec:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qenaec)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qenaecConfig.cmake.in
    ${PROJECT_BINARY_DIR}/qenaecConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qenaec)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qenaecConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qenaecConfig.cmake ${PROJECT_BINARY_DIR}/qenaecConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qenaec)

configure_file(${PROJECT_SOURCE_DIR}/cmake/qenaec.pc.in ${PROJECT_BINARY_DIR}/qenaec.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qenaec.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
