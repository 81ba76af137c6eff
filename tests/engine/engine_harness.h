// Test harness of the decoding engine: a DecoderState set up over an in-memory
// stream the way the open sequence leaves it (frame buffer, aligned work block,
// reservoir, frame index, output format, reference header, de-emphasis), and loops
// that decode a whole stream through DecodeFrame.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/dsp_kernels.h"
#include "plugin/decoder_state.h"
#include "support/memory_stream.h"

namespace kxtest {

struct HarnessOptions {
  uint32_t bytesPerSample = 2;     // 2 (16-bit) or 8 (64-bit float)
  int64_t audioStart = -1;         // -1: the first confirmed frame start
  bool noDeemphasis = false;       // open-flags bit 28
  bool outputLimitInForce = false;
  int64_t outputLimit = -1;        // -1: frames counted x frame output size
  bool skipFirstFrame = false;     // the first frame only carries a VBR header
  uint32_t indexSlack = 16;        // frame-index entries beyond the frame count
  int64_t frameCountOverride = -1; // frame count the index is sized for (-1: counted)
};

// One decoder state over a stream; frees everything it allocated.
class EngineHarness {
 public:
  // Null when no frame start is found.
  static std::unique_ptr<EngineHarness> Open(std::vector<uint8_t> data, const HarnessOptions& options = {});
  ~EngineHarness();

  kxmp3::DecoderState& State() { return *state_; }
  MemoryStream& Stream() { return *stream_; }
  uint32_t Channels() const { return channels_; }
  uint32_t SampleRate() const { return sampleRate_; }
  uint32_t FrameCount() const { return frameCount_; }

  // One frame into the frame buffer (SkipFrame while the skip-first-frame flag and
  // a zero frame counter say so, as the delivery does); appends the frame's
  // pcmFill bytes to `out` when it produced any. Returns the engine's status.
  int32_t DecodeOne(std::vector<uint8_t>& out);
  // Frames until 0x3007 or `maxCalls`; statuses seen are counted in `statuses`.
  struct RunResult {
    std::vector<uint8_t> pcm;
    std::vector<int32_t> statuses;
    bool ended = false;  // reached 0x3007
  };
  RunResult DecodeAll(uint32_t maxCalls = 1000000);
  // The same, decoding straight into a caller buffer of `room` bytes per call.
  RunResult DecodeAllIntoCaller(uint32_t room, uint32_t maxCalls = 1000000);

 private:
  EngineHarness() = default;
  kxmp3::DecoderState* state_ = nullptr;
  MemoryStream* stream_ = nullptr;
  uint32_t channels_ = 0;
  uint32_t sampleRate_ = 0;
  uint32_t frameCount_ = 0;
};

// Builds the process-wide decoder tables once (as the module's attach does).
void EnsureDecoderTables();
// A whole stream decoded with the given kernel set in force (restored afterwards):
// the PCM of every frame, in `bytesPerSample` output.
std::vector<uint8_t> DecodeWithKernels(const kxmp3::DspKernels& kernels, const std::vector<uint8_t>& bits,
                                       uint32_t bytesPerSample);
// Byte offset of the first frame start confirmed by the next frame, or -1.
int64_t FindFirstFrame(const std::vector<uint8_t>& data);
// The 16-bit little-endian samples of a byte buffer.
std::vector<int16_t> AsInt16(const std::vector<uint8_t>& bytes);
// The doubles of a byte buffer.
std::vector<double> AsDouble(const std::vector<uint8_t>& bytes);

}  // namespace kxtest
