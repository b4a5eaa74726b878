# SPDX-License-Identifier: MIT
# Writes include/kel/tasks.hpp, the constants for C++ clients, from the built-in task table:
#   cmake -P cmake/TasksHeader.cmake
# With -D CHECK=ON nothing is written: it fails if the header is not what would be.
cmake_minimum_required(VERSION 3.25)

set(table "src/catalogue/KEL_ALLTASKS.csv")
set(header "include/kel/tasks.hpp")
set(root "${CMAKE_CURRENT_LIST_DIR}/..")
set(width 120)

set(target_KEL_USER_MODE_DRIVER userDriver)
set(target_KEL_FIRMWARE firmware)
set(target_KEL_TRACE trace)
set(target_KEL_UPPER_DSPS upperDsps)
set(task_VAL ValTask)
set(task_REF RefTask)

file(STRINGS "${root}/${table}" rows)
set(constants "")
set(all "")
foreach(row IN LISTS rows)
  set(name "")
  if(row MATCHES "^([A-Za-z_][A-Za-z0-9_]*),  [0-9]+, [0-9]+, ([A-Z_]+), [0-9]+, (VAL|REF), [0-9]+, (0x[0-9a-f]+)$")
    set(name "${CMAKE_MATCH_1}")
    set(target "${target_${CMAKE_MATCH_2}}")
    set(type "${task_${CMAKE_MATCH_3}}")
    set(tui "${CMAKE_MATCH_4}")
  endif()
  if(NOT name OR NOT target)
    message(FATAL_ERROR "${table}: no constant can be made of this row:\n  ${row}")
  endif()
  set(head "inline constexpr ${type} ${name}{")
  set(values "\"${name}\", ${tui}, Target::${target}};")
  string(LENGTH "${head}${values}" length)
  if(length GREATER width)
    string(APPEND head "\n    ")
  endif()
  string(APPEND constants "${head}${values}\n")
  string(APPEND all "    {${name}.name, ${name}.tui},\n")
endforeach()

set(text "// SPDX-License-Identifier: MIT
/**
 * @file
 * The tasks of the built-in table as constants, under their own names and in the table's order.
 *
 *     kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL
 *
 * Made from ${table} by `cmake -P cmake/TasksHeader.cmake`; not to be changed by hand.
 */
#pragma once

#include \"kel/task.hpp\"

namespace kel {
inline namespace v1 {
namespace tasks {

${constants}
/** All of them, in that order. */
inline constexpr NamedTui kBuiltInTable[] = {
${all}};

}  // namespace tasks
}  // namespace v1
}  // namespace kel
")

if(NOT CHECK)
  file(WRITE "${root}/${header}" "${text}")
  return()
endif()
file(READ "${root}/${header}" found)
if(NOT found STREQUAL text)
  message(FATAL_ERROR "${header} is not what ${table} makes; `cmake -P cmake/TasksHeader.cmake` renews it")
endif()
