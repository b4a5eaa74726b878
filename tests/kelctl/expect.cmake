# SPDX-License-Identifier: MIT
# Runs the command behind "--" and checks what became of it:
#   STATUS  the status that it ends with
#   OUTPUT  a regular expression that its output and error output, together, match; empty for any
#   ROWS    a number and a regular expression that they match so many times
#   FROM    a file that is its standard input
#   TO      a file that gets its output alone, without its error output
#   SAME    two files, with | between them, that have the same bytes afterwards
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE ${last})
  if(behind)
    list(APPEND command "${CMAKE_ARGV${i}}")
  elseif("${CMAKE_ARGV${i}}" STREQUAL "--")
    set(behind TRUE)
  endif()
endforeach()
if(FROM)
  set(streams INPUT_FILE "${FROM}")
endif()
if(TO)
  execute_process(COMMAND ${command} RESULT_VARIABLE status OUTPUT_FILE "${TO}" ERROR_VARIABLE output ${streams})
else()
  execute_process(COMMAND ${command} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output ${streams})
endif()
message("${output}")

if(NOT status STREQUAL STATUS)
  message(SEND_ERROR "ended with status ${status}, not ${STATUS}")
endif()
if(OUTPUT AND NOT output MATCHES "${OUTPUT}")
  message(SEND_ERROR "the output does not match ${OUTPUT}")
endif()
if(ROWS MATCHES "^([0-9]+) (.*)")
  set(wanted "${CMAKE_MATCH_1}")
  string(REGEX MATCHALL "${CMAKE_MATCH_2}" rows "${output}")
  list(LENGTH rows count)
  if(NOT count EQUAL wanted)
    message(SEND_ERROR "${count} rows, not ${wanted}")
  endif()
endif()
if(SAME MATCHES "(.*)\\|(.*)")
  execute_process(COMMAND "${CMAKE_COMMAND}" -E compare_files "${CMAKE_MATCH_1}" "${CMAKE_MATCH_2}" RESULT_VARIABLE differ)
  if(differ)
    message(SEND_ERROR "${CMAKE_MATCH_1} and ${CMAKE_MATCH_2} differ")
  endif()
endif()
