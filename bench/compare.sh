#!/bin/sh
# Decoding speed of kxhost against mpg123 and ffmpeg on four 10-minute files.
#
# Makes its benchmark files itself when they are missing (a sox signal, encoded by
# lame): 44.1 kHz stereo at 128 kbit/s CBR, at 320 kbit/s CBR and at -V 2 VBR, and
# 24 kHz stereo (MPEG-2) at 64 kbit/s CBR. Then, per file, runs every decoder once
# to warm the caches and RUNS more times, the decoders interleaved run by run:
#
#   kxhost decode FILE --format raw -o - > /dev/null            (16-bit)
#   kxhost decode FILE --float --format raw -o - > /dev/null    (64-bit float)
#   mpg123 -q -s FILE > /dev/null
#   ffmpeg -nostdin -loglevel error -i FILE -f s16le -y /dev/null
#
# and prints the median user + system CPU seconds of each (from the kernel's
# accounting of the finished process), the ratio of our 16-bit and float figures to
# each peer and to the faster one, and our peak resident memory.
#
# Usage: bench/compare.sh [--kxhost PATH] [--dir DIR] [--runs N] [--files "a b"]
#   --kxhost  the kxhost to time (default: build/release/bin/kxhost, then PATH)
#   --dir     where the benchmark files live (default: build/bench-files)
#   --runs    timed runs per decoder and file (default 5)
#   --files   a subset of: cbr128 cbr320 vbr2 mpeg2_24k64
# The machine should be otherwise idle: the load average is printed before and after.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
kxhost=""
dir="$root/build/bench-files"
runs=5
files="cbr128 cbr320 vbr2 mpeg2_24k64"

while [ $# -gt 0 ]; do
  case "$1" in
    --kxhost) kxhost=$2; shift 2 ;;
    --dir) dir=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --files) files=$2; shift 2 ;;
    *) echo "usage: $0 [--kxhost PATH] [--dir DIR] [--runs N] [--files \"cbr128 ...\"]" >&2; exit 2 ;;
  esac
done

if [ -z "$kxhost" ]; then
  if [ -x "$root/build/release/bin/kxhost" ]; then kxhost="$root/build/release/bin/kxhost"
  else kxhost=$(command -v kxhost || true); fi
fi
[ -n "$kxhost" ] && [ -x "$kxhost" ] || { echo "kxhost not found: build it or give --kxhost PATH" >&2; exit 2; }
for tool in sox lame mpg123 ffmpeg python3 /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "$tool is needed" >&2; exit 2; }
done

mkdir -p "$dir"

# The signal: pink noise switched on and off by a slow square wave (attacks, so the
# encoder uses short blocks too) over two tones sweeping up through the midrange,
# a different pair per channel. Ten minutes.
make_signal() {  # rate out
  sox -n -r "$1" -c 2 -b 16 "$dir/noise-$1.wav" synth 600 pinknoise vol 0.25 synth 600 square amod 0.7 0 40
  sox -n -r "$1" -c 2 -b 16 "$dir/tones-$1.wav" synth 600 sine 110-1760 sine 165-2640 vol 0.35
  sox -m "$dir/noise-$1.wav" "$dir/tones-$1.wav" "$2"
  rm -f "$dir/noise-$1.wav" "$dir/tones-$1.wav"
}

make_file() {  # name
  out="$dir/$1.mp3"
  [ -s "$out" ] && return 0
  case "$1" in
    mpeg2_24k64) signal="$dir/signal-24000.wav"; rate=24000; options="-b 64 --cbr" ;;
    cbr128) signal="$dir/signal-44100.wav"; rate=44100; options="-b 128 --cbr" ;;
    cbr320) signal="$dir/signal-44100.wav"; rate=44100; options="-b 320 --cbr" ;;
    vbr2) signal="$dir/signal-44100.wav"; rate=44100; options="-V 2" ;;
    *) echo "unknown benchmark file $1" >&2; exit 2 ;;
  esac
  [ -s "$signal" ] || make_signal "$rate" "$signal"
  echo "making $out (lame $options)" >&2
  # shellcheck disable=SC2086
  lame --quiet $options "$signal" "$out.part"
  mv "$out.part" "$out"
}

