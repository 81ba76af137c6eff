#!/bin/sh
# Decoding speed of kxhost against mpg123 and ffmpeg on seven 10-minute files, for
# 16-bit and for floating-point output.
#
# Makes its benchmark files itself when they are missing (a sox signal, encoded by
# lame): 44.1 kHz stereo at 128 kbit/s CBR, at 320 kbit/s CBR and at -V 2 VBR; 48 kHz
# stereo at 192 kbit/s CBR; 24 kHz stereo (MPEG-2) at 64 kbit/s CBR; 22.05 kHz stereo
# (MPEG-2) at -V 4 VBR; 8 kHz mono (MPEG-2.5) at 16 kbit/s CBR. Then, per file, runs
# every decoder once to warm the caches and RUNS more times, the decoders interleaved
# run by run:
#
#   kxhost decode FILE --format raw -o - > /dev/null                   (16-bit)
#   kxhost decode FILE --float --format raw -o - > /dev/null           (64-bit float)
#   mpg123 -q -s FILE > /dev/null                                      (16-bit)
#   ffmpeg -nostdin -loglevel error -i FILE -f s16le -y /dev/null      (16-bit)
#   mpg123 -q -e f32 -s FILE > /dev/null                               (32-bit float)
#   ffmpeg -nostdin -loglevel error -i FILE -f f64le -y /dev/null      (64-bit float)
#
# and prints the median user + system CPU seconds of each (from the kernel's
# accounting of the finished process), the ratio of our 16-bit figure to the faster
# peer's 16-bit figure and of our float figure to the faster peer's float figure, and
# our peak resident memory.
#
# With --sse2 the same kxhost also runs with a second module whose kernel table is
# SSE2 only (a build with -DKX_WIDE_KERNELS=OFF, made in build/sse2 when missing, or
# the module given with --sse2-plugin), interleaved in the same runs, and its ratios
# are printed beside the others.
#
# Usage: bench/compare.sh [--kxhost PATH] [--dir DIR] [--runs N] [--files "a b"]
#                         [--sse2] [--sse2-plugin PATH]
#   --kxhost       the kxhost to time (default: build/release/bin/kxhost, then PATH)
#   --dir          where the benchmark files live (default: build/bench-files)
#   --runs         timed runs per decoder and file (default 5)
#   --files        a subset of: cbr128 cbr320 vbr2 cbr192_48k mpeg2_24k64 mpeg2_22k_vbr4
#                  mpeg25_8k16_mono
#   --sse2         also time the SSE2-only module
#   --sse2-plugin  the SSE2-only module (implies --sse2)
# The machine should be otherwise idle: the load average is printed before and after.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
kxhost=""
dir="$root/build/bench-files"
runs=5
files="cbr128 cbr320 vbr2 cbr192_48k mpeg2_24k64 mpeg2_22k_vbr4 mpeg25_8k16_mono"
sse2=0
sse2_plugin=""

while [ $# -gt 0 ]; do
  case "$1" in
    --kxhost) kxhost=$2; shift 2 ;;
    --dir) dir=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --files) files=$2; shift 2 ;;
    --sse2) sse2=1; shift ;;
    --sse2-plugin) sse2=1; sse2_plugin=$2; shift 2 ;;
    *) echo "usage: $0 [--kxhost PATH] [--dir DIR] [--runs N] [--files \"cbr128 ...\"] [--sse2] [--sse2-plugin PATH]" >&2
       exit 2 ;;
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

if [ "$sse2" = 1 ] && [ -z "$sse2_plugin" ]; then
  # The same sources without the AVX2 and AVX-512 kernels: the module runs its SSE2 table.
  sse2_plugin="$root/build/sse2/plugins/KXMP3Lib.zss"
  echo "building the SSE2-only module in build/sse2" >&2
  cmake -S "$root" -B "$root/build/sse2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKX_WIDE_KERNELS=OFF \
    -DKX_BUILD_BENCH=OFF >/dev/null
  cmake --build "$root/build/sse2" --target KXMP3Lib >/dev/null
fi
if [ "$sse2" = 1 ] && [ ! -f "$sse2_plugin" ]; then
  echo "SSE2-only module not found: $sse2_plugin" >&2
  exit 2
fi

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
    cbr128) rate=44100; options="-b 128 --cbr" ;;
    cbr320) rate=44100; options="-b 320 --cbr" ;;
    vbr2) rate=44100; options="-V 2" ;;
    cbr192_48k) rate=48000; options="-b 192 --cbr" ;;
    mpeg2_24k64) rate=24000; options="-b 64 --cbr" ;;
    mpeg2_22k_vbr4) rate=22050; options="-V 4" ;;
    mpeg25_8k16_mono) rate=8000; options="-m m -b 16 --cbr" ;;
    *) echo "unknown benchmark file $1" >&2; exit 2 ;;
  esac
  signal="$dir/signal-$rate.wav"
  [ -s "$signal" ] || make_signal "$rate" "$signal"
  echo "making $out (lame $options)" >&2
  # shellcheck disable=SC2086
  lame --quiet $options "$signal" "$out.part"
  mv "$out.part" "$out"
}

