#!/usr/bin/env bash
# Installs what is missing, builds the Release and the sanitizer (ASan + UBSan, with
# LeakSanitizer) trees and runs the whole test suite in both; then the thread tests
# under ThreadSanitizer, and every fuzz target for a bounded time on its seed corpus
# (a clang build in build/fuzz). Any failure, sanitizer report or fuzz finding fails
# the run; a fuzz finding is also copied to tests/data/regression/ (fuzz/run.sh).
#
# Then the Windows build (mingw-w64) and its tests under Wine (scripts/run_windows_tests.sh).
#
# Environment: KX_CI_FUZZ_SECONDS seconds per fuzz target (default 60; 0 skips the
# fuzz run), KX_CI_TSAN=0 skips the ThreadSanitizer run, KX_CI_WINDOWS=0 the Windows run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_deps.sh
jobs="$(nproc)"
started=$SECONDS
stamp() { echo "== $1 ($(( (SECONDS - started) / 60 )) min $(( (SECONDS - started) % 60 )) s) =="; }

for flavour in release asan; do
  scripts/build.sh "$flavour"
  stamp "tests: $flavour"
  (cd "build/$flavour" && \
   ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
   ctest --output-on-failure -j "$jobs" --timeout 900)
done

if [ "${KX_CI_TSAN:-1}" != 0 ]; then
  # The suites that run threads: the host library's (objects, locks, registries) and
  # the reliability suite's 16-thread stress tests.
  scripts/build.sh tsan kx_hostlib_tests kx_reliability_tests
  stamp "tests: tsan"
  export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
  export KX_ANSI_CODEPAGE=1252
  build/tsan/bin/kx_hostlib_tests
  build/tsan/bin/kx_reliability_tests --gtest_filter='Threads.*'
fi

if [ "${KX_CI_WINDOWS:-1}" != 0 ]; then
  stamp "windows: build and tests under Wine"
  scripts/run_windows_tests.sh
fi

fuzz_seconds="${KX_CI_FUZZ_SECONDS:-60}"
if [ "$fuzz_seconds" != 0 ]; then
  stamp "fuzz: ${fuzz_seconds} s per target"
  KX_FUZZ_JOBS="$jobs" fuzz/run.sh "$fuzz_seconds"
fi
stamp "done"
