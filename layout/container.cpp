// Container detection: RIFF "WAVE" / "RMP3", ID3v2 in front, bare MPEG audio with
// an optional ID3v1 and APE tag at its end; the frame search that confirms a
// first frame by a second one; the stream bounds of the audio data. Runs the
// header parser on the first frame and always puts the stream back where it was.
#include "container.h"

#include <cstring>

#include "../engine/frame_header.h"
#include "../engine/header_word.h"
#include "../host/kxcore.h"
#include "../platform/kx_platform.h"
#include "stream_io.h"
#include "vbr_header.h"

namespace kxmp3 {

using namespace layout_io;
using namespace header_word;

namespace {

constexpr uint32_t kId3v1Bytes = 128;
constexpr uint32_t kApeFooterBytes = 32;
// Streams shorter than this are never checked for trailing tags.
constexpr int64_t kTrailingTagMinLength = 132;

constexpr uint16_t kWaveFormatMpeg = 0x0050;
constexpr uint16_t kWaveFormatMpegLayer3 = 0x0055;
constexpr uint16_t kHeadLayer3 = 4;  // fwHeadLayer value of Layer III

constexpr uint32_t kApeMaxVersion = 2000;
constexpr uint32_t kApeMaxItems = 65536;
constexpr uint32_t kApeMaxItemBytes = 16777217;   // tag size less the footer must stay below this
constexpr uint32_t kApeFlagHasHeader = 1u << 31;
constexpr uint32_t kApeFlagIsHeader = 1u << 29;

// Raised inside detection; carries the failure code to the one exit.
struct DetectFailure {
  KxResult code;
};

[[noreturn]] void Fail(KxResult code) { throw DetectFailure{code}; }

void ReadOrFail(Class_ZStream* stream, void* buffer, uint32_t bytes) {
  if (!ReadExact(stream, buffer, bytes)) Fail(AF_E_BAD_FORMAT);
}

int64_t TellOrFail(Class_ZStream* stream) {
  int64_t pos = 0;
  if (!Tell(stream, &pos)) Fail(AF_E_BAD_FORMAT);
  return pos;
}

int64_t SizeOrFail(Class_ZStream* stream) {
  int64_t size = 0;
  if (stream->GetSize(&size) != AF_S_OK) Fail(AF_E_BAD_FORMAT);
  return size;
}

void SeekOrFail(Class_ZStream* stream, int64_t offset, uint32_t origin) {
  if (stream->Seek(offset, origin) != AF_S_OK) Fail(AF_E_BAD_FORMAT);
}

bool IdIs(const uint8_t* p, const char* id) { return std::memcmp(p, id, 4) == 0; }

// Walks RIFF chunks from the current position until the chunk `id`; returns its
// size and leaves the stream on the chunk's first data byte. Chunks are padded to
// an even size.
uint32_t FindChunk(Class_ZStream* stream, const char* id) {
  for (;;) {
    uint8_t head[8];
    ReadOrFail(stream, head, 8);
    uint32_t size = LittleEndian32(head + 4);
    if (IdIs(head, id)) return size;
    SeekOrFail(stream, static_cast<int64_t>(size) + (size & 1), ZS_SEEK_CUR);
  }
}

// Reads the "fmt " chunk (the stream on its data) into core memory and tells
// whether it declares MPEG Layer-3.
bool FormatIsLayer3(Class_ZStream* stream, uint32_t size) {
  if (size < 16) Fail(AF_E_BAD_FORMAT);
  // A chunk larger than what is left of the stream cannot be read whole.
  int64_t pos = TellOrFail(stream);
  if (static_cast<int64_t>(size) > SizeOrFail(stream) - pos) Fail(AF_E_BAD_FORMAT);
  auto* fmt = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_PLAIN, size));
  if (fmt == nullptr) Fail(AF_E_BAD_FORMAT);
  if (!ReadExact(stream, fmt, size)) {
    ZCoreFree(fmt);
    Fail(AF_E_BAD_FORMAT);
  }
  uint16_t tag = LittleEndian16(fmt);
  bool layer3 = tag == kWaveFormatMpegLayer3 ||
                (tag == kWaveFormatMpeg && size >= 20 && LittleEndian16(fmt + 18) == kHeadLayer3);
  ZCoreFree(fmt);
  if (size & 1) SeekOrFail(stream, 1, ZS_SEEK_CUR);
  return layer3;
}

// The extension of the stream's name (pointer into `name`; "" when none).
const char16_t* NameExtension(Class_ZStream* stream, char16_t* name) {
  name[0] = 0;
  if (stream->GetName(name) != AF_S_OK) name[0] = 0;
  name[ZS_NAME_CHARS - 1] = 0;
  return KxPathFindExtensionW(name);
}

