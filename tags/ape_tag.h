// The APE tag (versions 1 and 2, footer "APETAGEX") at the end of a stream, with any
// ID3v1 tag behind it: its items become a comment record and its ReplayGain items a
// ReplayGain record. Read for container types 4 (after the ID3v2 tag) and 5.
#pragma once

#include <cstdint>

#include "../host/zstream.h"
#include "../host/kx_replaygain_record.h"
#include "ape_fields.h"
#include "mac_io.h"

namespace kxmp3 {

// Footer limits: a larger item count or item area is not a tag.
constexpr uint32_t kApeMaxVersion = 2000;
constexpr uint32_t kApeMaxItems = 65536;
constexpr uint32_t kApeMaxItemBytes = 16u * 1024 * 1024;
constexpr uint32_t kApeFooterBytes = 32;
constexpr uint32_t kApeFlagHasHeader = 1u << 31;
constexpr uint32_t kApeFlagIsHeader = 1u << 29;

// Loads the tags at the end of `io` into `fields`: first the ID3v1 values (as
// fields), then the APE items over them. The I/O position is restored.
void AnalyzeApeTag(CIO* io, ApeTagFields* fields);

// Returns a new comment record when the stream has an APE tag with at least one field
// (an ID3v1 tag alone gives null), else null. `replayGain` is cleared and then takes
// the tag's four ReplayGain items. The stream position is restored.
void* ReadApeTag(Class_ZStream* stream, ReplayGainRecord* replayGain);

}  // namespace kxmp3
