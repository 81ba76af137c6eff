// The frame driver. DecodeFrame reads a frame (header, check word, side
// information), appends its main data to the 4,096-byte reservoir ring, finds where
// the frame's main data starts in the ring (main_data_begin bytes before the end of
// what the earlier frames appended), and runs per granule and channel: scale
// factors, Huffman decoding with requantisation (one pass) and short-block
// reordering; then stereo;
// then per channel alias reduction, IMDCT with overlap-add and synthesis; then
// muting and output. SkipFrame feeds the reservoir the same way but outputs silence.
//
// Damaged data is concealed: a resync or an impossible big_values count mutes the
// frame and the next (the decoding still runs so the filterbank state follows the
// stream); main data that lies before the reservoir's content gives a frame of
// silence. Where the frame's output goes, and how much of it a host receives at
// the end of the stream, is the PCM delivery's business (plugin/pcm_delivery.cpp).
//
// In a seek's pre-roll most frames only have to move the reservoir and the
// synthesis ring positions on: their output is dropped, and the overlap and ring
// contents they would leave are replaced by those of the last frames before the
// target. Those frames skip the granule work (see decode_frame.h for when).
#include "decode_frame.h"

#include <cstdint>
#include <cstring>

#include "band_tables.h"
#include "byte_order.h"
#include "frame_index.h"
#include "header_word.h"
#include "frame_header.h"
#include "huffman_requantise.h"
#include "imdct.h"
#include "output.h"
#include "reorder_alias.h"
#include "scale_factors.h"
#include "side_info.h"
#include "stereo.h"
#include "synthesis.h"
#include "tables.h"