int64_t SearchOrFail(Class_ZStream* stream) {
  int64_t found = -1;
  KxResult r = FindFirstFrame(stream, &found);
  if (r != AF_S_OK) Fail(r);
  return found;
}

// "TAG" test: 128 bytes at the current position beginning with "TAG".
bool Id3v1Here(Class_ZStream* stream) {
  uint8_t tag[kId3v1Bytes];
  return ReadExact(stream, tag, kId3v1Bytes) && std::memcmp(tag, "TAG", 3) == 0;
}

// APE footer test on 32 bytes at the current position; gives the bytes the tag
// takes from the end of the audio (tag size, plus 32 with a header).
bool ApeFooterHere(Class_ZStream* stream, uint64_t* tagBytes) {
  uint8_t footer[kApeFooterBytes];
  if (!ReadExact(stream, footer, kApeFooterBytes)) return false;
  if (std::memcmp(footer, "APETAGEX", 8) != 0) return false;
  uint32_t version = LittleEndian32(footer + 8);
  uint32_t size = LittleEndian32(footer + 12);
  uint32_t items = LittleEndian32(footer + 16);
  uint32_t flags = LittleEndian32(footer + 20);
  if (version > kApeMaxVersion || items > kApeMaxItems) return false;
  if (size - kApeFooterBytes >= kApeMaxItemBytes) return false;  // unsigned: a size below 32 fails too
  if (flags & kApeFlagIsHeader) return false;
  *tagBytes = static_cast<uint64_t>(size) + ((flags & kApeFlagHasHeader) ? kApeFooterBytes : 0);
  return true;
}

struct Bounds {
  uint32_t type = kContainerNone;
  int64_t start = 0;
  int64_t length = 0;
};

Bounds DetectRiff(Class_ZStream* stream) {
  Bounds b;
  uint8_t head[8];
  ReadOrFail(stream, head, 8);  // RIFF size, form type
  uint32_t dataSize = 0;
  if (IdIs(head + 4, "WAVE")) {
    if (!FormatIsLayer3(stream, FindChunk(stream, "fmt "))) Fail(AF_E_NOT_MPEG_LAYER3);
    dataSize = FindChunk(stream, "data");
    b.type = kContainerRiffWave;
  } else if (IdIs(head + 4, "RMP3")) {
    dataSize = FindChunk(stream, "data");
    b.type = kContainerRiffRmp3;
  } else {
    Fail(AF_E_BAD_FORMAT);
  }
  int64_t d0 = TellOrFail(stream);

  char16_t name[ZS_NAME_CHARS];
  const char16_t* ext = NameExtension(stream, name);
  bool search = b.type == kContainerRiffWave ? ExtensionIs(ext, ".wav")
                                             : (ExtensionIs(ext, ".mp3") || ExtensionIs(ext, ".rmp"));
  b.start = search ? SearchOrFail(stream) : d0;

  // Kept as it is: when the search moved the start on by k bytes, k is taken off
  // after the minimum, so a length limited by the file size loses k twice.
  int64_t size = SizeOrFail(stream);
  int64_t room = size - b.start;
  int64_t chunk = static_cast<int64_t>(dataSize);
  b.length = (chunk < room ? chunk : room) - b.start + d0;
  if (b.length < 1) Fail(AF_E_BAD_FORMAT);
  return b;
}

Bounds DetectId3v2(Class_ZStream* stream) {
  Bounds b;
  uint8_t head[6];  // after "ID3" and the major version: revision, flags, four size bytes
  ReadOrFail(stream, head, 6);
  int64_t tagSize = (static_cast<int64_t>(head[2] & 0x7F) << 21) | ((head[3] & 0x7F) << 14) |
                    ((head[4] & 0x7F) << 7) | (head[5] & 0x7F);
  SeekOrFail(stream, tagSize, ZS_SEEK_CUR);  // a footer is not taken into account

  char16_t name[ZS_NAME_CHARS];
  b.start = ExtensionIs(NameExtension(stream, name), ".mp3") ? SearchOrFail(stream) : TellOrFail(stream);
  int64_t size = SizeOrFail(stream);
  b.length = size - b.start;
  b.type = kContainerId3v2;
  if (b.length >= kTrailingTagMinLength) {
    // Only an ID3v1 tag is cut here: an APE tag stays inside the audio length.
    SeekOrFail(stream, size - kId3v1Bytes, ZS_SEEK_SET);
    if (Id3v1Here(stream)) b.length -= kId3v1Bytes;
  }
  return b;
}

