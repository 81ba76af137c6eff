#!/usr/bin/env bash
# Makes the seed corpora of the fuzz targets from the repository's own small
# fixtures (tests/data), cut into the pieces each target reads, plus the inputs of
# tests/data/regression. Nothing is downloaded.
#
#   fuzz/make_corpus.sh [OUT]     -> OUT/<target>/ (default build/fuzz/seeds)
#
# module        whole fixtures up to 24 KiB; of larger ones the first 8 KiB and the
#               last 4 KiB; every fixture's first 1 KiB and a 3 KiB slice of its middle
# id3v1         the last 128 to 300 bytes of every fixture
# id3v2         the first 2 KiB of every fixture that starts with an ID3v2 tag
# ape_tag       the last 1 KiB of every fixture
# riff_info     the first 2 KiB of every RIFF fixture
# frame_header  4 KiB from the first frame of every fixture, and 600 bytes from its
#               tenth frame
# vbr_header    2 KiB and 16 KiB from the first frame of every fixture
set -euo pipefail
cd "$(dirname "$0")/.."
out="${1:-build/fuzz/seeds}"
rm -rf "$out"
mkdir -p "$out"
python3 - "$out" <<'EOF'
import hashlib, os, sys

out = sys.argv[1]
sources = []
for folder in ("tests/data/mp3", "tests/data/tags", "tests/data"):
    for name in sorted(os.listdir(folder)):
        path = os.path.join(folder, name)
        if os.path.isfile(path) and name.endswith((".mp3", ".wav", ".rmp")):
            sources.append(path)

def layer3_header(b, p):
    if p + 4 > len(b) or b[p] != 0xFF or (b[p + 1] & 0xE0) != 0xE0:
        return False
    version = (b[p + 1] >> 3) & 3
    layer = (b[p + 1] >> 1) & 3
    bitrate = b[p + 2] >> 4
    rate = (b[p + 2] >> 2) & 3
    return version != 1 and layer == 1 and 0 < bitrate < 15 and rate != 3

def frame_starts(b, limit=12):
    """Offsets of the first frames: after an ID3v2 tag, then header to header."""
    p = 0
    if b[:3] == b"ID3" and len(b) >= 10:
        p = 10 + ((b[6] & 0x7F) << 21 | (b[7] & 0x7F) << 14 | (b[8] & 0x7F) << 7 | (b[9] & 0x7F))
    while p < len(b) and not layer3_header(b, p):
        p += 1
    starts = []
    rates = [[44100, 48000, 32000], [22050, 24000, 16000], [11025, 12000, 8000]]
    rates_by_bits = {3: 0, 2: 1, 0: 2}
    kbps = [[0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320],
            [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160]]
    while layer3_header(b, p) and len(starts) < limit:
        starts.append(p)
        v = rates_by_bits[(b[p + 1] >> 3) & 3]
        rate = rates[v][(b[p + 2] >> 2) & 3]
        rate_kbps = kbps[0 if v == 0 else 1][b[p + 2] >> 4]
        length = (144000 if v == 0 else 72000) * rate_kbps // rate + ((b[p + 2] >> 1) & 1)
        p += length
    return starts

written = set()
def put(target, data):
    if not data:
        return
    digest = hashlib.sha1(data).hexdigest()
    if (target, digest) in written:
        return
    written.add((target, digest))
    folder = os.path.join(out, target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, digest), "wb") as f:
        f.write(data)

for path in sources:
    b = open(path, "rb").read()
    if len(b) <= 24 * 1024:
        put("module", b)
    else:
        put("module", b[:8192])
        put("module", b[-4096:])
    put("module", b[:1024])
    middle = len(b) // 2
    put("module", b[middle:middle + 3072])
    for keep in (128, 200, 300):
        put("id3v1", b[-keep:])
    if b[:3] == b"ID3":
        put("id3v2", b[:2048])
    put("ape_tag", b[-1024:])
    if b[:4] == b"RIFF":
        put("riff_info", b[:2048])
    starts = frame_starts(b)
    if starts:
        put("frame_header", b[starts[0]:starts[0] + 4096])
        if len(starts) > 10:
            put("frame_header", b[starts[10]:starts[10] + 600])
        put("vbr_header", b[starts[0]:starts[0] + 2048])
        put("vbr_header", b[starts[0]:starts[0] + 16384])

# Inputs that once failed are seeds of their target too.
regression = "tests/data/regression"
if os.path.isdir(regression):
    for target in sorted(os.listdir(regression)):
        folder = os.path.join(regression, target)
        if not os.path.isdir(folder):
            continue
        for name in sorted(os.listdir(folder)):
            if name.endswith(".md"):
                continue
            put(target, open(os.path.join(folder, name), "rb").read())

for target in sorted({t for t, _ in written}):
    count = len(os.listdir(os.path.join(out, target)))
    print(f"{target}: {count} seeds")
EOF
