#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the wheels: wheels.sh BUILD-FOLDER FOLDER
# FOLDER, which is made new, gets kelhandler, with the library in it, and kelhandler_simulator, the stand-in.
set -euo pipefail
build=$1 folder=$2

rm -rf "$folder"
mkdir -p "$folder"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --component Python --prefix "$scratch" --strip >/dev/null
package=$scratch/lib/python3/dist-packages
strip -o "$package/kelhandler/libKELHandler.so.4" "$build/lib/libKELHandler.so.4"
cp "$build/python/info/WHEEL" "$package"/kelhandler-*.dist-info/
/usr/bin/python3 -m wheel pack "$package" --dest-dir "$folder"

simulator=$scratch/simulator
info=$simulator/$(basename "$package"/kelhandler-*.dist-info | sed 's/kelhandler/kelhandler_simulator/')
mkdir -p "$simulator/kelhandler_simulator" "$info"
echo '"""The stand-in pipe library of kelhandler."""' >"$simulator/kelhandler_simulator/__init__.py"
strip -o "$simulator/kelhandler_simulator/libSluiceHub.so" "$build/lib/libSluiceHub.so"
cp "$build/python/info/WHEEL" "$build/python/info/simulator/METADATA" "$info"
/usr/bin/python3 -m wheel pack "$simulator" --dest-dir "$folder"