Bounds DetectBare(Class_ZStream* stream, int64_t p0) {
  Bounds b;
  char16_t name[ZS_NAME_CHARS];
  if (ExtensionIs(NameExtension(stream, name), ".mp3")) {
    SeekOrFail(stream, p0, ZS_SEEK_SET);  // step back over the 4 bytes read
    b.start = SearchOrFail(stream);
  } else {
    b.start = p0;
  }
  int64_t size = SizeOrFail(stream);
  b.length = size - b.start;
  if (b.length < 4) Fail(AF_E_BAD_FORMAT);
  b.type = kContainerBare;
  if (b.length >= kTrailingTagMinLength) {
    SeekOrFail(stream, size - kId3v1Bytes, ZS_SEEK_SET);
    int64_t footerPos = size - kApeFooterBytes;
    if (Id3v1Here(stream)) {
      b.length -= kId3v1Bytes;
      footerPos -= kId3v1Bytes;
    }
    uint64_t apeBytes = 0;
    // A footer position before the stream's start cannot hold a footer; a tag that
    // claims more bytes than the audio holds is not taken as a tag.
    if (footerPos >= 0 && SeekTo(stream, footerPos) && ApeFooterHere(stream, &apeBytes) &&
        apeBytes < static_cast<uint64_t>(b.length)) {
      b.type = kContainerBareApe;
      b.length -= static_cast<int64_t>(apeBytes);
    }
  }
  return b;
}

}  // namespace

KxResult FindFirstFrame(Class_ZStream* stream, int64_t* found) {
  *found = -1;
  int64_t p = 0;
  if (!Tell(stream, &p)) return AF_E_NO_SYNC;
  uint8_t first[3];
  if (!ReadExact(stream, first, 3)) {
    SeekTo(stream, p);
    return AF_E_NO_SYNC;
  }
  uint32_t word = BigEndian24(first);
  int64_t hit = -1;
  for (uint32_t k = 0; k < kFrameSearchPositions; ++k) {
    uint8_t byte = 0;
    if (!ReadExact(stream, &byte, 1)) break;
    word = (word << 8) | byte;  // the 4 bytes at p + k
    if (!IsLayer3Header(word)) continue;
    int64_t next = p + k + HeaderFrameLength(word);
    uint8_t second[4];
    bool confirmed = SeekTo(stream, next) && ReadExact(stream, second, 4) && IsLayer3Header(BigEndian32(second));
    if (confirmed) {
      hit = p + k;
      break;
    }
    if (!SeekTo(stream, p + k + 4)) break;
  }
  SeekTo(stream, p);
  if (hit < 0) return AF_E_NO_SYNC;
  *found = hit;
  return AF_S_OK;
}

KxResult DetectContainer(Class_ZStream* stream, uint32_t openFlags, StreamLayout* layout, MP3Info* info,
                         uint32_t* header) {
  StreamLayout local{};
  StreamLayout& out = layout ? *layout : local;
  out = StreamLayout{};
  if (header) *header = 0;
  if (stream == nullptr) return AF_E_BAD_FORMAT;

  MP3Info rec{};
  int64_t p0 = 0;
  if (!Tell(stream, &p0)) return AF_E_BAD_FORMAT;

  try {
    uint8_t magic[4];
    ReadOrFail(stream, magic, 4);
    Bounds b;
    if (IdIs(magic, "RIFF")) {
      b = DetectRiff(stream);
    } else if (std::memcmp(magic, "ID3", 3) == 0) {
      b = DetectId3v2(stream);
    } else {
      b = DetectBare(stream, p0);
    }

    // Common end: the first frame header at the start, then the header parser.
    SeekOrFail(stream, b.start, ZS_SEEK_SET);
    uint8_t first[4];
    ReadOrFail(stream, first, 4);
    uint32_t word = BigEndian32(first);
    rec.generic.dataLength = static_cast<uint64_t>(b.length);
    out.audioStart = static_cast<uint64_t>(b.start);
    out.audioLength = static_cast<uint64_t>(b.length);
    out.firstHeader = word;
    SeekOrFail(stream, b.start, ZS_SEEK_SET);
    KxResult r = ParseFirstFrame(stream, word, &rec, openFlags, &out);
    if (r != AF_S_OK) Fail(r);

    out.containerType = b.type;
    rec.containerType = b.type;
    if (header) *header = word;
    if (stream->GetName(rec.generic.name) != AF_S_OK) rec.generic.name[0] = 0;
    rec.generic.name[ZS_NAME_CHARS - 1] = 0;
    SeekOrFail(stream, p0, ZS_SEEK_SET);
    if (info) *info = rec;
    return AF_S_OK;
  } catch (const DetectFailure& failure) {
    stream->Seek(p0, ZS_SEEK_SET);
    out = StreamLayout{};
    if (header) *header = 0;
    return failure.code;
  }
}

}  // namespace kxmp3
