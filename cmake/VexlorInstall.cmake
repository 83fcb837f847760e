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

# Written when installing, with that install's prefix (cmake --install --prefix ... may differ from
# the configured one): plain paths, so that pkg-config recognises ${prefix}/include as the system's
# own and leaves out its -I. A staging tree is reached through PKG_CONFIG_SYSROOT_DIR.
if(IS_ABSOLUTE "${VEXLOR_PLUGIN_DIR}")
  set(pcPluginDir "${VEXLOR_PLUGIN_DIR}")
else()
  set(pcPluginDir "\${CMAKE_INSTALL_PREFIX}/${VEXLOR_PLUGIN_DIR}")
endif()
install(CODE "
  set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
  set(plugindir \"${pcPluginDir}\")
  set(CMAKE_INSTALL_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(CMAKE_INSTALL_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  configure_file(\"${PROJECT_SOURCE_DIR}/cmake/vexlor.pc.in\" \"${PROJECT_BINARY_DIR}/pkgconfig/vexlor.pc\" @ONLY)
  file(INSTALL \"${PROJECT_BINARY_DIR}/pkgconfig/vexlor.pc\"
    DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")" COMPONENT devel)
