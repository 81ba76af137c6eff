#!/usr/bin/env bash
# Makes the files of tests/data/play, which the tests of `kxhost play` play through
# an ALSA configuration of their own:
# - gapless_a.mp3, gapless_b.mp3: one 44.1 kHz stereo signal cut in two halves by
#   sox, each half encoded by lame (its encoder tag gives delay and padding), so
#   that the two play back to back as the whole;
# - rate_48k.mp3: a 48 kHz stereo file, for a change of format between files;
# - replaygain.mp3: a file with ReplayGain values in ID3v2 TXXX frames written by
#   mutagen (track -6.50 dB with peak 0.50; album +3.00 dB with peak 0.90, which
#   the peak holds down to 1/0.9);
# - no_replaygain.mp3: the same audio without tags;
# - long_mono.mp3: 24 s of 11.025 kHz mono at 16 kbit/s, titled through ID3v2,
#   for seeking and the keys.
# The files are committed; run this again only to change them.
set -euo pipefail
cd "$(dirname "$0")/.."
out=tests/data/play
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"
rm -f "$out"/*.mp3
py=/usr/bin/python3
"$py" -c 'import mutagen' 2>/dev/null || { echo "needs python3-mutagen" >&2; exit 1; }

sox -R -n -r 44100 -c 2 -b 16 "$tmp/whole.wav" synth 3 sine 220-1760 sine 330-2640 gain -6
sox -R "$tmp/whole.wav" "$tmp/a.wav" trim 0 1.5
sox -R "$tmp/whole.wav" "$tmp/b.wav" trim 1.5
lame --quiet -b 128 --resample 44.1 "$tmp/a.wav" "$out/gapless_a.mp3"
lame --quiet -b 128 --resample 44.1 "$tmp/b.wav" "$out/gapless_b.mp3"

sox -R -n -r 48000 -c 2 -b 16 "$tmp/r48.wav" synth 1 sine 440 gain -10
lame --quiet -b 96 --resample 48 "$tmp/r48.wav" "$out/rate_48k.mp3"

sox -R -n -r 44100 -c 2 -b 16 "$tmp/rg.wav" synth 1 sine 1000 gain -8
lame --quiet -b 96 --resample 44.1 "$tmp/rg.wav" "$out/no_replaygain.mp3"
cp "$out/no_replaygain.mp3" "$out/replaygain.mp3"
"$py" - "$out/replaygain.mp3" <<'PY'
import sys
from mutagen.id3 import ID3, TXXX, TIT2, TPE1
tag = ID3()
tag.add(TPE1(encoding=3, text=["Fixture Artist"]))
tag.add(TIT2(encoding=3, text=["Gain Test"]))
for desc, value in [("replaygain_track_gain", "-6.50 dB"), ("replaygain_track_peak", "0.500000"),
                    ("replaygain_album_gain", "+3.00 dB"), ("replaygain_album_peak", "0.900000")]:
    tag.add(TXXX(encoding=3, desc=desc, text=[value]))
tag.save(sys.argv[1], v2_version=4, v1=0)
PY

sox -R -n -r 11025 -c 1 -b 16 "$tmp/long.wav" synth 24 sine 200-2000 gain -10
lame --quiet -b 16 --resample 11.025 "$tmp/long.wav" "$out/long_mono.mp3"
"$py" - "$out/long_mono.mp3" <<'PY'
import sys
from mutagen.id3 import ID3, TIT2, TPE1
tag = ID3()
tag.add(TPE1(encoding=3, text=["Sweep Band"]))
tag.add(TIT2(encoding=3, text=["Long Sweep"]))
tag.save(sys.argv[1], v2_version=4, v1=0)
PY
du -cb "$out"/*.mp3 | tail -1
