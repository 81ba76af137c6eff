// Test harness of the decoding engine: an EngineState set up over an in-memory
// stream the way the open sequence leaves it (aligned work block, reservoir, frame
// index, output layout, reference header, de-emphasis) with a frame buffer of its
// own, and loops that decode a whole stream frame by frame.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/dsp_kernels.h"
#include "engine/engine_state.h"
#include "support/memory_stream.h"

namespace kxtest {

struct HarnessOptions {
  uint32_t bytesPerSample = 2;     // 2 (16-bit) or 8 (64-bit float)
  int64_t audioStart = -1;         // -1: the first confirmed frame start
  bool noDeemphasis = false;       // de-emphasis off whatever the headers say
  bool skipFirstFrame = false;     // the first frame only carries a VBR header
  uint32_t indexSlack = 16;        // frame-index entries beyond the frame count
  int64_t frameCountOverride = -1; // frame count the index is sized for (-1: counted)
};

// One engine state over a stream; frees everything it allocated.
class EngineHarness {
 public:
  // Null when no frame start is found. With `external`, that (zero-filled) state is
  // set up and used instead of one of the harness's own; the harness still frees
  // the buffers it allocated for it.
  static std::unique_ptr<EngineHarness> Open(std::vector<uint8_t> data, const HarnessOptions& options = {},
                                             kxmp3::EngineState* external = nullptr);
  ~EngineHarness();

  kxmp3::EngineState& State() { return *state_; }
  MemoryStream& Stream() { return *stream_; }
  // The harness's frame buffer: one frame of the output layout.
  uint8_t* FrameBuffer() { return frameBuffer_.data(); }
  uint32_t FrameBytes() const { return static_cast<uint32_t>(frameBuffer_.size()); }
  uint32_t Channels() const { return channels_; }
  uint32_t SampleRate() const { return sampleRate_; }
  uint32_t FrameCount() const { return frameCount_; }

  // One frame into the frame buffer (SkipFrame while the skip-first-frame flag and
  // a zero frame counter say so, as the delivery does); appends the bytes the
  // engine made to `out`. Returns the engine's status.
  int32_t DecodeOne(std::vector<uint8_t>& out);
  // Frames until 0x3007 or `maxCalls`; statuses seen are counted in `statuses`.
  struct RunResult {
    std::vector<uint8_t> pcm;
    std::vector<int32_t> statuses;
    bool ended = false;  // reached 0x3007
  };
  RunResult DecodeAll(uint32_t maxCalls = 1000000);
  // Runs `step` (one call: appends its output, returns its status) until 0x3007 or
  // `maxCalls`, recording every status.
  template <typename Step>
  static RunResult RunUntilEnd(Step step, uint32_t maxCalls) {
    RunResult r;
    for (uint32_t i = 0; i < maxCalls; ++i) {
      const int32_t status = step(r.pcm);
      r.statuses.push_back(status);
      if (status == static_cast<int32_t>(AF_S_END_OF_DATA)) {
        r.ended = true;
        break;
      }
    }
    return r;
  }
  // The same, each frame decoded straight into a caller's buffer of `room` bytes
  // (into the harness's frame buffer when the room does not hold a frame).
  RunResult DecodeAllIntoCaller(uint32_t room, uint32_t maxCalls = 1000000);

 private:
  EngineHarness() = default;
  kxmp3::EngineState* state_ = nullptr;
  bool ownsState_ = true;
  MemoryStream* stream_ = nullptr;
  std::vector<uint8_t> frameBuffer_;
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
// Frame length of a valid header word.
uint32_t FrameLengthOf(uint32_t word);
// The 16-bit little-endian samples of a byte buffer.
std::vector<int16_t> AsInt16(const std::vector<uint8_t>& bytes);
// The doubles of a byte buffer.
std::vector<double> AsDouble(const std::vector<uint8_t>& bytes);

}  // namespace kxtest
