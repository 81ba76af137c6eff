#!/usr/bin/env bash
# kxhost.exe's inputs and outputs under Wine, against the Linux kxhost where both
# can do the same: standard input and a FIFO as inputs (copied to a temporary folder
# that is gone afterwards), a regular output file replaced only when complete, a
# device (NUL) and a FIFO written in place, standard output to a pipe and to a file,
# standard output checked (/dev/full), --version, --progress, absolute paths as
# files. (play: kxhost_exe_play_test.sh.)
#   kxhost_exe_io_test.sh LINUX_KXHOST WINE_RUN KXHOST_EXE WORK_DIR
# Exit 77 (skipped) when the Linux kxhost is missing.
set -uo pipefail
source "$(dirname "$0")/beside_linux.sh" "$@"
sample="$(pwd)/tests/data/sample.mp3"
failures=0
fail() { echo "FAILED: $*"; failures=$((failures + 1)); }
win() { "$wine_run" "$exe" "$@"; }
# same NAME FILE_A FILE_B: the two files hold the same bytes.
same() { cmp -s "$2" "$3" || fail "$1: $2 and $3 differ"; }
# status NAME WANT GOT
status() { [ "$2" = "$3" ] || fail "$1: exit status $3, not $2"; }
# The temporary folders kxhost.exe makes for standard input and pipes.
temp_folders() { find "${WINEPREFIX:-$(dirname "$wine_run")/wine}/drive_c/users" -maxdepth 3 -type d -name 'kxhost-*' 2>/dev/null; }
temp_folders | xargs -r rm -rf

# --version
win --version >"$work/version.windows" 2>&1; status version 0 $?
"$linux" --version >"$work/version.linux" 2>&1
same version "$work/version.linux" "$work/version.windows"

# Standard input: info, info --json and a decode, as on Linux.
for args in "info -" "info --json -"; do
  name="stdin ${args// /_}"
  win $args <"$sample" >"$work/$name.windows" 2>&1; status "$name" 0 $?
  "$linux" $args <"$sample" >"$work/$name.linux" 2>&1
  same "$name" "$work/$name.linux" "$work/$name.windows"
done
cat "$sample" | win -q decode - -o "$work/stdin.windows.wav"; status "decode from a pipe" 0 $?
cat "$sample" | "$linux" -q decode - -o "$work/stdin.linux.wav"
same "decode from a pipe" "$work/stdin.linux.wav" "$work/stdin.windows.wav"
leftover="$(temp_folders)"
[ -z "$leftover" ] || fail "temporary folders left behind: $leftover"

# A FIFO as input (a pipe to Windows).
mkfifo "$work/in.fifo"
(cat "$sample" >"$work/in.fifo" &)
timeout 120 "$wine_run" "$exe" info "$work/in.fifo" >"$work/fifo.windows" 2>&1; status "FIFO input" 0 $?
(cat "$sample" >"$work/in.fifo" &)
"$linux" info "$work/in.fifo" >"$work/fifo.linux" 2>&1
same "FIFO input" "$work/fifo.linux" "$work/fifo.windows"

# A regular output file: replaced when complete, nothing else left in its folder.
mkdir -p "$work/out.windows" "$work/out.linux"
for side in windows linux; do echo "not audio" >"$work/out.$side/song.wav"; done
win decode "$sample" -o "$work/out.windows/song.wav" 2>"$work/replace.windows"; status "replace a file" 0 $?
"$linux" decode "$sample" -o "$work/out.linux/song.wav" 2>"$work/replace.linux"
same "replace a file" "$work/out.linux/song.wav" "$work/out.windows/song.wav"
same "replace a file (message)" <(sed "s|out.linux|OUT|" "$work/replace.linux") \
  <(sed "s|out.windows|OUT|" "$work/replace.windows")
[ "$(ls "$work/out.windows")" = "song.wav" ] || fail "replace a file: the folder holds $(ls "$work/out.windows")"

# A device, written in place: nothing is made beside it.
mkdir -p "$work/device"
(cd "$work/device" && "$wine_run" "$exe" decode "$sample" -o NUL 2>"$work/device.err"); status "NUL" 0 $?
grep -q "^NUL: 176400 samples" "$work/device.err" || fail "NUL: $(cat "$work/device.err")"
[ -z "$(ls "$work/device")" ] || fail "NUL: a file was made: $(ls "$work/device")"

# A FIFO as output, written in place: a WAV stream header, as on Linux.
mkfifo "$work/out.fifo"
for side in windows linux; do
  cat "$work/out.fifo" >"$work/fifo.$side.wav" &
  reader=$!
  if [ "$side" = windows ]; then
    win -q decode "$sample" -o "$work/out.fifo"; status "FIFO output" 0 $?
  else
    "$linux" -q decode "$sample" -o "$work/out.fifo"
  fi
  wait "$reader"
done
same "FIFO output" "$work/fifo.linux.wav" "$work/fifo.windows.wav"
[ -p "$work/out.fifo" ] || fail "FIFO output: the FIFO was replaced"

# Standard output: to a pipe (a stream header) and to a file (a complete header).
win -q decode "$sample" -o - | cat >"$work/pipe.windows.wav"; status "standard output to a pipe" 0 "${PIPESTATUS[0]}"
"$linux" -q decode "$sample" -o - | cat >"$work/pipe.linux.wav"
same "standard output to a pipe" "$work/pipe.linux.wav" "$work/pipe.windows.wav"
win -q decode "$sample" -o - >"$work/stdout.windows.wav"; status "standard output to a file" 0 $?
"$linux" -q decode "$sample" -o - >"$work/stdout.linux.wav"
same "standard output to a file" "$work/stdout.linux.wav" "$work/stdout.windows.wav"

# Standard output checked: a full device ends the command with status 2.
win info "$sample" >/dev/full 2>"$work/full.err"; status "standard output full" 2 $?
grep -q "^kxhost: cannot write standard output" "$work/full.err" || fail "standard output full: $(cat "$work/full.err")"

# --progress draws on standard error and wipes its line.
win --progress decode "$sample" -o "$work/progress.wav" 2>"$work/progress.err"; status progress 0 $?
grep -q $'\r\\[' "$work/progress.err" && grep -q $'\x1b\\[K' "$work/progress.err" ||
  fail "progress: $(od -c "$work/progress.err" | head -3)"

# An output that is a folder: one line, as on Linux.
win decode "$sample" -o "$work" 2>"$work/folder.windows"; status "output is a folder" 2 $?
"$linux" decode "$sample" -o "$work" 2>"$work/folder.linux"
same "output is a folder" "$work/folder.linux" "$work/folder.windows"
if [ "$failures" -ne 0 ]; then
  echo "$failures failures"
  exit 1
fi
echo "kxhost.exe reads and writes as the Linux kxhost does"
