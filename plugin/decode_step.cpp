// One decode step of the delivery, the open sequence and Rewind: the engine's
// SkipFrame for a first frame that carries only a VBR header (it primes the
// reservoir and yields a frame of silence), DecodeFrame for every other frame.
#include "kxmp3.h"

#if __has_include("../engine/decode_frame.h") && __has_include("../engine/decode_frame.cpp")
#include "../engine/decode_frame.h"
#define KXMP3_HAVE_ENGINE 1
#endif

namespace kxmp3 {

KxResult DecodeStep(DecoderState& state, int intoCaller, void* output, int32_t* count) {
#ifdef KXMP3_HAVE_ENGINE
  const bool skipFirst = state.frameCounter == 0 && state.info.vbrHeaderFrame != 0;
  const int32_t status = skipFirst ? SkipFrame(state, intoCaller, output, count)
                                   : DecodeFrame(state, intoCaller, output, count);
  return static_cast<KxResult>(status);
#else
  (void)intoCaller;
  (void)output;
  if (count != nullptr) *count = 0;
  state.endOfData = 1;
  state.pcmFill = 0;
  return AF_S_END_OF_DATA;
#endif
}

}  // namespace kxmp3
