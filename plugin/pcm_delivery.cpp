// PCM delivery: the host pulls decoded audio in byte counts of its own choosing.
// Whole frames that fit go straight into the host's buffer; the rest passes through
// the frame buffer (pcmBuffer), which keeps what one call could not take for the
// next. Here the engine's frames are placed (the caller's buffer or the frame
// buffer), cut at the output limit, and handed out: this file owns the delivery
// cursor. Also the PCM format record and Rewind.
#include <algorithm>
#include <cstring>

#include "../engine/decode_frame.h"
#include "../engine/frame_index.h"
#include "kxmp3.h"

using namespace kxmp3;

namespace {

// Bytes of the frame buffer decoded but not yet handed out.
uint32_t Undelivered(const DecoderState& s) { return s.pcmFill > s.pcmReadPos ? s.pcmFill - s.pcmReadPos : 0; }

// Copies up to `wanted` undelivered bytes of the frame buffer to `out`; returns the count.
uint32_t TakeFromFrameBuffer(DecoderState& s, uint8_t* out, uint32_t wanted) {
  const uint32_t n = std::min(wanted, Undelivered(s));
  if (n != 0) std::memcpy(out, s.pcmBuffer + s.pcmReadPos, n);
  s.pcmReadPos += n;
  return n;
}

void SetCount(int32_t* count, int32_t value) {
  if (count != nullptr) *count = value;
}

// Bytes a frame yields against the output limit when `frames` frames have been read.
uint32_t TrimmedYield(const DecoderState& s, uint32_t frames) {
  const uint32_t size = s.pcmBufferSize;
  const uint64_t produced = static_cast<uint64_t>(frames) * size;
  if (produced <= s.pcmTotalBytes) return size;
  const uint32_t excess = static_cast<uint32_t>(produced) - static_cast<uint32_t>(s.pcmTotalBytes);
  return size - (excess < size ? excess : size);
}

KxResult EndOfStream(DecoderState& s, int32_t* count) {
  s.frameOutputBytes = 0;
  s.endOfData = 1;
  SetCount(count, 0);
  return AF_S_END_OF_DATA;
}

// A frame's `yield` bytes are in place: in the caller's buffer (count = yield) or in
// the frame buffer (cursor at its start). A frame offered the caller's buffer that
// went to the frame buffer answers AF_E_ROOM_TOO_SMALL, but a frame of silence for
// a reservoir underflow keeps its own status.
KxResult Placed(DecoderState& s, bool callerRoom, int intoCaller, KxResult status, uint32_t yield, int32_t* count) {
  s.frameOutputBytes = yield;
  if (callerRoom) {
    SetCount(count, static_cast<int32_t>(yield));
    return status;
  }
  s.pcmReadPos = 0;
  s.pcmFill = yield;
  SetCount(count, 0);
  return intoCaller == 1 && status != AF_E_UNDERFLOW ? AF_E_ROOM_TOO_SMALL : status;
}

}  // namespace

