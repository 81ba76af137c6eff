#!/usr/bin/env bash
# Installs what is missing, builds the Release and the sanitizer (ASan + UBSan) trees
# and runs the whole test suite in both.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_deps.sh
jobs="$(nproc)"
for flavour in release asan; do
  scripts/build.sh "$flavour"
  echo "== tests: $flavour =="
  (cd "build/$flavour" && \
   ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
   ctest --output-on-failure -j "$jobs" --timeout 900)
done
