// The frame driver. DecodeFrame reads a frame (header, check word, side
// information), appends its main data to the 4,096-byte reservoir ring, finds where
// the frame's main data starts in the ring (main_data_begin bytes before the end of
// what the earlier frames appended), and runs per granule and channel: scale
// factors, Huffman decoding, requantisation and short-block reordering; then stereo;
// then per channel alias reduction, IMDCT with overlap-add and synthesis; then
// muting and output. SkipFrame feeds the reservoir the same way but outputs silence.
//
// Damaged data is concealed: a resync or an impossible big_values count mutes the
// frame and the next (the decoding still runs so the filterbank state follows the
// stream); main data that lies before the reservoir's content gives a frame of
// silence. At the output limit the last frame is cut and the stream ends.
//
// In a seek's pre-roll most frames only have to move the reservoir and the
// synthesis ring positions on: their output is dropped, and the overlap and ring
// contents they would leave are replaced by those of the last frames before the
// target. Those frames skip the granule work (see decode_frame.h for when).
#include "decode_frame.h"

#include <cstring>

#include "../host/kxcore.h"
#include "band_tables.h"
#include "frame_header.h"
#include "huffman.h"
#include "imdct.h"
#include "output.h"
#include "reorder_alias.h"
#include "requantise.h"
#include "scale_factors.h"
#include "side_info.h"
#include "stereo.h"
#include "synthesis.h"
#include "tables.h"

