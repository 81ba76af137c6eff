// ReplayGain values from tag text. The ID3v2 reader hands every "TXXX" frame here as
// one wide buffer (description, a zero, the value); the APE reader uses the number
// reading below on its four items. Results land in a ReplayGainRecord (RPGI, 44
// bytes, host/kx_replaygain_record.h) that the decoder object answers GetInfo(RPGI) with.
#pragma once

#include <cstddef>
#include <cstdint>

#include "../host/kx_replaygain_record.h"

namespace kxmp3 {

// The four keys, matched without regard to case and as prefixes of a description.
extern const char16_t kReplayGainTrackGainKey[];  // "replaygain_track_gain"
extern const char16_t kReplayGainTrackPeakKey[];  // "replaygain_track_peak"
extern const char16_t kReplayGainAlbumGainKey[];  // "replaygain_album_gain"
extern const char16_t kReplayGainAlbumPeakKey[];  // "replaygain_album_peak"

// FourCC RPGI, size 44, flags 0, four zero values.
void ResetReplayGainRecord(ReplayGainRecord* record);

// `text` holds `length` characters (zeros allowed inside): a description that starts
// with one of the four keys, a zero, then the value, possibly behind a byte-order
// mark. Stores the value and sets its flag; a value that reads as exactly 0.0 (also
// any text that is no number) is ignored, so "0.00 dB" never marks a gain present.
void ParseReplayGainText(const char16_t* text, size_t length, ReplayGainRecord* record);

// Reads a number the way the C library's wide-string-to-double conversion does:
// leading white space, an optional sign, "." as the decimal point, anything after the
// number ignored; no number gives 0. Reads at most `length` characters.
double ReadWideNumber(const char16_t* text, size_t length);

// Where a gain text ends: the index of the first "d"/"D" directly followed by
// "b"/"B" ("-6.48 dB" ends before the "dB"), or `length` when there is none.
size_t GainTextEnd(const char16_t* text, size_t length);

}  // namespace kxmp3
