// The frame driver: one frame of the stream to one frame of PCM (DecodeFrame), or
// to one frame of silence while only feeding the bit reservoir (SkipFrame).
#pragma once

#include <cstdint>

#include "../plugin/decoder_state.h"

namespace kxmp3 {

// Both take `intoCaller` 1 when `output` offers *count bytes of room, 0 when the
// frame goes to the decoder's frame buffer (state.pcmBuffer; output and count may
// then be null). On return *count (when given) holds the bytes written into the
// caller's buffer. Status: 0; AF_S_FRAME_ERROR (0x30FF, frame concealed);
// AF_E_UNDERFLOW (0x3112, DecodeFrame only: main data not in the reservoir, one frame
// of silence); AF_E_ROOM_TOO_SMALL (0x3125, the frame went to the frame buffer);
// AF_S_END_OF_DATA (0x3007); handed-up codes of the header and side-information
// readers (nothing output); -1 when Huffman decoding failed.
//
// During a seek's pre-roll (state.preRollTarget set to the frame it ends before),
// DecodeFrame leaves out the granule work (Huffman decoding to output) of a frame
// into the frame buffer when nothing that work produces can reach the target frame:
// the frame is at least three before the target (the last two rebuild the overlap
// and synthesis state the target frame starts from) and neither it nor the two
// frames after it use de-emphasis (whose filter memory carries on). The bit
// reservoir, the synthesis ring positions, the mute counter, the frame index and the
// status are kept exactly as a full decode keeps them; only the frame buffer's
// contents, which the seek drops, differ. Tests switch this off to compare.
int32_t DecodeFrame(DecoderState& state, int intoCaller, void* output, int32_t* count);
void EnableLightPreRollForTesting(bool enabled);
int32_t SkipFrame(DecoderState& state, int intoCaller, void* output, int32_t* count);

}  // namespace kxmp3
