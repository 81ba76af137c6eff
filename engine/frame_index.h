// The frame index and the bit reservoir's bookkeeping: one entry per frame read
// (where its header is, and the reservoir counters after it), the growth of the
// index, the append of a frame's main data to the 4,096-byte reservoir ring, the
// frame scan that indexes frames without decoding them, and the resets that Rewind
// and seeking share. The frame driver and the scan move the reservoir through the
// same functions, so that an entry written by either restores the same state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "../host/kx_result_codes.h"
#include "../host/zstream.h"

namespace kxmp3 {

struct EngineState;

#pragma pack(push, 1)

// One entry of the frame index, per frame read.
struct FrameIndexEntry {
  uint64_t offset;           // stream position of the frame's first header byte (0 = unknown)
  uint32_t reservoirBitPos;  // reservoir bit position after the frame was decoded
  uint32_t reservoirWrite;   // reservoir write index after its main data was appended
  uint32_t reservoirFill;    // reservoir byte count after that append
};
static_assert(sizeof(FrameIndexEntry) == 20);
static_assert(offsetof(FrameIndexEntry, reservoirBitPos) == 8);
static_assert(offsetof(FrameIndexEntry, reservoirWrite) == 12);
static_assert(offsetof(FrameIndexEntry, reservoirFill) == 16);

#pragma pack(pop)

// Makes room for entry `engine.frameCounter`, growing the index by 100 entries
// through the core library's reallocation. False when the reallocation failed (the
// index is then left as it was).
bool GrowFrameIndex(EngineState& engine);

// Reads `length` main-data bytes from the stream into the reservoir ring at its
// write index (wrapping at the ring's end). Short reads are not checked: they leave
// older bytes in the ring, and the next header read reports the end of the stream.
void ReadMainData(EngineState& engine, Class_ZStream* stream, uint32_t length);

// The reservoir bookkeeping of one frame whose `length` main-data bytes were (or, in
// the scan, would have been) appended: advances the write index, aligns the bit
// position to a byte, and records the write index and byte count in the frame's
// index entry `slot`. Returns the skip: bytes from the read position to the frame's
// first main-data byte (main_data_begin bytes before the end of what earlier frames
// appended); negative when the ring does not reach back that far.
int32_t AppendMainData(EngineState& engine, uint32_t length, uint32_t mainDataBegin, uint32_t slot);

// The index-building scan, one frame: finds the next frame start of this stream
// from the stream's position, records its index entry with the reservoir
// bookkeeping the frame driver would have after it, and moves the stream to the
// following frame. Returns 0; AF_S_END_OF_DATA when no further frame could be read;
// AF_E_FAIL when the index could not grow.
KxResult ScanFrame(EngineState& engine, Class_ZStream* stream);

// Clears what the filterbank carries from frame to frame: the synthesis rings and
// their positions, the overlap stores, the mute counter and the de-emphasis memory.
// Rewind and seeking both start decoding again from here.
void ResetFilterbank(EngineState& engine);

// Empties the bit reservoir (ring, write index, bit position, byte count) and the
// frame progress (frame counter, last check word), for a restart from the first
// frame (Rewind).
void ResetReservoir(EngineState& engine);

}  // namespace kxmp3
