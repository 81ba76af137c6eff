// Container detection: decides how the MPEG audio is packaged in a byte stream
// (RIFF "WAVE", RIFF "RMP3", behind an ID3v2 tag, bare with or without an APE tag
// at its end), where the audio data begins and how many bytes it spans, and runs
// the header parser (vbr_header.h) on the first frame. Used by the format probe and
// by the open sequence; it reads only through the stream's operations and always
// leaves the stream where it found it.
#pragma once

#include <cstdint>

#include "../host/kx_result_codes.h"
#include "../host/zstream.h"
#include "../host/kx_mp3_info.h"

namespace kxmp3 {

// Positions the frame search tries before it gives up.
constexpr uint32_t kFrameSearchPositions = 8192;

// What detection and the header parser learn about a stream. Zeroed by
// DetectContainer on entry and on every failure.
struct StreamLayout {
  uint32_t containerType;     // kContainer*
  uint64_t audioStart;        // byte offset of the first frame in the stream
  uint64_t audioLength;       // bytes of audio data (trailing tags excluded)
  uint32_t firstHeader;       // first frame header, big-endian number
  uint32_t frameCount;        // frames: from the VBR header, counted, or estimated
  uint32_t startSkip;         // samples the open sequence skips at the start: encoder delay,
                              // decoder delay and header frame (see vbr_header.cpp)
  uint32_t encoderDelay;      // encoder delay d of the LAME/GOGO tag (samples)
  uint32_t samplesRemoved;    // d + padding p of the encoder tag (samples)
  uint32_t vbrHeaderFrame;    // 1: the first frame carries only a VBR header (decode it as silence)
  uint32_t countSource;       // MP3_HEADER_FLAG_* of host/kx_mp3_info.h: where the frame count came from
  char16_t encoderName[64];   // encoder named by the tag ("" when none)
  uint32_t encoderPadding;    // padding p of the encoder tag (samples)
  uint32_t vbrKind;           // VBR header kind: 1 Xing or VBRI, 0 Info or none
  uint32_t bitrateChangeFrame;  // a walked stream whose bitrate changes: the number of the first
                                // frame with another bitrate (1-based); 0 otherwise
  uint32_t outputLimitInForce;  // 1 when the frame count is exact (VBR header or full count)
  uint32_t xingFlags;         // flags word of a Xing/Info header (0 when none)
  uint32_t xingBytes;         // byte count of a Xing/Info header (0 when absent)
  uint32_t xingQuality;       // quality of a Xing/Info header (0 when absent)
  uint32_t hasToc;            // 1 when xingToc holds the header's table of contents
  uint8_t xingToc[100];       // table of contents of a Xing/Info header
  uint32_t samplesPerFrame;   // 1152 for MPEG-1, 576 for MPEG-2 and 2.5
};

// Runs detection on `stream` from its current position. `openFlags` are the open
// sequence's flags (bit 31 asks for a full frame count). `info` (may be null) gets
// the filled information record, `header` (may be null) the first frame header.
// Returns 0 or a failure code; on failure the layout holds container type 0, start
// and length 0. The stream's position is restored in every case.
KxResult DetectContainer(Class_ZStream* stream, uint32_t openFlags, StreamLayout* layout, MP3Info* info,
                         uint32_t* header);

// Frame search from the stream's current position: the first of kFrameSearchPositions
// byte positions holding a Layer III header that is followed, one frame length
// further on, by another. Returns 0 and the absolute position in *found, or
// AF_E_NO_SYNC. The stream is left where it was.
KxResult FindFirstFrame(Class_ZStream* stream, int64_t* found);

}  // namespace kxmp3
