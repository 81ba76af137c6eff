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
int32_t DecodeFrame(DecoderState& state, int intoCaller, void* output, int32_t* count);
int32_t SkipFrame(DecoderState& state, int intoCaller, void* output, int32_t* count);

}  // namespace kxmp3
