# Debian packages from the install components (scripts/package.sh runs cpack): `runtime` is
# libvexlor1, `devel` libvexlor-dev, `tools` vexlor-tools, and every other component (a target
# that links a library of its own, or that only some systems can use) vexlor-target-<component>. Dependencies on system libraries
# come from dpkg-shlibdeps; the packages of one build depend on each other at the same version.

# The commented default configuration, a conffile in the package. A plain `cmake --install` never
# overwrites a configuration that is there already.
configure_file(${PROJECT_SOURCE_DIR}/cmake/vexlor.cfg.in ${PROJECT_BINARY_DIR}/vexlor.cfg @ONLY)
install(CODE "
  if(EXISTS \"\$ENV{DESTDIR}${VEXLOR_CONFIG_DIR}/vexlor.cfg\")
    message(STATUS \"Kept: \$ENV{DESTDIR}${VEXLOR_CONFIG_DIR}/vexlor.cfg\")
  else()
    file(INSTALL \"${PROJECT_BINARY_DIR}/vexlor.cfg\" DESTINATION \"${VEXLOR_CONFIG_DIR}\")
  endif()" COMPONENT runtime)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vexlor)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "vexlor maintainers <vexlor@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "process-wide logging library with plug-in log targets")
# Installs under DESTDIR, so that the absolute configuration directory lands in the package.
set(CPACK_SET_DESTDIR ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# libvexlor.so.1 itself is in no installed package yet: found in the build tree, left out of the
# result (the packages name it with the exact version instead).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
if(VEXLOR_DEB_ARCHITECTURE)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${VEXLOR_DEB_ARCHITECTURE})
endif()

set(exact "(= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvexlor1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "vexlor logging library, with its targets that need no other library
 libvexlor.so.1, the console, file, syslog, control and recorder log targets, and the commented default
 configuration ${VEXLOR_CONFIG_DIR}/vexlor.cfg.")
# Written here rather than generated: CPack would also try the plug-ins, which have no SONAME.
file(WRITE ${PROJECT_BINARY_DIR}/debian-runtime/shlibs "libvexlor 1 libvexlor1 (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian-runtime/conffiles "${VEXLOR_CONFIG_DIR}/vexlor.cfg\n")
foreach(script postinst postrm)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/${script}.in ${PROJECT_BINARY_DIR}/debian-runtime/${script} @ONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endforeach()
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian-runtime/shlibs
  ${PROJECT_BINARY_DIR}/debian-runtime/conffiles ${PROJECT_BINARY_DIR}/debian-runtime/postinst
  ${PROJECT_BINARY_DIR}/debian-runtime/postrm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEVEL_PACKAGE_NAME libvexlor-dev)
set(CPACK_DEBIAN_DEVEL_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVEL_PACKAGE_DEPENDS "libvexlor1 ${exact}")
set(CPACK_DEBIAN_DEVEL_DESCRIPTION "vexlor logging library: development files
 Headers for applications (C and C++) and for log target plug-ins, the CMake package, the
 pkg-config file and the manual page for target authors.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vexlor-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libvexlor1 ${exact}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "vexlor logging library: command-line tools
 vexlor-log logs from shell scripts, vexlor-check checks a configuration before it is deployed,
 vexlorctl shows and sets the component levels of running programs and prints the recorder's rings.")

# Every other component is one target plug-in with a library of its own. Each package carries the
# licence in Debian's machine-readable copyright format.
get_cmake_property(components COMPONENTS)
foreach(component IN LISTS components)
  string(TOUPPER ${component} upper)
  if(component STREQUAL "runtime")
    set(package libvexlor1)
  elseif(component STREQUAL "devel")
    set(package libvexlor-dev)
  elseif(component STREQUAL "tools")
    set(package vexlor-tools)
  else()
    set(package vexlor-target-${component})
  endif()
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
    COMPONENT ${component})
  if(NOT component MATCHES "^(runtime|devel|tools)$")
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME vexlor-target-${component})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "libvexlor1 ${exact}")
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "vexlor logging library: the ${component} log target
 The plug-in libvexlor-${component}.so; see vexlor-targets(7) for its parameters.")
  endif()
endforeach()

include(CPack)
