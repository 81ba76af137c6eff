// The open sequence's tags step: the tag readers run on the stream for the
// container type, their merged comment record becomes the comment source of the
// audio-file base, and the ReplayGain values land in the object's record.
#include "kxmp3.h"
#include "open_steps.h"

#if __has_include("../tags/tag_merge.h") && __has_include("../tags/tag_merge.cpp")
#include "../tags/tag_merge.h"
#define KXMP3_HAVE_TAG_READERS 1
#endif

namespace kxmp3 {

void ReadTagsStep(Class_ZStream* stream, uint32_t containerType, Class_KXMP3& object) {
  DecoderState& s = object.State();
  ResetReplayGain(s.replayGain);
#ifdef KXMP3_HAVE_TAG_READERS
  void* comment = ReadTagsForContainer(stream, containerType, &s.replayGain);
  object.SetCommentSource(comment);
#else
  (void)stream;
  (void)containerType;
  object.SetCommentSource(nullptr);
#endif
}

}  // namespace kxmp3
