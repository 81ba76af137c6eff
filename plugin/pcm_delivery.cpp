// PCM delivery: the host pulls decoded audio in byte counts of its own choosing.
// Whole frames that fit go straight into the host's buffer; the rest passes through
// the frame buffer (pcmBuffer), which keeps what one call could not take for the
// next. Also the PCM format record and Rewind.
#include <algorithm>
#include <cstring>

#include "kxmp3.h"

using namespace kxmp3;

namespace {

// Bytes of the frame buffer not yet handed out.
uint32_t Unread(const DecoderState& s) { return s.pcmFill > s.pcmReadPos ? s.pcmFill - s.pcmReadPos : 0; }

// Copies up to `wanted` unread bytes of the frame buffer to `out`; returns the count.
uint32_t TakeFromFrameBuffer(DecoderState& s, uint8_t* out, uint32_t wanted) {
  const uint32_t n = std::min(wanted, Unread(s));
  if (n != 0) std::memcpy(out, s.pcmBuffer + s.pcmReadPos, n);
  s.pcmReadPos += n;
  return n;
}

}  // namespace

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
  if (bytes <= 0) return Unread(s) == 0 && s.endOfData != 0 ? AF_S_END_OF_DATA : AF_S_OK;
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
  if (Unread(s) != 0) {
    written += TakeFromFrameBuffer(s, out, asked);
  } else if (s.endOfData != 0) {
    return finish(AF_S_END_OF_DATA);
  }

  // Whole frames straight into the caller's buffer.
  while (asked - written >= s.pcmBufferSize && s.endOfData == 0) {
    int32_t count = static_cast<int32_t>(asked - written);
    const KxResult rc = DecodeStep(s, 1, out + written, &count);
    if (rc == AF_E_ROOM_TOO_SMALL) break;
    if (rc == AF_E_UNDERFLOW) {
      // A frame of silence: in the caller's buffer when the step put it there,
      // otherwise in the frame buffer.
      if (count > 0) written += static_cast<uint32_t>(count);
      if (Unread(s) == 0 && s.endOfData != 0) return finish(AF_S_END_OF_DATA);
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
    if (s.endOfData == 0 && DecodeStep(s, 0, nullptr, nullptr) == AF_S_FRAME_ERROR) result = AF_S_FRAME_ERROR;
    if (Unread(s) == 0 && s.endOfData != 0) return finish(AF_S_END_OF_DATA);
    written += TakeFromFrameBuffer(s, out + written, asked - written);
  }
  return finish(result);
}

KxResult Class_KXMP3::Rewind() {
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  DecoderState& s = state_;
  const KxResult rc = s.stream->Seek(0, ZS_SEEK_SET);
  if (rc != AF_S_OK) return rc;
  s.pcmReadPos = s.pcmBufferSize;
  s.pcmFill = 0;
  s.frameOutputBytes = 0;
  std::memset(s.workBlock, 0, kSynthesisAreaBytes);
  std::memset(s.workBlockHigh, 0, kOverlapAreaBytes);
  std::memset(s.reservoir, 0, kReservoirBytes);
  s.reservoirWriteIndex = 0;
  s.reservoirBitPos = 0;
  s.frameCounter = 0;
  s.ringPos[0] = 0;
  s.ringPos[1] = 0;
  s.reservoirByteCount = 0;
  s.lastCheckWord = 0;
  s.endOfData = 0;
  s.muteCounter = 0;
  std::memset(&s.deemphasisState, 0, sizeof(s.deemphasisState));
  if (s.lameDelay != 0) {
    const uint64_t skip = uint64_t{s.lameDelay} * s.info.generic.channels * s.bytesPerSample;
    // The output limit grows by the skip on every rewind, so the growth is
    // cumulative; this is kept deliberately.
    s.pcmTotalBytes += skip;
    SkipStartBytes(skip);
  }
  return AF_S_OK;
}
