#!/usr/bin/env bash
# Makes the packages of a build and unpacks them:
#   pack.sh CPACK-CONFIG FOLDER
# FOLDER, which is made new, gets the packages, and in FOLDER/root all that is in them.
set -euo pipefail
config=$1 folder=$2

rm -rf "$folder"
mkdir -p "$folder/root"
cpack --config "$config" -B "$folder"
cd "$folder/root"
for package in ../*.deb ../*.zip; do
  case $package in
    *'*'*) ;;
    *.deb) dpkg-deb -x "$package" . ;;
    *.zip) cmake -E tar xf "$package" ;;
  esac
done
