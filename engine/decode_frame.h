// The frame driver: one frame of the stream to one frame of PCM (DecodeFrame), or
// to one frame of silence while only feeding the bit reservoir (SkipFrame, for a
// first frame that carries only a VBR header).
#pragma once

#include <cstdint>

#include "../host/zstream.h"
#include "engine_state.h"

namespace kxmp3 {

// Both read the next frame from `stream` and write one frame of PCM
// (engine.frameBytes bytes, interleaved) to `output`; *made (when given) says how
// many bytes they wrote there: the whole frame, or 0 when they made nothing.
// Status: 0; AF_S_FRAME_ERROR (0x30FF, the frame was concealed); AF_E_UNDERFLOW
// (0x3112, DecodeFrame only: the frame's main data is not in the reservoir, so it
// is a frame of silence); AF_S_END_OF_DATA (0x3007, the stream ended: nothing
// made); AF_E_BAD_VERSION (a frame of another MPEG version than the layout fixed at
// open: nothing made); AF_E_FAIL (the frame index could not grow); the codes the
// header and side-information readers hand up (nothing made); -1 when Huffman
// decoding failed.
//
// During a seek's pre-roll (engine.preRollTarget set to the frame it ends before),
// DecodeFrame leaves out the granule work (Huffman decoding to output) of a frame
// when nothing that work produces can reach the target frame: the frame is at
// least three before the target (the last two rebuild the overlap and synthesis
// state the target frame starts from) and neither it nor the two frames after it
// use de-emphasis (whose filter memory carries on). The bit reservoir, the synthesis
// ring positions, the mute counter, the frame index and the status are kept exactly
// as a full decode keeps them; only the output, which the seek drops, differs.
// Tests switch this off to compare.
int32_t DecodeFrame(EngineState& engine, Class_ZStream* stream, uint8_t* output, uint32_t* made);
void EnableLightPreRollForTesting(bool enabled);
int32_t SkipFrame(EngineState& engine, Class_ZStream* stream, uint8_t* output, uint32_t* made);

// Is the next frame the first one and does it carry only a VBR header? Then it is
// read with SkipFrame.
bool NextFrameIsHeaderOnly(const EngineState& engine);

// The next frame through SkipFrame or DecodeFrame, as NextFrameIsHeaderOnly says.
int32_t DecodeNextFrame(EngineState& engine, Class_ZStream* stream, uint8_t* output, uint32_t* made);

}  // namespace kxmp3
