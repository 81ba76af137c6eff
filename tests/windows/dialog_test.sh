#!/usr/bin/env bash
# The real file-information dialog and about box of the Windows build under Xvfb:
# scripts/windows_screenshots.sh opens them with kxhost.exe, reads every control back
# and takes screenshots (OUT_DIR/dialog.png, about.png). The dialog's listing must be
# the Linux build's, byte for byte, and the about box must say what the module's
# about callback gives it. Exit 77 (skipped) when the Linux kxhost is missing.
#   dialog_test.sh LINUX_KXHOST OUT_DIR
set -uo pipefail
linux="$1"; out="$2"
cd "$(dirname "$0")/../.."
if [ ! -x "$linux" ]; then echo "no Linux kxhost at $linux: skipped"; exit 77; fi
export KX_ANSI_CODEPAGE=1252
scripts/windows_screenshots.sh "$out" tests/data/sample.mp3 || exit 1
"$linux" dialog tests/data/sample.mp3 >"$out/dialog.linux.txt"
status=0
if ! cmp -s "$out/dialog.linux.txt" "$out/dialog.txt"; then
  echo "the dialog's listing differs from Linux's:"; diff "$out/dialog.linux.txt" "$out/dialog.txt" | head -20
  status=1
fi
expected="Kx MPEG Audio Layer-III File Library: MPEG Audio Layer-III File"
if ! grep -qxF "$expected" "$out/about.err"; then
  echo "the about box said: $(cat "$out/about.err")"; status=1
fi
for png in dialog about; do
  [ -s "$out/$png.png" ] || { echo "no screenshot $png.png"; status=1; }
done
[ "$status" = 0 ] && echo "dialog and about box read back as on Linux; screenshots in $out"
exit "$status"
