// The ID3v2 tag (versions 2.2, 2.3 and 2.4) at the very beginning of a plain MPEG
// stream: seven text frames become a comment record, "TXXX" ReplayGain frames fill a
// ReplayGain record. Read for container type 4 before the APE tag; its fields win
// over the APE and ID3v1 ones (tag_merge.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "../host/zstream.h"
#include "../host/kx_replaygain_record.h"

namespace kxmp3 {

// Reads the tag at stream offset 0. Returns a new comment record (seven empty fields
// when the tag holds none of the seven frames) or null when there is no readable tag.
// `replayGain` is cleared first and then takes the values of the "TXXX" frames.
// After a successful read the stream position is back where it was; after a failure
// the caller repositions the stream.
void* ReadId3v2Tag(Class_ZStream* stream, ReplayGainRecord* replayGain);

// Undoes unsynchronisation in place: a zero byte right after a kept 0xFF is dropped
// (FF 00 00 keeps the second zero). The bytes freed at the end are zeroed. Returns
// the new length.
size_t RemoveUnsynchronisation(uint8_t* data, size_t length);

// The genre named by a "TCON" text: "(17)" gives "Rock", "(17)Rock & Roll" gives
// "Rock & Roll", a number above the table gives "Unknown", any other text stays as
// it is (a bare "17" included).
std::u16string ResolveGenreText(const std::u16string& text);

}  // namespace kxmp3
