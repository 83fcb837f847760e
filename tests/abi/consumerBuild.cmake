# Installs the built tree into a scratch prefix, builds the consumer project against it with
# find_package, the application once more and a C program with pkg-config, and runs all three:
# each loads the consumer's target through the configuration file and checks that a record
# arrived. Arguments: BUILD_DIR, SOURCE_DIR (the consumer), WORK_DIR, CONFIG_DIR, GENERATOR, CXX,
# CXX_FLAGS, CC, C_FLAGS, LINKER_FLAGS, BUILD_TYPE; for a cross build TOOLCHAIN and EMULATOR (a
# command line).
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

# Staged under DESTDIR, so that even a destination configured as an absolute path lands inside
# the work directory instead of on the machine.
set(stagedPrefix /opt/vexlor-consumer)
set(prefix ${WORK_DIR}/stage${stagedPrefix})
set(build ${WORK_DIR}/build)
set(records ${WORK_DIR}/records.txt)
set(config ${CONFIG_DIR}/vexlor.cfg)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR} ${CONFIG_DIR})

run(${CMAKE_COMMAND} -E env DESTDIR=${WORK_DIR}/stage ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${stagedPrefix})
set(crossOptions "")
if(TOOLCHAIN)
  # The toolchain confines package searches to the target's tree: name the package's directory.
  file(GLOB_RECURSE packageConfig ${prefix}/vexlorConfig.cmake)
  get_filename_component(packageDir "${packageConfig}" DIRECTORY)
  set(crossOptions -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -Dvexlor_DIR=${packageDir})
endif()
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${build} -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix} ${crossOptions}
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${CXX}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}"
    "-DCMAKE_MODULE_LINKER_FLAGS=${LINKER_FLAGS}")
run(${CMAKE_COMMAND} --build ${build})

# The same application built from the pkg-config file alone, found where it was installed.
file(GLOB_RECURSE pcFile ${prefix}/vexlor.pc)
if(NOT pcFile)
  message(FATAL_ERROR "no vexlor.pc below ${prefix}")
endif()
get_filename_component(pcDir "${pcFile}" DIRECTORY)
set(ENV{PKG_CONFIG_LIBDIR} ${pcDir})
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${WORK_DIR}/stage)  # the .pc names the staged prefix
execute_process(COMMAND pkg-config --cflags --libs vexlor
  RESULT_VARIABLE rc OUTPUT_VARIABLE pcFlags ERROR_VARIABLE err OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config cannot use the installed vexlor.pc: ${err}")
endif()
separate_arguments(pcFlags UNIX_COMMAND "${pcFlags}")
execute_process(COMMAND pkg-config --variable=libdir vexlor OUTPUT_VARIABLE libDir OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT libDir MATCHES "^${WORK_DIR}/stage")
  set(libDir ${WORK_DIR}/stage${libDir})
endif()
separate_arguments(extraFlags UNIX_COMMAND "${CXX_FLAGS} ${LINKER_FLAGS}")
run(${CXX} -std=c++17 ${extraFlags} ${SOURCE_DIR}/ConsumerApp.cpp ${pcFlags} -o ${build}/consumer_app_pc)
# And a C program, as strict as C99 gets.
separate_arguments(cFlags UNIX_COMMAND "${C_FLAGS} ${LINKER_FLAGS}")
run(${CC} -std=c99 -Wall -Wextra -pedantic -Werror ${cFlags} ${SOURCE_DIR}/ConsumerApp.c ${pcFlags} -o ${build}/consumer_app_c)
file(WRITE ${WORK_DIR}/settings.cfg "greeting = hello from C\n")

file(WRITE ${config} "target = ${build}/libconsumer_target.so, file=${records}\n")
foreach(app consumer_app consumer_app_pc consumer_app_c)
  file(REMOVE ${records})
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libDir} ${emulator} ${build}/${app} ${records} ${WORK_DIR}/settings.cfg)
endforeach()
file(REMOVE ${config})
file(REMOVE_RECURSE ${WORK_DIR})
