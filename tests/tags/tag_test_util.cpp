// Helpers of the tag tests (see tag_test_util.h).
#include "tag_test_util.h"

#include <algorithm>

#include "platform/kx_platform.h"
#include "tags/comment_record.h"

namespace kxtest {

void Put(Bytes& out, const std::string& text) { out.insert(out.end(), text.begin(), text.end()); }
void Put(Bytes& out, std::initializer_list<int> bytes) {
  for (int b : bytes) out.push_back(static_cast<uint8_t>(b));
}
void PutBE32(Bytes& out, uint32_t v) {
  Put(out, {static_cast<int>(v >> 24), static_cast<int>((v >> 16) & 0xFF), static_cast<int>((v >> 8) & 0xFF),
            static_cast<int>(v & 0xFF)});
}
void PutLE32(Bytes& out, uint32_t v) {
  Put(out, {static_cast<int>(v & 0xFF), static_cast<int>((v >> 8) & 0xFF), static_cast<int>((v >> 16) & 0xFF),
            static_cast<int>(v >> 24)});
}
void PutSyncSafe(Bytes& out, uint32_t v) {
  Put(out, {static_cast<int>((v >> 21) & 0x7F), static_cast<int>((v >> 14) & 0x7F), static_cast<int>((v >> 7) & 0x7F),
            static_cast<int>(v & 0x7F)});
}
Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
Bytes Utf16LE(const std::u16string& text) {
  Bytes out;
  for (char16_t c : text) Put(out, {c & 0xFF, c >> 8});
  return out;
}
Bytes Utf16BE(const std::u16string& text) {
  Bytes out;
  for (char16_t c : text) Put(out, {c >> 8, c & 0xFF});
  return out;
}

Bytes AudioFiller(size_t bytes) {
  Bytes out(bytes);
  for (size_t i = 0; i < bytes; ++i) out[i] = static_cast<uint8_t>(0xA0 + (i % 7));
  return out;
}

namespace {
void PutField(Bytes& out, const std::string& text, size_t width) {
  for (size_t i = 0; i < width; ++i) out.push_back(i < text.size() ? static_cast<uint8_t>(text[i]) : 0);
}
}  // namespace

Bytes Id3v1(const std::string& title, const std::string& artist, const std::string& album, const std::string& year,
            const std::string& comment, int track, uint8_t genre) {
  Bytes out;
  Put(out, "TAG");
  PutField(out, title, 30);
  PutField(out, artist, 30);
  PutField(out, album, 30);
  PutField(out, year, 4);
  if (track < 0) {
    PutField(out, comment, 30);
  } else {
    PutField(out, comment, 28);
    out.push_back(0);
    out.push_back(static_cast<uint8_t>(track));
  }
  out.push_back(genre);
  return out;
}

Bytes Id3v2Frame(uint32_t version, const std::string& id, const Bytes& body, uint8_t formatFlags) {
  Bytes out;
  Put(out, id);
  const auto size = static_cast<uint32_t>(body.size());
  if (version < 3) {
    Put(out, {static_cast<int>((size >> 16) & 0xFF), static_cast<int>((size >> 8) & 0xFF), static_cast<int>(size & 0xFF)});
  } else {
    if (version == 3) {
      PutBE32(out, size);
    } else {
      PutSyncSafe(out, size);
    }
    Put(out, {0, formatFlags});
  }
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

Bytes Id3v2Tag(uint8_t major, uint8_t revision, uint8_t flags, const Bytes& body, const std::string& magic) {
  Bytes out;
  Put(out, magic);
  Put(out, {major, revision, flags});
  PutSyncSafe(out, static_cast<uint32_t>(body.size()));
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

Bytes ApeItem(const std::string& key, const std::string& value, uint32_t flags) {
  Bytes out;
  PutLE32(out, static_cast<uint32_t>(value.size()));
  PutLE32(out, flags);
  Put(out, key);
  out.push_back(0);
  Put(out, value);
  return out;
}

Bytes ApeTag(const std::vector<Bytes>& items, const ApeOptions& options) {
  Bytes body;
  for (const Bytes& item : items) body.insert(body.end(), item.begin(), item.end());
  const uint32_t count = options.itemCount >= 0 ? static_cast<uint32_t>(options.itemCount)
                                                : static_cast<uint32_t>(items.size());
  const uint32_t size = options.tagSize >= 0 ? static_cast<uint32_t>(options.tagSize)
                                             : static_cast<uint32_t>(body.size() + 32);
  const uint32_t flags = options.footerFlags | (options.withHeader ? (1u << 31) : 0);
  auto block = [&](uint32_t blockFlags) {
    Bytes b;
    Put(b, "APETAGEX");
    PutLE32(b, options.version);
    PutLE32(b, size);
    PutLE32(b, count);
    PutLE32(b, blockFlags);
    Put(b, {0, 0, 0, 0, 0, 0, 0, 0});
    return b;
  };
  Bytes out;
  if (options.withHeader) out = block(flags | (1u << 29));
  out.insert(out.end(), body.begin(), body.end());
  const Bytes footer = block(flags);
  out.insert(out.end(), footer.begin(), footer.end());
  return out;
}

Bytes RiffChunk(const std::string& id, const Bytes& body) {
  Bytes out;
  Put(out, id);
  PutLE32(out, static_cast<uint32_t>(body.size()));
  out.insert(out.end(), body.begin(), body.end());
  if (body.size() % 2 == 1) out.push_back(0);
  return out;
}

StreamPtr MakeStream(const Bytes& data) { return StreamPtr(MemoryStream::Make(data)); }

std::u16string Field(const RecordPtr& record, int field) { return kxmp3::CommentRecordField(record.get(), field); }

Bytes TagFixture(const std::string& name) { return ReadFile(std::string(KX_TEST_DATA_DIR) + "/tags/" + name); }

CodePageGuard::CodePageGuard(uint32_t codePage) {
  ok_ = KxSetAnsiCodePage(codePage) == 0;
}
CodePageGuard::~CodePageGuard() { KxSetAnsiCodePage(0); }  // back to the environment's setting

}  // namespace kxtest
