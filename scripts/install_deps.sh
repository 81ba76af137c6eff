#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those that are missing.
# With package names as arguments: those instead (the Windows build's own list).
set -euo pipefail

packages=(
  build-essential g++ cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libsndfile1-dev libcli11-dev nlohmann-json3-dev libasound2-dev
  clang libclang-rt-14-dev
  lame sox mpg123 ffmpeg python3-mutagen eyed3 id3v2
)
if [ $# -gt 0 ]; then packages=("$@"); fi

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
