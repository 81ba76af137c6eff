// Test harness of the decoding engine (see engine_harness.h).
#include "engine_harness.h"

#include <cstring>
#include <mutex>

#include "engine/decode_frame.h"
#include "engine/frame_header.h"
#include "engine/output.h"
#include "engine/tables.h"
#include "host/kxcore.h"

namespace kxtest {

namespace {

uint32_t WordAt(const std::vector<uint8_t>& d, size_t i) {
  return (uint32_t{d[i]} << 24) | (uint32_t{d[i + 1]} << 16) | (uint32_t{d[i + 2]} << 8) | d[i + 3];
}

uint32_t LengthOf(uint32_t word) {
  kxmp3::FrameHeader h{};
  h.version = ((~word >> 20) & 1) + ((~word >> 19) & 1);
  h.bitrate_index = (word >> 12) & 15;
  h.rate_code = h.version * 3 + ((word >> 10) & 3);
  h.padding = (word >> 9) & 1;
  return kxmp3::FrameLength(h);
}

}  // namespace

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
    const size_t next = i + LengthOf(w);
    if (next + 4 > data.size()) return static_cast<int64_t>(i);  // a lone last frame
    if (((WordAt(data, next) ^ w) & kxmp3::kHeaderCompareMask) == 0) return static_cast<int64_t>(i);
  }
  return -1;
}

std::unique_ptr<EngineHarness> EngineHarness::Open(std::vector<uint8_t> data, const HarnessOptions& options) {
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
    p += LengthOf(w);
  }
  h->frameCount_ = options.frameCountOverride >= 0 ? static_cast<uint32_t>(options.frameCountOverride) : frames;

  const size_t size = data.size();
  h->stream_ = MemoryStream::Make(std::move(data));
  h->stream_->SetBounds(start, static_cast<int64_t>(size) - start);
  h->stream_->Seek(0, ZS_SEEK_SET);

  auto* s = static_cast<kxmp3::DecoderState*>(ZCoreAlloc(ZMEM_ZEROED, sizeof(kxmp3::DecoderState)));
  h->state_ = s;
  s->stream = h->stream_;
  const uint32_t version = ((~first >> 20) & 1) + ((~first >> 19) & 1);
  const uint32_t rateCode = version * 3 + ((first >> 10) & 3);
  h->channels_ = ((first >> 6) & 3) == 3 ? 1 : 2;
  h->sampleRate_ = kxmp3::kSampleRates[rateCode];
  s->info.generic.channels = h->channels_;
  s->info.generic.sampleRate = h->sampleRate_;
  s->info.generic.bitsPerSample = options.bytesPerSample * 8;
  s->info.vbrHeaderFrame = options.skipFirstFrame ? 1 : 0;
  s->mpegVersion = version == 2 ? 3 : version + 1;
  s->frameCount = h->frameCount_;
  s->openFlags = options.noDeemphasis ? OPEN_FLAG_NO_DEEMPHASIS : 0;

  // Buffers as the open sequence makes them.
  s->bytesPerSample = options.bytesPerSample;
  s->granuleBytes = kxmp3::kLinesPerGranule * h->channels_ * s->bytesPerSample;
  s->pcmBufferSize = s->granuleBytes * (version == 0 ? 2 : 1);
  s->pcmBuffer = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_PLAIN, s->pcmBufferSize));
  s->pcmReadPos = s->pcmBufferSize;
  s->workBlockRaw = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kxmp3::kWorkBlockRawBytes));
  s->workBlock = s->workBlockRaw + (16 - (reinterpret_cast<uintptr_t>(s->workBlockRaw) & 15));
  s->workBlockHigh = s->workBlock + kxmp3::kSynthesisAreaBytes;
  s->reservoir = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kxmp3::kReservoirBytes));
  s->frameIndexCapacity = h->frameCount_ + options.indexSlack;
  s->frameIndex = static_cast<kxmp3::FrameIndexEntry*>(
      ZCoreAlloc(ZMEM_ZEROED, static_cast<size_t>(s->frameIndexCapacity) * sizeof(kxmp3::FrameIndexEntry)));
  s->frameIndex[0].offset = ~uint64_t{0};
  s->referenceHeader = first;
  s->pcmTotalBytes = options.outputLimit >= 0 ? static_cast<uint64_t>(options.outputLimit)
                                              : static_cast<uint64_t>(h->frameCount_) * s->pcmBufferSize;
  s->outputLimitInForce = options.outputLimitInForce ? 1 : 0;
  if (!options.noDeemphasis) kxmp3::SetupDeemphasis(*s, h->sampleRate_);
  return h;
}

EngineHarness::~EngineHarness() {
  if (state_ != nullptr) {
    ZCoreFree(state_->frameIndex);
    ZCoreFree(state_->pcmBuffer);
    ZCoreFree(state_->workBlockRaw);
    ZCoreFree(state_->reservoir);
    ZCoreFree(state_);
  }
  if (stream_ != nullptr) stream_->Release();
}

int32_t EngineHarness::DecodeOne(std::vector<uint8_t>& out) {
  kxmp3::DecoderState& s = *state_;
  const bool skip = s.frameCounter == 0 && s.info.vbrHeaderFrame != 0;
  s.pcmFill = 0;
  s.pcmReadPos = 0;
  const int32_t status = skip ? kxmp3::SkipFrame(s, 0, nullptr, nullptr) : kxmp3::DecodeFrame(s, 0, nullptr, nullptr);
  if (s.pcmFill > s.pcmReadPos) out.insert(out.end(), s.pcmBuffer + s.pcmReadPos, s.pcmBuffer + s.pcmFill);
  return status;
}

EngineHarness::RunResult EngineHarness::DecodeAll(uint32_t maxCalls) {
  RunResult r;
  for (uint32_t i = 0; i < maxCalls; ++i) {
    const int32_t status = DecodeOne(r.pcm);
    r.statuses.push_back(status);
    if (status == static_cast<int32_t>(AF_S_END_OF_DATA)) {
      r.ended = true;
      break;
    }
  }
  return r;
}

EngineHarness::RunResult EngineHarness::DecodeAllIntoCaller(uint32_t room, uint32_t maxCalls) {
  RunResult r;
  kxmp3::DecoderState& s = *state_;
  std::vector<uint8_t> buffer(room);
  for (uint32_t i = 0; i < maxCalls; ++i) {
    const bool skip = s.frameCounter == 0 && s.info.vbrHeaderFrame != 0;
    int32_t count = static_cast<int32_t>(room);
    s.pcmFill = 0;
    s.pcmReadPos = 0;
    const int32_t status =
        skip ? kxmp3::SkipFrame(s, 1, buffer.data(), &count) : kxmp3::DecodeFrame(s, 1, buffer.data(), &count);
    r.statuses.push_back(status);
    if (count > 0) r.pcm.insert(r.pcm.end(), buffer.begin(), buffer.begin() + count);
    if (s.pcmFill > s.pcmReadPos) r.pcm.insert(r.pcm.end(), s.pcmBuffer + s.pcmReadPos, s.pcmBuffer + s.pcmFill);
    if (status == static_cast<int32_t>(AF_S_END_OF_DATA)) {
      r.ended = true;
      break;
    }
  }
  return r;
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
