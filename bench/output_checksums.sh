#!/bin/sh
# Prints a SHA-256 of kxhost's decoded output, 16-bit and 64-bit float, for each
# file named, one line each: "<sha256>  <bits> <file>". Kept beside the benchmarks
# so that a speed change can be checked to leave every output byte as it was: run
# it before and after the change and compare the two listings with diff.
#
# Usage: bench/output_checksums.sh KXHOST FILE...
set -eu
kxhost=$1
shift
for file in "$@"; do
  for bits in 16 64; do
    float=
    [ "$bits" = 64 ] && float=--float
    sum=$("$kxhost" decode "$file" $float --format raw -o - 2>/dev/null | sha256sum | cut -d' ' -f1) || sum=failed
    printf '%s  %s %s\n' "$sum" "$bits" "$file"
  done
done
