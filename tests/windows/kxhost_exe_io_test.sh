#!/usr/bin/env bash
# kxhost.exe's inputs and outputs under Wine that a Windows test program cannot set
# up, against the Linux kxhost where both can do the same: a FIFO as input (a pipe
# to Windows, copied to a temporary folder that is gone afterwards), a device (NUL)
# and a FIFO written in place, standard output to a file, and standard output
# checked (/dev/full). Standard input, files replaced when complete, standard output
# to a pipe, --version, --progress and a folder given to -o are kx_cli_tests' (tests/cli),
# which runs under Wine as on Linux; play is kxhost_exe_play_test.sh's.
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

# A FIFO as input (a pipe to Windows).
mkfifo "$work/in.fifo"
(cat "$sample" >"$work/in.fifo" &)
timeout 120 "$wine_run" "$exe" info "$work/in.fifo" >"$work/fifo.windows" 2>&1; status "FIFO input" 0 $?
(cat "$sample" >"$work/in.fifo" &)
"$linux" info "$work/in.fifo" >"$work/fifo.linux" 2>&1
same "FIFO input" "$work/fifo.linux" "$work/fifo.windows"
leftover="$(temp_folders)"
[ -z "$leftover" ] || fail "temporary folders left behind: $leftover"

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

# Standard output to a file: a complete header, as on Linux.
win -q decode "$sample" -o - >"$work/stdout.windows.wav"; status "standard output to a file" 0 $?
"$linux" -q decode "$sample" -o - >"$work/stdout.linux.wav"
same "standard output to a file" "$work/stdout.linux.wav" "$work/stdout.windows.wav"

# Standard output checked: a full device ends the command with status 2.
win info "$sample" >/dev/full 2>"$work/full.err"; status "standard output full" 2 $?
grep -q "^kxhost: cannot write standard output" "$work/full.err" || fail "standard output full: $(cat "$work/full.err")"

if [ "$failures" -ne 0 ]; then
  echo "$failures failures"
  exit 1
fi
echo "kxhost.exe reads and writes as the Linux kxhost does"
