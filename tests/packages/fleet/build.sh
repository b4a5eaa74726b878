#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds a client of devices on other hosts against an installed KELHandler, out of reach of this tree, and runs it and
# keld where there is no server: each has to tell that.
#   build.sh PREFIX FOLDER
set -euo pipefail
prefix=$1 folder=$2

rm -rf "$folder"
mkdir -p "$folder"
cp "$(dirname "${BASH_SOURCE[0]}")"/{CMakeLists.txt,client.cpp} "$folder"
cd "$folder"
clean() { env -i PATH=/usr/bin:/bin CC="$CC" CXX="$CXX" LD_LIBRARY_PATH="$(echo "$prefix"/lib/*-linux-gnu)" "$@"; }
clean cmake -G Ninja -S . -B . -D CMAKE_PREFIX_PATH="$prefix"
clean cmake --build .
clean ./client nats://127.0.0.1:1/lab/bench7 | tee told
grep -q "there is no connection" told
if clean "$prefix/bin/keld" check --site lab --device bench7 --server 127.0.0.1:1 >told; then exit 1; fi
grep "mistake  the NATS servers" told
