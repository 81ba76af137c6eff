#!/usr/bin/env bash
# kxhost.exe play under Wine, against the Linux kxhost play: both play into an ALSA
# configuration of their own whose default PCM is a "file" PCM over the null PCM
# (Wine's waveOut reaches ALSA through its winealsa driver), one recording per
# opening of the device, named by rate, channels and bits. Every case must leave the
# same recordings, byte for byte, and end with the same status: gapless joins,
# float samples, a change of rate (the device opened again, and only then),
# ReplayGain and the fallback gain, a skipped file, a device chosen by number, and a
# device that does not exist.
#   kxhost_exe_play_test.sh LINUX_KXHOST WINE_RUN KXHOST_EXE WORK_DIR
# Exit 77 (skipped) when the Linux kxhost is missing.
set -uo pipefail
source "$(dirname "$0")/beside_linux.sh" "$@"
play="tests/data/play"
failures=0
fail() { echo "FAILED: $*"; failures=$((failures + 1)); }

# recorder DIR: a scratch folder with an ALSA configuration that records into it.
recorder() {
  mkdir -p "$1"
  cat >"$1/asound.conf" <<EOF
pcm.!default {
  type file
  slave.pcm "silent"
  file "$1/rec-%r-%c-%b.raw"
  format "raw"
  truncate false
}
pcm.silent {
  type null
}
EOF
}
recordings() { (cd "$1" && ls rec-* 2>/dev/null); }

# both NAME ARGS...: plays ARGS on both systems; compares status and recordings.
both() {
  local name="$1"; shift
  local l="$work/$name.linux" w="$work/$name.windows"
  recorder "$l"; recorder "$w"
  ALSA_CONFIG_PATH="$l/asound.conf" "$linux" play "$@" 2>"$l/err"
  local linux_status=$?
  ALSA_CONFIG_PATH="$w/asound.conf" timeout 300 "$wine_run" "$exe" play "$@" 2>"$w/err"
  local windows_status=$?
  [ "$linux_status" = "$windows_status" ] ||
    fail "$name: exit status $windows_status, Linux $linux_status ($(cat "$w/err"))"
  [ "$(recordings "$l")" = "$(recordings "$w")" ] ||
    fail "$name: recordings '$(recordings "$w" | tr '\n' ' ')', Linux '$(recordings "$l" | tr '\n' ' ')'"
  for file in $(recordings "$l"); do
    cmp -s "$l/$file" "$w/$file" || fail "$name: $file differs"
  done
}

both gapless "$play/gapless_a.mp3" "$play/gapless_b.mp3"
cmp -s "$work/gapless.linux/err" "$work/gapless.windows/err" ||
  fail "gapless: the lines differ: $(cat "$work/gapless.windows/err")"
[ "$(recordings "$work/gapless.windows")" = "rec-44100-2-16.raw" ] ||
  fail "gapless: not one recording: $(recordings "$work/gapless.windows")"
# The recording is the two decodes back to back.
for f in gapless_a gapless_b; do "$linux" -q decode "$play/$f.mp3" -o - --format raw; done >"$work/gapless.expected"
cmp -s "$work/gapless.expected" "$work/gapless.windows/rec-44100-2-16.raw" || fail "gapless: not the decodes back to back"

both float --float "$play/gapless_a.mp3" "$play/gapless_b.mp3"
[ -s "$work/float.windows/rec-44100-2-64.raw" ] || fail "float: no 64-bit recording"

both rate_change -q "$play/gapless_a.mp3" "$play/rate_48k.mp3" "$play/gapless_b.mp3"
[ "$(recordings "$work/rate_change.windows" | wc -l)" = 3 ] || fail "rate_change: not three recordings"

both replaygain_track "$play/replaygain.mp3"
both replaygain_preamp --replaygain track --preamp 13 "$play/replaygain.mp3"
both replaygain_album --replaygain album "$play/replaygain.mp3"
both replaygain_off --replaygain off "$play/replaygain.mp3"
both fallback_gain --fallback-gain -3 --preamp 6 "$play/no_replaygain.mp3"
cmp -s "$work/replaygain_track.windows/rec-44100-2-16.raw" "$work/replaygain_off.windows/rec-44100-2-16.raw" &&
  fail "replaygain: the gain changed nothing"

both skipped -q "$play/gapless_a.mp3" "$work/missing.mp3" "$play/gapless_b.mp3"
grep -q "missing.mp3: .*, skipped$" "$work/skipped.windows/err" || fail "skipped: $(cat "$work/skipped.windows/err")"

# Devices: by number (the first), and one that does not exist.
recorder "$work/number"
ALSA_CONFIG_PATH="$work/number/asound.conf" timeout 300 "$wine_run" "$exe" play -q --device 0 "$play/gapless_a.mp3" \
  2>"$work/number/err" || fail "device 0: $(cat "$work/number/err")"
[ "$(recordings "$work/number")" = "rec-44100-2-16.raw" ] || fail "device 0: no recording"
recorder "$work/missing"
ALSA_CONFIG_PATH="$work/missing/asound.conf" timeout 300 "$wine_run" "$exe" play --device no_such_device \
  "$play/gapless_a.mp3" 2>"$work/missing/err"
status=$?
[ "$status" = 2 ] || fail "no such device: exit status $status"
[ "$(cat "$work/missing/err")" = "kxhost: cannot open the audio device no_such_device: no such device" ] ||
  fail "no such device: $(cat "$work/missing/err")"
[ -z "$(recordings "$work/missing")" ] || fail "no such device: something was recorded"

if [ "$failures" -ne 0 ]; then
  echo "$failures failures"
  exit 1
fi
echo "kxhost.exe plays as the Linux kxhost does"
