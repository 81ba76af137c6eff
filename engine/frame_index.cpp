// Frame index, reservoir bookkeeping, frame scan and resets (see frame_index.h).
#include "frame_index.h"

#include <cstring>

#include "../host/kxcore.h"
#include "byte_order.h"
#include "engine_state.h"
#include "frame_header.h"
#include "header_word.h"
#include "synthesis.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// Reads `n` bits from `p` starting at bit `bit` (most significant first).
uint32_t Bits(const uint8_t* p, uint32_t bit, uint32_t n) {
  uint32_t v = 0;
  for (uint32_t i = 0; i < n; ++i, ++bit) v = (v << 1) | ((p[bit >> 3] >> (7 - (bit & 7))) & 1);
  return v;
}

// main_data_begin and the sum of part2_3_length over the granules and channels of
// the side information at `side`.
void SideInfoFields(uint32_t header, const uint8_t* side, uint32_t* mainDataBegin, uint32_t* part23Bits) {
  using namespace header_word;
  const bool mpeg1 = VersionIndex(header) == 0;
  const uint32_t channels = Channels(header);
  uint32_t sum = 0;
  if (mpeg1) {
    *mainDataBegin = Bits(side, 0, 9);
    uint32_t first = 9 + (channels == 1 ? 5 : 3) + 4 * channels;  // main_data_begin, private bits, scfsi
    for (uint32_t g = 0; g < 2 * channels; ++g) sum += Bits(side, first + 59 * g, 12);
  } else {
    *mainDataBegin = Bits(side, 0, 8);
    uint32_t first = 8 + (channels == 1 ? 1 : 2);
    for (uint32_t ch = 0; ch < channels; ++ch) sum += Bits(side, first + 63 * ch, 12);
  }
  *part23Bits = sum;
}

bool ReadExact(Class_ZStream* stream, void* buffer, uint32_t bytes) {
  uint32_t got = 0;
  return stream->Read(buffer, bytes, &got) == AF_S_OK && got == bytes;
}

}  // namespace

bool GrowFrameIndex(EngineState& engine) {
  if (engine.frameCounter < engine.frameIndexCapacity && engine.frameIndex != nullptr) return true;
  const uint32_t capacity = engine.frameIndexCapacity + kFrameIndexGrowth;
  void* grown = ZCoreRealloc(engine.frameIndex, static_cast<size_t>(capacity) * sizeof(FrameIndexEntry));
  if (grown == nullptr) return false;
  engine.frameIndex = static_cast<FrameIndexEntry*>(grown);
  engine.frameIndexCapacity = capacity;
  return engine.frameCounter < engine.frameIndexCapacity;
}

void ReadMainData(EngineState& engine, Class_ZStream* stream, uint32_t length) {
  const uint32_t room = kReservoirBytes - engine.reservoirWriteIndex;
  const uint32_t first = length < room ? length : room;
  stream->Read(engine.reservoir + engine.reservoirWriteIndex, first, nullptr);
  if (length > first) stream->Read(engine.reservoir, length - first, nullptr);
}

int32_t AppendMainData(EngineState& engine, uint32_t length, uint32_t mainDataBegin, uint32_t slot) {
  engine.reservoirWriteIndex = (engine.reservoirWriteIndex + length) & (kReservoirBytes - 1);
  engine.reservoirBitPos = (engine.reservoirBitPos + 7) & ~7u;
  const uint32_t consumed = engine.reservoirBitPos / 8;
  const int32_t skip = static_cast<int32_t>(engine.reservoirByteCount - mainDataBegin - consumed);
  if (consumed > kReservoirBytes) {
    // Keep both counters small; byte indices are taken modulo the ring anyway.
    engine.reservoirByteCount -= kReservoirBytes;
    engine.reservoirBitPos -= kReservoirBytes * 8;
  }
  engine.reservoirByteCount += length;
  FrameIndexEntry& entry = engine.frameIndex[slot];
  entry.reservoirFill = engine.reservoirByteCount;
  entry.reservoirWrite = engine.reservoirWriteIndex;
  return skip;
}