namespace kxmp3 {

namespace {

constexpr uint32_t kMaxBytesPerSample = 8;

// Everything one granule needs, on the stack of the call: no heap per frame. The
// spectra of both channels are adjacent (channel 1 starts 576 values after channel
// 0), as the stereo step expects.
struct alignas(16) GranuleScratch {
  double spectrum[2][kLinesPerGranule];
  alignas(16) uint8_t planar[2 * kLinesPerGranule * kMaxBytesPerSample];
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

// Header (with the sync search), frame-index entry, check word and side
// information. `resyncMutes` is false for SkipFrame, which reports a resync without
// muting. Returns 0 or AF_S_FRAME_ERROR to go on, anything else to stop.
KxResult ReadFrameStart(EngineState& state, Class_ZStream* stream, FrameStart& f, bool resyncMutes) {
  KxResult status = AF_S_OK;
  const KxResult h = ReadFrameHeader(f.header, stream, state.referenceHeader);
  if (h == AF_S_END_OF_DATA) return AF_S_END_OF_DATA;
  if (h == AF_S_RESYNC) {
    ++state.errorCount;
    if (resyncMutes) state.muteCounter = 2;
    status = AF_S_FRAME_ERROR;
  } else if (h != AF_S_OK) {
    return h;
  }

  if (!GrowFrameIndex(state)) return AF_E_FAIL;
  f.indexSlot = state.frameCounter;
  int64_t position = 0;
  stream->GetPosition(&position);
  state.frameIndex[f.indexSlot].offset = static_cast<uint64_t>(position - 4);

  if (f.header.protection != 0) {
    // Kept, never verified: a frame with a wrong check word decodes like any other.
    uint8_t check[2] = {0, 0};
    stream->Read(check, 2, nullptr);
    state.lastCheckWord = (uint32_t{check[0]} << 8) | check[1];
  }

  f.channels = f.header.channel_mode == 0 ? 1 : 2;
  if (f.header.channel_mode == 2) {
    if (f.header.mode_extension > 3) return AF_E_BAD_VERSION;  // guard: the field has two bits
    f.midSide = (f.header.mode_extension & 2) != 0;
    f.intensity = (f.header.mode_extension & 1) != 0;
  }
  return status;
}

// The side information. A stream that ends inside it ends the data, like a missing
// header.
KxResult ReadSide(EngineState& state, Class_ZStream* stream, FrameStart& f, KxResult& status) {
  const KxResult r = f.header.version == 0 ? ReadSideInfoMpeg1(f.side, stream, f.channels, f.midSide)
                                           : ReadSideInfoMpeg2(f.side, stream, f.channels, f.midSide);
  if (r == AF_S_FRAME_ERROR) {
    ++state.errorCount;
    state.muteCounter = 2;
    status = AF_S_FRAME_ERROR;
    return AF_S_OK;
  }
  return r;
}

// Appends the frame's main data to the reservoir ring (frame_index.h) and returns
// the skip: bytes from the read position to the frame's first main-data byte,
// negative when the ring does not reach back that far.
int32_t AppendFrameMainData(EngineState& state, Class_ZStream* stream, const FrameStart& f) {
  const int32_t length = MainDataLength(f.header);
  const uint32_t len = length < 0 ? 0 : static_cast<uint32_t>(length);
  ReadMainData(state, stream, len);
  return AppendMainData(state, len, f.side.main_data_begin, f.indexSlot);
}

void SetMade(uint32_t* made, uint32_t value) {
  if (made != nullptr) *made = value;
}

bool gLightPreRoll = true;

// The emphasis a frame is output with: none for the reserved code or when
// de-emphasis was switched off at open.
uint32_t EffectiveEmphasis(const EngineState& state, uint32_t emphasis) {
  return (emphasis == 2 || state.noDeemphasis != 0) ? 0 : emphasis;
}

// With the stream at the header after the current frame: are the next two frames
// there, fitting the reference header, and output without de-emphasis? Whatever
// cannot be confirmed counts as de-emphasis. The stream is put back.
bool NextTwoFramesWithoutEmphasis(EngineState& state, Class_ZStream* stream) {
  using namespace header_word;
  if (state.noDeemphasis != 0) return true;
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
    const uint32_t word = BigEndian32(b);
    if (!IsLayer3Header(word) || ((word ^ state.referenceHeader) & kHeaderCompareMask) != 0 ||
        EffectiveEmphasis(state, EmphasisBits(word)) != 0) {
      plain = false;
      break;
    }
    at += HeaderFrameLength(word);
  }
  if (stream->Seek(start, ZS_SEEK_SET) != AF_S_OK) return false;
  return plain;
}

// A frame of a seek's pre-roll whose granule work can be left out (see
// decode_frame.h): at least three frames before the target, and no de-emphasis in
// it or the two frames after it. `frame` is the frame's number.
bool LightPreRollFrame(EngineState& state, Class_ZStream* stream, uint32_t frame) {
  return gLightPreRoll && state.preRollTarget != 0 && frame + 3 <= state.preRollTarget && state.emphasis == 0 &&
         NextTwoFramesWithoutEmphasis(state, stream);
}

// What a granule's decoding leaves behind for later frames, without the decoding:
// each channel's Huffman data ends part2_3_length bits after its start, and its
// synthesis leaves the ring position at 0 (its newest row first).
void PassGranule(EngineState& state, const FrameStart& f, uint32_t gr) {
  for (uint32_t ch = 0; ch < f.channels; ++ch) {
    state.reservoirBitPos += f.side.gr[gr][ch].part2_3_length;
    state.ringPos[ch] = 0;
  }
}

// Decodes one granule and writes it to `destination` (granuleBytes). A two-channel
// frame of a two-channel stream without de-emphasis is synthesised straight into the
// destination, both channels at once and interleaved, and so is a single-channel
// stream's frame when the destination is 16-byte aligned; every other frame goes through
// the planar buffer of the scratch and OutputGranule (de-emphasis, a mono frame played
// on both channels). A granule of a muted frame becomes silence either way. Returns
// false when Huffman decoding failed.
bool DecodeGranule(EngineState& state, FrameStart& f, uint32_t gr, GranuleScratch& s, uint32_t outChannels,
                   uint8_t* destination) {
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
    const int32_t n = DecodeGranuleSpectrum(s.spectrum[ch], state.reservoir, state.reservoirBitPos, *gi[ch],
                                            s.scalefactors[ch], part2Start, h.rate_code);
    if (n < 0) return false;
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
  }
  const bool muted = state.muteCounter != 0;
  if (f.channels == 2 && outChannels == 2 && state.emphasis == 0) {
    SynthesizeStereoGranule(s.spectrum[0], s.spectrum[1], rings, rings + 1024, &state.ringPos[0], &state.ringPos[1],
                            bps, destination);
    if (muted) std::memset(destination, 0, state.granuleBytes);
    return true;
  }
  if (f.channels == 1 && outChannels == 1 && state.emphasis == 0 &&
      (reinterpret_cast<uintptr_t>(destination) & 15) == 0) {
    // A single-channel stream without de-emphasis: synthesised straight into an
    // aligned destination, as the planar path would copy it there.
    SynthesizeGranule(s.spectrum[0], rings, &state.ringPos[0], bps, destination);
    if (muted) std::memset(destination, 0, state.granuleBytes);
    return true;
  }
  for (uint32_t ch = 0; ch < f.channels; ++ch) {
    SynthesizeGranule(s.spectrum[ch], rings + ch * 1024, &state.ringPos[ch], bps,
                      s.planar + ch * kLinesPerGranule * bps);
  }
  // A single-channel frame in a two-channel stream plays on both channels.
  if (f.channels == 1 && outChannels == 2) {
    std::memcpy(s.planar + kLinesPerGranule * bps, s.planar, kLinesPerGranule * bps);
  }
  if (muted) std::memset(s.planar, 0, state.granuleBytes);
  OutputGranule(s.planar, outChannels, state, destination, bps, state.emphasis);
  return true;
}

}  // namespace