for f in $files; do make_file "$f"; done

set --
for f in $files; do set -- "$@" "$dir/$f.mp3"; done

# The kernel table the module chooses: the widest of AVX-512F, AVX2 and SSE2 that
# the processor has.
flags=$(grep -m1 '^flags' /proc/cpuinfo || true)
case " $flags " in
  *" avx512f "*) table="AVX-512" ;;
  *" avx2 "*) table="AVX2" ;;
  *) table="SSE2" ;;
esac

echo "kxhost: $kxhost"
echo "machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//'), $(nproc) CPUs, kernel table $table"
[ "$sse2" = 1 ] && echo "SSE2-only module: $sse2_plugin"
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"

python3 - "$kxhost" "$runs" "$sse2_plugin" "$@" <<'PY'
import os, statistics, subprocess, sys, tempfile

kxhost, runs, sse2_plugin, files = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4:]

def commands(path):
    ours = [kxhost, "decode", path, "--format", "raw", "-o", "-"]
    cmds = [
        ("ours", ours),
        ("ours-float", ours + ["--float"]),
    ]
    if sse2_plugin:
        sse2 = [kxhost, "--plugin", sse2_plugin] + ours[1:]
        cmds += [("sse2", sse2), ("sse2-float", sse2 + ["--float"])]
    cmds += [
        ("mpg123", ["mpg123", "-q", "-s", path]),
        ("ffmpeg", ["ffmpeg", "-nostdin", "-loglevel", "error", "-i", path, "-f", "s16le", "-y", "/dev/null"]),
        ("mpg123-float", ["mpg123", "-q", "-e", "f32", "-s", path]),
        ("ffmpeg-float", ["ffmpeg", "-nostdin", "-loglevel", "error", "-i", path, "-f", "f64le", "-y", "/dev/null"]),
    ]
    return cmds

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

head = "%-22s %7s %7s %7s %7s %7s %7s" % ("file", "ours", "mpg123", "ffmpeg", "float", "mpg f32", "ff f64")
if sse2_plugin:
    head += " %7s %7s" % ("sse2", "s2float")
head += "  %7s %7s" % ("16/best", "fl/best")
if sse2_plugin:
    head += " %7s %7s" % ("s2 16/b", "s2 fl/b")
head += "  %8s" % "peak RSS"
print(head)
worst = {}
for path in files:
    cmds = commands(path)
    times = {name: [] for name, _ in cmds}
    # The warm-up run: caches filled, our peak memory taken; not timed.
    rss = max(peak_kib(argv) for name, argv in cmds if name in ("ours", "ours-float"))
    for name, argv in cmds:
        if name not in ("ours", "ours-float"):
            run(argv)
    for r in range(runs):
        for name, argv in cmds:
            times[name].append(run(argv))
    med = {name: statistics.median(v) for name, v in times.items()}
    best16 = min(med["mpg123"], med["ffmpeg"])
    best_float = min(med["mpg123-float"], med["ffmpeg-float"])
    ratios = {"16": med["ours"] / best16, "float": med["ours-float"] / best_float}
    if sse2_plugin:
        ratios["sse2 16"] = med["sse2"] / best16
        ratios["sse2 float"] = med["sse2-float"] / best_float
    for key, value in ratios.items():
        worst[key] = max(worst.get(key, 0.0), value)
    line = "%-22s %7.3f %7.3f %7.3f %7.3f %7.3f %7.3f" % (
        os.path.basename(path), med["ours"], med["mpg123"], med["ffmpeg"],
        med["ours-float"], med["mpg123-float"], med["ffmpeg-float"])
    if sse2_plugin:
        line += " %7.3f %7.3f" % (med["sse2"], med["sse2-float"])
    line += "  %7.3f %7.3f" % (ratios["16"], ratios["float"])
    if sse2_plugin:
        line += " %7.3f %7.3f" % (ratios["sse2 16"], ratios["sse2 float"])
    line += "  %4.1f MiB" % (rss / 1024.0)
    print(line)
    sys.stdout.flush()
print("CPU seconds are medians of %d runs; 16/best = our 16-bit time / the faster peer's 16-bit time,"
      " fl/best = our float time / the faster peer's float time (mpg123 -e f32, ffmpeg f64le)." % runs)
print("largest ratio to the faster peer: " + ", ".join("%s %.3f" % (k, v) for k, v in worst.items()))
PY
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
