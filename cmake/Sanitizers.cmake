# SPDX-License-Identifier: MIT
# KEL_SANITIZER is empty, "address" (with undefined behaviour), "thread", or "coverage" for Clang's counters of what ran.
set(KEL_SANITIZER "" CACHE STRING "Build everything with this instrumentation: address, thread, coverage or none")

if(KEL_SANITIZER STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(KEL_SANITIZER STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(KEL_SANITIZER STREQUAL "coverage")
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping -fprofile-update=atomic)
  add_link_options(-fprofile-instr-generate)
endif()

# Everything tells libFuzzer which ways it went; with Clang only.
option(KEL_FUZZ "Make the fuzz targets programs of libFuzzer, which look for inputs by themselves" OFF)
if(KEL_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
