# Small helpers so that each library piece, plug-in or test is one short call.

set(VEXLOR_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wformat=2)

# vexlor_add_target_plugin(<name> SOURCES ... [LIBRARIES ...] [OUTPUT_DIRECTORY dir]
#                          [INSTALL [COMPONENT component]] [ALIAS alias...])
# A log-target plug-in: a MODULE library built against the SDK only, exporting nothing but its
# hooks. INSTALL ships it into VEXLOR_PLUGIN_DIR (install component `runtime` unless given) and
# lists it in the global property VEXLOR_SHIPPED_TARGETS, where tests and tools find it.
# ALIAS adds lib<alias>.so beside it, a symbolic link: the library loads each path once, so a
# second target of the same kind in one configuration names the plug-in by its alias (dlopen
# finds the same file and shares the code). Installed aliases are listed in the global property
# VEXLOR_SHIPPED_TARGET_ALIASES as <alias>=<path in the build tree>.
function(vexlor_add_target_plugin name)
  cmake_parse_arguments(ARG "INSTALL" "OUTPUT_DIRECTORY;COMPONENT" "SOURCES;LIBRARIES;ALIAS" ${ARGN})
  add_library(${name} MODULE ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE vexlor::vexlor ${ARG_LIBRARIES})
  target_compile_options(${name} PRIVATE ${VEXLOR_WARNINGS})
  set_target_properties(${name} PROPERTIES PREFIX "lib" CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  # A plug-in still exports the SDK's type information and standard template code. Its own
  # references bind to its own copies: bound to the copies of a plug-in loaded before it
  # (RTLD_GLOBAL), they would keep that library loaded after it is unloaded.
  target_link_options(${name} PRIVATE "LINKER:-Bsymbolic" "LINKER:--gc-sections")
  if(ARG_OUTPUT_DIRECTORY)
    set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${ARG_OUTPUT_DIRECTORY})
  endif()
  if(ARG_INSTALL)
    if(NOT ARG_COMPONENT)
      set(ARG_COMPONENT runtime)
    endif()
    install(TARGETS ${name} LIBRARY DESTINATION ${VEXLOR_PLUGIN_DIR} COMPONENT ${ARG_COMPONENT})
    set_property(GLOBAL APPEND PROPERTY VEXLOR_SHIPPED_TARGETS ${name})
  endif()
  foreach(alias IN LISTS ARG_ALIAS)
    add_custom_command(TARGET ${name} POST_BUILD COMMAND ${CMAKE_COMMAND} -E create_symlink
      $<TARGET_FILE_NAME:${name}> $<TARGET_FILE_DIR:${name}>/lib${alias}.so VERBATIM)
    if(ARG_INSTALL)
      if(IS_ABSOLUTE "${VEXLOR_PLUGIN_DIR}")
        set(dir "${VEXLOR_PLUGIN_DIR}")
      else()
        set(dir "\${CMAKE_INSTALL_PREFIX}/${VEXLOR_PLUGIN_DIR}")
      endif()
      install(CODE "file(CREATE_LINK $<TARGET_FILE_NAME:${name}> \"\$ENV{DESTDIR}${dir}/lib${alias}.so\" SYMBOLIC)"
              COMPONENT ${ARG_COMPONENT})
      set_property(GLOBAL APPEND PROPERTY VEXLOR_SHIPPED_TARGET_ALIASES "${alias}=$<TARGET_FILE_DIR:${name}>/lib${alias}.so")
    endif()
  endforeach()
endfunction()
