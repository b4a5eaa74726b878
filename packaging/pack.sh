#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Packs what a build folder holds: Debian packages, or for Windows a zip, and another one with the symbols.
#   pack.sh BUILD FOLDER
# FOLDER gets the packages. Debian has its libraries in a folder for each architecture, and wants that known in what
# others find them by: it has a configuration of its own, which takes what BUILD has built. The zips unpack into the same
# folder, so that symbols lie where debuggers look for them.
set -euo pipefail
build=$1 folder=$2

setting() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }

config=$build/CPackConfig.cmake
if grep -q 'CPACK_GENERATOR "DEB"' "$config"; then
  cmake -G Ninja -S "$(setting CMAKE_HOME_DIRECTORY)" -B "$build/debian" -D CMAKE_INSTALL_PREFIX=/usr \
    -D CMAKE_BUILD_TYPE="$(setting CMAKE_BUILD_TYPE)" -D CPACK_PACKAGE_CONTACT="$(setting CPACK_PACKAGE_CONTACT)" \
    -D BUILD_TESTING=OFF -D KEL_CONSOLE="$(setting KEL_CONSOLE)" -D KEL_OUTPUT="$(realpath "$build")"
  config=$build/debian/CPackConfig.cmake
fi
cpack --config "$config" -B "$folder"
if grep -q 'CPACK_GENERATOR "ZIP"' "$config"; then
  cpack --config "$config" -B "$folder" -D CPACK_ARCHIVE_COMPONENT_INSTALL=ON -D CPACK_COMPONENTS_ALL=Symbols
fi
rm -r "$folder/_CPack_Packages"
