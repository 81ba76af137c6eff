// Test harness of the decoding engine (see engine_harness.h).
#include "support/engine/engine_harness.h"

#include <cstring>
#include <mutex>

#include "engine/byte_order.h"
#include "engine/decode_frame.h"
#include "engine/frame_header.h"
#include "engine/header_word.h"
#include "engine/output.h"
#include "engine/synthesis.h"
#include "engine/tables.h"
#include "host/kxcore.h"

namespace kxtest {

namespace {

uint32_t WordAt(const std::vector<uint8_t>& d, size_t i) { return kxmp3::BigEndian32(&d[i]); }

}  // namespace

uint32_t FrameLengthOf(uint32_t word) { return kxmp3::header_word::HeaderFrameLength(word); }

void EnsureDecoderTables() {
  static std::once_flag once;
  std::call_once(once, [] { kxmp3::InitDecoderTables(); });
}

std::vector<uint8_t> DecodeWithKernels(const kxmp3::DspKernels& kernels, const std::vector<uint8_t>& bits,
                                       uint32_t bytesPerSample) {
  const kxmp3::DspKernels& previous = kxmp3::ReplaceDspKernelsForTesting(kernels);
  HarnessOptions options;
  options.bytesPerSample = bytesPerSample;
  auto h = EngineHarness::Open(bits, options);
  std::vector<uint8_t> pcm;
  if (h != nullptr) pcm = h->DecodeAll().pcm;
  kxmp3::ReplaceDspKernelsForTesting(previous);
  return pcm;
}

int64_t FindFirstFrame(const std::vector<uint8_t>& data) {
  for (size_t i = 0; i + 4 <= data.size(); ++i) {
    const uint32_t w = WordAt(data, i);
    if (!kxmp3::IsLayer3Header(w)) continue;
    const size_t next = i + FrameLengthOf(w);
    if (next + 4 > data.size()) return static_cast<int64_t>(i);  // a lone last frame
    if (((WordAt(data, next) ^ w) & kxmp3::kHeaderCompareMask) == 0) return static_cast<int64_t>(i);
  }
  return -1;
}

std::unique_ptr<EngineHarness> EngineHarness::Open(std::vector<uint8_t> data, const HarnessOptions& options,
                                                   kxmp3::EngineState* external) {
  EnsureDecoderTables();
  const int64_t start = options.audioStart >= 0 ? options.audioStart : FindFirstFrame(data);
  if (start < 0 || static_cast<size_t>(start) + 4 > data.size()) return nullptr;
  const uint32_t first = WordAt(data, static_cast<size_t>(start));
  if (!kxmp3::IsLayer3Header(first)) return nullptr;

  std::unique_ptr<EngineHarness> h(new EngineHarness());
  // Count the frames by walking their lengths (what a full scan would find).
  uint32_t frames = 0;
  for (size_t p = static_cast<size_t>(start); p + 4 <= data.size();) {
    const uint32_t w = WordAt(data, p);
    if (!kxmp3::IsLayer3Header(w) || ((w ^ first) & kxmp3::kHeaderCompareMask) != 0) break;
    ++frames;
    p += FrameLengthOf(w);
  }
  h->frameCount_ = options.frameCountOverride >= 0 ? static_cast<uint32_t>(options.frameCountOverride) : frames;

  const size_t size = data.size();
  h->stream_ = MemoryStream::Make(std::move(data));
  h->stream_->SetBounds(start, static_cast<int64_t>(size) - start);
  h->stream_->Seek(0, ZS_SEEK_SET);

  auto* s = external != nullptr ? external
                                 : static_cast<kxmp3::EngineState*>(ZCoreAlloc(ZMEM_ZEROED, sizeof(kxmp3::EngineState)));
  h->state_ = s;
  h->ownsState_ = external == nullptr;
  const uint32_t version = kxmp3::header_word::VersionIndex(first);
  h->channels_ = kxmp3::header_word::Channels(first);
  h->sampleRate_ = kxmp3::kSampleRates[kxmp3::header_word::RateCode(first)];
  s->skipFirstFrame = options.skipFirstFrame ? 1 : 0;
  s->noDeemphasis = options.noDeemphasis ? 1 : 0;

  // Buffers as the open sequence makes them.
  s->bytesPerSample = options.bytesPerSample;
  s->granuleBytes = kxmp3::kLinesPerGranule * h->channels_ * s->bytesPerSample;
  s->frameBytes = s->granuleBytes * (version == 0 ? 2 : 1);
  h->frameBuffer_.assign(s->frameBytes, 0);
  s->workBlockRaw = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kxmp3::kWorkBlockRawBytes));
  s->workBlock = s->workBlockRaw + (16 - (reinterpret_cast<uintptr_t>(s->workBlockRaw) & 15));
  s->workBlockHigh = s->workBlock + kxmp3::kSynthesisAreaBytes;
  kxmp3::ClearSynthesisRing(reinterpret_cast<double*>(s->workBlock));
  kxmp3::ClearSynthesisRing(reinterpret_cast<double*>(s->workBlock) + kxmp3::kSynthesisRingSize);
  s->reservoir = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kxmp3::kReservoirBytes));
  s->frameIndexCapacity = h->frameCount_ + options.indexSlack;
  s->frameIndex = static_cast<kxmp3::FrameIndexEntry*>(
      ZCoreAlloc(ZMEM_ZEROED, static_cast<size_t>(s->frameIndexCapacity) * sizeof(kxmp3::FrameIndexEntry)));
  s->frameIndex[0].offset = ~uint64_t{0};
  s->referenceHeader = first;
  if (!options.noDeemphasis) kxmp3::SetupDeemphasis(*s, h->sampleRate_);
  return h;
}

EngineHarness::~EngineHarness() {
  if (state_ != nullptr) {
    ZCoreFree(state_->frameIndex);
    ZCoreFree(state_->workBlockRaw);
    ZCoreFree(state_->reservoir);
    if (ownsState_) ZCoreFree(state_);
  }
  if (stream_ != nullptr) stream_->Release();
}

int32_t EngineHarness::DecodeOne(std::vector<uint8_t>& out) {
  uint32_t made = 0;
  const int32_t status = kxmp3::DecodeNextFrame(*state_, stream_, frameBuffer_.data(), &made);
  out.insert(out.end(), frameBuffer_.begin(), frameBuffer_.begin() + made);
  return status;
}

EngineHarness::RunResult EngineHarness::DecodeAll(uint32_t maxCalls) {
  return RunUntilEnd([this](std::vector<uint8_t>& out) { return DecodeOne(out); }, maxCalls);
}

EngineHarness::RunResult EngineHarness::DecodeAllIntoCaller(uint32_t room, uint32_t maxCalls) {
  std::vector<uint8_t> buffer(room);
  uint8_t* target = room >= frameBuffer_.size() ? buffer.data() : frameBuffer_.data();
  return RunUntilEnd(
      [&](std::vector<uint8_t>& out) {
        uint32_t made = 0;
        const int32_t status = kxmp3::DecodeNextFrame(*state_, stream_, target, &made);
        out.insert(out.end(), target, target + made);
        return status;
      },
      maxCalls);
}

std::vector<int16_t> AsInt16(const std::vector<uint8_t>& bytes) {
  std::vector<int16_t> v(bytes.size() / 2);
  std::memcpy(v.data(), bytes.data(), v.size() * 2);
  return v;
}

std::vector<double> AsDouble(const std::vector<uint8_t>& bytes) {
  std::vector<double> v(bytes.size() / 8);
  std::memcpy(v.data(), bytes.data(), v.size() * 8);
  return v;
}

}  // namespace kxtest
