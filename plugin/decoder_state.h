// DecoderState: the data record of one decoder object. It starts zero-filled (the
// object's allocation is zeroed), is filled by the open sequence, used by the
// engine, delivery and seeking, and cleared as a whole by ResetData.
#pragma once

#include <cstdint>

#include "../host/kx_types.h"
#include "../host/zstream.h"
#include "records.h"

namespace kxmp3 {

// Sizes of the decoder's blocks.
constexpr uint32_t kWorkBlockRawBytes = 25616;   // allocated; aligned start moves up 1..16 bytes
constexpr uint32_t kSynthesisAreaBytes = 16384;  // two synthesis rings of 1024 doubles
constexpr uint32_t kOverlapAreaBytes = 9216;     // two overlap stores of 32 x 18 doubles
constexpr uint32_t kReservoirBytes = 4096;       // bit reservoir ring
constexpr uint32_t kFrameIndexGrowth = 100;      // entries added when the index is full
constexpr uint32_t kFrameIndexSlack = 16;        // entries beyond the frame count at open

// One de-emphasis coefficient set: y[n] = b0 x[n] + b1 x[n-1] + a y[n-1].
struct DeemphasisCoefficients {
  double b0;
  double b1;
  double a;
};

// De-emphasis filter memory.
struct DeemphasisState {
  uint32_t primed;     // 0 until the filter has run once
  double prevIn[2];    // previous input per channel
  double prevOut[2];   // previous output per channel
};

struct DecoderState {
  // --- Open stream and delivery ---
  Class_ZStream* stream;        // the open stream; null when closed
  uint8_t* pcmBuffer;           // frame buffer: one frame of output (core memory, kind 1)
  uint32_t pcmReadPos;          // bytes of pcmBuffer already handed out
  uint32_t pcmFill;             // bytes valid in pcmBuffer
  uint32_t openFlags;           // OPEN_FLAG_* of host/kxaudiofile.h as applied to this object

  // --- Work block: synthesis rings and overlap stores ---
  uint8_t* workBlockRaw;        // kWorkBlockRawBytes (kind 5)
  uint8_t* workBlock;           // aligned start: two synthesis rings (kSynthesisAreaBytes)
  uint8_t* workBlockHigh;       // workBlock + kSynthesisAreaBytes: two overlap stores

  // --- Decode progress (cleared by Rewind and seeking) ---
  uint32_t frameCounter;        // frames read since the start (= frame-index entries in use)
  uint32_t ringPos[2];          // synthesis ring positions per channel (multiple of 64, 0..960)
  uint32_t reservoirByteCount;  // main-data bytes appended, less 4096 per wrap
  uint32_t lastCheckWord;       // check word of the last protected frame (never verified)

  // --- Stream description (filled by layout detection and header parsing) ---
  MP3Info info;
  uint32_t mpegVersion;         // 1, 2, or 3 for MPEG-2.5
  uint32_t frameCount;          // frames of the stream (header, count or estimate)
  uint32_t lameDelay;           // samples the open sequence and Rewind skip at the start
  uint32_t seekMode;            // how the frame count was found (MP3_HEADER_FLAG_*)
  uint32_t containerType;       // 1..5
  uint64_t audioStart;          // byte bounds of the audio data in the stream
  uint64_t audioLength;
  uint64_t pcmTotalBytes;       // output limit: total PCM bytes plus the skipped start bytes
  uint32_t outputLimitInForce;  // non-zero: normally decoded frames are trimmed at the limit
  char16_t encoderName[64];     // encoder named by the LAME/GOGO tag (empty when none)

  // --- Bit reservoir and frame index ---
  uint8_t* reservoir;           // kReservoirBytes ring (kind 5)
  uint32_t reservoirWriteIndex; // 0..4095
  uint32_t reservoirBitPos;     // read position in bits (byte index taken modulo 4096)
  FrameIndexEntry* frameIndex;  // (frameCount + 16) entries at open, grows by 100 (kind 5)
  uint32_t frameIndexCapacity;
  uint32_t endOfData;           // set when the stream is exhausted or the limit reached

  // --- Output format ---
  uint32_t pcmBufferSize;       // bytes of one frame's PCM
  uint32_t granuleBytes;        // 576 x channels x bytesPerSample
  uint32_t bytesPerSample;      // 2 or 8
  uint32_t frameOutputBytes;    // bytes the last frame yielded (after trimming); 0 at the end

  // --- De-emphasis ---
  DeemphasisCoefficients deemphasis[2];  // [0] CCITT J.17 (code 3), [1] 50/15 us (code 1)
  DeemphasisState deemphasisState;
  uint32_t emphasis;            // emphasis code in use for the current frame (0, 1 or 3)

  // --- Engine bookkeeping ---
  uint32_t referenceHeader;     // header word that frames are checked against
  uint32_t errorCount;          // data errors met (resyncs, clipped big_values)
  uint32_t muteCounter;         // frames still to be output as silence
  uint32_t preRollTarget;       // while a seek decodes its pre-roll: the frame it ends
                                // before (the engine may then leave out work whose
                                // result is dropped); 0 otherwise

  // --- Tags and dialog ---
  ReplayGainRecord replayGain;  // RPGI record handed out by GetInfo
  HWND dialog;                  // the open file-information dialog, or null
};

}  // namespace kxmp3
