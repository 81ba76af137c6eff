// Time, position and seeking. The plug-in's position and time calls hand the
// arithmetic here with a view of where decoding stands (DeliveryPosition), and a
// seek runs in two parts: PlanSeek checks the range and turns the position into a
// target frame and byte offset (or a move within the buffered bytes), and
// SeekToFrame drives the engine to just before that frame.
//
// Positions are PCM bytes of the output format counted from the first real sample
// (after the start skip). A seek restarts 32 frames before its target from the
// frame index (or from the start), so that the bit reservoir, the overlap and the
// synthesis state are rebuilt before the target frame; frames not yet indexed are
// first found by the frame scan, which reads headers and side information only.
#pragma once

#include <cstdint>

#include "../engine/engine_state.h"
#include "../host/kx_result_codes.h"
#include "../host/kx_types.h"
#include "../host/kxaudiofile.h"
#include "../host/zstream.h"

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

// Where decoding stands, as the position arithmetic needs it.
struct DeliveryPosition {
  uint32_t framesRead;       // frames the engine has read since the start (frame counter)
  uint32_t frameBytes;       // fb: PCM bytes of one frame (the frame buffer's size)
  uint32_t readPos;          // bytes of the frame buffer already handed out (fb when empty)
  uint64_t startSkipBytes;   // the start skip in output bytes
  uint64_t totalBytes;       // total PCM bytes of the information record
  uint32_t blockAlign;       // channels x bytes per sample
  uint64_t bytesPerSecond;   // bytes per sample x sample rate x channels
};

// Bytes of the frame buffer not yet handed out, as positions count them: fb - readPos.
inline uint32_t Unread(const DeliveryPosition& p) { return p.frameBytes - p.readPos; }

// Current position: origin AF_ORIGIN_CURRENT gives 0, AF_ORIGIN_END the bytes left
// to the end, any other origin the bytes from the first real sample.
uint64_t CurrentPosition(const DeliveryPosition& p, uint32_t origin);

// What a seek to `position` relative to `origin` (AF_ORIGIN_CURRENT, AF_ORIGIN_END,
// or any other value: from the start) comes to.
struct SeekPlan {
  KxResult refusal = AF_S_OK;   // AF_E_OUT_OF_RANGE: no seek is made
  bool withinBuffer = false;    // a relative move within the buffered bytes: no seek is made,
  uint32_t keepUnread = 0;      // and exactly this many bytes stay unread
  uint32_t frame = 0;           // otherwise the target frame
  uint32_t offset = 0;          // and the byte offset in it
};
SeekPlan PlanSeek(const DeliveryPosition& p, QWUNION position, uint32_t origin);

// One frame of the engine into `output` (a frame buffer of the engine's frame size):
// SkipFrame or DecodeFrame as the engine chooses (DecodeNextFrame), or a stand-in of
// a test.
using FrameDecodeFn = int32_t (*)(EngineState& engine, Class_ZStream* stream, uint8_t* output, uint32_t* made);

// What SeekToFrame did.
struct SeekOutcome {
  KxResult result = AF_S_OK;  // 0, or the failure that ended the seek
  bool restarted = false;     // the decoding state was reset for the restart (the frame
                              // buffer's contents and the end of data no longer hold)
  bool atEnd = false;         // the stream ended before the target frame
};

// Takes the engine to the start of frame `frame` (counted from the first frame of
// the stream, header frame included): chooses the restart frame, resets the
// decoding state and decodes the pre-roll into `frameBuffer`, dropping it. The
// caller decodes the target frame itself.
SeekOutcome SeekToFrame(EngineState& engine, Class_ZStream* stream, uint32_t frame, uint8_t* frameBuffer,
                        FrameDecodeFn decode);
SeekOutcome SeekToFrame(EngineState& engine, Class_ZStream* stream, uint32_t frame, uint8_t* frameBuffer);

// Playing time reached (microseconds): (frames - 1) x fb + readPos bytes; and the
// total time: the larger of the decoded bytes and the total PCM bytes.
int64_t ReferenceTime(const DeliveryPosition& p);
int64_t TotalTime(const DeliveryPosition& p);

// time x rate / 1,000,000 and samples x 1,000,000 / rate.
int64_t ReferenceTimeToSampleCount(uint32_t sampleRate, int64_t time);
int64_t SampleCountToReferenceTime(uint32_t sampleRate, int64_t samples);

}  // namespace kxmp3
