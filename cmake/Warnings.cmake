# SPDX-License-Identifier: MIT
# Warnings for the project's own code; they are errors. Included after the packages' sources, which keep their own.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-sign-conversion>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
endif()
