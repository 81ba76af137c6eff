// EngineState: what the Layer III engine keeps from frame to frame of one stream.
// The decoder object owns one (inside its DecoderState), the open sequence fills it
// (buffers, output layout, reference header, de-emphasis coefficients), the frame
// driver and the frame scan move it on, and Rewind and seeking reset it.
//
// Its buffers are core-library blocks that the decoder object allocates and frees;
// the engine only reads and writes them.
#pragma once

#include <cstdint>

#include "frame_index.h"

namespace kxmp3 {

// Sizes of the engine's blocks.
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

struct EngineState {
  // --- Work block: synthesis rings and overlap stores ---
  uint8_t* workBlockRaw;        // kWorkBlockRawBytes (core memory, kind 5)
  uint8_t* workBlock;           // aligned start: two synthesis rings (kSynthesisAreaBytes)
  uint8_t* workBlockHigh;       // workBlock + kSynthesisAreaBytes: two overlap stores

  // --- Decode progress (cleared by Rewind; set by seeking) ---
  uint32_t frameCounter;        // frames read since the start (= frame-index entries in use)
  uint32_t ringPos[2];          // synthesis ring positions per channel (multiple of 64, 0..960)
  uint32_t reservoirByteCount;  // main-data bytes appended, less 4096 per wrap
  uint32_t lastCheckWord;       // check word of the last protected frame (never verified)

  // --- Bit reservoir and frame index ---
  uint8_t* reservoir;           // kReservoirBytes ring (kind 5)
  uint32_t reservoirWriteIndex; // 0..4095
  uint32_t reservoirBitPos;     // read position in bits (byte index taken modulo 4096)
  FrameIndexEntry* frameIndex;  // one entry per frame read; grows by kFrameIndexGrowth (kind 5)
  uint32_t frameIndexCapacity;

  // --- Output layout, fixed at open ---
  uint32_t frameBytes;          // bytes of one frame's PCM: granules x granuleBytes
  uint32_t granuleBytes;        // 576 x output channels x bytesPerSample
  uint32_t bytesPerSample;      // 2 (16-bit) or 8 (64-bit float)
  uint32_t skipFirstFrame;      // the first frame carries only a VBR header: SkipFrame reads it
  uint32_t noDeemphasis;        // de-emphasis is off whatever the headers say

  // --- De-emphasis ---
  DeemphasisCoefficients deemphasis[2];  // [0] CCITT J.17 (code 3), [1] 50/15 us (code 1)
  DeemphasisState deemphasisState;
  uint32_t emphasis;            // emphasis code in use for the current frame (0, 1 or 3)

  // --- Frame reading and concealment ---
  uint32_t referenceHeader;     // header word that frames are checked against
  uint32_t errorCount;          // data errors met (resyncs, clipped big_values)
  uint32_t muteCounter;         // frames still to be output as silence
  uint32_t preRollTarget;       // while a seek decodes its pre-roll: the frame it ends
                                // before (the engine may then leave out work whose
                                // result is dropped); 0 otherwise
};

}  // namespace kxmp3
