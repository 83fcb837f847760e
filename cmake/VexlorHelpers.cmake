# Small helpers so that each library piece, plug-in or test is one short call.

set(VEXLOR_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wformat=2)

# vexlor_add_target_plugin(<name> SOURCES ... [OUTPUT_DIRECTORY dir] [LIBRARIES ...])
# A log-target plug-in: a MODULE library with plain exported hooks, built against the SDK only.
function(vexlor_add_target_plugin name)
  cmake_parse_arguments(ARG "" "OUTPUT_DIRECTORY" "SOURCES;LIBRARIES" ${ARGN})
  add_library(${name} MODULE ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE vexlor::vexlor ${ARG_LIBRARIES})
  target_compile_options(${name} PRIVATE ${VEXLOR_WARNINGS})
  set_target_properties(${name} PROPERTIES PREFIX "lib" CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  # A plug-in still exports the SDK's type information and standard template code. Its own
  # references bind to its own copies: bound to the copies of a plug-in loaded before it
  # (RTLD_GLOBAL), they would keep that library loaded after it is unloaded.
  target_link_options(${name} PRIVATE "LINKER:-Bsymbolic")
  if(ARG_OUTPUT_DIRECTORY)
    set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${ARG_OUTPUT_DIRECTORY})
  endif()
endfunction()
