// Frame header reading, sync search and frame lengths.
#pragma once

#include <cstdint>

#include "../host/kx_result_codes.h"
#include "../host/zstream.h"
#include "engine_types.h"

namespace kxmp3 {

// Only these header bits are compared with the reference header: sync, version,
// layer and sampling frequency.
constexpr uint32_t kHeaderCompareMask = 0xFFFE0C00u;

// Frame length in bytes without the padding byte, by rate code and bitrate index.
extern const uint32_t kFrameLengthTable[9][15];
// Negated size of the header and side information, by version * 3 + channels.
extern const int32_t kSideInfoAdjust[9];
// Sampling frequencies by rate code.
extern const uint32_t kSampleRates[9];
// Layer III bitrates in kbit/s: [0] MPEG-1, [1] MPEG-2 and 2.5; index 0..14.
extern const uint32_t kBitrates[2][15];

// The five tests a Layer III frame start must pass (sync, version not reserved,
// Layer III, bitrate index 1..14, sampling-frequency bits not 3).
bool IsLayer3Header(uint32_t word);

// Single-byte steps of the sync search before it gives up.
constexpr uint32_t kResyncSteps = 8192;

// Frame length in bytes: table entry plus the padding byte.
uint32_t FrameLength(const FrameHeader& header);
// Main-data bytes of a frame: its length less header, side information and check word.
int32_t MainDataLength(const FrameHeader& header);

// Reads the four header bytes at the stream's position and checks them against the
// reference header (under kHeaderCompareMask). Returns AF_S_OK when they start a
// frame; AF_S_RESYNC when a new frame start was found further on and confirmed by
// the next one; AF_E_BAD_FORMAT after kResyncSteps fruitless steps; AF_S_END_OF_DATA
// when a read, tell or seek failed. On AF_S_OK and AF_S_RESYNC the stream stands
// right behind the accepted four bytes and the reference becomes that word.
KxResult ReadFrameHeader(FrameHeader& header, Class_ZStream* stream, uint32_t& referenceHeader);

}  // namespace kxmp3
