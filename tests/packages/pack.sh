#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the packages of a build and unpacks them:
#   pack.sh ROOT BUILD FOLDER
# FOLDER, which is made new, gets the packages, and in FOLDER/root all that is in them.
set -euo pipefail
root=$1 build=$2 folder=$3

rm -rf "$folder"
mkdir -p "$folder/root"
"$root/packaging/pack.sh" "$build" "$folder"
cd "$folder/root"
for package in ../*.deb ../*.zip; do
  case $package in
    *'*'*) ;;
    *.deb) dpkg-deb -x "$package" . ;;
    *.zip) cmake -E tar xf "$package" ;;
  esac
done
