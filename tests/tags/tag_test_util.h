// Helpers of the tag tests: byte builders for ID3v1, ID3v2, APE and RIFF data, an
// owning handle for in-memory streams and comment records, and a guard that switches
// the ANSI code page for one test.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "host/kxcore.h"
#include "support/memory_stream.h"
#include "tags/comment_record.h"

namespace kxtest {

using Bytes = std::vector<uint8_t>;

// Appending raw pieces.
void Put(Bytes& out, const std::string& text);          // the characters, no terminator
void Put(Bytes& out, std::initializer_list<int> bytes); // literal byte values
void PutBE32(Bytes& out, uint32_t value);
void PutLE32(Bytes& out, uint32_t value);
void PutSyncSafe(Bytes& out, uint32_t value);           // 4 x 7 bits
Bytes Cat(std::initializer_list<Bytes> parts);
Bytes Utf16LE(const std::u16string& text);              // units, no terminator, no mark
Bytes Utf16BE(const std::u16string& text);

// A few bytes standing for audio data between or before tags.
Bytes AudioFiller(size_t bytes = 64);

// ID3v1: fields are cut or zero-padded to their widths. track < 0 writes a 30-byte
// comment (ID3v1.0); otherwise byte 125 is 0 and byte 126 the track.
Bytes Id3v1(const std::string& title, const std::string& artist, const std::string& album,
            const std::string& year, const std::string& comment, int track, uint8_t genre);

// ID3v2 pieces. Frame sizes follow the version: 2.2 3 bytes, 2.3 32-bit, 2.4 sync-safe.
Bytes Id3v2Frame(uint32_t version, const std::string& id, const Bytes& body, uint8_t formatFlags = 0);
// Header ("ID3" or another magic), version bytes, flags and the sync-safe size of body.
Bytes Id3v2Tag(uint8_t major, uint8_t revision, uint8_t flags, const Bytes& body, const std::string& magic = "ID3");

// APE pieces: an item, and a tag of items + footer (optionally with a header).
Bytes ApeItem(const std::string& key, const std::string& value, uint32_t flags = 0);
struct ApeOptions {
  uint32_t version = 2000;
  int64_t itemCount = -1;    // -1: the number of items given
  int64_t tagSize = -1;      // -1: items + footer
  uint32_t footerFlags = 0;  // bit 29 would say "this is a header"
  bool withHeader = false;   // write a 32-byte header in front (sets bit 31)
};
Bytes ApeTag(const std::vector<Bytes>& items, const ApeOptions& options = ApeOptions());

// RIFF chunk: ID, little-endian size, body, pad byte when odd.
Bytes RiffChunk(const std::string& id, const Bytes& body);

// An in-memory stream holding one reference, released at the end of the scope.
struct StreamDeleter {
  void operator()(MemoryStream* s) const { if (s) s->Release(); }
};
using StreamPtr = std::unique_ptr<MemoryStream, StreamDeleter>;
StreamPtr MakeStream(const Bytes& data);

// A comment record in core memory, freed at the end of the scope.
struct CoreDeleter {
  void operator()(void* p) const { ZCoreFree(p); }
};
using RecordPtr = std::unique_ptr<void, CoreDeleter>;

// The field of a record (kComment* index) as UTF-16, "" for a null record.
std::u16string Field(const RecordPtr& record, int field);

// Reads tests/data/tags/<name>; empty when missing.
Bytes TagFixture(const std::string& name);

// Switches the ANSI code page for the lifetime of the guard.
class CodePageGuard {
 public:
  explicit CodePageGuard(uint32_t codePage);
  ~CodePageGuard();
  CodePageGuard(const CodePageGuard&) = delete;
  CodePageGuard& operator=(const CodePageGuard&) = delete;
  bool ok() const { return ok_; }

 private:
  bool ok_;
};

}  // namespace kxtest
