#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The names that a package says to have are those that its library has.
#   symbols.sh SYMBOLS FOLDER-OF-THE-LIBRARY
set -euo pipefail
diff <(sed -n 's/^ \(.*\)@.*/\1/p' "$1" | sort) \
  <(nm -D --defined-only "$2/libKELHandler.so.4" | awk '{ print $3 }' | sort)
