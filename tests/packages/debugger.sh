#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# A stripped DLL leads to its symbols, and these to the source:
#   debugger.sh FOLDER NM ADDR2LINE
set -euo pipefail
cd "$1"
address=$("$2" KELHandler.dll.debug | awk '$3 == "KEL_Init" { print $1 }')
"$3" -e KELHandler.dll "0x$address" | grep 'src/interface/KELHandler.cpp:[0-9]'
