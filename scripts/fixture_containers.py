#!/usr/bin/env python3
"""Packages encoded fixtures of tests/data/mp3 into containers and tagged files.

Called by scripts/make_fixtures.sh with the fixture folder. Every container is
built here byte by byte (no tag library), so each field is known to the tests:

- junk_before.mp3   800 bytes of junk (with a lone false frame sync) + stream
- riff_wave_55.wav  RIFF "WAVE", format 0x0055, an odd-sized chunk before "fmt ",
                    a "fact" chunk, the stream as "data", a LIST chunk after it
- riff_wave_50.wav  RIFF "WAVE", format 0x0050 with head layer 4 (Layer III)
- riff_rmp3.rmp     RIFF "RMP3" holding the stream as "data"
- id3v1.mp3         stream + ID3v1 tag
- apetag.mp3        stream + APE tag (header and footer)
- ape_id3v1.mp3     stream + APE tag + ID3v1 tag
- id3v2.mp3         ID3v2.3 tag (with padding) + stream + ID3v1 tag
- id3v2_ape.mp3     ID3v2.3 tag + stream + APE tag + ID3v1 tag

Each gets a manifest line copied from the stream it holds, with the container
and the byte offset and length of the stream inside it.
"""
import struct
import sys
from pathlib import Path


def chunk(cid: bytes, body: bytes) -> bytes:
    data = cid + struct.pack("<I", len(body)) + body
    return data + (b"\0" if len(body) % 2 else b"")


def riff(form: bytes, chunks: bytes) -> bytes:
    return b"RIFF" + struct.pack("<I", 4 + len(chunks)) + form + chunks


def waveformatex(tag: int, channels: int, rate: int, avg_bytes: int, align: int, extra: bytes) -> bytes:
    return struct.pack("<HHIIHHH", tag, channels, rate, avg_bytes, align, 0, len(extra)) + extra


def id3v1() -> bytes:
    def field(text: str, n: int) -> bytes:
        return text.encode("latin-1").ljust(n, b"\0")

    tag = b"TAG" + field("Fixture Title", 30) + field("Fixture Artist", 30) + field("Fixture Album", 30)
    tag += b"2024" + field("fixture comment", 28) + b"\0" + bytes([3]) + bytes([12])
    assert len(tag) == 128
    return tag


def synchsafe(n: int) -> bytes:
    return bytes([(n >> 21) & 0x7F, (n >> 14) & 0x7F, (n >> 7) & 0x7F, n & 0x7F])


def id3v2(padding: int) -> bytes:
    text = b"\x00" + b"Fixture ID3v2 Title"
    frame = b"TIT2" + struct.pack(">I", len(text)) + b"\0\0" + text
    body = frame + b"\0" * padding
    return b"ID3\x03\x00\x00" + synchsafe(len(body)) + body


def ape_tag() -> bytes:
    items = b""
    count = 0
    for key, value in (("Title", "Fixture APE Title"), ("REPLAYGAIN_TRACK_GAIN", "-3.50 dB")):
        v = value.encode("utf-8")
        items += struct.pack("<II", len(v), 0) + key.encode("ascii") + b"\0" + v
        count += 1
    size = len(items) + 32  # items plus footer

    def block(flags: int) -> bytes:
        return b"APETAGEX" + struct.pack("<IIII", 2000, size, count, flags) + b"\0" * 8

    has_header = 1 << 31
    is_header = 1 << 29
    return block(has_header | is_header) + items + block(has_header)


def main() -> None:
    out = Path(sys.argv[1])
    manifest = out / "manifest.txt"
    lines = {l.split()[0]: l.split() for l in manifest.read_text().splitlines() if l and not l.startswith("#")}

    def add(name: str, source: str, data: bytes, offset: int, kind: str) -> None:
        (out / name).write_bytes(data)
        src = (out / source).read_bytes()
        assert data[offset:offset + len(src)] == src
        _, rate, ch, samples = lines[source][:4]
        with manifest.open("a") as f:
            f.write(f"{name} {rate} {ch} {samples} container={kind} of={source} offset={offset} length={len(src)}\n")

    base = "m1_44100_joint_cbr.mp3"
    mp3 = (out / base).read_bytes()
    small = "m2_22050_dual_cbr.mp3"
    mp3s = (out / small).read_bytes()

    # Junk: text, zeros and one false sync (0xFF 0xFB 0x90 0x64 is a valid Layer III
    # header, but no second header follows it one frame further on).
    junk = (b"not audio " * 30) + b"\0" * 200 + b"\xff\xfb\x90\x64" + b"\x55" * 296
    assert len(junk) == 800
    add("junk_before.mp3", base, junk + mp3, len(junk), "bare")

    # RIFF WAVE, format 0x0055 (MPEGLAYER3WAVEFORMAT: 18 + 12 bytes).
    mpeg3 = struct.pack("<HIHHH", 1, 2, 418, 1, 1393)
    fmt55 = waveformatex(0x0055, 2, 44100, 16000, 1, mpeg3)
    odd = chunk(b"junk", b"abc")  # odd size: one pad byte follows
    fact = chunk(b"fact", struct.pack("<I", 44100))
    listc = chunk(b"LIST", b"INFO" + chunk(b"INAM", b"Fixture RIFF Title\0"))
    head = b"RIFF____WAVE" + odd + chunk(b"fmt ", fmt55) + fact + b"data" + struct.pack("<I", len(mp3))
    body = riff(b"WAVE", odd + chunk(b"fmt ", fmt55) + fact + chunk(b"data", mp3) + listc)
    add("riff_wave_55.wav", base, body, len(head), "riff_wave")

    # RIFF WAVE, format 0x0050 (MPEG1WAVEFORMAT: 18 + 22 bytes; head layer 4 = Layer III).
    mpeg1 = struct.pack("<HIHHHHII", 4, 128000, 2, 0, 0, 0, 0, 0)
    fmt50 = waveformatex(0x0050, 2, 44100, 16000, 1, mpeg1)
    assert len(fmt50) == 40
    head = b"RIFF____WAVE" + chunk(b"fmt ", fmt50) + b"data" + struct.pack("<I", len(mp3s))
    add("riff_wave_50.wav", small, riff(b"WAVE", chunk(b"fmt ", fmt50) + chunk(b"data", mp3s)), len(head),
        "riff_wave")

    # RIFF RMP3.
    head = b"RIFF____RMP3" + b"data" + struct.pack("<I", len(mp3s))
    add("riff_rmp3.rmp", small, riff(b"RMP3", chunk(b"data", mp3s)), len(head), "riff_rmp3")

    # Trailing tags.
    add("id3v1.mp3", small, mp3s + id3v1(), 0, "bare")
    add("apetag.mp3", small, mp3s + ape_tag(), 0, "bare_ape")
    add("ape_id3v1.mp3", small, mp3s + ape_tag() + id3v1(), 0, "bare_ape")
    tag2 = id3v2(300)
    add("id3v2.mp3", small, tag2 + mp3s + id3v1(), len(tag2), "id3v2")
    add("id3v2_ape.mp3", small, tag2 + mp3s + ape_tag() + id3v1(), len(tag2), "id3v2")


if __name__ == "__main__":
    main()
