// Header parser: fills the information record from the first frame header and
// from the optional VBR header inside the first frame ("Xing", "Info", "VBRI"),
// identifies the encoder from a "LAME" or "GOGO" tag, and derives the frame count,
// encoder delay and end padding that the open sequence and seeking use.
#pragma once

#include <cstdint>

#include "../host/kx_result_codes.h"
#include "../host/zstream.h"
#include "../host/kx_mp3_info.h"
#include "container.h"

namespace kxmp3 {

// Decoder delay of a Layer III decoder (samples): added to the encoder's delay to
// find the first real output sample.
constexpr uint32_t kDecoderDelay = 529;
// Frames walked before the frame count of a stream without a count is estimated.
constexpr uint32_t kEstimateAfterFrames = 512;

// Parses the frame whose header is `header`, the stream standing at that frame's
// first byte; layout->audioStart / audioLength must be set. Fills `info` (the
// stream-description fields; the caller fills name, container type and data
// length) and the header fields of `layout`. The stream is left where it was.
// Returns 0, or AF_E_NO_SYNC / AF_E_BAD_VERSION / AF_E_BAD_LAYER / AF_E_BAD_BITRATE
// / AF_E_BAD_SAMPLERATE for a bad header (record zeroed), AF_E_BAD_FORMAT when the
// total PCM length is not positive.
KxResult ParseFirstFrame(Class_ZStream* stream, uint32_t header, MP3Info* info, uint32_t openFlags,
                         StreamLayout* layout);

// CRC-16 of the encoder tag: reflected polynomial 0xA001, initial value 0.
uint16_t EncoderTagCrc16(const uint8_t* data, uint32_t bytes);

}  // namespace kxmp3
