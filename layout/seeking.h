// Time, position and seeking over an opened decoder's state. The plug-in's
// GetCurrentPosition / SetCurrentPosition / time methods check that the object is
// open (and not for information only) and then call these.
//
// Positions are PCM bytes of the output format counted from the first real sample
// (after the start skip). A seek goes to a frame and a byte offset in it: the
// decoder restarts 32 frames earlier from the frame index (or from the start), so
// that the bit reservoir, the overlap and the synthesis state are rebuilt before
// the target frame; frames not yet indexed are first found by a scan that reads
// headers and side information only.
#pragma once

#include <cstdint>

#include "../host/kx_result_codes.h"
#include "../host/kx_types.h"
#include "../host/zcom.h"
#include "../plugin/decoder_state.h"

namespace kxmp3 {

// Frames decoded and discarded before the target frame.
constexpr uint32_t kSeekPreRollFrames = 32;
// Reservoir bytes carried over a seek from the old read position to the new one.
constexpr uint32_t kSeekCarriedReservoirBytes = 512;
// Reference time units per second.
constexpr int64_t kReferenceTimeUnits = 1000000;
// Source location the seek names when it takes the object lock.
constexpr const char* kSeekLockFile = "KXMP3";
constexpr int kSeekLockLine = 2560;

// One decode step into the frame buffer (intoCaller 0) or the caller's buffer:
// the plug-in's choice of SkipFrame or DecodeFrame (see plugin/kxmp3.h).
using DecodeStepFn = KxResult (*)(DecoderState& state, int intoCaller, void* output, int32_t* count);

// Current position: origin AF_ORIGIN_CURRENT gives 0, AF_ORIGIN_END the bytes left
// to the end, any other origin the bytes from the first real sample.
KxResult GetPosition(const DecoderState& state, uint32_t origin, QWUNION* position);

// Seeks to `position` relative to `origin` (AF_ORIGIN_CURRENT, AF_ORIGIN_END, or any
// other value: from the start) holding the lock of `lockObject` throughout.
// AF_E_OUT_OF_RANGE for a target past the end; AF_E_FAIL when the lock is not
// obtained; otherwise the result of the seek.
KxResult SetPosition(DecoderState& state, Class_ZCOM* lockObject, QWUNION position, uint32_t origin,
                     DecodeStepFn decode);

// Seeks to byte `offset` of frame `frame` (both in the output's frame layout,
// frames counted from the first frame of the stream, header frame included).
KxResult SeekToFrame(DecoderState& state, uint32_t frame, uint32_t offset, DecodeStepFn decode);

// The index-building scan, one frame: finds the next frame start from the stream's
// position, records its index entry with the reservoir bookkeeping the decoder
// would have after it, and moves the stream to the following frame. Returns 0, or
// AF_S_END_OF_DATA when no further frame could be read.
KxResult ScanFrame(DecoderState& state);

// Playing time reached (microseconds), and the total time: the larger of the
// decoded bytes and the total PCM bytes.
KxResult GetReferenceTimeOf(const DecoderState& state, QWUNION* time);
KxResult GetTotalTimeOf(const DecoderState& state, QWUNION* time);

// time x rate / 1,000,000 and samples x 1,000,000 / rate.
int64_t ReferenceTimeToSampleCount(const DecoderState& state, int64_t time);
int64_t SampleCountToReferenceTime(const DecoderState& state, int64_t samples);

}  // namespace kxmp3
