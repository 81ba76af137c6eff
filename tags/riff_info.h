// The "LIST" chunk of type "INFO" of a RIFF file (container types 1 and 3): its text
// chunks become a comment record, merged before the ID3v1 tag (tag_merge.h).
#pragma once

#include "../host/zstream.h"

namespace kxmp3 {

// Reads the first "LIST" chunk of the RIFF file; it must be of type "INFO" (a later
// one is never searched for). `id3v1Track` (may be null) stands in for a missing
// "ITRK" chunk. Returns a new comment record or null. The stream position is
// restored.
void* ReadRiffInfoList(Class_ZStream* stream, const char16_t* id3v1Track);

}  // namespace kxmp3
