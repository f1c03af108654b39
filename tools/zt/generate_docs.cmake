cmake_minimum_required(VERSION 3.25)
# Writes zt.bash (the bash completion) and, when HELP2MAN is set, zt.1 (the man page: zt --help,
# then every subcommand's --help, then the hand-written sections of MAN_INCLUDE).
# Variables: ZT, HELP2MAN, MAN_INCLUDE, OUT_DIR.

function(zt_run out)
  execute_process(COMMAND ${ZT} ${ARGN} OUTPUT_VARIABLE text RESULT_VARIABLE status ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "zt ${ARGN} failed (${status}): ${err}")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

zt_run(script completion bash)
file(WRITE ${OUT_DIR}/zt.bash.tmp "${script}")
file(RENAME ${OUT_DIR}/zt.bash.tmp ${OUT_DIR}/zt.bash)

if(NOT HELP2MAN)
  return()
endif()

# Each subcommand's help as a preformatted block, escaped for roff.
zt_run(paths completion commands)
string(REPLACE "\n" ";" paths "${paths}")
set(commands "[COMMANDS]\nEach command's own help, as `zt COMMAND --help` prints it.\n")
foreach(path IN LISTS paths)
  if(path STREQUAL "zt" OR path STREQUAL "")
    continue()
  endif()
  string(REPLACE " " ";" words "${path}")
  list(REMOVE_AT words 0)
  zt_run(help ${words} --help)
  string(REPLACE "\\" "\\e" help "${help}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" help "${help}")
  string(APPEND commands ".SS \"${path}\"\n.nf\n${help}.fi\n")
endforeach()
file(WRITE ${OUT_DIR}/zt-commands.h2m "${commands}")

execute_process(
  COMMAND ${HELP2MAN} --no-info --section=1 --name=ZentrelLib\ command-line\ tool
          --include=${OUT_DIR}/zt-commands.h2m --include=${MAN_INCLUDE} --output=${OUT_DIR}/zt.1.tmp ${ZT}
  RESULT_VARIABLE status ERROR_VARIABLE err)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "help2man failed (${status}): ${err}")
endif()
file(RENAME ${OUT_DIR}/zt.1.tmp ${OUT_DIR}/zt.1)
