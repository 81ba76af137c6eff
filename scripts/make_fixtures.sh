#!/usr/bin/env bash
# Makes the audio fixtures of tests/data/mp3: short synthesised signals (sox)
# encoded with lame, then packaged by scripts/fixture_containers.py into RIFF
# "WAVE" / "RMP3" files, tagged files and files with junk in front. Writes
# tests/data/mp3/manifest.txt: one line per fixture with its name, sampling rate,
# channels, the sample count of the encoder's input, and how it was made; and
# the output of mpg123 (run as a black box) for two of them.
#
# The fixtures are committed; run this again only to change them.
set -euo pipefail
cd "$(dirname "$0")/.."
out=tests/data/mp3
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"
rm -f "$out"/*.mp3 "$out"/*.wav "$out"/*.rmp "$out"/*.raw "$out"/manifest.txt

manifest="$out/manifest.txt"
echo "# name rate channels samples lame-options" >"$manifest"

# signal NAME RATE CHANNELS SECONDS: two sweeps (left and right differ) with a
# little noise, so that VBR encodings change their bitrate.
signal() {
  local name=$1 rate=$2 ch=$3 secs=$4
  sox -R -n -r "$rate" -c 2 -b 16 "$tmp/$name.st.wav" synth "$secs" sine 200-3000 sine 500-5000 \
      gain -8
  sox -R -n -r "$rate" -c 2 -b 16 "$tmp/$name.nz.wav" synth "$secs" pinknoise gain -30
  sox -R -m "$tmp/$name.st.wav" "$tmp/$name.nz.wav" -c "$ch" "$tmp/$name.wav"
}

# encode NAME RATE CHANNELS SECONDS LAME-OPTIONS...
encode() {
  local name=$1 rate=$2 ch=$3 secs=$4
  shift 4
  signal "$name" "$rate" "$ch" "$secs"
  local khz
  khz=$(python3 -c "print(f'{$rate/1000:g}')")
  lame --quiet --resample "$khz" "$@" "$tmp/$name.wav" "$out/$name.mp3"
  local samples
  samples=$(soxi -s "$tmp/$name.wav")
  echo "$name.mp3 $rate $ch $samples $*" >>"$manifest"
}

# MPEG-1 (44.1, 48, 32 kHz), MPEG-2 (22.05, 24, 16 kHz), MPEG-2.5 (11.025, 12, 8 kHz);
# every channel mode; CBR with an Info header, VBR with a Xing header, ABR.
encode m1_44100_joint_cbr 44100 2 1.0 -m j -b 128
encode m1_48000_stereo_vbr 48000 2 0.5 -m s -V 2
encode m1_32000_mono_abr 32000 1 0.5 -m m --abr 64
encode m2_22050_dual_cbr 22050 2 0.5 -m d -b 64
encode m2_24000_joint_vbr 24000 2 0.5 -m j -V 5
encode m2_16000_mono_cbr 16000 1 0.5 -m m -b 48
encode m25_11025_stereo_cbr 11025 2 0.5 -m s -b 32
encode m25_12000_mono_vbr 12000 1 1.0 -m m -V 6
encode m25_8000_joint_abr 8000 2 1.0 -m j --abr 16
# Check words, both emphasis values, copyright bit.
encode m1_44100_crc 44100 2 0.5 -m j -b 96 -p
encode m1_44100_emph5015 44100 1 0.5 -m m -b 64 -e 5
encode m2_22050_emphccitt 22050 1 0.5 -m m -b 56 -e c -c
# No VBR header at all: a long, small CBR stream (over 512 frames), a short CBR
# stream and a VBR stream whose bitrate changes.
encode m25_8000_noheader_long 8000 1 40.0 -m m -b 8 -t
encode m1_44100_noheader_short 44100 2 0.5 -m j -b 64 -t
encode m1_44100_noheader_vbr 44100 2 0.5 -m j -V 4 -t

# Longer streams for the seeking tests: VBR and CBR with an Info header.
encode m1_44100_joint_vbr_long 44100 2 6.0 -m j -V 7
encode m1_32000_joint_cbr_long 32000 2 6.0 -m j -b 48

# Oracle output of another decoder (mpg123, gapless, 16-bit), to check that the
# start skip and the end trim line up sample for sample.
for name in m2_22050_dual_cbr m1_48000_stereo_vbr; do
  mpg123 -q -s "$out/$name.mp3" >"$out/$name.mpg123.raw"
done

# Containers and tags around m1_44100_joint_cbr.mp3 (see the Python step).
python3 scripts/fixture_containers.py "$out"
du -cb "$out"/* | tail -1
