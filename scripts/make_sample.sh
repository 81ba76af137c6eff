#!/usr/bin/env bash
# Makes tests/data/sample.mp3, the sample the Quick start decodes: a 4-second
# synthesised chord (sox), encoded with lame at -V 2 with ID3v1 and ID3v2 tags.
set -euo pipefail
cd "$(dirname "$0")/.."
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
sox -n -r 44100 -c 2 -b 16 "$tmp/chord.wav" synth 4 sine 261.63 sine 329.63 \
    fade t 0.05 4 0.5 remix 1 2 gain -6
lame --quiet -V 2 --tt "Sample Chord" --ta "KXMP3Lib" --tl "Test Signals" --ty 2026 \
     --tn 1 --tg "Electronic" --tc "made by scripts/make_sample.sh" "$tmp/chord.wav" tests/data/sample.mp3
