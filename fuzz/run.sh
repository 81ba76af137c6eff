#!/usr/bin/env bash
# Builds the fuzz targets with clang (AddressSanitizer, UndefinedBehaviorSanitizer,
# LeakSanitizer and libFuzzer's coverage) in build/fuzz, makes the seed corpora
# (fuzz/make_corpus.sh) and runs every target for SECONDS seconds on its seeds and on
# the corpus it grew in earlier runs (build/fuzz/corpus/<target>).
#
#   fuzz/run.sh [SECONDS] [TARGET...]      default: 60 seconds, every target
#
# Any finding (crash, out-of-bounds access, undefined behaviour, leak, timeout,
# out-of-memory, broken promise of a target body) is copied to
# tests/data/regression/<target>/, which the test suite replays, and the script
# fails. A summary line per target gives executions, coverage and findings; the logs
# are in build/fuzz/logs.
#
# Environment: KX_FUZZ_JOBS targets at once (default 1), KX_FUZZ_DIR build folder
# (default build/fuzz).
set -euo pipefail
cd "$(dirname "$0")/.."
root="$(pwd)"
seconds="${1:-60}"
if [ $# -gt 0 ]; then shift; fi
all=(module id3v1 id3v2 ape_tag riff_info frame_header vbr_header)
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then targets=("${all[@]}"); fi
jobs="${KX_FUZZ_JOBS:-1}"
dir="${KX_FUZZ_DIR:-build/fuzz}"

if [ ! -f "$dir/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKX_SANITIZE=ON -DKX_BUILD_FUZZ=ON -DKX_BUILD_TESTS=OFF -DKX_BUILD_BENCH=OFF >/dev/null
fi
cmake --build "$dir" --target fuzz_all
fuzz/make_corpus.sh "$dir/seeds" >/dev/null

# The largest input each target is given: a whole small file for the module, a tag
# or a few frames for the others.
max_len() {
  case "$1" in
    module) echo 32768 ;;
    vbr_header) echo 20000 ;;
    *) echo 8192 ;;
  esac
}

run_target() {
  local t="$1"
  mkdir -p "$dir/corpus/$t" "$dir/artifacts/$t" "$dir/logs"
  rm -f "$dir/artifacts/$t"/*
  local status=0 began=$SECONDS
  ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=0 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  KX_ANSI_CODEPAGE=1252 \
    "$dir/bin/fuzz_$t" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -max_len="$(max_len "$t")" \
      -dict="fuzz/dict/$t.dict" -artifact_prefix="$dir/artifacts/$t/" -print_final_stats=1 \
      "$dir/corpus/$t" "$dir/seeds/$t" >"$dir/logs/$t.log" 2>&1 || status=$?
  local ran=$((SECONDS - began)) execs cov ft corp findings
  execs="$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$dir/logs/$t.log" | grep -o '[0-9]*$' || echo '?')"
  cov="$(grep -o 'cov: [0-9]*' "$dir/logs/$t.log" | tail -1 | grep -o '[0-9]*' || echo '?')"
  ft="$(grep -o 'ft: [0-9]*' "$dir/logs/$t.log" | tail -1 | grep -o '[0-9]*' || echo '?')"
  corp="$(ls "$dir/corpus/$t" | wc -l)"
  findings="$(ls "$dir/artifacts/$t" | wc -l)"
  if [ "$status" -ne 0 ] && [ "$findings" -eq 0 ]; then findings=1; fi
  echo "fuzz_$t: ran ${ran}s (asked ${seconds}s), executions ${execs:-?}, coverage ${cov:-?} edges / ${ft:-?} features, corpus ${corp}, findings ${findings}" \
    >"$dir/logs/$t.summary"
  if [ "$findings" -ne 0 ]; then
    mkdir -p "tests/data/regression/$t"
    for f in "$dir/artifacts/$t"/*; do
      [ -e "$f" ] && cp "$f" "tests/data/regression/$t/"
    done
    return 1
  fi
}

failed=0
running=0
for t in "${targets[@]}"; do
  run_target "$t" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || failed=1
    running=$((running - 1))
  fi
done
while [ "$running" -gt 0 ]; do
  wait -n || failed=1
  running=$((running - 1))
done

for t in "${targets[@]}"; do cat "$dir/logs/$t.summary"; done
if [ "$failed" -ne 0 ]; then
  echo "fuzzing found problems: inputs copied to tests/data/regression/, logs in $root/$dir/logs" >&2
  exit 1
fi
