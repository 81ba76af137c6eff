#!/usr/bin/env bash
# Installs what is missing, builds the Release tree and runs kxhost on the bundled sample.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_deps.sh
scripts/build.sh release
sample=tests/data/sample.mp3
host=build/release/bin/kxhost
"$host" plugins
"$host" probe "$sample"
