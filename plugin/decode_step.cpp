// One decode step of the delivery, the open sequence and Rewind: the engine's
// SkipFrame for a first frame that carries only a VBR header (it primes the
// reservoir and yields a frame of silence), DecodeFrame for every other frame.
#include "../engine/decode_frame.h"
#include "kxmp3.h"

namespace kxmp3 {

KxResult DecodeStep(DecoderState& state, int intoCaller, void* output, int32_t* count) {
  const bool skipFirst = state.frameCounter == 0 && state.info.vbrHeaderFrame != 0;
  const int32_t status = skipFirst ? SkipFrame(state, intoCaller, output, count)
                                   : DecodeFrame(state, intoCaller, output, count);
  return static_cast<KxResult>(status);
}

}  // namespace kxmp3
