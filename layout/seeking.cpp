// Position and time arithmetic and the frame-accurate seek: the range checks and
// the target of a seek, the choice of a restart frame from the frame index
// (scanning forward for frames not indexed yet), the reset of the decoding state
// and up to 32 frames of pre-roll.
#include "seeking.h"

#include <cstdint>
#include <cstring>

#include "../engine/decode_frame.h"
#include "../engine/frame_index.h"
#include "../host/kxcore.h"

namespace kxmp3 {

namespace {

// Microseconds of `bytes` of output.
int64_t BytesToTime(const DeliveryPosition& p, uint64_t bytes) {
  return ZCoreMulDiv64(static_cast<int64_t>(bytes), kReferenceTimeUnits, static_cast<int64_t>(p.bytesPerSecond));
}

SeekPlan Refused() {
  SeekPlan plan;
  plan.refusal = AF_E_OUT_OF_RANGE;
  return plan;
}

SeekPlan ToTarget(const DeliveryPosition& p, uint64_t target) {
  SeekPlan plan;
  const uint64_t frame = target / p.frameBytes;
  plan.frame = frame > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(frame);
  plan.offset = static_cast<uint32_t>(target % p.frameBytes);
  return plan;
}

}  // namespace

uint64_t CurrentPosition(const DeliveryPosition& p, uint32_t origin) {
  if (origin == AF_ORIGIN_CURRENT) return 0;
  const uint64_t here = static_cast<uint64_t>(p.framesRead) * p.frameBytes - p.startSkipBytes - Unread(p);
  return origin == AF_ORIGIN_END ? p.totalBytes - here : here;
}

SeekPlan PlanSeek(const DeliveryPosition& p, QWUNION position, uint32_t origin) {
  const uint64_t block = p.blockAlign != 0 ? p.blockAlign : 1;
  const uint64_t pos = position.u - position.u % block;
  const uint64_t total = p.totalBytes;
  const uint64_t delay = p.startSkipBytes;
  if (origin == AF_ORIGIN_END) {
    // `pos` bytes back from the end: target = total - pos + delay. Only a
    // negative position whose size exceeds the total is refused; a smaller
    // negative one lies past the end, and the seek ends there with the end of
    // the data. A position so large that the target would fall before the
    // stream's first byte has no target at all and is refused too.
    const int64_t signedPos = static_cast<int64_t>(pos);
    if (signedPos < 0 && 0 - pos > total) return Refused();
    if (signedPos > 0 && pos > total + delay) return Refused();
    return ToTarget(p, total - pos + delay);
  }
  if (origin == AF_ORIGIN_CURRENT) {
    const uint64_t unread = Unread(p);
    const uint64_t cur = static_cast<uint64_t>(p.framesRead) * p.frameBytes - unread;
    if (cur + pos > total) return Refused();
    if (pos <= unread) {
      // Kept deliberately: exactly `pos` bytes stay unread (0 drops the buffer).
      SeekPlan plan;
      plan.withinBuffer = true;
      plan.keepUnread = static_cast<uint32_t>(pos);
      return plan;
    }
    return ToTarget(p, cur + pos + delay);
  }
  if (pos > total) return Refused();
  return ToTarget(p, pos + delay);
}

SeekOutcome SeekToFrame(EngineState& engine, Class_ZStream* stream, uint32_t frame, uint8_t* frameBuffer) {
  return SeekToFrame(engine, stream, frame, frameBuffer, &DecodeNextFrame);
}

SeekOutcome SeekToFrame(EngineState& engine, Class_ZStream* stream, uint32_t frame, uint8_t* frameBuffer,
                        FrameDecodeFn decode) {
  SeekOutcome outcome;
  auto fail = [&outcome](KxResult code) {
    outcome.result = code;
    return outcome;
  };
  EngineState& e = engine;

  // 1. Reservoir bytes at the current read position, carried to the new one.
  uint8_t carried[kSeekCarriedReservoirBytes];
  uint32_t readIndex = (e.reservoirBitPos / 8) % kReservoirBytes;
  for (uint32_t i = 0; i < kSeekCarriedReservoirBytes; ++i)
    carried[i] = e.reservoir[(readIndex + i) % kReservoirBytes];

  // 2. The frame decoding restarts from.
  auto indexed = [&e](uint32_t k) { return k < e.frameIndexCapacity && e.frameIndex[k].offset != 0; };
  uint32_t start = 0;
  if (frame <= kSeekPreRollFrames) {
    if (stream->Seek(0, ZS_SEEK_SET) != AF_S_OK) return fail(AF_E_FAIL);
  } else {
    const uint32_t k = frame - kSeekPreRollFrames;
    if (!indexed(k)) {
      // A frame before the counter that is not indexed cannot be found again. (With
      // the counter at k, frame k is simply the next one: the scan finds it.)
      if (e.frameCounter > k) return fail(AF_E_FAIL);
      // Frames never read yet: find them by scanning, which indexes k on the way.
      while (e.frameCounter < frame) {
        const KxResult r = ScanFrame(e, stream);
        // The target lies past the last frame: the decoder stands at the end of
        // the data.
        if (r == AF_S_END_OF_DATA) outcome.atEnd = true;
        if (r != AF_S_OK) return fail(r);
      }
      if (!indexed(k)) return fail(AF_E_FAIL);
    }
    // Restart from frame k with the reservoir as the index recorded it, so that
    // the 32 frames of pre-roll rebuild the decoder's state exactly.
    const FrameIndexEntry& entry = e.frameIndex[k];
    if (stream->Seek(static_cast<int64_t>(entry.offset), ZS_SEEK_SET) != AF_S_OK) return fail(AF_E_FAIL);
    e.reservoirBitPos = entry.reservoirBitPos;
    e.reservoirWriteIndex = entry.reservoirWrite;
    e.reservoirByteCount = entry.reservoirFill;
    start = k;
  }

  // 3. Reset the decoding state.
  e.frameCounter = start;
  ResetFilterbank(e);
  readIndex = (e.reservoirBitPos / 8) % kReservoirBytes;
  for (uint32_t i = 0; i < kSeekCarriedReservoirBytes; ++i)
    e.reservoir[(readIndex + i) % kReservoirBytes] = carried[i];
  outcome.restarted = true;

  // 4. Pre-roll. While it runs the engine knows where it ends, so that it can leave
  // out the work of frames that cannot change what the target frame decodes to.
  e.preRollTarget = frame;
  while (e.frameCounter < frame) {
    uint32_t made = 0;
    const KxResult r = static_cast<KxResult>(decode(e, stream, frameBuffer, &made));
    if (r != AF_S_OK && r != AF_S_FRAME_ERROR && r != AF_E_UNDERFLOW) {
      e.preRollTarget = 0;
      if (r == AF_S_END_OF_DATA) outcome.atEnd = true;
      return fail(r);
    }
  }
  e.preRollTarget = 0;
  return outcome;
}

int64_t ReferenceTime(const DeliveryPosition& p) {
  const int64_t bytes = (static_cast<int64_t>(p.framesRead) - 1) * p.frameBytes + p.readPos;
  return BytesToTime(p, static_cast<uint64_t>(bytes));
}

int64_t TotalTime(const DeliveryPosition& p) {
  const uint64_t decoded = static_cast<uint64_t>(p.framesRead) * p.frameBytes;
  return BytesToTime(p, decoded > p.totalBytes ? decoded : p.totalBytes);
}

int64_t ReferenceTimeToSampleCount(uint32_t sampleRate, int64_t time) {
  return ZCoreMulDiv64(time, sampleRate, kReferenceTimeUnits);
}

int64_t SampleCountToReferenceTime(uint32_t sampleRate, int64_t samples) {
  return ZCoreMulDiv64(samples, kReferenceTimeUnits, sampleRate);
}

}  // namespace kxmp3
