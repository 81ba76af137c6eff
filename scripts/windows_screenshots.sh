#!/usr/bin/env bash
# Screenshots of the Windows module's windows: kxhost.exe shows the file-information
# dialog of a file and the about box under Wine on a virtual X display (Xvfb), and
# ImageMagick's import takes the screen while they are up.
#   scripts/windows_screenshots.sh OUT_DIR [FILE]   (default FILE: tests/data/sample.mp3)
# Writes OUT_DIR/dialog.png and OUT_DIR/about.png (trimmed to the windows) and the
# dialog's read-back listing OUT_DIR/dialog.txt. Needs build/windows (scripts/build_windows.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
out="${1:?usage: $0 OUT_DIR [FILE]}"
file="${2:-tests/data/sample.mp3}"
mkdir -p "$out"
out="$(cd "$out" && pwd)"

if [ -z "${KX_IN_XVFB:-}" ]; then
  KX_IN_XVFB=1 exec xvfb-run -a -s "-screen 0 1024x768x24" "$0" "$@"
fi

run=build/windows/wine_run.sh
host=build/windows/bin/kxhost.exe
# A fresh Wine server on this display (one started elsewhere has no screen).
WINEPREFIX="$(pwd)/build/windows/wine" wineserver -k 2>/dev/null || true
# Xvfb has no window manager: Wine draws the title bars and frames itself.
"$run" reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1

shoot() {  # shoot NAME: waits for the window, then takes the screen, trimmed to the window
  local name="$1"
  for _ in $(seq 1 40); do
    sleep 0.5
    if import -window root "$out/$name.full.png" 2>/dev/null &&
       [ "$(convert "$out/$name.full.png" -format '%[fx:mean>0.001]' info:)" = 1 ]; then
      sleep 1
      import -window root "$out/$name.full.png"
      convert "$out/$name.full.png" -trim +repage "$out/$name.png"
      rm -f "$out/$name.full.png"
      return 0
    fi
  done
  echo "no window to take for $name" >&2
  return 1
}

"$run" "$host" dialog --show 8 "$file" >"$out/dialog.txt" 2>"$out/dialog.err" &
dialog=$!
shoot dialog
wait "$dialog"

"$run" "$host" about --show 8 >"$out/about.txt" 2>"$out/about.err" &
about=$!
shoot about
wait "$about"

WINEPREFIX="$(pwd)/build/windows/wine" wineserver -k 2>/dev/null || true
echo "wrote $out/dialog.png, $out/about.png"
