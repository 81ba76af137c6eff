#!/usr/bin/env bash
# Configures and builds one flavour of the tree.
#   scripts/build.sh release   -> build/release (optimised)
#   scripts/build.sh asan      -> build/asan (Debug, AddressSanitizer + UBSan)
#   scripts/build.sh tsan      -> build/tsan (ThreadSanitizer)
# Targets named after the flavour are built alone (default: everything):
#   scripts/build.sh tsan kx_reliability_tests kx_hostlib_tests
set -euo pipefail
cd "$(dirname "$0")/.."
flavour="${1:-release}"
if [ $# -gt 0 ]; then shift; fi
case "$flavour" in
  release) args=(-DCMAKE_BUILD_TYPE=Release) ;;
  asan)    args=(-DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=ON -DKX_BUILD_BENCH=OFF) ;;
  tsan)    args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DKX_TSAN=ON -DKX_BUILD_BENCH=OFF) ;;
  *) echo "unknown flavour: $flavour (release, asan, tsan)" >&2; exit 2 ;;
esac
cmake -S . -B "build/$flavour" -G Ninja "${args[@]}" >/dev/null
if [ $# -gt 0 ]; then
  cmake --build "build/$flavour" --target "$@"
else
  cmake --build "build/$flavour"
fi
