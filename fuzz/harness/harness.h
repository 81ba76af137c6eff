// The bodies of the fuzz targets, shared by the libFuzzer executables (fuzz/) and by
// the reliability test suite, which replays the regression inputs through exactly
// the same code.
//
// Each Run* function takes one arbitrary input and drives one part of the module
// with it. Besides what the sanitizers see (bad reads and writes, leaks, undefined
// behaviour), every function checks the promises the module makes on bad input and
// stops the process with a message when one is broken: every result is one of the
// named codes, the caller's stream reference is given back exactly once, the stream
// is left where the reader found it, records handed out are well formed, core
// memory is all returned, and no loop runs without progress.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kxfuzz {

// What the module's load hook does once per process (decoder tables).
void Initialise();

// The module as a host drives it: plug-in records, probe, create, open on a stream,
// queries, the file-information dialog, decoding to the end in changing request
// sizes, seeks, rewind and release. Each input is opened under the names
// "fuzz.mp3", "fuzz.wav" and "fuzz.bin" in turn.
void RunModule(const uint8_t* data, size_t size);

// One host session on one name, as deep as asked: kOpen opens, queries and makes a
// few requests; kDecode decodes to the end, seeks once, rewinds; kFull adds ten
// seeks of every origin and the dialog when the variant asks for it. `variant`
// picks the open flags and output format as in RunModule (0: a plain 16-bit open).
// Returns what the session saw.
enum class SessionDepth { kOpen, kDecode, kFull };
struct SessionSummary {
  uint32_t opened = 0xFFFFFFFFu;  // the result of Create
  uint64_t bytesDelivered = 0;    // PCM bytes of every request together
  uint32_t failedRequests = 0;    // requests answered with a failure code
};
SessionSummary RunHostSession(const uint8_t* data, size_t size, const char16_t* name, uint32_t variant,
                              SessionDepth depth);

// The tag readers, each alone, on a stream holding the input.
void RunId3v1(const uint8_t* data, size_t size);
void RunId3v2(const uint8_t* data, size_t size);
void RunApeTag(const uint8_t* data, size_t size);
void RunRiffInfo(const uint8_t* data, size_t size);

// The frame-header reader with its sync search and the side-information reader,
// frame after frame over the input, the first four bytes taken as the reference
// header.
void RunFrameHeader(const uint8_t* data, size_t size);
// The first-frame parser (VBR header, encoder tag, frame walk) with the input's
// first four bytes as the frame header, and the frame search.
void RunVbrHeader(const uint8_t* data, size_t size);

using RunFunction = void (*)(const uint8_t* data, size_t size);

struct Target {
  const char* name;  // also the name of the fuzz executable without "fuzz_" and of
                     // its folder under tests/data/regression
  RunFunction run;
};

// Every target, in a fixed order, and the number of them.
extern const Target kTargets[];
extern const size_t kTargetCount;

// The target of that name, or null.
const Target* FindTarget(const char* name);

// Called with a message when a promise is broken; the default prints the message
// and aborts (the fuzzer then keeps the input). Tests may install their own.
using ViolationHandler = void (*)(const char* message);
void SetViolationHandler(ViolationHandler handler);

}  // namespace kxfuzz
