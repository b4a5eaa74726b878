#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Whether the client layer keeps to what Microsoft's compiler takes, as far as Clang can tell on another system:
#   microsoft_rules.sh INCLUDE-FOLDER HEADER...
# Clang takes each header by itself, with that compiler's rules of the language, and Windows' headers from mingw-w64.
# Those are written for GCC, which Clang therefore says that it is.
set -euo pipefail
include=$1
shift
(($#)) || exit 2
library=$(x86_64-w64-mingw32-g++-posix -print-file-name=include/c++)
# With these rules Clang leaves out what GCC says of its atomic types.
atomics=(-D__GCC_ATOMIC_TEST_AND_SET_TRUEVAL=1)
for type in BOOL CHAR CHAR8_T CHAR16_T CHAR32_T WCHAR_T SHORT INT LONG LLONG POINTER; do
  atomics+=("-D__GCC_ATOMIC_${type}_LOCK_FREE=2")
done
status=0
for header in "$@"; do
  clang++ --target=x86_64-w64-mingw32 -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Werror \
    -fms-compatibility -fms-extensions -fms-compatibility-version=19.29 \
    -U_MSC_VER -D__STRICT_ANSI__ -D__GNUC__=12 -D__GNUC_MINOR__=2 -D__GNUC_PATCHLEVEL__=0 "${atomics[@]}" \
    -nostdlibinc -isystem "$library" -isystem "$library/x86_64-w64-mingw32" -isystem /usr/x86_64-w64-mingw32/include \
    -I "$include" -include "$header" -x c++ /dev/null || status=1
done
exit "$status"