int32_t DecodeFrame(EngineState& state, Class_ZStream* stream, uint8_t* output, uint32_t* made) {
  SetMade(made, 0);
  FrameStart f;
  KxResult status = ReadFrameStart(state, stream, f, true);
  if (status != AF_S_OK && status != AF_S_FRAME_ERROR) return static_cast<int32_t>(status);

  // The output holds one frame of the layout fixed at open. A frame of another MPEG
  // version (two granules where one was expected, or one where two were) is
  // refused: it would be written past the buffer, or leave half of it stale.
  if ((f.header.version == 0 ? 2u : 1u) * state.granuleBytes != state.frameBytes) {
    return static_cast<int32_t>(AF_E_BAD_VERSION);
  }

  state.emphasis = EffectiveEmphasis(state, f.header.emphasis);

  const KxResult side = ReadSide(state, stream, f, status);
  if (side != AF_S_OK) return static_cast<int32_t>(side);

  const int32_t skip = AppendFrameMainData(state, stream, f);
  ++state.frameCounter;
  if (skip < 0) {
    // Reservoir underflow: one frame of silence; the read position stays where it is.
    std::memset(output, 0, state.frameBytes);
    state.frameIndex[f.indexSlot].reservoirBitPos = state.reservoirBitPos;
    SetMade(made, state.frameBytes);
    return static_cast<int32_t>(AF_E_UNDERFLOW);
  }
  state.reservoirBitPos += static_cast<uint32_t>(skip) * 8;

  const uint32_t granules = f.header.version == 0 ? 2 : 1;
  const uint32_t bps = state.bytesPerSample;
  const uint32_t outChannels = state.granuleBytes / (kLinesPerGranule * bps);
  const bool light = LightPreRollFrame(state, stream, f.indexSlot);
  GranuleScratch scratch;
  std::memset(scratch.scalefactors, 0, sizeof(scratch.scalefactors));
  for (uint32_t gr = 0; gr < granules; ++gr) {
    if (light) {
      PassGranule(state, f, gr);
      if (state.muteCounter != 0 && gr == granules - 1) --state.muteCounter;
      continue;
    }
    if (!DecodeGranule(state, f, gr, scratch, outChannels, output + gr * state.granuleBytes)) return -1;
    if (state.muteCounter != 0 && gr == granules - 1) --state.muteCounter;
  }
  state.frameIndex[f.indexSlot].reservoirBitPos = state.reservoirBitPos;
  SetMade(made, state.frameBytes);
  return static_cast<int32_t>(status);
}

void EnableLightPreRollForTesting(bool enabled) { gLightPreRoll = enabled; }

int32_t SkipFrame(EngineState& state, Class_ZStream* stream, uint8_t* output, uint32_t* made) {
  SetMade(made, 0);
  FrameStart f;
  KxResult status = ReadFrameStart(state, stream, f, false);
  if (status != AF_S_OK && status != AF_S_FRAME_ERROR) return static_cast<int32_t>(status);
  const KxResult side = ReadSide(state, stream, f, status);
  if (side != AF_S_OK) return static_cast<int32_t>(side);

  const int32_t skip = AppendFrameMainData(state, stream, f);
  std::memset(output, 0, state.frameBytes);
  // Skip is applied whatever its sign: this frame only primes the reservoir.
  ++state.frameCounter;
  state.reservoirBitPos += static_cast<uint32_t>(skip) * 8;
  state.frameIndex[f.indexSlot].reservoirBitPos = state.reservoirBitPos;
  SetMade(made, state.frameBytes);
  return static_cast<int32_t>(status);
}

bool NextFrameIsHeaderOnly(const EngineState& state) { return state.frameCounter == 0 && state.skipFirstFrame != 0; }

int32_t DecodeNextFrame(EngineState& state, Class_ZStream* stream, uint8_t* output, uint32_t* made) {
  return NextFrameIsHeaderOnly(state) ? SkipFrame(state, stream, output, made)
                                      : DecodeFrame(state, stream, output, made);
}

}  // namespace kxmp3
