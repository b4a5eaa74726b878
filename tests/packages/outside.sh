#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds programs outside of the source tree against an installed KELHandler, and runs them.
#   outside.sh WAY PREFIX FOLDER FILES...
# WAY is find_package, pkg-config or import-library; FILES are copied into FOLDER, which is made new. CC and CXX are the
# compilers, and EMULATOR runs what they make if this system cannot.
set -euo pipefail
way=$1 prefix=$2 folder=$3
shift 3

rm -rf "$folder"
mkdir -p "$folder"
cp "$@" "$folder"
cd "$folder"

# Nothing of the caller's surroundings finds a library or a tool for a client.
clean() { env -i PATH=/usr/bin:/bin CC="$CC" CXX="$CXX" "$@"; }

clients=(client_c client_cpp client_layer)
case $way in
  find_package)
    clean cmake -G Ninja -S . -B . -D CMAKE_PREFIX_PATH="$prefix" ${TOOLCHAIN:+-D CMAKE_TOOLCHAIN_FILE="$TOOLCHAIN"}
    clean cmake --build .
    clients+=(controls)
    ;;
  pkg-config)
    pc() { clean PKG_CONFIG_PATH="$(find "$prefix/lib" -name pkgconfig)" pkg-config "$@" kelhandler; }
    [[ $(pc --modversion) == 4.1.0.21 ]]
    read -ra flags <<<"$(pc --cflags --libs) -Wl,-rpath,$(pc --variable=libdir)"
    ;;&
  import-library)
    flags=(-I "$prefix/include" "$prefix/lib/libKELHandler.dll.a" -static)
    ;;&
  pkg-config | import-library)
    clean "$CC" client.c "${flags[@]}" -o client_c
    clean "$CXX" client.cpp "${flags[@]}" -o client_cpp
    clean "$CXX" -std=c++17 layer.cpp "${flags[@]}" -o client_layer
    ;;
esac

if [[ -n ${EMULATOR:-} ]]; then
  # A DLL is looked for beside the program.
  cp "$prefix"/bin/*.dll .
  run=("$EMULATOR") suffix=.exe
else
  # The library comes from the prefix, by the name that stays; the pipe library is the library's own business.
  for client in client_c client_cpp client_layer; do
    needed=$(readelf -d "$client" | grep NEEDED)
    [[ $needed == *'[libKELHandler.so.4]'* && $needed != *SluiceHub* ]]
    clean ldd "$client" | grep -E 'KELHandler|SluiceHub' | while read -r name _ found _; do
      echo "$name is $found"
      [[ $(realpath "$found") == "$prefix"/* ]]
    done
  done
  run=(clean) suffix=""
fi
for client in "${clients[@]}"; do
  "${run[@]}" "./$client$suffix" 010000000200000003000000 68656c6c6f
done
