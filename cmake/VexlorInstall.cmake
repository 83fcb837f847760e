# Install rules: the library, the public headers, a CMake package (find_package(vexlor)) and a
# pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS vexlor EXPORT vexlorTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT devel)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vexlor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT devel)
install(EXPORT vexlorTargets NAMESPACE vexlor:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vexlor COMPONENT devel)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vexlorConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vexlorConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vexlor
  PATH_VARS VEXLOR_PLUGIN_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vexlorConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vexlorConfig.cmake ${PROJECT_BINARY_DIR}/vexlorConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vexlor COMPONENT devel)

# Plain paths below the prefix: pkg-config recognises ${prefix}/include as the system's own and
# leaves out its -I (a staging tree is reached through PKG_CONFIG_SYSROOT_DIR).
configure_file(${PROJECT_SOURCE_DIR}/cmake/vexlor.pc.in ${PROJECT_BINARY_DIR}/vexlor.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vexlor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT devel)
