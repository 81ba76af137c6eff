#!/usr/bin/env bash
# Cross-builds the Windows tree into build/windows with Debian's mingw-w64 toolchain,
# installing what is missing first:
#   build/windows/bin/kxhost.exe, KXLibCore.dll, KXAFLib.dll (and the test programs)
#   build/windows/plugins/KXMP3Lib.zss
# Targets may be named (default: everything):  scripts/build_windows.sh kxhost
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(g++-mingw-w64-x86-64 cmake ninja-build libgtest-dev libcli11-dev nlohmann-json3-dev
          wine xvfb xauth imagemagick)
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq "${missing[@]}"
fi

cmake -S . -B build/windows -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DKX_BUILD_BENCH=OFF >/dev/null
if [ $# -gt 0 ]; then
  cmake --build build/windows --target "$@"
else
  cmake --build build/windows
fi
