// Chief header of the plug-in: the decoder class Class_KXMP3, its factory and the
// module's exported entry points.
//
// A host obtains a decoder through CreateInstance_KXMP3 (or the format record's
// create callback), opens it once with Create (open.cpp), queries it (info_query.cpp,
// file_info_dialog.cpp), pulls PCM (pcm_delivery.cpp), seeks (position_time.cpp) and
// finally releases it; the last Release runs ResetData (decoder_object.cpp), which
// frees everything the object owns.
#pragma once

#include <cstdint>

#include "../host/kx_export.h"
#include "../host/kx_result_codes.h"
#include "../host/kx_types.h"
#include "../host/kxaudiofile.h"
#include "../host/zcom.h"
#include "../host/zss_plugin.h"
#include "../layout/seeking.h"
#include "decoder_state.h"

// The decoder object. Both host bases are virtual so that the object carries one
// Class_ZCOM part and therefore a single reference count, reached through either
// interface.
//
// The DecoderState member is deliberately never initialised by a constructor: the
// object comes from Class_ZCOM's zero-filling allocator, so the record starts as all
// zero bytes, and ResetData is the only place that clears it afterwards.
class Class_KXMP3 : public virtual Class_ZCOM, public virtual Class_KXAudioFile {
 public:
  Class_KXMP3();
  // Copies share the source's buffers and stream (a byte copy of the state); the
  // plug-in never copies a decoder itself.
  Class_KXMP3(const Class_KXMP3& other);
  Class_KXMP3& operator=(const Class_KXMP3& other);
  // Frees nothing: resources go in ResetData, which the release path calls first.
  ~Class_KXMP3() override;

  // Object interface (decoder_object.cpp, open.cpp).
  KxResult Create(void* params) override;
  KxResult ResetData() override;
  KxResult QueryInterface(uint32_t fourcc, void** out) override;
  KxResult AddInterface(void* arg) override;
  KxResult DeleteInterface() override;

  // Audio-file interface, in slot order.
  KxResult GetInfo(uint32_t code, void* record, uint32_t* size) override;            // info_query.cpp
  KxResult GetComment(uint32_t code, void* record, uint32_t* size) override;         // info_query.cpp
  KxResult GetPCMWaveFormat(PCMWAVEFORMAT* format) override;                         // pcm_delivery.cpp
  KxResult DecodeToPCMData(void* buffer, int32_t bytes, int32_t* bytesWritten) override;  // pcm_delivery.cpp
  KxResult Rewind() override;                                                        // pcm_delivery.cpp
  KxResult FileInfoDialog(HWND parent) override;                                     // file_info_dialog.cpp
  KxResult GetCurrentPosition(QWUNION* position, uint32_t origin) override;          // position_time.cpp
  KxResult SetCurrentPosition(QWUNION position, uint32_t origin) override;           // position_time.cpp
  KxResult ReferenceTimeToSamples(QWUNION time, QWUNION* samples) override;          // position_time.cpp
  KxResult SamplesToReferenceTime(QWUNION samples, QWUNION* time) override;          // position_time.cpp
  KxResult GetReferenceTime(QWUNION* time) override;                                 // position_time.cpp
  KxResult GetTotalTime(QWUNION* time) override;                                     // position_time.cpp

  // The object's data record, for the engine, the seeking code and tests.
  kxmp3::DecoderState& State() { return state_; }
  const kxmp3::DecoderState& State() const { return state_; }

 private:
  // Is the object opened (Create succeeded)?
  bool Opened() { return IsCreated() != 0; }
  // Opened with decoding buffers (not for information only)?
  bool ReadyToDecode() { return Opened() && (state_.openFlags & OPEN_FLAG_INFO_ONLY) == 0; }
  // The open sequence proper; raises kxmp3::OpenFailure (open.cpp).
  void OpenSequence(const OpenParams& params, Class_ZStream*& stream);

  // The delivery cursor over the frame buffer (pcm_delivery.cpp): the only code
  // that moves pcmReadPos and pcmFill.
  // Marks the frame buffer empty (nothing buffered).
  void EmptyFrameBuffer();
  // Skips `skipBytes` of decoded PCM through the frame buffer (open and Rewind).
  KxResult SkipStartBytes(uint64_t skipBytes);
  // Leaves exactly `bytes` of the frame buffer unread (a relative seek within it).
  void KeepUnread(uint32_t bytes);
  // After a seek restarted the engine: nothing buffered, and the end of the data
  // reached or not.
  void RestartDelivery(bool atEnd);
  // Decodes the frame a seek targets into the frame buffer and drops its first
  // `offset` bytes. Returns the decode step's result.
  KxResult EnterFrameAt(uint32_t offset);
  // Where decoding stands, for the position arithmetic (position_time.cpp).
  kxmp3::DeliveryPosition Position() const;

  kxmp3::DecoderState state_;
};

namespace kxmp3 {

// Carries a result code out of the open sequence to its single handler.
struct OpenFailure {
  KxResult code;
};

// One decode step of the delivery (pcm_delivery.cpp): the engine decodes the next
// frame (SkipFrame for a first frame that carries only a VBR header, DecodeFrame
// otherwise) into the caller's buffer (intoCaller 1, when its `count` bytes of room
// hold a whole frame) or into the frame buffer (intoCaller 0, or too little room;
// then the cursor is reset to the frame's start), and the frame's yield is cut at
// the output limit. On return *count (when given) holds the bytes written into the
// caller's buffer. Status: the engine's (see engine/decode_frame.h), with
// AF_E_ROOM_TOO_SMALL (0x3125) when a frame offered the caller's buffer went to the
// frame buffer, and AF_S_END_OF_DATA (with the end-of-data flag set) when the
// stream ended or the output limit was reached.
KxResult DeliverFrame(DecoderState& state, int intoCaller, void* output, int32_t* count);

}  // namespace kxmp3

// Exported entry points (C linkage, the only symbols the module exports).
#define KXMP3_EXPORT KX_DLL_EXPORT
extern "C" {
// Creates a decoder object: its Class_ZCOM interface with one reference in *out.
KXMP3_EXPORT KxResult CreateInstance_KXMP3(Class_ZCOM** out);
// Copies the plug-in information record.
KXMP3_EXPORT KxResult ZSSGetPluginInfo(PluginInfo* record);
}
