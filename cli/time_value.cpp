// TIME arguments (see time_value.h).
#include "time_value.h"

#include <cstdio>
#include <vector>

namespace kxhost {

namespace {

constexpr uint64_t kNanosPerSecond = 1000000000ull;

// Digits only, at least one; nothing on overflow.
std::optional<uint64_t> ParseDigits(const std::string& text) {
  if (text.empty() || text.size() > 18) return std::nullopt;
  uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return value;
}

}  // namespace

std::optional<TimeValue> ParseTime(const std::string& text) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (;;) {
    const size_t colon = text.find(':', start);
    fields.push_back(text.substr(start, colon == std::string::npos ? std::string::npos : colon - start));
    if (colon == std::string::npos) break;
    start = colon + 1;
  }
  if (fields.size() > 3) return std::nullopt;

  // The last field holds the seconds and the fraction.
  std::string seconds = fields.back();
  std::string fraction;
  if (const size_t dot = seconds.find('.'); dot != std::string::npos) {
    fraction = seconds.substr(dot + 1);
    seconds.resize(dot);
    if (fraction.empty() || fraction.size() > 9) return std::nullopt;
  }
  const auto secondsValue = ParseDigits(seconds);
  if (!secondsValue) return std::nullopt;
  uint64_t nanos = 0;
  if (!fraction.empty()) {
    const auto digits = ParseDigits(fraction);
    if (!digits) return std::nullopt;
    nanos = *digits;
    for (size_t i = fraction.size(); i < 9; ++i) nanos *= 10;
  }
  uint64_t totalSeconds = *secondsValue;
  if (fields.size() >= 2) {
    if (*secondsValue >= 60) return std::nullopt;
    const auto minutes = ParseDigits(fields[fields.size() - 2]);
    if (!minutes || (fields.size() == 3 && *minutes >= 60)) return std::nullopt;
    uint64_t hours = 0;
    if (fields.size() == 3) {
      const auto h = ParseDigits(fields[0]);
      if (!h) return std::nullopt;
      hours = *h;
    }
    const unsigned __int128 all = (static_cast<unsigned __int128>(hours) * 60 + *minutes) * 60 + *secondsValue;
    if (all > UINT64_MAX / kNanosPerSecond) return std::nullopt;
    totalSeconds = static_cast<uint64_t>(all);
  }
  if (totalSeconds > (UINT64_MAX - nanos) / kNanosPerSecond) return std::nullopt;
  return TimeValue{totalSeconds * kNanosPerSecond + nanos};
}

uint64_t TimeToSamples(TimeValue time, uint32_t sampleRate) {
  const unsigned __int128 product = static_cast<unsigned __int128>(time.nanoseconds) * sampleRate;
  return static_cast<uint64_t>((product + kNanosPerSecond / 2) / kNanosPerSecond);
}

std::string FormatMilliseconds(uint64_t ms) {
  char text[48];
  const unsigned long long h = ms / 3600000, m = ms / 60000 % 60, sec = ms / 1000 % 60, frac = ms % 1000;
  if (h != 0) {
    std::snprintf(text, sizeof(text), "%llu:%02llu:%02llu.%03llu", h, m, sec, frac);
  } else {
    std::snprintf(text, sizeof(text), "%llu:%02llu.%03llu", static_cast<unsigned long long>(ms / 60000), sec, frac);
  }
  return text;
}

std::string FormatSamplesAsTime(uint64_t samples, uint32_t sampleRate) {
  if (sampleRate == 0) return FormatMilliseconds(0);
  // samples * 1000 cannot overflow for any real file (2^54 samples).
  return FormatMilliseconds(samples * 1000 / sampleRate);
}

}  // namespace kxhost
