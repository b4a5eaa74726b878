#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds a client in the manner of Microsoft's compiler and linker against an unpacked zip, and runs it:
#   microsoft.sh CLIENT.C PREFIX FOLDER
# FOLDER is made new. EMULATOR runs the client. The system's own library is mingw-w64's.
set -euo pipefail
client=$1 prefix=$2 folder=$3

rm -rf "$folder"
mkdir -p "$folder"
cd "$folder"
clang --driver-mode=cl --target=x86_64-pc-windows-msvc /nologo /c /W4 /WX /Zl /GS- /clang:-ffreestanding \
  /I "$prefix/include" /Foclient.obj -- "$client"
lld-link /nologo /nodefaultlib /entry:start /subsystem:console /out:client.exe client.obj \
  "$prefix/lib/KELHandler.lib" "$prefix/lib/SluiceHub.lib" /usr/x86_64-w64-mingw32/lib/libkernel32.a
cp "$prefix"/bin/*.dll .
"$EMULATOR" ./client.exe
