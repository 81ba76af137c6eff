#!/usr/bin/env bash
# Builds the Windows tree (scripts/build_windows.sh) and runs its tests under Wine on
# a virtual display (Xvfb): the GoogleTest suites, kxhost.exe against the Linux build
# in build/release (built first when missing), and the real dialog and about box.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build_windows.sh
[ -x build/release/bin/kxhost ] || scripts/build.sh release kxhost KXMP3Lib
prefix="$(pwd)/build/windows/wine"
# A Wine server left from another display would have no screen for the dialogs.
WINEPREFIX="$prefix" wineserver -k 2>/dev/null || true
status=0
(cd build/windows && xvfb-run -a -s "-screen 0 1024x768x24" \
   ctest --output-on-failure -j "$(nproc)" --timeout 1500) || status=$?
WINEPREFIX="$prefix" wineserver -k 2>/dev/null || true
exit "$status"
