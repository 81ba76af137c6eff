// Helpers of the plug-in tests: fixture files, decoders made and opened on an
// in-memory stream or a file path, a forwarding stream whose bounds and seeks can
// be made to fail, and reading a decoder to its end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/kxcore.h"
#include "plugin/kxmp3.h"
#include "support/memory_stream.h"

namespace kxtest {

inline std::string FixturePath(const std::string& name) { return std::string(KX_TEST_DATA_DIR) + "/mp3/" + name; }
inline std::vector<uint8_t> Fixture(const std::string& name) { return ReadFile(FixturePath(name)); }

// A fresh decoder (one reference).
inline Class_KXMP3* NewDecoder() {
  Class_ZCOM* object = nullptr;
  if (CreateInstance_KXMP3(&object) != AF_S_OK) return nullptr;
  return dynamic_cast<Class_KXMP3*>(object);
}

inline OpenParams MakeParams(uint32_t flags, void* source, uint32_t bits = 16, uint32_t tag = FOURCC_ZAFC) {
  OpenParams p{};
  p.tag = tag;
  p.size = sizeof(OpenParams);
  p.flags = flags;
  p.source = source;
  p.requestedBits = bits;
  return p;
}

// Opens `decoder` on an in-memory copy of a fixture (the stream is handed over).
inline KxResult OpenOnMemory(Class_KXMP3* decoder, const std::string& fixture, uint32_t flags = 0, uint32_t bits = 16) {
  MemoryStream* stream = MemoryStream::Make(Fixture(fixture), u"memory/" + std::u16string(fixture.begin(), fixture.end()));
  OpenParams p = MakeParams(flags | OPEN_FLAG_STREAM, stream, bits);
  return decoder->Create(&p);
}

// A decoder opened on a fixture, or null (the failure is reported by the caller's
// ASSERT on the result).
inline Class_KXMP3* OpenFixture(const std::string& fixture, uint32_t flags = 0, uint32_t bits = 16) {
  Class_KXMP3* decoder = NewDecoder();
  if (decoder == nullptr) return nullptr;
  if (OpenOnMemory(decoder, fixture, flags, bits) != AF_S_OK) {
    decoder->Release();
    return nullptr;
  }
  return decoder;
}

// Pulls the whole stream in requests of the given sizes (cycled); stops at
// AF_S_END_OF_DATA or after `limit` bytes. Every other result but 0 and
// AF_S_FRAME_ERROR ends the read and is stored in *failure.
inline std::vector<uint8_t> ReadAll(Class_KXAudioFile* audio, const std::vector<int32_t>& sizes,
                                    KxResult* failure = nullptr, size_t limit = 64u << 20) {
  std::vector<uint8_t> out;
  std::vector<uint8_t> buffer;
  size_t k = 0;
  if (failure != nullptr) *failure = AF_S_OK;
  while (out.size() < limit) {
    const int32_t want = sizes[k++ % sizes.size()];
    buffer.assign(static_cast<size_t>(want), 0xEE);
    int32_t written = -1;
    const KxResult rc = audio->DecodeToPCMData(buffer.data(), want, &written);
    if (written > 0) out.insert(out.end(), buffer.begin(), buffer.begin() + written);
    if (rc == AF_S_END_OF_DATA) break;
    if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR) {
      if (failure != nullptr) *failure = rc;
      break;
    }
  }
  return out;
}

// A stream that forwards to a MemoryStream, with failures of SetBounds, of the
// n-th Seek after SetBounds, of Create, and a count of Release calls.
class ForwardingStream : public Class_ZStream {
 public:
  static ForwardingStream* Make(std::vector<uint8_t> data, std::u16string name = u"forward.mp3") {
    auto* s = new ForwardingStream();
    s->inner_ = MemoryStream::Make(std::move(data), std::move(name));
    return s;
  }
  ~ForwardingStream() override { inner_->Release(); }

  KxResult failBounds = AF_S_OK;      // returned by SetBounds when non-zero
  KxResult failSeekAfterBounds = AF_S_OK;  // returned by the first Seek after SetBounds
  bool boundsSet = false;

  KxResult Create(void* params) override { return inner_->Create(params); }
  KxResult Read(void* b, uint32_t n, uint32_t* r) override { return inner_->Read(b, n, r); }
  KxResult GetPosition(int64_t* p) override { return inner_->GetPosition(p); }
  KxResult Seek(int64_t offset, uint32_t origin) override {
    if (boundsSet && failSeekAfterBounds != AF_S_OK) return failSeekAfterBounds;
    return inner_->Seek(offset, origin);
  }
  KxResult GetSize(int64_t* s) override { return inner_->GetSize(s); }
  KxResult GetName(char16_t* b) override { return inner_->GetName(b); }
  KxResult SetBounds(int64_t start, int64_t length) override {
    if (failBounds != AF_S_OK) return failBounds;
    boundsSet = true;
    return inner_->SetBounds(start, length);
  }
  KxResult Write(const void* b, uint32_t n, uint32_t* w) override { return inner_->Write(b, n, w); }
  KxResult SetEnd() override { return inner_->SetEnd(); }
  KxResult SetAccessMode(uint32_t m) override { return inner_->SetAccessMode(m); }
  uint32_t GetOpenMode() override { return inner_->GetOpenMode(); }
  uint32_t GetIdentCode() override { return inner_->GetIdentCode(); }

 private:
  ForwardingStream() = default;
  MemoryStream* inner_ = nullptr;
};

}  // namespace kxtest
