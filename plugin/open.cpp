// The open sequence (Create): obtain the stream, lay out the container, choose the
// output format, read the tags, bound the stream to the audio data, set up
// de-emphasis, allocate the decoding buffers and decode ahead over the start skip,
// so that the first PCM byte the host pulls is the first real sample.
//
// Every failure inside the sequence is raised as an OpenFailure carrying its code
// and caught once, in Create, which releases a stream the object has not yet taken
// over (a stream handed in by the caller too: the caller hands over its reference).
#include <algorithm>
#include <cmath>
#include <cstring>

#include "../engine/output.h"
#include "../engine/synthesis.h"
#include "../engine/tables.h"
#include "../host/kxcore.h"
#include "../layout/container.h"
#include "../tags/tag_merge.h"
#include "kxmp3.h"
#include "open_steps.h"

namespace kxmp3 {

namespace {

// Bytes of the smallest Layer III frame: MPEG-2 at 24 kHz and 8 kbit/s,
// floor(72000 x 8 / 24000) = 24, the least entry of the frame-length table.
constexpr uint64_t kSmallestFrameBytes = 24;

void Raise(KxResult code) { throw OpenFailure{code}; }

void RaiseIfFailed(KxResult code) {
  if (code != AF_S_OK) Raise(code);
}

}  // namespace

uint8_t* AlignWorkBlock(uint8_t* raw) {
  // Always moved up by 16 minus the low four bits: an aligned block moves by a
  // full 16 bytes, which the 16 spare bytes of the allocation leave room for.
  const auto low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(raw) & 15u);
  return raw + (16u - low);
}

void ReadTagsStep(Class_ZStream* stream, uint32_t containerType, Class_KXMP3& object) {
  DecoderState& s = object.State();
  // The readers set the ReplayGain record for the containers whose tags can carry
  // it (and empty it for a bare stream); a RIFF container leaves it as it is.
  object.SetCommentSource(ReadTagsForContainer(stream, containerType, &s.replayGain));
}

}  // namespace kxmp3

using namespace kxmp3;

KxResult Class_KXMP3::Create(void* params) {
  if (Opened()) return AF_E_ALREADY_CREATED;
  const auto* p = static_cast<const OpenParams*>(params);
  if (p == nullptr) return AF_E_POINTER;
  if (p->tag != FOURCC_ZAFC && p->tag != FOURCC_ZMP3) return AF_E_BAD_PARAM_TAG;
  if (p->size != sizeof(OpenParams)) return AF_E_BAD_PARAM_SIZE;
  Class_ZStream* stream = nullptr;
  try {
    OpenSequence(*p, stream);
  } catch (const OpenFailure& failure) {
    if (stream != nullptr && state_.stream != stream) stream->Release();
    return failure.code;
  }
  SetCreatedFlag(1);
  return AF_S_OK;
}