namespace kxmp3 {

KxResult DeliverFrame(DecoderState& s, int intoCaller, void* output, int32_t* count) {
  EngineState& engine = s.engine;
  const uint32_t size = s.pcmBufferSize;
  s.frameOutputBytes = size;
  const bool callerRoom = intoCaller == 1 && count != nullptr && *count >= 0 && static_cast<uint32_t>(*count) >= size;
  uint8_t* target = callerRoom ? static_cast<uint8_t*>(output) : s.pcmBuffer;

  // A first frame that carries only a VBR header is read as silence, and its
  // silence is never cut.
  const bool headerFrame = NextFrameIsHeaderOnly(engine);
  uint32_t made = 0;
  if (headerFrame) {
    const uint32_t framesRead = engine.frameCounter;
    const uint32_t bitPos = engine.reservoirBitPos;
    const KxResult status = static_cast<KxResult>(SkipFrame(engine, s.stream, target, &made));
    if (status == AF_S_END_OF_DATA) return EndOfStream(s, count);
    if (status != AF_S_OK && status != AF_S_FRAME_ERROR) {
      SetCount(count, 0);
      return status;
    }
    if (!callerRoom && intoCaller == 1) {
      // Offered a caller's buffer too small for it, the header frame's silence goes
      // to the frame buffer and the step answers before the frame is counted and
      // the bit position moves on (kept as the frame driver defines it).
      engine.frameCounter = framesRead;
      engine.reservoirBitPos = bitPos;
      s.pcmReadPos = 0;
      s.pcmFill = made;
      SetCount(count, 0);
      return AF_E_ROOM_TOO_SMALL;
    }
    return Placed(s, callerRoom, intoCaller, status, made, count);
  }

  const KxResult status = static_cast<KxResult>(DecodeFrame(engine, s.stream, target, &made));
  if (status == AF_S_END_OF_DATA) return EndOfStream(s, count);
  if (status != AF_S_OK && status != AF_S_FRAME_ERROR && status != AF_E_UNDERFLOW) {
    SetCount(count, 0);
    return status;
  }

  // At the output limit the last frame is cut, and a frame entirely past it ends
  // the stream. A frame of silence for a reservoir underflow is cut whether the
  // limit is in force or not, and when it yields nothing it is not counted (as the
  // frame driver defines it: the silence is reckoned before the frame is).
  uint32_t yield = made;
  if (status == AF_E_UNDERFLOW || s.outputLimitInForce != 0) {
    yield = TrimmedYield(s, engine.frameCounter);
    if (yield == 0) {
      if (status == AF_E_UNDERFLOW) --engine.frameCounter;
      return EndOfStream(s, count);
    }
  }
  return Placed(s, callerRoom, intoCaller, status, yield, count);
}

}  // namespace kxmp3

KxResult Class_KXMP3::GetPCMWaveFormat(PCMWAVEFORMAT* format) {
  if (!Opened()) return AF_E_NOT_READY;
  if (format == nullptr) return AF_E_POINTER;
  const AudioFileInfo& g = state_.info.generic;
  format->wFormatTag = g.bitsPerSample == 64 ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM;
  format->nChannels = static_cast<uint16_t>(g.channels);
  format->nSamplesPerSec = g.sampleRate;
  format->nBlockAlign = static_cast<uint16_t>(g.bitsPerSample / 8 * g.channels);
  format->nAvgBytesPerSec = uint32_t{format->nBlockAlign} * g.sampleRate;
  format->wBitsPerSample = static_cast<uint16_t>(g.bitsPerSample);
  return AF_S_OK;
}

