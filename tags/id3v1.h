// The ID3v1 / ID3v1.1 tag: the last 128 bytes of a stream, read for every container
// type before the other tags and merged last, so it only fills fields the other tags
// left empty (tag_merge.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "../host/zstream.h"
#include "../host/kx_replaygain_record.h"

namespace kxmp3 {

constexpr uint32_t kId3v1TagBytes = 128;

// Reads the tag at the end of `stream` into a new comment record, or null when the
// stream is shorter than 128 bytes, a seek or read fails, or there is no "TAG".
// `replayGain` is only cleared (ID3v1 carries no ReplayGain). The stream position is
// restored in every case.
void* ReadId3v1Tag(Class_ZStream* stream, ReplayGainRecord* replayGain);

// Cuts trailing white space from the zero-terminated bytes in `text[0..capacity)`,
// stepping over double-byte characters of the ANSI code page so that a trail byte
// that looks like a blank (0x20) is never cut. Never reads past `capacity` or past
// the terminator, even behind a lone lead byte.
void TrimTrailingBlanksDbcs(char* text, size_t capacity);

}  // namespace kxmp3