for f in $files; do make_file "$f"; done

set --
for f in $files; do set -- "$@" "$dir/$f.mp3"; done

echo "kxhost: $kxhost"
echo "machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//'), $(nproc) CPUs"
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"

python3 - "$kxhost" "$runs" "$@" <<'PY'
import os, statistics, subprocess, sys, tempfile

kxhost, runs, files = sys.argv[1], int(sys.argv[2]), sys.argv[3:]

def commands(path):
    return [
        ("ours", [kxhost, "decode", path, "--format", "raw", "-o", "-"]),
        ("ours-float", [kxhost, "decode", path, "--float", "--format", "raw", "-o", "-"]),
        ("mpg123", ["mpg123", "-q", "-s", path]),
        ("ffmpeg", ["ffmpeg", "-nostdin", "-loglevel", "error", "-i", path, "-f", "s16le", "-y", "/dev/null"]),
    ]

def run(argv):
    """CPU seconds (user + system) of one finished process. posix_spawn starts it
    without copying this interpreter first, so nothing but the decoder is counted."""
    null = [(os.POSIX_SPAWN_OPEN, fd, os.devnull, os.O_WRONLY, 0) for fd in (1, 2)]
    pid = os.posix_spawnp(argv[0], argv, os.environ, file_actions=null)
    _, status, usage = os.wait4(pid, 0)
    if status != 0:
        sys.exit("failed (status %d): %s" % (status, " ".join(argv)))
    return usage.ru_utime + usage.ru_stime

def peak_kib(argv):
    """Peak resident KiB of one run, through GNU time: the kernel's high-water mark of
    a child of this (large) interpreter would count the interpreter's own pages from
    before the exec."""
    with tempfile.NamedTemporaryFile("r") as out, open(os.devnull, "wb") as null:
        subprocess.run(["/usr/bin/time", "-f", "%M", "-o", out.name] + argv,
                       stdout=null, stderr=subprocess.DEVNULL, check=True)
        return int(out.read().split()[-1])

print("%-16s %9s %9s %9s %9s  %7s %7s %7s  %7s  %8s" % (
    "file", "ours", "float", "mpg123", "ffmpeg", "/mpg123", "/ffmpeg", "/best", "float/b", "peak RSS"))
worst = 0.0
worst_float = 0.0
for path in files:
    cmds = commands(path)
    times = {name: [] for name, _ in cmds}
    # The warm-up run: caches filled, our peak memory taken; not timed.
    rss = max(peak_kib(argv) for name, argv in cmds if name.startswith("ours"))
    for name, argv in cmds:
        if not name.startswith("ours"):
            run(argv)
    for r in range(runs):
        for name, argv in cmds:
            times[name].append(run(argv))
    med = {name: statistics.median(v) for name, v in times.items()}
    best = min(med["mpg123"], med["ffmpeg"])
    ratio = med["ours"] / best
    ratio_float = med["ours-float"] / best
    worst = max(worst, ratio)
    worst_float = max(worst_float, ratio_float)
    print("%-16s %9.3f %9.3f %9.3f %9.3f  %7.3f %7.3f %7.3f  %7.3f  %5.1f MiB" % (
        os.path.basename(path), med["ours"], med["ours-float"], med["mpg123"], med["ffmpeg"],
        med["ours"] / med["mpg123"], med["ours"] / med["ffmpeg"], ratio, ratio_float,
        rss / 1024.0))
    sys.stdout.flush()
print("CPU seconds are medians of %d runs; ratios are ours / peer; best = the faster peer." % runs)
print("largest ratio to the faster peer: 16-bit %.3f, float %.3f" % (worst, worst_float))
PY
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