void Class_KXMP3::OpenSequence(const OpenParams& params, Class_ZStream*& stream) {
  DecoderState& s = state_;

  // 1. Stream: handed in, or made by the core library from the source description.
  if ((params.flags & OPEN_FLAG_STREAM) != 0) {
    stream = static_cast<Class_ZStream*>(params.source);
    if (stream == nullptr) Raise(AF_E_POINTER);
    s.openFlags |= OPEN_FLAG_STREAM;
  } else {
    void* object = nullptr;
    RaiseIfFailed(ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object));
    stream = static_cast<Class_ZStream*>(object);
    if (stream == nullptr) Raise(AF_E_FAIL);
    ZStreamOpenRecord record{};
    record.tag = FOURCC_ZSTM;
    record.size = sizeof(ZStreamOpenRecord);
    record.mode = ZS_MODE_READ;
    record.source = params.source;
    RaiseIfFailed(stream->Create(&record));
    s.openFlags |= OPEN_FLAG_OWN_STREAM;
  }

  // 2. Container detection and the first frame's header.
  StreamLayout layout{};
  MP3Info info{};
  uint32_t header = 0;
  RaiseIfFailed(DetectContainer(stream, params.flags, &layout, &info, &header));
  s.info = info;
  s.containerType = layout.containerType;
  s.audioStart = layout.audioStart;
  s.audioLength = layout.audioLength;
  s.frameCount = layout.frameCount;
  s.mpegVersion = info.mpegVersion;
  // Every frame header the engine reads is checked against this word first.
  s.engine.referenceHeader = header;
  s.engine.skipFirstFrame = info.vbrHeaderFrame;
  // The open and every Rewind skip the whole start delay (encoder delay, decoder
  // delay and a first frame), not just the encoder's figure.
  s.startSkip = layout.startSkip;
  s.countSource = layout.countSource;
  s.outputLimitInForce = layout.outputLimitInForce;
  static_assert(sizeof(s.encoderName) == sizeof(layout.encoderName));
  std::memcpy(s.encoderName, layout.encoderName, sizeof(s.encoderName));

  // 3. Output format.
  if (params.requestedBits != 0 && params.requestedBits != 16) {
    s.info.generic.bitsPerSample = 64;
    s.info.generic.totalPcmBytes *= 4;
    s.info.generic.formatFlags |= AFI_FLAG_FLOAT;
    s.engine.bytesPerSample = 8;
  } else {
    s.engine.bytesPerSample = 2;
  }

  // 4. Tags: the merged comment record goes to the base, ReplayGain to the state.
  ReadTagsStep(stream, s.containerType, *this);

  // 5. Bound the stream to the audio data and take it over.
  RaiseIfFailed(stream->SetBounds(static_cast<int64_t>(s.audioStart), static_cast<int64_t>(s.audioLength)));
  RaiseIfFailed(stream->Seek(0, ZS_SEEK_SET));
  s.stream = stream;

  // 6. Information only: no decoding buffers.
  if ((params.flags & OPEN_FLAG_INFO_ONLY) != 0) {
    s.openFlags |= OPEN_FLAG_INFO_ONLY;
    return;
  }

  // 7. De-emphasis coefficients (and a cleared filter), unless switched off.
  if ((params.flags & OPEN_FLAG_NO_DEEMPHASIS) != 0) {
    s.openFlags |= OPEN_FLAG_NO_DEEMPHASIS;
    s.engine.noDeemphasis = 1;
  } else {
    SetupDeemphasis(s.engine, s.info.generic.sampleRate);
  }

  // 8. Buffers. Allocation results are not tested: the core allocator does not
  // fail short of exhausting the process.
  EngineState& e = s.engine;
  const uint32_t channels = s.info.generic.channels;
  e.granuleBytes = 576u * channels * e.bytesPerSample;
  e.frameBytes = s.mpegVersion == 1 ? 2u * e.granuleBytes : e.granuleBytes;
  s.pcmBufferSize = e.frameBytes;
  s.pcmBuffer = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_PLAIN, s.pcmBufferSize));
  EmptyFrameBuffer();
  e.workBlockRaw = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kWorkBlockRawBytes));
  e.workBlock = AlignWorkBlock(e.workBlockRaw);
  e.workBlockHigh = e.workBlock + kSynthesisAreaBytes;
  ClearSynthesisRing(reinterpret_cast<double*>(e.workBlock));
  ClearSynthesisRing(reinterpret_cast<double*>(e.workBlock) + kSynthesisRingSize);
  e.reservoir = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kReservoirBytes));
  e.reservoirWriteIndex = 0;
  e.reservoirBitPos = 0;
  // Room for the frames the stream can hold: the header's frame count, but never
  // more than the audio bytes allow, since a header may claim billions of frames
  // in a small file (and a count near 2^32 would wrap the entry count).
  const uint64_t mostFrames = s.audioLength / kSmallestFrameBytes + 1;
  e.frameIndexCapacity = static_cast<uint32_t>(std::min<uint64_t>(s.frameCount, mostFrames)) + kFrameIndexSlack;
  e.frameIndex = static_cast<FrameIndexEntry*>(
      ZCoreAlloc(ZMEM_ZEROED, static_cast<std::size_t>(e.frameIndexCapacity) * sizeof(FrameIndexEntry)));
  e.frameIndex[0].offset = ~uint64_t{0};

  // 9. Output limit, and decoding ahead over the start skip.
  s.pcmTotalBytes = s.info.generic.totalPcmBytes;
  if (s.startSkip != 0) {
    const uint64_t skip = uint64_t{s.startSkip} * e.bytesPerSample * channels;
    s.pcmTotalBytes += skip;
    SkipStartBytes(skip);
  }
}
