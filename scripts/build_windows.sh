#!/usr/bin/env bash
# Cross-builds the Windows tree into build/windows with Debian's mingw-w64 toolchain,
# installing what is missing first:
#   build/windows/bin/kxhost.exe, KXLibCore.dll, KXAFLib.dll (and the test programs)
#   build/windows/plugins/KXMP3Lib.zss
# Targets may be named (default: everything):  scripts/build_windows.sh kxhost
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_deps.sh g++-mingw-w64-x86-64 cmake ninja-build libgtest-dev libcli11-dev nlohmann-json3-dev \
  wine xvfb xauth imagemagick

cmake -S . -B build/windows -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DKX_BUILD_BENCH=OFF >/dev/null
if [ $# -gt 0 ]; then
  cmake --build build/windows --target "$@"
else
  cmake --build build/windows
fi