KxResult ScanFrame(EngineState& engine, Class_ZStream* stream) {
  using namespace header_word;
  int64_t pos = 0;
  if (stream->GetPosition(&pos) != AF_S_OK) return AF_S_END_OF_DATA;
  // Header, check word and the largest side information.
  uint8_t buf[4 + 2 + 32];
  if (!ReadExact(stream, buf, 4)) return AF_S_END_OF_DATA;
  uint32_t header = BigEndian32(buf);
  // A frame start of this stream only: a valid header of the reference header's
  // version, layer and sampling frequency, as the frame reader checks it (any valid
  // header while there is no reference yet). A header of another version taken as
  // the reference would make the decoder write two granules into a frame buffer
  // sized for one.
  auto ofThisStream = [&engine](uint32_t word) {
    return IsLayer3Header(word) &&
           (engine.referenceHeader == 0 || ((word ^ engine.referenceHeader) & kHeaderCompareMask) == 0);
  };
  while (!ofThisStream(header)) {
    uint8_t byte = 0;
    if (!ReadExact(stream, &byte, 1)) return AF_S_END_OF_DATA;
    header = (header << 8) | byte;
    ++pos;
  }
  const uint32_t protection = ProtectionBit(header) == 0 ? 1 : 0;
  const uint32_t sideBytes = SideInfoBytes(header);
  const uint32_t frameLength = HeaderFrameLength(header);
  if (!ReadExact(stream, buf + 4, 2 * protection + sideBytes)) return AF_S_END_OF_DATA;
  uint32_t mainDataBegin = 0;
  uint32_t part23Bits = 0;
  SideInfoFields(header, buf + 4 + 2 * protection, &mainDataBegin, &part23Bits);

  // The bookkeeping of the frame driver, without decoding.
  if (!GrowFrameIndex(engine)) return AF_E_FAIL;
  const uint32_t slot = engine.frameCounter;
  engine.frameIndex[slot].offset = static_cast<uint64_t>(pos);
  const uint32_t mainDataLength = frameLength - 4 - sideBytes - 2 * protection;
  const int32_t skip = AppendMainData(engine, mainDataLength, mainDataBegin, slot);
  const bool headerFrameOnly = engine.frameCounter == 0 && engine.skipFirstFrame != 0;
  if (headerFrameOnly) {
    // Read as silence: the skip is applied whatever its sign, no granule is read.
    engine.reservoirBitPos = static_cast<uint32_t>(engine.reservoirBitPos + skip * 8);
  } else if (skip >= 0) {
    engine.reservoirBitPos = static_cast<uint32_t>(engine.reservoirBitPos + skip * 8) + part23Bits;
  }
  // (skip < 0: the decoder outputs silence and leaves the bit position alone.)
  engine.frameIndex[slot].reservoirBitPos = engine.reservoirBitPos;
  engine.referenceHeader = header;
  ++engine.frameCounter;
  // A last frame cut short is indexed like any other (the decoder reads it too);
  // the scan after it finds the end.
  if (stream->Seek(pos + frameLength, ZS_SEEK_SET) != AF_S_OK) stream->Seek(0, ZS_SEEK_END);
  return AF_S_OK;
}

void ResetFilterbank(EngineState& engine) {
  double* rings = reinterpret_cast<double*>(engine.workBlock);
  ClearSynthesisRing(rings);
  ClearSynthesisRing(rings + kSynthesisRingSize);
  std::memset(engine.workBlockHigh, 0, kOverlapAreaBytes);
  engine.ringPos[0] = 0;
  engine.ringPos[1] = 0;
  engine.muteCounter = 0;
  engine.deemphasisState = DeemphasisState{};
}

void ResetReservoir(EngineState& engine) {
  std::memset(engine.reservoir, 0, kReservoirBytes);
  engine.reservoirWriteIndex = 0;
  engine.reservoirBitPos = 0;
  engine.reservoirByteCount = 0;
  engine.frameCounter = 0;
  engine.lastCheckWord = 0;
}

}  // namespace kxmp3
