// The open sequence's tags step: the tag readers run on the stream for the
// container type, their merged comment record becomes the comment source of the
// audio-file base, and the ReplayGain values land in the object's record.
#include "../tags/tag_merge.h"
#include "kxmp3.h"
#include "open_steps.h"

namespace kxmp3 {

void ReadTagsStep(Class_ZStream* stream, uint32_t containerType, Class_KXMP3& object) {
  DecoderState& s = object.State();
  // The readers set the ReplayGain record for the containers whose tags can carry
  // it (and empty it for a bare stream); a RIFF container leaves it as it is.
  object.SetCommentSource(ReadTagsForContainer(stream, containerType, &s.replayGain));
}

}  // namespace kxmp3