KxResult Class_KXMP3::DecodeToPCMData(void* buffer, int32_t bytes, int32_t* bytesWritten) {
  if (bytesWritten != nullptr) *bytesWritten = 0;
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  DecoderState& s = state_;
  // Nothing asked: the end of the data is still reported once everything has
  // been handed out.
  if (bytes <= 0) return Undelivered(s) == 0 && s.endOfData != 0 ? AF_S_END_OF_DATA : AF_S_OK;
  if (buffer == nullptr) return AF_E_POINTER;
  auto* out = static_cast<uint8_t*>(buffer);
  const auto asked = static_cast<uint32_t>(bytes);
  uint32_t written = 0;
  KxResult result = AF_S_OK;
  auto finish = [&](KxResult rc) {
    if (bytesWritten != nullptr) *bytesWritten = static_cast<int32_t>(written);
    return rc;
  };

  // What the last call left in the frame buffer comes first.
  if (Undelivered(s) != 0) {
    written += TakeFromFrameBuffer(s, out, asked);
  } else if (s.endOfData != 0) {
    return finish(AF_S_END_OF_DATA);
  }

  // Whole frames straight into the caller's buffer.
  while (asked - written >= s.pcmBufferSize && s.endOfData == 0) {
    int32_t count = static_cast<int32_t>(asked - written);
    const KxResult rc = DeliverFrame(s, 1, out + written, &count);
    if (rc == AF_E_ROOM_TOO_SMALL) break;
    if (rc == AF_E_UNDERFLOW) {
      // A frame of silence: in the caller's buffer when the step put it there,
      // otherwise in the frame buffer.
      if (count > 0) written += static_cast<uint32_t>(count);
      if (Undelivered(s) == 0 && s.endOfData != 0) return finish(AF_S_END_OF_DATA);
      written += TakeFromFrameBuffer(s, out + written, asked - written);
      continue;
    }
    if (count > 0) written += static_cast<uint32_t>(count);
    if (rc == AF_S_FRAME_ERROR) {
      result = AF_S_FRAME_ERROR;
    } else if (rc == AF_S_END_OF_DATA) {
      break;
    } else if (rc != AF_S_OK) {
      return finish(rc);
    }
  }

  // A partial frame through the frame buffer. Only a concealed frame changes the
  // answer here: any other result of the step shows in what the frame buffer now
  // holds and in the end-of-data flag.
  if (written < asked) {
    if (s.endOfData == 0 && DeliverFrame(s, 0, nullptr, nullptr) == AF_S_FRAME_ERROR) result = AF_S_FRAME_ERROR;
    if (Undelivered(s) == 0 && s.endOfData != 0) return finish(AF_S_END_OF_DATA);
    written += TakeFromFrameBuffer(s, out + written, asked - written);
  }
  return finish(result);
}

KxResult Class_KXMP3::Rewind() {
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  DecoderState& s = state_;
  const KxResult rc = s.stream->Seek(0, ZS_SEEK_SET);
  if (rc != AF_S_OK) return rc;
  EmptyFrameBuffer();
  s.frameOutputBytes = 0;
  s.endOfData = 0;
  ResetFilterbank(s.engine);
  ResetReservoir(s.engine);
  if (s.startSkip != 0) {
    const uint64_t skip = uint64_t{s.startSkip} * s.info.generic.channels * s.engine.bytesPerSample;
    // The output limit grows by the skip on every rewind, so the growth is
    // cumulative; this is kept deliberately.
    s.pcmTotalBytes += skip;
    SkipStartBytes(skip);
  }
  return AF_S_OK;
}

void Class_KXMP3::EmptyFrameBuffer() {
  state_.pcmReadPos = state_.pcmBufferSize;
  state_.pcmFill = 0;
}

KxResult Class_KXMP3::SkipStartBytes(uint64_t skipBytes) {
  DecoderState& s = state_;
  uint64_t left = skipBytes;
  while (left > 0) {
    const KxResult rc = DeliverFrame(s, 0, nullptr, nullptr);
    if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR && rc != AF_E_UNDERFLOW) {
      // End of data or a decoder failure: nothing more to skip over; the frame
      // buffer's contents are not trusted.
      s.pcmReadPos = s.pcmFill;
      return rc;
    }
    const auto take = static_cast<uint32_t>(std::min<uint64_t>(left, Undelivered(s)));
    s.pcmReadPos += take;
    left -= take;
    if (s.endOfData != 0 && left > 0 && s.pcmReadPos >= s.pcmFill) return AF_S_END_OF_DATA;
  }
  return AF_S_OK;
}

void Class_KXMP3::KeepUnread(uint32_t bytes) { state_.pcmReadPos = state_.pcmBufferSize - bytes; }

void Class_KXMP3::RestartDelivery(bool atEnd) {
  state_.pcmReadPos = state_.pcmBufferSize;
  state_.endOfData = atEnd ? 1 : 0;
  if (atEnd) state_.frameOutputBytes = 0;
}

KxResult Class_KXMP3::EnterFrameAt(uint32_t offset) {
  const KxResult rc = DeliverFrame(state_, 0, nullptr, nullptr);
  if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR && rc != AF_E_UNDERFLOW) return rc;
  state_.pcmReadPos += offset;
  return AF_S_OK;
}
