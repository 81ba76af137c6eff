#!/usr/bin/env bash
# Quick start: installs what is missing, builds kxhost and the module (Release), then
# decodes the bundled sample to a WAV file and prints everything the module knows
# of it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_deps.sh
scripts/build.sh release kxhost KXMP3Lib
host=build/release/bin/kxhost
sample=tests/data/sample.mp3
"$host" decode "$sample" -o build/sample.wav
"$host" info "$sample"
echo
echo "Play it: aplay build/sample.wav   More: $host --help, man cli/kxhost.1"
