// Test harness of the PCM delivery's decode step (see delivery_harness.h).
#include "delivery_harness.h"

#include "host/kxcore.h"

namespace kxtest {

std::unique_ptr<DeliveryHarness> DeliveryHarness::Open(std::vector<uint8_t> data, const DeliveryOptions& options) {
  std::unique_ptr<DeliveryHarness> h(new DeliveryHarness());
  auto* s = static_cast<kxmp3::DecoderState*>(ZCoreAlloc(ZMEM_ZEROED, sizeof(kxmp3::DecoderState)));
  h->state_ = s;
  h->engine_ = EngineHarness::Open(std::move(data), options, &s->engine);
  if (h->engine_ == nullptr) return nullptr;
  s->stream = &h->engine_->Stream();
  s->info.generic.channels = h->engine_->Channels();
  s->info.generic.sampleRate = h->engine_->SampleRate();
  s->info.generic.bitsPerSample = options.bytesPerSample * 8;
  s->info.vbrHeaderFrame = options.skipFirstFrame ? 1 : 0;
  s->frameCount = h->engine_->FrameCount();
  s->openFlags = options.noDeemphasis ? OPEN_FLAG_NO_DEEMPHASIS : 0;
  s->pcmBufferSize = s->engine.frameBytes;
  s->pcmBuffer = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_PLAIN, s->pcmBufferSize));
  s->pcmReadPos = s->pcmBufferSize;
  s->pcmTotalBytes = options.outputLimit >= 0 ? static_cast<uint64_t>(options.outputLimit)
                                              : static_cast<uint64_t>(s->frameCount) * s->pcmBufferSize;
  s->outputLimitInForce = options.outputLimitInForce ? 1 : 0;
  return h;
}

DeliveryHarness::~DeliveryHarness() {
  engine_.reset();
  if (state_ != nullptr) {
    ZCoreFree(state_->pcmBuffer);
    ZCoreFree(state_);
  }
}

int32_t DeliveryHarness::DecodeOne(std::vector<uint8_t>& out) {
  kxmp3::DecoderState& s = *state_;
  s.pcmFill = 0;
  s.pcmReadPos = 0;
  const int32_t status = static_cast<int32_t>(kxmp3::DeliverFrame(s, 0, nullptr, nullptr));
  if (s.pcmFill > s.pcmReadPos) out.insert(out.end(), s.pcmBuffer + s.pcmReadPos, s.pcmBuffer + s.pcmFill);
  return status;
}

DeliveryHarness::RunResult DeliveryHarness::DecodeAll(uint32_t maxCalls) {
  return EngineHarness::RunUntilEnd([this](std::vector<uint8_t>& out) { return DecodeOne(out); }, maxCalls);
}

DeliveryHarness::RunResult DeliveryHarness::DecodeAllIntoCaller(uint32_t room, uint32_t maxCalls) {
  kxmp3::DecoderState& s = *state_;
  std::vector<uint8_t> buffer(room);
  return EngineHarness::RunUntilEnd(
      [&](std::vector<uint8_t>& out) {
        int32_t count = static_cast<int32_t>(room);
        s.pcmFill = 0;
        s.pcmReadPos = 0;
        const int32_t status = static_cast<int32_t>(kxmp3::DeliverFrame(s, 1, buffer.data(), &count));
        if (count > 0) out.insert(out.end(), buffer.begin(), buffer.begin() + count);
        if (s.pcmFill > s.pcmReadPos) out.insert(out.end(), s.pcmBuffer + s.pcmReadPos, s.pcmBuffer + s.pcmFill);
        return status;
      },
      maxCalls);
}

}  // namespace kxtest
