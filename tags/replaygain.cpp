// ReplayGain record reset, key matching and value reading (see replaygain.h).
#include "replaygain.h"

#include <locale.h>
#include <stdlib.h>

#include <string>

#include "../host/kx_types.h"

#if defined(_WIN32)
// Windows' C runtime names the locale calls with an underscore.
using locale_t = _locale_t;
constexpr int LC_ALL_MASK = LC_ALL;
inline locale_t newlocale(int category, const char* name, locale_t) { return _create_locale(category, name); }
inline double strtod_l(const char* text, char** end, locale_t locale) { return _strtod_l(text, end, locale); }
#endif

namespace kxmp3 {

const char16_t kReplayGainTrackGainKey[] = u"replaygain_track_gain";
const char16_t kReplayGainTrackPeakKey[] = u"replaygain_track_peak";
const char16_t kReplayGainAlbumGainKey[] = u"replaygain_album_gain";
const char16_t kReplayGainAlbumPeakKey[] = u"replaygain_album_peak";

namespace {

struct Key {
  const char16_t* name;
  size_t length;  // fixed at build time: every key is 21 characters
  uint32_t flag;
  bool isGain;
};
constexpr size_t kKeyLength = 21;
static_assert(sizeof(kReplayGainTrackGainKey) / sizeof(char16_t) == kKeyLength + 1);
static_assert(sizeof(kReplayGainAlbumPeakKey) / sizeof(char16_t) == kKeyLength + 1);

const Key kKeys[] = {
    {kReplayGainTrackGainKey, kKeyLength, RG_FLAG_TRACK_GAIN, true},
    {kReplayGainTrackPeakKey, kKeyLength, RG_FLAG_TRACK_PEAK, false},
    {kReplayGainAlbumGainKey, kKeyLength, RG_FLAG_ALBUM_GAIN, true},
    {kReplayGainAlbumPeakKey, kKeyLength, RG_FLAG_ALBUM_PEAK, false},
};

// Case folding of the C locale: only A-Z.
char16_t FoldAscii(char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c; }

bool IsByteOrderMark(char16_t c) { return c == 0xFEFF || c == 0xFFFE; }

// The C locale, so that a host's locale never changes the decimal point.
locale_t CLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return locale;
}

void Store(ReplayGainRecord* record, uint32_t flag, double value) {
  if (value == 0.0) return;  // kept deliberately: a zero value counts as absent
  switch (flag) {
    case RG_FLAG_TRACK_GAIN: record->trackGain = value; break;
    case RG_FLAG_TRACK_PEAK: record->trackPeak = value; break;
    case RG_FLAG_ALBUM_GAIN: record->albumGain = value; break;
    default: record->albumPeak = value; break;
  }
  record->flags |= flag;
}

}  // namespace

void ResetReplayGainRecord(ReplayGainRecord* record) {
  if (record == nullptr) return;
  ReplayGainRecord empty{};
  empty.fourcc = FOURCC_RPGI;
  empty.size = sizeof(ReplayGainRecord);
  *record = empty;
}

double ReadWideNumber(const char16_t* text, size_t length) {
  // Characters outside ASCII can be neither white space nor part of a number, so the
  // ASCII prefix is all the conversion can ever look at.
  std::string narrow;
  for (size_t i = 0; i < length && text[i] != 0 && text[i] < 0x80; ++i) narrow.push_back(static_cast<char>(text[i]));
  const locale_t locale = CLocale();
  if (locale == static_cast<locale_t>(nullptr)) return strtod(narrow.c_str(), nullptr);
  return strtod_l(narrow.c_str(), nullptr, locale);
}

size_t GainTextEnd(const char16_t* text, size_t length) {
  for (size_t i = 0; i + 1 < length; ++i) {
    if ((text[i] == u'd' || text[i] == u'D') && (text[i + 1] == u'b' || text[i + 1] == u'B')) return i;
  }
  return length;
}

void ParseReplayGainText(const char16_t* text, size_t length, ReplayGainRecord* record) {
  if (text == nullptr || record == nullptr) return;
  const size_t n = length;
  // Characters past the buffer read as the terminator that would follow it.
  auto at = [&](size_t i) -> char16_t { return i < n ? text[i] : char16_t{0}; };

  const Key* key = nullptr;
  for (const Key& candidate : kKeys) {
    if (n < candidate.length) continue;
    size_t i = 0;
    while (i < candidate.length && FoldAscii(text[i]) == candidate.name[i]) ++i;
    if (i == candidate.length) {
      key = &candidate;
      break;
    }
  }
  if (key == nullptr) return;

  const size_t k = key->length;
  size_t v = k;
  if (at(k) == 0 && k + 1 < n) {
    // Skip the description's terminator and any question marks: a byte-order mark
    // converted through a code page comes out as "?".
    for (size_t i = k + 1; i < n; ++i) {
      if (text[i] != 0 && text[i] != u'?') {
        v = i;
        break;
      }
    }
  }
  if (IsByteOrderMark(at(v)) && (!key->isGain || v + 1 < n)) ++v;

  double value = 0.0;
  if (key->isGain) {
    if (at(v) != 0) {
      const size_t end = v + GainTextEnd(text + v, n - v);
      value = ReadWideNumber(text + v, end - v);
    }
  } else if (v < n) {
    value = ReadWideNumber(text + v, n - v);
  }
  Store(record, key->flag, value);
}

}  // namespace kxmp3
