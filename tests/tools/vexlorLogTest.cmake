# vexlor-log end to end: writes a configuration with the file target into the compiled-in
# directory, runs the tool (through the emulator in a cross build) and checks exit statuses and
# the records it left.
#   cmake -DTOOL=<vexlor-log> -DFILE_TARGET=<libvexlor-file.so> -DCONFIG_DIR=<dir> -DWORK_DIR=<dir>
#         [-DEMULATOR=<command line>] -P <this file>
cmake_minimum_required(VERSION 3.25)
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
set(records ${WORK_DIR}/records.log)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR} ${CONFIG_DIR})
file(WRITE ${CONFIG_DIR}/vexlor.cfg "target = ${FILE_TARGET}, path=${records}, pattern=%L|%T|%c|%f|%m\ncomponent = net, 1111\n")

function(expect_status expected)
  execute_process(COMMAND ${emulator} ${TOOL} ${ARGN} RESULT_VARIABLE rc ERROR_VARIABLE err)
  if(NOT rc EQUAL expected)
    message(FATAL_ERROR "vexlor-log ${ARGN}: exit status ${rc}, expected ${expected}\n${err}")
  endif()
endfunction()

expect_status(0 -c net -l err disk full)
expect_status(1 -c net -l info filtered out)
expect_status(0 -c net -l info -t job -f forced)
expect_status(2 -c net -l bogus nothing)
expect_status(2 -c net)

file(STRINGS ${records} lines)
set(expected "3|main|net||disk full" "6|job|net||forced")
if(NOT lines STREQUAL expected)
  message(FATAL_ERROR "records: ${lines}\nexpected: ${expected}")
endif()
file(REMOVE ${CONFIG_DIR}/vexlor.cfg)
file(REMOVE_RECURSE ${WORK_DIR})
