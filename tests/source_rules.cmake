# SPDX-License-Identifier: MIT
# Checks what no compiler checks: who may know the operating system, which folder of src/ may include which, and who
# above the library may call it.
#   cmake -D ROOT=<repository> -P source_rules.cmake
cmake_minimum_required(VERSION 3.25)

# Folders of src/ by height. Includes point downwards, or stay in their folder.
set(height_platform 0)
set(height_logging 1)
foreach(folder sequencer catalogue listeners adapter version)
  set(height_${folder} 2)
endforeach()
set(height_engine 3)
set(height_interface 4)
# Between folders of one height these includes are allowed: "<folder> <header>".
set(allowed_between_siblings
  "sequencer listeners/SafeQueue.h")

set(system_headers
  "^([Ww]indows|winsock2?|ws2tcpip|winreg|winnt|winbase|process|io|direct|unistd|pthread|dlfcn|sched|semaphore|fcntl"
  "|dirent|poll|spawn|strings|syscall|elf|link|execinfo)\\.h$|^(sys|linux|asm|bits|arpa|net|netinet)/")
string(CONCAT system_headers ${system_headers})
set(system_macros "(_WIN32|_WIN64|WIN32|__linux|linux|__unix|unix|__APPLE__|__MINGW|_MSC_VER|__GLIBC__|_POSIX)")

# What stands above the library calls it through the client layer. The layer's way into this process calls it, of course,
# and so do the clients in C and what shows the bare calls.
set(above_library "^(include/kel|fleet|tools|python|examples)/")
set(calls_library
  "^include/kel/(library|detail/process_road)\\.hpp$|^examples/c/"
  "|^tools/kelctl/((bare_calls|tour)\\.h|(library|version)\\.cpp)$")
string(CONCAT calls_library ${calls_library})

set(faults "")
function(fault file text)
  set(faults "${faults}  ${file}: ${text}\n" PARENT_SCOPE)
endfunction()

# Lines that hold a '#' directive, with what would confuse a CMake list taken out.
function(read_directives file result)
  file(READ "${ROOT}/${file}" content)
  string(REGEX REPLACE "[][;\\]" "_" content "${content}")
  string(REGEX MATCHALL "(^|\n)[ \t]*#[^\n]*" lines "${content}")
  set(${result} "${lines}" PARENT_SCOPE)
endfunction()

foreach(folder include src simulator fleet console tools tests bench fuzz examples python)
  file(GLOB_RECURSE found RELATIVE "${ROOT}" "${ROOT}/${folder}/*.h" "${ROOT}/${folder}/*.hpp" "${ROOT}/${folder}/*.c"
       "${ROOT}/${folder}/*.cpp")
  list(APPEND files ${found})
endforeach()
list(LENGTH files count)
if(count EQUAL 0)
  message(FATAL_ERROR "no sources under ROOT=${ROOT}")
endif()

foreach(file IN LISTS files)
  # The client layer is for every compiler, and what GCC and Clang have beyond the language goes unnoticed there.
  if(file MATCHES "^include/kel/")
    file(STRINGS "${ROOT}/${file}" own REGEX "__(attribute__|builtin_|extension__|typeof|int128)|pragma GCC")
    # Clang alone checks the locks, and is told of them where it is the compiler.
    if(own AND NOT file STREQUAL "include/kel/detail/sync.hpp")
      fault("${file}" "has what only some compilers know: ${own}")
    endif()
  endif()

  read_directives("${file}" directives)
  # Platforms are known to the platform's own code, to what the client layer, a tool, keld and the console ask beyond it,
  # to what is for Linux alone, and to tests that are about one of them.
  string(REGEX MATCH
         "^src/platform/|^include/kel/detail/|^python/|^fleet/.*/posix/|^(tests|tools|console)/.*/(posix|win32)/"
         knows_system "${file}")
  set(includes_system "${knows_system}")
  if(file MATCHES "^include/kel/" AND NOT file MATCHES "^include/kel/detail/(windows|fleet_library)\\.hpp$")
    set(includes_system "")
  endif()
  string(REGEX REPLACE "^src/([^/]+)/.*" "\\1" folder "${file}")
  foreach(line IN LISTS directives)
    if(line MATCHES "#[ \t]*include[ \t]*[<\"]([^>\"]+)[>\"]")
      set(header "${CMAKE_MATCH_1}")
      # The C examples wait with POSIX semaphores, which mingw-w64 has as well.
      if(NOT includes_system AND header MATCHES "${system_headers}"
         AND NOT "${file} ${header}" MATCHES "^examples/c/.* semaphore\\.h$")
        fault("${file}" "includes the operating system's <${header}>")
      endif()
      if(header STREQUAL "KELHandler.h" AND file MATCHES "${above_library}" AND NOT file MATCHES "${calls_library}")
        fault("${file}" "calls the library past the client layer")
      endif()
      string(REGEX REPLACE "/.*" "" other "${header}")
      if(NOT file MATCHES "^src/" OR NOT DEFINED height_${other} OR NOT header MATCHES "/")
        continue()
      endif()
      if(NOT DEFINED height_${folder})
        fault("${file}" "lies in a folder without a height; give it one in tests/source_rules.cmake")
      elseif(NOT other STREQUAL folder)
        if(height_${other} GREATER height_${folder})
          fault("${file}" "includes ${header}, which stands higher")
        elseif(height_${other} EQUAL height_${folder} AND NOT "${folder} ${header}" IN_LIST allowed_between_siblings)
          fault("${file}" "includes ${header}, of a folder beside its own")
        elseif(header MATCHES "^platform/.+/")
          fault("${file}" "includes ${header}, which is one platform's own")
        endif()
      endif()
    elseif(NOT knows_system AND line MATCHES "#[ \t]*(if|elif)(.*[^A-Za-z0-9_])${system_macros}")
      fault("${file}" "asks for the operating system with ${CMAKE_MATCH_3}")
    endif()
  endforeach()
endforeach()

if(faults)
  message(FATAL_ERROR "Rules of the sources are broken:\n${faults}")
endif()
message(STATUS "${count} sources keep the rules")
