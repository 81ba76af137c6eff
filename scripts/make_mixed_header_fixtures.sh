#!/usr/bin/env bash
# Makes the streams of tests/data/mixed: MPEG audio whose frame headers change
# mid-stream (check words on or off, channel mode, bitrate), made by joining the
# frames of several lame encodings (-t: no VBR header, so nothing announces a
# length and every frame counts). Each part is a whole encoding, so its frames
# decode on their own (the first frame of an encoding needs no earlier main data).
#
# Writes tests/data/mixed/manifest.txt: one line per stream with its name,
# sampling rate, channels, frame count, the samples per channel that mpg123 and
# ffmpeg (run here as black boxes) decode from it, and the parts it was made of.
#
# The streams are committed; run this again only to change them.
set -euo pipefail
cd "$(dirname "$0")/.."
out=tests/data/mixed
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"
rm -f "$out"/*.mp3 "$out"/manifest.txt

manifest="$out/manifest.txt"
echo "# name rate channels frames mpg123-samples ffmpeg-samples parts" >"$manifest"

# part FILE RATE CHANNELS SECONDS FREQUENCY LAME-OPTIONS...: one encoding of a tone
# with a little noise.
part() {
  local file=$1 rate=$2 ch=$3 secs=$4 freq=$5
  shift 5
  sox -R -n -r "$rate" -c 2 -b 16 "$tmp/tone.wav" synth "$secs" sine "$freq" gain -10
  sox -R -n -r "$rate" -c 2 -b 16 "$tmp/noise.wav" synth "$secs" pinknoise gain -35
  sox -R -m "$tmp/tone.wav" "$tmp/noise.wav" -c "$ch" "$tmp/in.wav"
  local khz
  khz=$(python3 -c "print(f'{$rate/1000:g}')")
  lame --quiet -t --resample "$khz" "$@" "$tmp/in.wav" "$file"
}

# join NAME RATE CHANNELS PART... where a PART is FILE or FILE:FIRST:COUNT (frames).
join() {
  local name=$1 rate=$2 ch=$3
  shift 3
  python3 - "$out/$name.mp3" "$@" <<'PY'
import sys

RATES = {0: [44100, 48000, 32000], 1: [22050, 24000, 16000], 2: [11025, 12000, 8000]}
KBPS = {0: [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320],
        1: [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160]}

def frames(data):
    pos, found = 0, []
    while pos + 4 <= len(data):
        w = int.from_bytes(data[pos:pos + 4], "big")
        if w >> 21 != 0x7FF:
            raise SystemExit(f"no frame at {pos}")
        version = {3: 0, 2: 1, 0: 2}[(w >> 19) & 3]
        rate = RATES[version][(w >> 10) & 3]
        kbps = KBPS[0 if version == 0 else 1][(w >> 12) & 15]
        length = (144000 if version == 0 else 72000) * kbps // rate + ((w >> 9) & 1)
        found.append(data[pos:pos + length])
        pos += length
    return found

out = bytearray()
for part in sys.argv[2:]:
    path, *cut = part.split(":")
    fs = frames(open(path, "rb").read())
    if cut:
        first, count = int(cut[0]), int(cut[1])
        fs = fs[first:first + count]
    for f in fs:
        out += f
open(sys.argv[1], "wb").write(out)
print(len(frames(bytes(out))))
PY
}

# add NAME RATE CHANNELS PARTS-TEXT PART...: joins the parts and writes the
# manifest line with both peers' sample counts per channel.
add() {
  local name=$1 rate=$2 ch=$3 text=$4
  shift 4
  local frames
  frames=$(join "$name" "$rate" "$ch" "$@")
  local mpg ff
  mpg=$(mpg123 -q -s "$out/$name.mp3" | wc -c)
  ff=$(ffmpeg -v error -i "$out/$name.mp3" -f s16le -acodec pcm_s16le - | wc -c)
  echo "$name.mp3 $rate $ch $frames $((mpg / 2 / ch)) $((ff / 2 / ch)) $text" >>"$manifest"
}

# 44.1 kHz joint stereo: 40 frames with check words, then 191 without.
part "$tmp/a_crc.mp3" 44100 2 1.2 440 -m j -b 64 -p
part "$tmp/a_plain.mp3" 44100 2 5.3 660 -m j -b 64
add crc_then_plain 44100 2 "40-frames-with-check-words,191-without" "$tmp/a_crc.mp3:0:40" "$tmp/a_plain.mp3:0:191"

# The other way round, mono, and a last frame with check words again: it has no
# successor to agree with.
part "$tmp/b_plain.mp3" 32000 1 1.5 330 -m m -b 40
part "$tmp/b_crc.mp3" 32000 1 1.5 550 -m m -b 40 -p
add plain_then_crc_then_one 32000 1 "plain,check-words,one-plain-frame-at-the-end" \
    "$tmp/b_plain.mp3:0:30" "$tmp/b_crc.mp3:0:30" "$tmp/b_plain.mp3:0:1"

# Bitrate changes: 128, 48, then 96 kbit/s.
part "$tmp/c_128.mp3" 48000 2 0.8 500 -m s -b 128
part "$tmp/c_48.mp3" 48000 2 0.8 700 -m s -b 48
part "$tmp/c_96.mp3" 48000 2 0.8 900 -m s -b 96
add bitrate_changes 48000 2 "128,48,96-kbit/s" "$tmp/c_128.mp3" "$tmp/c_48.mp3" "$tmp/c_96.mp3"

# Channel mode changes: joint stereo, stereo, dual channel.
part "$tmp/d_joint.mp3" 44100 2 0.8 400 -m j -b 96
part "$tmp/d_stereo.mp3" 44100 2 0.8 800 -m s -b 96
part "$tmp/d_dual.mp3" 44100 2 0.8 1200 -m d -b 96
add mode_changes 44100 2 "joint,stereo,dual" "$tmp/d_joint.mp3" "$tmp/d_stereo.mp3" "$tmp/d_dual.mp3"

# MPEG-2 at 22.05 kHz: protection, channel mode and bitrate change together.
part "$tmp/e_1.mp3" 22050 2 1.0 300 -m j -b 64 -p
part "$tmp/e_2.mp3" 22050 2 1.0 600 -m s -b 32
part "$tmp/e_3.mp3" 22050 2 1.0 900 -m d -b 48 -p
add mpeg2_all_change 22050 2 "check-words+joint+64,plain+stereo+32,check-words+dual+48" \
    "$tmp/e_1.mp3" "$tmp/e_2.mp3" "$tmp/e_3.mp3"

# MPEG-2.5 at 8 kHz, over 512 frames with the bitrate changing only after them: the
# frame count is estimated after 512 frames, so no output limit applies, and the
# stream still plays to its last frame.
part "$tmp/f_1.mp3" 8000 1 40 250 -m m -b 8
part "$tmp/f_2.mp3" 8000 1 4 350 -m m -b 16 -p
add mpeg25_late_change 8000 1 "8-kbit/s-plain,16-kbit/s-check-words" "$tmp/f_1.mp3:0:540" "$tmp/f_2.mp3"

cat "$manifest"
du -cb "$out"/*.mp3 | tail -1
