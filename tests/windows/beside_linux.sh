# Sourced by the scripts that run kxhost.exe beside the Linux kxhost, with their four
# arguments LINUX_KXHOST WINE_RUN KXHOST_EXE WORK_DIR: sets linux, wine_run, exe and
# work to them as absolute paths, moves to the top of the tree, skips the test (exit
# 77) when the Linux kxhost is missing, fixes the ANSI code page of both and starts
# with an empty WORK_DIR.
absolute() { case "$1" in /*) echo "$1" ;; *) echo "$(pwd)/$1" ;; esac; }
linux="$(absolute "$1")"; wine_run="$(absolute "$2")"; exe="$(absolute "$3")"; work="$(absolute "$4")"
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
if [ ! -x "$linux" ]; then
  echo "no Linux kxhost at $linux (scripts/build.sh release): skipped"
  exit 77
fi
export KX_ANSI_CODEPAGE=1252
rm -rf "$work"; mkdir -p "$work"
