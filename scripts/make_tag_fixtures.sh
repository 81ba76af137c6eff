#!/usr/bin/env bash
# Makes the writer-made tag fixtures of tests/data/tags: one short silent MP3 body
# (sox + lame) tagged by real tag writers used as black boxes: mutagen (ID3v2.3 and
# 2.4 in every text encoding, COMM, TCON, TXXX ReplayGain, APEv2), id3v2 (ID3v1.1)
# and ffmpeg (RIFF WAVE with a LIST/INFO chunk). Writes tests/data/tags/manifest.txt
# with what each writer was told. The tests compare the readers against these values.
#
# The fixtures are committed; run this again only to change them.
set -euo pipefail
cd "$(dirname "$0")/.."
out=tests/data/tags
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"
rm -f "$out"/*.mp3 "$out"/*.wav "$out"/manifest.txt

# mutagen is used through the system Python, where the Debian package installs it.
py=/usr/bin/python3
"$py" -c 'import mutagen' 2>/dev/null || { echo "needs python3-mutagen" >&2; exit 1; }

# The audio body: 0.15 s of silence, 44.1 kHz mono, 32 kbit/s, no VBR header.
sox -n -r 44100 -c 1 -b 16 "$tmp/silence.wav" trim 0 0.15
lame --quiet -b 32 -t "$tmp/silence.wav" "$tmp/body.mp3"

# id3 FILE VERSION ENCODING: an ID3v2 tag written by mutagen with every text frame in
# ENCODING (0 Latin-1, 1 UTF-16 with BOM, 2 UTF-16BE, 3 UTF-8). The frames come as
# NAME=VALUE arguments after the three; TXXX:DESC=VALUE and COMM:DESC=VALUE too.
id3() {
  local file=$1 version=$2 encoding=$3
  shift 3
  cp "$tmp/body.mp3" "$out/$file"
  "$py" - "$out/$file" "$version" "$encoding" "$@" <<'PY'
import sys
from mutagen.id3 import ID3, Frames, TXXX, COMM
path, version, encoding = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
tag = ID3()
for item in sys.argv[4:]:
    key, value = item.split("=", 1)
    if key.startswith("TXXX:"):
        tag.add(TXXX(encoding=encoding, desc=key[5:], text=[value]))
    elif key.startswith("COMM:"):
        tag.add(COMM(encoding=encoding, lang="eng", desc=key[5:], text=[value]))
    else:
        tag.add(Frames[key](encoding=encoding, text=[value]))
tag.save(path, v2_version=version, v1=0, padding=lambda info: 64)
PY
}

# ape FILE NAME=VALUE...: an APEv2 tag written by mutagen at the end of FILE.
ape() {
  local file=$1
  shift
  "$py" - "$out/$file" "$@" <<'PY'
import sys
from mutagen.apev2 import APEv2
tag = APEv2()
for item in sys.argv[2:]:
    key, value = item.split("=", 1)
    tag[key] = value
tag.save(sys.argv[1])
PY
}

# ID3v2.3, Latin-1 text (TDRC is written as TYER in 2.3).
id3 id3v23_latin1.mp3 3 0 "TPE1=Artiste Café" "TIT2=Chanson d'été" "TALB=Album Latin-1" "TDRC=1999" \
    "TRCK=3/12" "TCON=(17)" "COMM:=Commentaire en Latin-1" \
    "TXXX:replaygain_track_gain=-6.48 dB" "TXXX:replaygain_track_peak=0.988831" \
    "TXXX:replaygain_album_gain=-5.20 dB" "TXXX:replaygain_album_peak=1.012345"
# ID3v2.3, UTF-16 with byte-order mark; a COMM with a description; album gain 0.00 dB.
id3 id3v23_utf16.mp3 3 1 "TPE1=Ärtist ✓ 日本" "TIT2=Title – UTF-16" "TALB=Album Ω" "TDRC=2003" \
    "TRCK=7" "TCON=(17)Rock & Roll" "COMM:Notes=UTF-16 comment ♪" \
    "TXXX:REPLAYGAIN_TRACK_GAIN=+1.50 dB" "TXXX:REPLAYGAIN_ALBUM_GAIN=0.00 dB"
# ID3v2.4, UTF-16BE without byte-order mark.
id3 id3v24_utf16be.mp3 4 2 "TPE1=Big Endian Artist" "TIT2=Titel ß" "TALB=Album BE" "TDRC=2021-05-06" \
    "TRCK=12/20" "TCON=Electronic" "COMM:=Kommentar BE" \
    "TXXX:replaygain_track_gain=-2.25 dB" "TXXX:replaygain_album_peak=0.5"
# ID3v2.4, UTF-8; a bare number as genre stays a number.
id3 id3v24_utf8.mp3 4 3 "TPE1=アーティスト" "TIT2=日本語のタイトル" "TALB=Álbum UTF-8" "TDRC=2010" \
    "TRCK=1" "TCON=17" "COMM:=Comentário UTF-8" \
    "TXXX:replaygain_track_gain=-7.00 dB" "TXXX:replaygain_track_peak=0.75"
# ID3v2.4, Latin-1.
id3 id3v24_latin1.mp3 4 0 "TPE1=Latin Artist" "TIT2=Ünïcödé Title" "TALB=Latin Album" "TDRC=1987" \
    "TRCK=2" "TCON=(52)" "COMM:=Latin-1 in 2.4"

# ID3v1.1 by id3v2 (id3lib): track 7, genre 17.
cp "$tmp/body.mp3" "$out/id3v11.mp3"
id3v2 -1 -a "V1 Artist" -t "V1 Title" -A "V1 Album" -y 1999 -c "V1 comment" -g 17 -T 7 "$out/id3v11.mp3"

# ID3v1.1 with Shift-JIS bytes (code page 932): artist "あい", title "テスト".
cp "$tmp/body.mp3" "$out/id3v11_sjis.mp3"
id3v2 -1 -a "$(printf '\x82\xa0\x82\xa2')" -t "$(printf '\x83\x65\x83\x58\x83\x67')" -T 3 "$out/id3v11_sjis.mp3"

# APEv2 with ReplayGain items, bare stream (container type 5).
cp "$tmp/body.mp3" "$out/ape_replaygain.mp3"
ape ape_replaygain.mp3 "Artist=APE Artist" "Title=APE Title ✓" "Album=APE Album" "Year=2011" "Track=5" \
    "Genre=Jazz" "Comment=APE comment" "REPLAYGAIN_TRACK_GAIN=-3.20 dB" "REPLAYGAIN_TRACK_PEAK=0.891" \
    "REPLAYGAIN_ALBUM_GAIN=-4.10 dB" "REPLAYGAIN_ALBUM_PEAK=0.999"

# APEv2 without Year in front of an ID3v1 tag with year 1999 (the APE tag is written
# first: mutagen appends its tag behind an ID3v1 tag it finds, id3lib appends the
# ID3v1 tag at the very end).
cp "$tmp/body.mp3" "$out/ape_id3v1.mp3"
ape ape_id3v1.mp3 "Artist=APE Artist" "Title=APE Title"
id3v2 -1 -a "V1 Artist" -t "V1 Title" -y 1999 -T 4 -g 29 "$out/ape_id3v1.mp3"

# ID3v2.4 with a track gain only, APEv2 with track and album gain (container type 4).
id3 id3v2_ape.mp3 4 3 "TIT2=ID3 Title" "TXXX:replaygain_track_gain=-1.00 dB"
ape id3v2_ape.mp3 "Title=APE Title" "Album=APE Album" "REPLAYGAIN_TRACK_GAIN=-9.00 dB" \
    "REPLAYGAIN_ALBUM_GAIN=-4.50 dB"

# RIFF WAVE holding the MP3, with a LIST/INFO chunk by ffmpeg (which names the track
# chunk IPRT, not ITRK), then an ID3v1.1 tag with track 9 behind the RIFF data.
ffmpeg -loglevel error -i "$tmp/body.mp3" -c:a copy -metadata artist="Riff Artist" \
    -metadata title="Riff Title" -metadata album="Riff Album" -metadata date="2001" \
    -metadata track="4" -metadata genre="Ambient" -metadata comment="Riff comment" \
    -fflags +bitexact "$out/riff_info.wav"
id3v2 -1 -a "V1 Artist" -c "V1 comment" -T 9 "$out/riff_info.wav"

cat >"$out/manifest.txt" <<'TXT'
# Writer-made tag fixtures (scripts/make_tag_fixtures.sh). Each file: the writer, the
# values it was told; the tests hold the readers to these.
id3v23_latin1.mp3   mutagen ID3v2.3 Latin-1: TPE1 TIT2 TALB TYER TRCK TCON COMM, four TXXX ReplayGain
id3v23_utf16.mp3    mutagen ID3v2.3 UTF-16+BOM: COMM with description, album gain 0.00 dB
id3v24_utf16be.mp3  mutagen ID3v2.4 UTF-16BE
id3v24_utf8.mp3     mutagen ID3v2.4 UTF-8, TCON "17"
id3v24_latin1.mp3   mutagen ID3v2.4 Latin-1, TCON "(52)"
id3v11.mp3          id3v2 (id3lib) ID3v1.1, track 7, genre 17
id3v11_sjis.mp3     id3v2 (id3lib) ID3v1.1 with Shift-JIS bytes
ape_replaygain.mp3  mutagen APEv2 with ReplayGain items
ape_id3v1.mp3       mutagen APEv2 without Year, then id3v2 ID3v1.1 (year 1999, track 4, genre 29) behind it
id3v2_ape.mp3       mutagen ID3v2.4 (track gain) and APEv2 (track and album gain)
riff_info.wav       ffmpeg RIFF WAVE (MP3) with LIST/INFO, then id3v2 ID3v1.1 track 9
TXT
ls -l "$out"
