# SPDX-License-Identifier: MIT
# What leaves the library and what it needs, read from the built file.
#   cmake -D LIBRARY=<file> -D PIPE_LIBRARY=<file> -D OBJDUMP=<tool> -D NM=<tool> -D SUBJECT=<one of those below>
#         -P exports.cmake
cmake_minimum_required(VERSION 3.25)

set(exports
  KEL_Connect KEL_ConnectEx KEL_Disconnect KEL_Finalize KEL_GetCtrlStatus KEL_GetVersion KEL_Init
  KEL_RegisterCtrlStatusUpdatesCB KEL_SendReceiveAsyncKEL KEL_SendReceiveAsyncKELEx KEL_SendReceiveKEL
  KEL_SendReceiveKELEx KEL_SetConnParams KEL_UnregisterCtrlStatusUpdatesCB KEL_ValidateVersion)
set(pipe_imports
  Beacon_WriteTrace IsVersionValidationEnabled SLUICE_HUB_Finalize SLUICE_HUB_GetCtrlStatus SLUICE_HUB_Init
  SLUICE_HUB_RegisterCtrlStatusUpdatesCB SLUICE_HUB_SetConnParams SLUICE_HUB_UnregisterCtrlStatusUpdatesCB
  ValidateVersion)

function(run result)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE "[][;]" "_" output "${output}")  # a CMake list would stumble over them
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

# The first group of `regex`, from each line that it fits.
function(collect result text regex)
  string(REPLACE "\n" ";" lines "${text}")
  set(found "")
  foreach(line IN LISTS lines)
    if(line MATCHES "${regex}")
      list(APPEND found "${CMAKE_MATCH_1}")
    endif()
  endforeach()
  list(SORT found)
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

function(expect_same what found expected)
  if(NOT found STREQUAL expected)
    message(FATAL_ERROR "${what} of ${LIBRARY}:\n  ${found}\nexpected:\n  ${expected}")
  endif()
  message(STATUS "${what}: ${found}")
endfunction()

run(headers "${OBJDUMP}" -p "${LIBRARY}")

# ---- Where libraries are .so files ----

if(SUBJECT STREQUAL "so-exports")
  run(defined "${NM}" -D --defined-only "${LIBRARY}")
  collect(found "${defined}" "^[0-9a-f]+ +[A-Za-z] +([^ ]+)$")
  expect_same("exports" "${found}" "${exports}")

elseif(SUBJECT STREQUAL "so-imports")
  # Of the names that the library leaves open, those which the pipe library has.
  run(undefined "${NM}" -D --undefined-only "${LIBRARY}")
  run(offered "${NM}" -D --defined-only "${PIPE_LIBRARY}")
  collect(wanted "${undefined}" "^ +[A-Za-z] +([^ @]+)")
  collect(offered "${offered}" "^[0-9a-f]+ +[A-Za-z] +([^ @]+)$")
  set(found "")
  foreach(name IN LISTS wanted)
    if(name IN_LIST offered)
      list(APPEND found "${name}")
    endif()
  endforeach()
  expect_same("imports from the pipe library" "${found}" "${pipe_imports}")
  collect(needed "${headers}" "NEEDED +(lib(SluiceHub|KELHandler)[^ ]*)")
  expect_same("pipe library" "${needed}" "libSluiceHub.so")

elseif(SUBJECT STREQUAL "soname")
  collect(soname "${headers}" "SONAME +([^ ]+)")
  expect_same("SONAME" "${soname}" "libKELHandler.so.4")
  # A RUNPATH, which LD_LIBRARY_PATH goes before, and no RPATH, which goes before that.
  collect(paths "${headers}" "((RPATH|RUNPATH) +[^ ]+)")
  string(REGEX REPLACE " +" " " paths "${paths}")
  expect_same("search path" "${paths}" "RUNPATH $ORIGIN")

# ---- Where libraries are .dll files ----

elseif(SUBJECT STREQUAL "dll-exports")
  string(REGEX REPLACE ".*Ordinal/Name Pointer. Table" "" names "${headers}")
  collect(found "${names}" "^[ \t]+_ *[0-9]+_.* ([A-Za-z_][A-Za-z0-9_]*)$")
  expect_same("exports" "${found}" "${exports}")

elseif(SUBJECT STREQUAL "dll-imports")
  string(REGEX MATCH "DLL Name: SluiceHub.dll\n[^\n]*\n([^\n]+\n)+" imports "${headers}")
  collect(found "${imports}" "^[ \t]+[0-9a-f]+[ \t]+[0-9]+[ \t]+([A-Za-z_][A-Za-z0-9_]*)")
  expect_same("imports from the pipe library" "${found}" "${pipe_imports}")

elseif(SUBJECT STREQUAL "dll-runtime")
  # Nothing that a Windows machine does not have, save the pipe library.
  collect(dlls "${headers}" "DLL Name: ([^ ]+)")
  list(TRANSFORM dlls TOLOWER)
  list(SORT dlls)
  expect_same("libraries" "${dlls}" "advapi32.dll;kernel32.dll;msvcrt.dll;sluicehub.dll")

elseif(SUBJECT STREQUAL "dll-version")
  file(READ "${LIBRARY}" bytes HEX)
  # The fixed part: its signature and format, then 4.1 and 0.21 as file version.
  if(NOT bytes MATCHES "bd04effe000001000100040015000000")
    message(FATAL_ERROR "${LIBRARY} has no version record of 4.1.0.21")
  endif()
  # "InternalName" and its value "KelHandler", both in UTF-16 with an end mark and padding.
  if(NOT bytes MATCHES
     "49006e007400650072006e0061006c004e0061006d0065000*4b0065006c00480061006e0064006c0065007200")
    message(FATAL_ERROR "${LIBRARY} is not named KelHandler in its version record")
  endif()

else()
  message(FATAL_ERROR "SUBJECT=${SUBJECT} is none")
endif()
