// TIME arguments of `decode --start/--duration`: seconds ("90", "12.5") or
// minutes and seconds ("1:30", "01:02.250"), or hours too ("1:02:03.5"), with up to
// nine decimals. Kept as whole nanoseconds so that a sample position is computed
// without floating-point rounding.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kxhost {

struct TimeValue {
  uint64_t nanoseconds = 0;
};

// Parses TIME; nothing for malformed text (signs, empty fields, seconds or minutes
// of 60 and more after a colon, more than nine decimals, overflow).
std::optional<TimeValue> ParseTime(const std::string& text);

// The sample index of `time` at `sampleRate`, rounded to the nearest sample.
uint64_t TimeToSamples(TimeValue time, uint32_t sampleRate);

// A position as kxhost prints it: "m:ss.fff" ("h:mm:ss.fff" from an hour on),
// milliseconds rounded down.
std::string FormatMilliseconds(uint64_t ms);
// `samples` at `sampleRate` as above ("0:00.000" for a rate of 0).
std::string FormatSamplesAsTime(uint64_t samples, uint32_t sampleRate);

}  // namespace kxhost