namespace kxmp3 {

namespace {

constexpr uint32_t kRingBytes = kReservoirBytes;
constexpr uint32_t kRingBits = kRingBytes * 8;
constexpr uint32_t kMaxBytesPerSample = 8;

// Everything one granule needs, on the stack of the call: no heap per frame. The
// spectra of both channels are adjacent (channel 1 starts 576 values after channel
// 0), as the stereo step expects.
struct alignas(16) GranuleScratch {
  double spectrum[2][kLinesPerGranule];
  alignas(16) uint8_t planar[2 * kLinesPerGranule * kMaxBytesPerSample];
  uint32_t coded[kLinesPerGranule];
  ScaleFactors scalefactors[2];
};

// What DecodeFrame and SkipFrame share: the frame read up to its side information.
struct FrameStart {
  FrameHeader header{};
  SideInfo side{};
  uint32_t channels = 0;
  bool midSide = false;
  bool intensity = false;
  uint32_t indexSlot = 0;  // frame-index entry of this frame
};

void SetCount(int32_t* count, int32_t value) {
  if (count != nullptr) *count = value;
}

// Makes room for entry `state.frameCounter` of the frame index, growing it by 100.
void GrowFrameIndex(DecoderState& state) {
  if (state.frameCounter < state.frameIndexCapacity) return;
  state.frameIndexCapacity += kFrameIndexGrowth;
  state.frameIndex = static_cast<FrameIndexEntry*>(
      ZCoreRealloc(state.frameIndex, static_cast<size_t>(state.frameIndexCapacity) * sizeof(FrameIndexEntry)));
}

// Header (with the sync search), frame-index entry, check word and side
// information. `resyncMutes` is false for SkipFrame, which reports a resync without
// muting. Returns 0 or AF_S_FRAME_ERROR to go on, anything else to stop.
KxResult ReadFrameStart(DecoderState& state, FrameStart& f, bool resyncMutes, int32_t* count) {
  KxResult status = AF_S_OK;
  const KxResult h = ReadFrameHeader(f.header, state.stream, state.referenceHeader);
  if (h == AF_S_END_OF_DATA) {
    state.endOfData = 1;
    state.frameOutputBytes = 0;
    SetCount(count, 0);
    return AF_S_END_OF_DATA;
  }
  if (h == AF_S_RESYNC) {
    ++state.errorCount;
    if (resyncMutes) state.muteCounter = 2;
    status = AF_S_FRAME_ERROR;
  } else if (h != AF_S_OK) {
    SetCount(count, 0);
    return h;
  }

  GrowFrameIndex(state);
  f.indexSlot = state.frameCounter;
  int64_t position = 0;
  state.stream->GetPosition(&position);
  state.frameIndex[f.indexSlot].offset = static_cast<uint64_t>(position - 4);

  if (f.header.protection != 0) {
    // Kept, never verified: a frame with a wrong check word decodes like any other.
    uint8_t check[2] = {0, 0};
    state.stream->Read(check, 2, nullptr);
    state.lastCheckWord = (uint32_t{check[0]} << 8) | check[1];
  }

  f.channels = f.header.channel_mode == 0 ? 1 : 2;
  if (f.header.channel_mode == 2) {
    if (f.header.mode_extension > 3) {  // guard: the field has two bits
      SetCount(count, 0);
      return AF_E_BAD_VERSION;
    }
    f.midSide = (f.header.mode_extension & 2) != 0;
    f.intensity = (f.header.mode_extension & 1) != 0;
  }
  return status;
}

KxResult ReadSide(DecoderState& state, FrameStart& f, KxResult& status, int32_t* count) {
  const KxResult r = f.header.version == 0 ? ReadSideInfoMpeg1(f.side, state.stream, f.channels, f.midSide)
                                           : ReadSideInfoMpeg2(f.side, state.stream, f.channels, f.midSide);
  if (r == AF_S_FRAME_ERROR) {
    ++state.errorCount;
    state.muteCounter = 2;
    status = AF_S_FRAME_ERROR;
  } else if (r != AF_S_OK) {
    if (r == AF_S_END_OF_DATA) {
      // The stream ended inside the side information: the end of the data, like a
      // missing header. The end-of-data status always comes with the flag set, or
      // the delivery would answer its caller with nothing and no end.
      state.endOfData = 1;
      state.frameOutputBytes = 0;
    }
    SetCount(count, 0);
    return r;
  }
  return AF_S_OK;
}

// Appends the frame's main data to the ring and works out where it starts. Returns
// Skip: bytes from the (byte-aligned) read position to the frame's first main-data
// byte; negative when the ring does not reach back that far.
int32_t AppendMainData(DecoderState& state, const FrameStart& f) {
  int32_t length = MainDataLength(f.header);
  if (length < 0) length = 0;
  const uint32_t len = static_cast<uint32_t>(length);
  const uint32_t first = len < kRingBytes - state.reservoirWriteIndex ? len : kRingBytes - state.reservoirWriteIndex;
  // Short reads are not checked: they leave older bytes in the ring, and the next
  // header read reports the end of the stream.
  state.stream->Read(state.reservoir + state.reservoirWriteIndex, first, nullptr);
  if (len > first) state.stream->Read(state.reservoir, len - first, nullptr);
  state.reservoirWriteIndex = (state.reservoirWriteIndex + len) & (kRingBytes - 1);

  state.reservoirBitPos = (state.reservoirBitPos + 7) & ~7u;
  const uint32_t consumed = state.reservoirBitPos / 8;
  const int32_t skip = static_cast<int32_t>(state.reservoirByteCount - f.side.main_data_begin - consumed);
  if (consumed > kRingBytes) {
    // Keep both counters small; byte indices are taken modulo the ring anyway.
    state.reservoirByteCount -= kRingBytes;
    state.reservoirBitPos -= kRingBits;
  }
  state.reservoirByteCount += len;
  FrameIndexEntry& entry = state.frameIndex[f.indexSlot];
  entry.reservoirFill = state.reservoirByteCount;
  entry.reservoirWrite = state.reservoirWriteIndex;
  return skip;
}

// Bytes a frame yields against the output limit when `frames` frames have been read.
uint32_t TrimmedYield(const DecoderState& state, uint32_t frames) {
  const uint32_t size = state.pcmBufferSize;
  const uint64_t produced = static_cast<uint64_t>(frames) * size;
  if (produced <= state.pcmTotalBytes) return size;
  const uint32_t excess = static_cast<uint32_t>(produced) - static_cast<uint32_t>(state.pcmTotalBytes);
  return size - (excess < size ? excess : size);
}

KxResult EndOfStream(DecoderState& state, int32_t* count) {
  state.frameOutputBytes = 0;
  state.endOfData = 1;
  SetCount(count, 0);
  return AF_S_END_OF_DATA;
}

bool gLightPreRoll = true;

// The emphasis a frame is output with: none for the reserved code or when
// de-emphasis was switched off at open.
uint32_t EffectiveEmphasis(const DecoderState& state, uint32_t emphasis) {
  return (emphasis == 2 || (state.openFlags & OPEN_FLAG_NO_DEEMPHASIS) != 0) ? 0 : emphasis;
}

// With the stream at the header after the current frame: are the next two frames
// there, fitting the reference header, and output without de-emphasis? Whatever
// cannot be confirmed counts as de-emphasis. The stream is put back.
bool NextTwoFramesWithoutEmphasis(DecoderState& state) {
  if ((state.openFlags & OPEN_FLAG_NO_DEEMPHASIS) != 0) return true;
  Class_ZStream* stream = state.stream;
  int64_t start = 0;
  if (stream->GetPosition(&start) != AF_S_OK) return false;
  bool plain = true;
  int64_t at = start;
  for (int k = 0; k < 2 && plain; ++k) {
    uint8_t b[4];
    uint32_t got = 0;
    if ((k > 0 && stream->Seek(at, ZS_SEEK_SET) != AF_S_OK) || stream->Read(b, 4, &got) != AF_S_OK || got != 4) {
      plain = false;
      break;
    }
    const uint32_t word = (uint32_t{b[0]} << 24) | (uint32_t{b[1]} << 16) | (uint32_t{b[2]} << 8) | b[3];
    if (!IsLayer3Header(word) || ((word ^ state.referenceHeader) & kHeaderCompareMask) != 0 ||
        EffectiveEmphasis(state, word & 3) != 0) {
      plain = false;
      break;
    }
    const uint32_t version = ((~word >> 20) & 1) + ((~word >> 19) & 1);
    const uint32_t rateCode = version * 3 + ((word >> 10) & 3);
    at += kFrameLengthTable[rateCode][(word >> 12) & 15] + ((word >> 9) & 1);
  }
  if (stream->Seek(start, ZS_SEEK_SET) != AF_S_OK) return false;
  return plain;
}

// A frame of a seek's pre-roll whose granule work can be left out (see
// decode_frame.h): at least three frames before the target, and no de-emphasis in
// it or the two frames after it. `frame` is the frame's number.
bool LightPreRollFrame(DecoderState& state, uint32_t frame, int intoCaller) {
  return gLightPreRoll && intoCaller == 0 && state.preRollTarget != 0 && frame + 3 <= state.preRollTarget &&
         state.emphasis == 0 && NextTwoFramesWithoutEmphasis(state);
}

// What a granule's decoding leaves behind for later frames, without the decoding:
// each channel's Huffman data ends part2_3_length bits after its start, and its
// synthesis moves the ring position by 18 slots of 64 values.
void PassGranule(DecoderState& state, const FrameStart& f, uint32_t gr) {
  for (uint32_t ch = 0; ch < f.channels; ++ch) {
    state.reservoirBitPos += f.side.gr[gr][ch].part2_3_length;
    state.ringPos[ch] = (state.ringPos[ch] - kLinesPerSubband * 64) & (kSynthesisRingSize - 1);
  }
}

// Decodes one granule into the planar buffer of the scratch. Returns false when
// Huffman decoding failed.
bool DecodeGranule(DecoderState& state, FrameStart& f, uint32_t gr, GranuleScratch& s, uint32_t outChannels) {
  const FrameHeader& h = f.header;
  const bool lsf = h.version != 0;
  GranuleInfo* gi[2] = {&f.side.gr[gr][0], &f.side.gr[gr][1]};
  for (uint32_t ch = 0; ch < f.channels; ++ch) {
    const uint32_t part2Start = state.reservoirBitPos;
    if (lsf) {
      ReadScaleFactorsMpeg2(state.reservoir, state.reservoirBitPos, s.scalefactors[ch], *gi[ch],
                            ch == 1 && f.intensity);
    } else {
      ReadScaleFactorsMpeg1(state.reservoir, state.reservoirBitPos, s.scalefactors[ch], *gi[ch]);
    }
    const int32_t n = DecodeSpectrum(s.coded, state.reservoir, state.reservoirBitPos, *gi[ch], part2Start, h.rate_code);
    if (n < 0) return false;
    Requantise(s.coded, s.spectrum[ch], s.scalefactors[ch], *gi[ch], h.rate_code, n);
    ReorderShortBlock(s.spectrum[ch], *gi[ch], h.rate_code);
  }
  if (f.channels == 2 && (f.midSide || f.intensity)) {
    ApplyStereo(s.spectrum[0], *gi[0], *gi[1], s.scalefactors[1], h.rate_code, f.midSide, f.intensity, lsf);
  }
  const uint32_t bps = state.bytesPerSample;
  double* rings = reinterpret_cast<double*>(state.workBlock);
  double* overlaps = reinterpret_cast<double*>(state.workBlockHigh);
  for (uint32_t ch = 0; ch < f.channels; ++ch) {
    AliasReduce(s.spectrum[ch], *gi[ch]);
    ImdctGranule(s.spectrum[ch], overlaps + ch * kLinesPerGranule, *gi[ch]);
    SynthesizeGranule(s.spectrum[ch], rings + ch * 1024, &state.ringPos[ch], bps,
                      s.planar + ch * kLinesPerGranule * bps);
  }
  // A single-channel frame in a two-channel stream plays on both channels.
  if (f.channels == 1 && outChannels == 2) {
    std::memcpy(s.planar + kLinesPerGranule * bps, s.planar, kLinesPerGranule * bps);
  }
  return true;
}

}  // namespace

int32_t DecodeFrame(DecoderState& state, int intoCaller, void* output, int32_t* count) {
  state.frameOutputBytes = state.pcmBufferSize;
  FrameStart f;
  KxResult status = ReadFrameStart(state, f, true, count);
  if (status != AF_S_OK && status != AF_S_FRAME_ERROR) return static_cast<int32_t>(status);

  // The frame buffer and the caller's room hold one frame of the layout fixed at
  // open. A frame of another MPEG version (two granules where one was expected,
  // or one where two were) is refused: it would be written past the buffer, or
  // leave half of it stale.
  if ((f.header.version == 0 ? 2u : 1u) * state.granuleBytes != state.pcmBufferSize) {
    SetCount(count, 0);
    return static_cast<int32_t>(AF_E_BAD_VERSION);
  }

  state.emphasis =
      (f.header.emphasis == 2 || (state.openFlags & OPEN_FLAG_NO_DEEMPHASIS) != 0) ? 0 : f.header.emphasis;

  const KxResult side = ReadSide(state, f, status, count);
  if (side != AF_S_OK) return static_cast<int32_t>(side);

  const uint32_t size = state.pcmBufferSize;
  const bool callerRoom = intoCaller == 1 && count != nullptr && *count >= 0 && static_cast<uint32_t>(*count) >= size;
  uint8_t* target = callerRoom ? static_cast<uint8_t*>(output) : state.pcmBuffer;

  const int32_t skip = AppendMainData(state, f);
  if (skip < 0) {
    // Reservoir underflow: one frame of silence, trimmed against the output limit
    // whether the limit is in force or not; the read position stays where it is.
    const uint32_t yield = TrimmedYield(state, state.frameCounter + 1);
    if (yield == 0) return static_cast<int32_t>(EndOfStream(state, count));
    state.frameOutputBytes = yield;
    std::memset(target, 0, yield);
    if (callerRoom) {
      SetCount(count, static_cast<int32_t>(yield));
    } else {
      SetCount(count, 0);
      state.pcmReadPos = 0;
      state.pcmFill = yield;
    }
    ++state.frameCounter;
    state.frameIndex[f.indexSlot].reservoirBitPos = state.reservoirBitPos;
    return static_cast<int32_t>(AF_E_UNDERFLOW);
  }
  ++state.frameCounter;
  state.reservoirBitPos += static_cast<uint32_t>(skip) * 8;

  const uint32_t granules = f.header.version == 0 ? 2 : 1;
  const uint32_t bps = state.bytesPerSample;
  const uint32_t outChannels = state.granuleBytes / (kLinesPerGranule * bps);
  const bool light = LightPreRollFrame(state, f.indexSlot, intoCaller);
  GranuleScratch scratch;
  std::memset(scratch.scalefactors, 0, sizeof(scratch.scalefactors));
  for (uint32_t gr = 0; gr < granules; ++gr) {
    if (light) {
      PassGranule(state, f, gr);
      if (state.muteCounter != 0 && gr == granules - 1) --state.muteCounter;
      continue;
    }
    if (!DecodeGranule(state, f, gr, scratch, outChannels)) {
      SetCount(count, 0);
      return -1;
    }
    if (state.muteCounter != 0) {
      std::memset(scratch.planar, 0, state.granuleBytes);
      if (gr == granules - 1) --state.muteCounter;
    }
    OutputGranule(scratch.planar, outChannels, state, target + gr * state.granuleBytes, bps, state.emphasis);
  }
  state.frameIndex[f.indexSlot].reservoirBitPos = state.reservoirBitPos;

  uint32_t yield = size;
  if (state.outputLimitInForce != 0) {
    yield = TrimmedYield(state, state.frameCounter);
    if (yield == 0) return static_cast<int32_t>(EndOfStream(state, count));
  }
  state.frameOutputBytes = yield;
  if (!callerRoom) {
    state.pcmReadPos = 0;
    state.pcmFill = yield;
    SetCount(count, 0);
    return static_cast<int32_t>(intoCaller == 1 ? AF_E_ROOM_TOO_SMALL : status);
  }
  SetCount(count, static_cast<int32_t>(yield));
  return static_cast<int32_t>(status);
}

void EnableLightPreRollForTesting(bool enabled) { gLightPreRoll = enabled; }

int32_t SkipFrame(DecoderState& state, int intoCaller, void* output, int32_t* count) {
  state.frameOutputBytes = state.pcmBufferSize;
  FrameStart f;
  KxResult status = ReadFrameStart(state, f, false, count);
  if (status != AF_S_OK && status != AF_S_FRAME_ERROR) return static_cast<int32_t>(status);
  const KxResult side = ReadSide(state, f, status, count);
  if (side != AF_S_OK) return static_cast<int32_t>(side);

  const uint32_t size = state.pcmBufferSize;
  const bool callerRoom = intoCaller == 1 && count != nullptr && *count >= 0 && static_cast<uint32_t>(*count) >= size;
  const int32_t skip = AppendMainData(state, f);

  if (callerRoom) {
    std::memset(output, 0, size);
    SetCount(count, static_cast<int32_t>(size));
  } else {
    std::memset(state.pcmBuffer, 0, size);
    state.pcmReadPos = 0;
    state.pcmFill = size;
    SetCount(count, 0);
    if (intoCaller == 1) return static_cast<int32_t>(AF_E_ROOM_TOO_SMALL);
  }
  // Skip is applied whatever its sign: this frame only primes the reservoir.
  ++state.frameCounter;
  state.reservoirBitPos += static_cast<uint32_t>(skip) * 8;
  state.frameIndex[f.indexSlot].reservoirBitPos = state.reservoirBitPos;
  return static_cast<int32_t>(status);
}

}  // namespace kxmp3
