// Helpers of the reliability suite (see reliability_util.h).
#include "reliability_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace kxrel {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> ListFixtures(const std::string& folder) {
  std::vector<std::string> paths;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(folder, ec)) {
    const std::string ext = entry.path().extension().string();
    if (entry.is_regular_file() && (ext == ".mp3" || ext == ".wav" || ext == ".rmp")) {
      paths.push_back(entry.path().string());
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

bool Layer3HeaderAt(const Bytes& b, size_t p) {
  if (p + 4 > b.size() || b[p] != 0xFF || (b[p + 1] & 0xE0) != 0xE0) return false;
  const int version = (b[p + 1] >> 3) & 3;
  const int layer = (b[p + 1] >> 1) & 3;
  const int bitrate = b[p + 2] >> 4;
  const int rate = (b[p + 2] >> 2) & 3;
  return version != 1 && layer == 1 && bitrate != 0 && bitrate != 15 && rate != 3;
}

}  // namespace

std::vector<std::string> AudioFixtures() { return ListFixtures(std::string(KX_TEST_DATA_DIR) + "/mp3"); }
std::vector<std::string> TagFixtures() { return ListFixtures(std::string(KX_TEST_DATA_DIR) + "/tags"); }

std::string BaseName(const std::string& path) { return fs::path(path).filename().string(); }

std::u16string WideName(const std::string& path) {
  const std::string name = BaseName(path);
  return std::u16string(name.begin(), name.end());
}

Opened Open(const Bytes& data, const std::u16string& name, uint32_t flags, uint32_t bits,
            const std::function<void(kxtest::MemoryStream*)>& prepare) {
  Opened o;
  Class_ZCOM* object = nullptr;
  if (CreateInstance_KXMP3(&object) != AF_S_OK) return o;
  o.decoder = dynamic_cast<Class_KXMP3*>(object);
  o.stream = kxtest::MemoryStream::Make(data, name);
  if (prepare) prepare(o.stream);
  o.stream->AddRef();  // the decoder's reference; the test keeps the first
  OpenParams params{};
  params.tag = FOURCC_ZAFC;
  params.size = sizeof(OpenParams);
  params.flags = flags | OPEN_FLAG_STREAM;
  params.source = o.stream;
  params.requestedBits = bits;
  o.result = o.decoder->Create(&params);
  return o;
}

bool Close(Opened& opened) {
  bool ok = true;
  if (opened.decoder != nullptr) {
    const uint32_t left = opened.decoder->Release();
    if (left != 0) {
      ADD_FAILURE() << "the decoder still holds " << left << " references after its last release";
      ok = false;
    }
    opened.decoder = nullptr;
  }
  if (opened.stream != nullptr) {
    const uint32_t count = opened.stream->GetRefCount();
    if (count != 1) {
      ADD_FAILURE() << "the stream holds " << count << " references; only the test's one should be left";
      ok = false;
    }
    opened.stream->Release();
    opened.stream = nullptr;
  }
  return ok;
}

Drained Drain(Class_KXAudioFile* audio, int32_t request, uint32_t maxCalls, uint32_t retries) {
  Drained d;
  Bytes buffer(static_cast<size_t>(request));
  uint32_t failures = 0;
  while (d.calls < maxCalls) {
    int32_t written = -1;
    const KxResult rc = audio->DecodeToPCMData(buffer.data(), request, &written);
    ++d.calls;
    d.last = rc;
    if (!Named(rc)) d.named = false;
    if (written > 0) d.pcm.insert(d.pcm.end(), buffer.begin(), buffer.begin() + std::min(written, request));
    if (rc == AF_S_END_OF_DATA) break;
    if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR && ++failures > retries) break;
  }
  return d;
}

bool Named(KxResult code) { return KxResultName(code) != nullptr; }

int64_t MemoryBound(size_t fileBytes) { return 128 * 1024 + 16 * static_cast<int64_t>(fileBytes); }

int64_t FirstFrameOffset(const Bytes& data) {
  size_t p = 0;
  if (data.size() >= 10 && std::memcmp(data.data(), "ID3", 3) == 0) {
    p = 10 + ((size_t{data[6]} & 0x7F) << 21 | (size_t{data[7]} & 0x7F) << 14 | (size_t{data[8]} & 0x7F) << 7 |
              (size_t{data[9]} & 0x7F));
  }
  for (; p + 4 <= data.size(); ++p) {
    if (Layer3HeaderAt(data, p)) return static_cast<int64_t>(p);
  }
  return -1;
}

int64_t XingOffset(const Bytes& data) {
  const int64_t frame = FirstFrameOffset(data);
  if (frame < 0) return -1;
  for (int64_t p = frame + 4; p < frame + 64 && p + 4 <= static_cast<int64_t>(data.size()); ++p) {
    if (std::memcmp(data.data() + p, "Xing", 4) == 0 || std::memcmp(data.data() + p, "Info", 4) == 0) return p;
  }
  return -1;
}

void PutBigEndian32(Bytes& data, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) data[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

void PutLittleEndian32(Bytes& data, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) data[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace kxrel
