// Position and time conversions and the frame-accurate seek: choose a restart
// frame from the frame index (scanning forward for frames not indexed yet), reset
// the decoding state, decode up to 32 frames of pre-roll and drop the bytes before
// the target.
#include "seeking.h"

#include <cstdint>
#include <cstring>

#include "../engine/frame_header.h"
#include "../host/kxcore.h"
#include "header_word.h"
#include "stream_io.h"

namespace kxmp3 {

using namespace layout_io;
using namespace header_word;

namespace {

// Raised inside SetPosition; carries the code to the single exit that unlocks.
struct SeekFailure {
  KxResult code;
};

uint64_t DelayBytes(const DecoderState& s) {
  return static_cast<uint64_t>(s.lameDelay) * s.info.generic.channels * s.bytesPerSample;
}

uint64_t TotalBytes(const DecoderState& s) { return s.info.generic.totalPcmBytes; }

uint32_t Unread(const DecoderState& s) { return s.pcmBufferSize - s.pcmReadPos; }

// Microseconds of `bytes` of output.
int64_t BytesToTime(const DecoderState& s, uint64_t bytes) {
  int64_t bytesPerSecond = static_cast<int64_t>(s.info.generic.bitsPerSample / 8) * s.info.generic.sampleRate *
                           s.info.generic.channels;
  return ZCoreMulDiv64(static_cast<int64_t>(bytes), kReferenceTimeUnits, bytesPerSecond);
}

bool GrowIndexIfFull(DecoderState& s) {
  if (s.frameCounter < s.frameIndexCapacity && s.frameIndex != nullptr) return true;
  uint32_t capacity = s.frameIndexCapacity + kFrameIndexGrowth;
  void* grown = ZCoreRealloc(s.frameIndex, static_cast<size_t>(capacity) * sizeof(FrameIndexEntry));
  if (grown == nullptr) return false;
  s.frameIndex = static_cast<FrameIndexEntry*>(grown);
  s.frameIndexCapacity = capacity;
  return s.frameCounter < s.frameIndexCapacity;
}

// Reads `n` bits from `p` starting at bit `bit` (most significant first).
uint32_t Bits(const uint8_t* p, uint32_t bit, uint32_t n) {
  uint32_t v = 0;
  for (uint32_t i = 0; i < n; ++i, ++bit) v = (v << 1) | ((p[bit >> 3] >> (7 - (bit & 7))) & 1);
  return v;
}

// main_data_begin and the sum of part2_3_length over the granules and channels of
// the side information at `side`.
void SideInfoFields(uint32_t header, const uint8_t* side, uint32_t* mainDataBegin, uint32_t* part23Bits) {
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

}  // namespace

KxResult GetPosition(const DecoderState& s, uint32_t origin, QWUNION* position) {
  if (origin == AF_ORIGIN_CURRENT) {
    position->i = 0;
    return AF_S_OK;
  }
  uint64_t p = static_cast<uint64_t>(s.frameCounter) * s.pcmBufferSize - DelayBytes(s) - Unread(s);
  position->u = origin == AF_ORIGIN_END ? TotalBytes(s) - p : p;
  return AF_S_OK;
}

KxResult ScanFrame(DecoderState& s) {
  Class_ZStream* stream = s.stream;
  int64_t pos = 0;
  if (!Tell(stream, &pos)) return AF_S_END_OF_DATA;
  // Header, check word and the largest side information.
  uint8_t buf[4 + 2 + 32];
  if (!ReadExact(stream, buf, 4)) return AF_S_END_OF_DATA;
  uint32_t header = BigEndian32(buf);
  // A frame start of this stream only: a valid header of the reference header's
  // version, layer and sampling frequency, as the frame reader checks it (any valid
  // header while there is no reference yet). A header of another version taken as
  // the reference would make the decoder write two granules into a frame buffer
  // sized for one.
  auto ofThisStream = [&s](uint32_t word) {
    return IsLayer3Header(word) &&
           (s.referenceHeader == 0 || ((word ^ s.referenceHeader) & kHeaderCompareMask) == 0);
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

  // The bookkeeping of the frame decode driver, without decoding.
  if (!GrowIndexIfFull(s)) return AF_E_FAIL;
  FrameIndexEntry& entry = s.frameIndex[s.frameCounter];
  entry.offset = static_cast<uint64_t>(pos);
  const uint32_t mainDataLength = frameLength - 4 - sideBytes - 2 * protection;
  s.reservoirWriteIndex = (s.reservoirWriteIndex + mainDataLength) & (kReservoirBytes - 1);
  s.reservoirBitPos = (s.reservoirBitPos + 7) & ~7u;
  const uint32_t byteIndex = s.reservoirBitPos / 8;
  const int64_t skip = static_cast<int64_t>(s.reservoirByteCount) - mainDataBegin - byteIndex;
  if (byteIndex > kReservoirBytes) {
    s.reservoirByteCount -= kReservoirBytes;
    s.reservoirBitPos -= kReservoirBytes * 8;
  }
  s.reservoirByteCount += mainDataLength;
  entry.reservoirWrite = s.reservoirWriteIndex;
  entry.reservoirFill = s.reservoirByteCount;
  const bool headerFrameOnly = s.frameCounter == 0 && s.info.vbrHeaderFrame != 0;
  if (headerFrameOnly) {
    // Decoded as silence: the skip is applied whatever its sign, no granule is read.
    s.reservoirBitPos = static_cast<uint32_t>(s.reservoirBitPos + skip * 8);
  } else if (skip >= 0) {
    s.reservoirBitPos = static_cast<uint32_t>(s.reservoirBitPos + skip * 8) + part23Bits;
  }
  // (skip < 0: the decoder outputs silence and leaves the bit position alone.)
  entry.reservoirBitPos = s.reservoirBitPos;
  s.referenceHeader = header;
  ++s.frameCounter;
  // A last frame cut short is indexed like any other (the decoder reads it too);
  // the scan after it finds the end.
  if (!SeekTo(stream, pos + frameLength)) stream->Seek(0, ZS_SEEK_END);
  return AF_S_OK;
}

KxResult SeekToFrame(DecoderState& s, uint32_t frame, uint32_t offset, DecodeStepFn decode) {
  // 1. Reservoir bytes at the current read position, carried to the new one.
  uint8_t carried[kSeekCarriedReservoirBytes];
  uint32_t readIndex = (s.reservoirBitPos / 8) % kReservoirBytes;
  for (uint32_t i = 0; i < kSeekCarriedReservoirBytes; ++i)
    carried[i] = s.reservoir[(readIndex + i) % kReservoirBytes];

  // 2. The frame decoding restarts from.
  auto indexed = [&s](uint32_t k) { return k < s.frameIndexCapacity && s.frameIndex[k].offset != 0; };
  uint32_t start = 0;
  if (frame <= kSeekPreRollFrames) {
    if (!SeekTo(s.stream, 0)) return AF_E_FAIL;
  } else {
    const uint32_t k = frame - kSeekPreRollFrames;
    if (!indexed(k)) {
      // A frame before the counter that is not indexed cannot be found again. (With
      // the counter at k, frame k is simply the next one: the scan finds it.)
      if (s.frameCounter > k) return AF_E_FAIL;
      // Frames never read yet: find them by scanning, which indexes k on the way.
      while (s.frameCounter < frame) {
        KxResult r = ScanFrame(s);
        if (r == AF_S_END_OF_DATA) {
          // The target lies past the last frame: the decoder stands at the end of
          // the data, with nothing buffered, and says so.
          s.pcmReadPos = s.pcmBufferSize;
          s.endOfData = 1;
        }
        if (r != AF_S_OK) return r;
      }
      if (!indexed(k)) return AF_E_FAIL;
    }
    // Restart from frame k with the reservoir as the index recorded it, so that
    // the 32 frames of pre-roll rebuild the decoder's state exactly.
    const FrameIndexEntry& e = s.frameIndex[k];
    if (!SeekTo(s.stream, static_cast<int64_t>(e.offset))) return AF_E_FAIL;
    s.reservoirBitPos = e.reservoirBitPos;
    s.reservoirWriteIndex = e.reservoirWrite;
    s.reservoirByteCount = e.reservoirFill;
    start = k;
  }

  // 3. Reset the decoding state.
  s.frameCounter = start;
  s.pcmReadPos = s.pcmBufferSize;
  std::memset(s.workBlock, 0, kSynthesisAreaBytes);
  readIndex = (s.reservoirBitPos / 8) % kReservoirBytes;
  for (uint32_t i = 0; i < kSeekCarriedReservoirBytes; ++i)
    s.reservoir[(readIndex + i) % kReservoirBytes] = carried[i];
  s.ringPos[0] = 0;
  s.ringPos[1] = 0;
  s.muteCounter = 0;
  std::memset(s.workBlockHigh, 0, kOverlapAreaBytes);
  s.endOfData = 0;
  s.deemphasisState = DeemphasisState{};

  // 4. Pre-roll. While it runs the engine knows where it ends, so that it can leave
  // out the work of frames that cannot change what the target frame decodes to.
  auto acceptable = [](KxResult r) { return r == AF_S_OK || r == AF_S_FRAME_ERROR || r == AF_E_UNDERFLOW; };
  s.preRollTarget = frame;
  while (s.frameCounter < frame) {
    KxResult r = decode(s, 0, nullptr, nullptr);
    if (!acceptable(r)) {
      s.preRollTarget = 0;
      return r;
    }
    s.pcmReadPos = s.pcmBufferSize;
  }
  s.preRollTarget = 0;

  // 5. Into the target frame.
  if (offset == 0) return AF_S_OK;
  KxResult r = decode(s, 0, nullptr, nullptr);
  if (!acceptable(r)) return r;
  s.pcmReadPos += offset;
  return AF_S_OK;
}

KxResult SetPosition(DecoderState& s, Class_ZCOM* lockObject, QWUNION position, uint32_t origin,
                     DecodeStepFn decode) {
  if (lockObject->LockObject(kSeekLockFile, kSeekLockLine) != AF_S_OK) return AF_E_FAIL;
  KxResult result = AF_S_OK;
  try {
    const uint64_t block = static_cast<uint64_t>(s.info.generic.channels) * s.bytesPerSample;
    uint64_t pos = position.u - position.u % block;
    const uint64_t total = TotalBytes(s);
    const uint64_t delay = DelayBytes(s);
    const uint64_t fb = s.pcmBufferSize;
    uint64_t target = 0;
    if (origin == AF_ORIGIN_END) {
      // `pos` bytes back from the end: target = total - pos + delay. Only a
      // negative position whose size exceeds the total is refused; a smaller
      // negative one lies past the end, and the seek ends there with the end of
      // the data. A position so large that the target would fall before the
      // stream's first byte has no target at all and is refused too.
      const int64_t signedPos = static_cast<int64_t>(pos);
      if (signedPos < 0 && 0 - pos > total) throw SeekFailure{AF_E_OUT_OF_RANGE};
      if (signedPos > 0 && pos > total + delay) throw SeekFailure{AF_E_OUT_OF_RANGE};
      target = total - pos + delay;
    } else if (origin == AF_ORIGIN_CURRENT) {
      const uint64_t unread = Unread(s);
      const uint64_t cur = s.frameCounter * fb - unread;
      if (cur + pos > total) throw SeekFailure{AF_E_OUT_OF_RANGE};
      if (pos <= unread) {
        // Kept deliberately: exactly `pos` bytes stay unread (0 drops the buffer).
        s.pcmReadPos = static_cast<uint32_t>(fb - pos);
        lockObject->UnLockObject();
        return AF_S_OK;
      }
      target = cur + pos + delay;
    } else {
      if (pos > total) throw SeekFailure{AF_E_OUT_OF_RANGE};
      target = pos + delay;
    }
    const uint64_t frame = target / fb;
    const uint32_t frameNumber = frame > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(frame);
    KxResult r = SeekToFrame(s, frameNumber, static_cast<uint32_t>(target % fb), decode);
    if (r != AF_S_OK) throw SeekFailure{r};
  } catch (const SeekFailure& failure) {
    result = failure.code;
  }
  lockObject->UnLockObject();
  return result;
}

KxResult GetReferenceTimeOf(const DecoderState& s, QWUNION* time) {
  const int64_t bytes = (static_cast<int64_t>(s.frameCounter) - 1) * s.pcmBufferSize + s.pcmReadPos;
  time->i = BytesToTime(s, static_cast<uint64_t>(bytes));
  return AF_S_OK;
}

KxResult GetTotalTimeOf(const DecoderState& s, QWUNION* time) {
  const uint64_t decoded = static_cast<uint64_t>(s.frameCounter) * s.pcmBufferSize;
  const uint64_t total = TotalBytes(s);
  time->i = BytesToTime(s, decoded > total ? decoded : total);
  return AF_S_OK;
}

int64_t ReferenceTimeToSampleCount(const DecoderState& s, int64_t time) {
  return ZCoreMulDiv64(time, s.info.generic.sampleRate, kReferenceTimeUnits);
}

int64_t SampleCountToReferenceTime(const DecoderState& s, int64_t samples) {
  return ZCoreMulDiv64(samples, kReferenceTimeUnits, s.info.generic.sampleRate);
}

}  // namespace kxmp3
