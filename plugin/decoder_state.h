// DecoderState: the data record of one decoder object. It starts zero-filled (the
// object's allocation is zeroed), is filled by the open sequence, and cleared as a
// whole by ResetData. It holds the stream, the PCM delivery's frame buffer and
// cursor, the stream's description and tags, the dialog, and the engine's own
// state (engine/engine_state.h), which the frame driver, the frame scan and seeking
// move on.
#pragma once

#include <cstddef>
#include <cstdint>

#include "../engine/engine_state.h"
#include "../host/kx_mp3_info.h"
#include "../host/kx_replaygain_record.h"
#include "../host/kx_types.h"
#include "../host/zstream.h"

namespace kxmp3 {

struct DecoderState {
  // --- Open stream and delivery ---
  Class_ZStream* stream;        // the open stream; null when closed
  uint8_t* pcmBuffer;           // frame buffer: one frame of output (core memory, kind 1)
  uint32_t pcmReadPos;          // bytes of pcmBuffer already handed out
  uint32_t pcmFill;             // bytes valid in pcmBuffer
  uint32_t pcmBufferSize;       // bytes of one frame's PCM
  uint32_t frameOutputBytes;    // bytes the last frame yielded (after trimming); 0 at the end
  uint32_t endOfData;           // set when the stream is exhausted or the output limit reached
  uint32_t openFlags;           // OPEN_FLAG_* of host/kxaudiofile.h as applied to this object

  // --- Stream description (filled by layout detection and header parsing) ---
  uint32_t mpegVersion;         // 1, 2, or 3 for MPEG-2.5
  MP3Info info;                 // packed; placed so that its 64-bit fields lie on 8-byte boundaries
  uint32_t frameCount;          // frames of the stream (header, count or estimate)
  uint32_t startSkip;           // samples the open sequence and Rewind skip at the start
  uint32_t countSource;         // how the frame count was found (MP3_HEADER_FLAG_*)
  uint32_t containerType;       // 1..5
  uint64_t audioStart;          // byte bounds of the audio data in the stream
  uint64_t audioLength;
  uint64_t pcmTotalBytes;       // output limit: total PCM bytes plus the skipped start bytes
  uint32_t outputLimitInForce;  // non-zero: normally decoded frames are trimmed at the limit
  char16_t encoderName[64];     // encoder named by the LAME/GOGO tag (empty when none)

  // --- Tags and dialog ---
  ReplayGainRecord replayGain;  // RPGI record handed out by GetInfo
  HWND dialog;                  // the open file-information dialog, or null

  // --- The engine: reservoir, frame index, filterbank state, output layout ---
  EngineState engine;
};

// The information record's 64-bit fields sit 4 bytes past an 8-byte boundary of the
// record (2060, 2068, 2092): with the record 4 bytes past a boundary, they are
// aligned, and code may read them like any other field.
static_assert(offsetof(DecoderState, info) % 8 == 4);

}  // namespace kxmp3
