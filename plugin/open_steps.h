// Pieces of the open sequence that tests check on their own: the work block's
// alignment and the tags step.
#pragma once

#include <cstdint>

#include "../host/zstream.h"

class Class_KXMP3;

namespace kxmp3 {

// The work block's start inside its raw allocation: the next 16-byte boundary
// strictly above `raw` (moved by 1 to 16 bytes).
uint8_t* AlignWorkBlock(uint8_t* raw);

// Reads the tags of the container into the object: the merged comment record
// becomes the audio-file base's comment source, ReplayGain values go to the
// object's record (set empty for a bare stream, left as it is for RIFF).
void ReadTagsStep(Class_ZStream* stream, uint32_t containerType, Class_KXMP3& object);

}  // namespace kxmp3
