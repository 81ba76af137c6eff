// Helpers of the reliability suite: the fixture files, decoders opened on in-memory
// streams whose extra reference the test keeps (to prove the decoder gives back the
// one it was handed), reading a decoder to its end with a bound on the calls, and
// byte edits of the first frame of a fixture.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/kx_result_codes.h"
#include "plugin/kxmp3.h"
#include "support/memory_stream.h"

namespace kxrel {

using Bytes = std::vector<uint8_t>;

// The audio fixtures of tests/data/mp3 and the tag fixtures of tests/data/tags
// (".mp3", ".wav", ".rmp" files), as paths, sorted.
std::vector<std::string> AudioFixtures();
std::vector<std::string> TagFixtures();
// The file name of a path, and as UTF-16.
std::string BaseName(const std::string& path);
std::u16string WideName(const std::string& path);

// A decoder and the stream it was opened on; the test holds its own reference to
// the stream, so the stream outlives the decoder and can be inspected.
struct Opened {
  Class_KXMP3* decoder = nullptr;
  kxtest::MemoryStream* stream = nullptr;
  KxResult result = AF_E_FAIL;
};

// Makes a decoder and a stream over `data` named `name`; the stream is handed to
// Create with a reference of its own (the decoder owns that one). `prepare` (may be
// empty) runs on the stream before Create, to set up faults.
Opened Open(const Bytes& data, const std::u16string& name, uint32_t flags = 0, uint32_t bits = 16,
            const std::function<void(kxtest::MemoryStream*)>& prepare = {});
// Releases the decoder, checks that the stream is back to the test's single
// reference, and releases the stream. Returns false (with a test failure) when the
// stream's count is wrong.
bool Close(Opened& opened);

// What a host loop saw: bytes delivered, calls made and the last result.
struct Drained {
  Bytes pcm;
  uint32_t calls = 0;
  KxResult last = AF_S_OK;
  bool named = true;  // every result was a named code
};
// Pulls with requests of `request` bytes until 0x3007, a failure (then `retries`
// more calls, as a host that tries again), or `maxCalls` calls.
Drained Drain(Class_KXAudioFile* audio, int32_t request = 4608, uint32_t maxCalls = 1u << 20, uint32_t retries = 0);

// True for a code of host/kx_result_codes.h.
bool Named(KxResult code);

// The most core memory, and the most C++ heap, that handling a file of `fileBytes`
// bytes may take: the decoder's fixed blocks and records (128 KiB) and 16 bytes per
// byte of file (the frame index takes 20 bytes per 24-byte frame; a tag buffer, its
// texts widened to UTF-16 and the records merged from them take the rest).
int64_t MemoryBound(size_t fileBytes);

// Offset of the first frame of a bare or ID3v2-prefixed fixture (the first byte
// pair that starts a Layer III header), or -1.
int64_t FirstFrameOffset(const Bytes& data);
// Offset of the "Xing"/"Info" magic in the first frame, or -1.
int64_t XingOffset(const Bytes& data);
void PutBigEndian32(Bytes& data, size_t at, uint32_t value);
void PutLittleEndian32(Bytes& data, size_t at, uint32_t value);

}  // namespace kxrel
