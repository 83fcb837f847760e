# vexlor-log end to end: writes configurations into the compiled-in directory, runs the tool
# (through the emulator in a cross build) and checks exit statuses, messages and the records.
#   cmake -DTOOL=<vexlor-log> -DFILE_TARGET=<libvexlor-file.so> -DCONFIG_DIR=<dir> -DWORK_DIR=<dir>
#         [-DEMULATOR=<command line>] -P <this file>
cmake_minimum_required(VERSION 3.25)
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
set(records ${WORK_DIR}/records.log)
set(config ${CONFIG_DIR}/vexlor.cfg)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR} ${CONFIG_DIR})

# expect(<status> <stderr regex> [INPUT text | INPUT_FILE path] args...)
function(expect expected errorPattern)
  cmake_parse_arguments(ARG "" "INPUT;INPUT_FILE" "" ${ARGN})
  set(inputFile ${WORK_DIR}/input.txt)
  file(WRITE ${inputFile} "${ARG_INPUT}")
  if(ARG_INPUT_FILE)
    set(inputFile ${ARG_INPUT_FILE})
  endif()
  execute_process(COMMAND ${emulator} ${TOOL} ${ARG_UNPARSED_ARGUMENTS} INPUT_FILE ${inputFile}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  # A success says nothing unless told to (a sanitizer's runtime may still print its own notes).
  if(NOT rc EQUAL expected OR NOT err MATCHES "${errorPattern}" OR (errorPattern STREQUAL "" AND err MATCHES "vexlor-log:"))
    message(FATAL_ERROR "vexlor-log ${ARG_UNPARSED_ARGUMENTS}: exit status ${rc}, expected ${expected}\n"
                        "stderr: ${err}\nexpected to match: ${errorPattern}")
  endif()
  set(out "${out}" PARENT_SCOPE)
  set(err "${err}" PARENT_SCOPE)
endfunction()

# The first try of a new user: no configuration at all.
file(REMOVE ${config})
expect(1 "level info is not enabled for component \"shell\" \\(mask 0x0\\), nothing logged.\n.*\"component = shell, 1111111\" in ${config}, or log anyway with -f" hello)
expect(3 "^vexlor-log: no log target is loaded, nothing was written.\n  ${config} names none" -f hello)
expect(0 "" --help)
if(NOT out MATCHES "^usage: vexlor-log")
  message(FATAL_ERROR "--help printed: ${out}")
endif()
expect(0 "" -h)
expect(2 "unknown level \"bogus\"" -c net -l bogus nothing)
expect(2 "usage:" --bogus)

file(WRITE ${config} "target = ${FILE_TARGET}, path=${records}, pattern=%L|%T|%c|%f|%m\ncomponent = net, 1111\n")
expect(0 "" -c net -l err disk full)
expect(1 "level info is not enabled for component \"net\" \\(mask 0xf\\)" --component net --level info filtered out)
expect(0 "" -c net -l info -t job -f forced)
# Standard input: one record per line, empty lines too; a filtered line is read and reported once.
expect(0 "" INPUT "first\n\nthird\n" --component=net --level=crit --thread=pipe)
expect(1 "^vexlor-log: level debug" INPUT "x\ny\n" -c net -l debug)
string(REGEX MATCHALL "vexlor-log:" reports "${err}")
list(LENGTH reports reportCount)
if(NOT reportCount EQUAL 1)
  message(FATAL_ERROR "two filtered lines should give one report:\n${err}")
endif()

# A NUL byte ends a line's record and a line is cut after 2047 bytes, each said once; the rest of a
# long line is read and dropped.
string(REPEAT "x" 3000 long)
execute_process(COMMAND printf "a\\000b\\nc\\000d\\n${long}\\n${long}\\nend\\n" OUTPUT_FILE ${WORK_DIR}/cut.txt)
expect(0 "^vexlor-log: line 1 holds a NUL byte: its record ends there \\(later lines are cut the same way without another word\\)\nvexlor-log: line 3 is 3000 bytes long: only its first 2047 are logged \\(a record holds no more; later lines are cut the same way without another word\\)\n$"
       INPUT_FILE ${WORK_DIR}/cut.txt -c net -l err -t cut)

file(STRINGS ${records} lines)
string(REPEAT "x" 2047 kept)
set(expected "3|main|net||disk full" "6|job|net||forced" "2|pipe|net||first" "2|pipe|net||"
             "2|pipe|net||third" "3|cut|net||a" "3|cut|net||c" "3|cut|net||${kept}" "3|cut|net||${kept}"
             "3|cut|net||end")
if(NOT lines STREQUAL expected)
  message(FATAL_ERROR "records: ${lines}\nexpected: ${expected}")
endif()
file(REMOVE ${config})
file(REMOVE_RECURSE ${WORK_DIR})
