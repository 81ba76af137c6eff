// Test harness of the PCM delivery's decode step: a decoder object's state
// (DecoderState) set up over an in-memory stream of synthetic or real frames the
// way the open sequence leaves it, with the output limit chosen by the test, and
// loops that run DeliverFrame over a whole stream into the frame buffer or straight
// into a caller's buffer.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "plugin/kxmp3.h"
#include "support/engine/engine_harness.h"

namespace kxtest {

struct DeliveryOptions : HarnessOptions {
  bool outputLimitInForce = false;
  int64_t outputLimit = -1;  // -1: frames counted x frame output size
};

class DeliveryHarness {
 public:
  // Null when no frame start is found.
  static std::unique_ptr<DeliveryHarness> Open(std::vector<uint8_t> data, const DeliveryOptions& options = {});
  ~DeliveryHarness();

  kxmp3::DecoderState& State() { return *state_; }
  uint32_t FrameCount() const { return engine_->FrameCount(); }

  // One step into the frame buffer; appends the bytes it holds to `out`.
  int32_t DecodeOne(std::vector<uint8_t>& out);
  using RunResult = EngineHarness::RunResult;
  RunResult DecodeAll(uint32_t maxCalls = 1000000);
  // The same, decoding straight into a caller buffer of `room` bytes per call.
  RunResult DecodeAllIntoCaller(uint32_t room, uint32_t maxCalls = 1000000);

 private:
  DeliveryHarness() = default;
  kxmp3::DecoderState* state_ = nullptr;
  std::unique_ptr<EngineHarness> engine_;
};

}  // namespace kxtest
