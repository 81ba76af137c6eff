// Class_KXAudioFile: the base class of every audio-file reader (host library KXAFLib),
// with the records exchanged through it: the open parameters, the generic
// information record and the PCM wave format.
//
// A reader is created by its plug-in, opened with Create(OpenParams*), queried with
// GetInfo / GetComment, and read with DecodeToPCMData. The base holds the reader's
// comment record (the merged tags) and answers GetComment from it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kx_export.h"
#include "kx_result_codes.h"
#include "kx_types.h"
#include "zcom.h"

#pragma pack(push, 1)

// Open parameters handed to Create.
struct OpenParams {
  uint32_t tag;           // FOURCC_ZAFC or FOURCC_ZMP3
  uint32_t size;          // 24
  uint32_t flags;         // OPEN_FLAG_* below
  void* source;           // a Class_ZStream* (OPEN_FLAG_STREAM) or a UTF-16 path
  uint32_t requestedBits; // 0 or 16: 16-bit PCM; any other value: 64-bit float PCM
};
static_assert(sizeof(OpenParams) == 24);
static_assert(offsetof(OpenParams, tag) == 0);
static_assert(offsetof(OpenParams, size) == 4);
static_assert(offsetof(OpenParams, flags) == 8);
static_assert(offsetof(OpenParams, source) == 12);
static_assert(offsetof(OpenParams, requestedBits) == 20);

constexpr uint32_t OPEN_FLAG_OWN_STREAM = 1u << 0;     // (object state) the object made its stream
constexpr uint32_t OPEN_FLAG_STREAM = 1u << 1;         // source is an open stream object
constexpr uint32_t OPEN_FLAG_INFO_ONLY = 1u << 7;      // open for information only
constexpr uint32_t OPEN_FLAG_NO_DEEMPHASIS = 1u << 28; // never apply de-emphasis
constexpr uint32_t OPEN_FLAG_FULL_SCAN = 1u << 31;     // count every frame when no header gives the count

// The platform's 16-byte PCM wave format.
struct PCMWAVEFORMAT {
  uint16_t wFormatTag;      // 1 integer PCM, 3 IEEE float
  uint16_t nChannels;
  uint32_t nSamplesPerSec;
  uint32_t nAvgBytesPerSec;
  uint16_t nBlockAlign;
  uint16_t wBitsPerSample;
};
static_assert(sizeof(PCMWAVEFORMAT) == 16);
static_assert(offsetof(PCMWAVEFORMAT, nSamplesPerSec) == 4);
static_assert(offsetof(PCMWAVEFORMAT, nAvgBytesPerSec) == 8);
static_assert(offsetof(PCMWAVEFORMAT, nBlockAlign) == 12);
static_assert(offsetof(PCMWAVEFORMAT, wBitsPerSample) == 14);

constexpr uint16_t WAVE_FORMAT_PCM = 1;
constexpr uint16_t WAVE_FORMAT_IEEE_FLOAT = 3;

// The generic audio-file information record (2,488 bytes, FourCC ZAFC).
struct AudioFileInfo {
  uint32_t fourcc;                 // 0: FOURCC_ZAFC (or a format's own code in a larger record)
  uint32_t size;                   // 4: 2488 (or the larger record's size)
  char16_t name[1024];             // 8: stream name
  uint32_t formatFourCC;           // 2056
  uint64_t dataLength;             // 2060: audio data length in bytes
  uint64_t totalPcmBytes;          // 2068
  uint32_t bitsPerSample;          // 2076: 16 or 64
  uint32_t sampleRate;             // 2080
  uint32_t channels;               // 2084
  uint32_t bitrateKbps;            // 2088
  uint64_t playTimeMs;             // 2092
  uint32_t formatFlags;            // 2100: AFI_FLAG_* below
  char16_t description[128];       // 2104
  char16_t channelModeName[64];    // 2360
};
#pragma pack(pop)
static_assert(sizeof(AudioFileInfo) == 2488);
static_assert(offsetof(AudioFileInfo, name) == 8);
static_assert(offsetof(AudioFileInfo, formatFourCC) == 2056);
static_assert(offsetof(AudioFileInfo, dataLength) == 2060);
static_assert(offsetof(AudioFileInfo, totalPcmBytes) == 2068);
static_assert(offsetof(AudioFileInfo, bitsPerSample) == 2076);
static_assert(offsetof(AudioFileInfo, sampleRate) == 2080);
static_assert(offsetof(AudioFileInfo, channels) == 2084);
static_assert(offsetof(AudioFileInfo, bitrateKbps) == 2088);
static_assert(offsetof(AudioFileInfo, playTimeMs) == 2092);
static_assert(offsetof(AudioFileInfo, formatFlags) == 2100);
static_assert(offsetof(AudioFileInfo, description) == 2104);
static_assert(offsetof(AudioFileInfo, channelModeName) == 2360);

constexpr uint32_t AFI_FLAG_VBR = 1u << 0;    // a VBR header was found
constexpr uint32_t AFI_FLAG_FLOAT = 1u << 1;  // output is 64-bit floating point

class KXAF_API Class_KXAudioFile : public virtual Class_ZCOM {
 public:
  Class_KXAudioFile();
  Class_KXAudioFile(const Class_KXAudioFile& other);
  Class_KXAudioFile& operator=(const Class_KXAudioFile& other);
  ~Class_KXAudioFile() override;

  // The audio-file interface, in slot order.
  virtual KxResult GetInfo(uint32_t code, void* record, uint32_t* size);
  // Copies the comment record (code FOURCC_ZAFC): null record gives the size in *size
  // and 0; a record smaller than needed gives AF_E_BUFFER_TOO_SMALL and the size.
  virtual KxResult GetComment(uint32_t code, void* record, uint32_t* size);
  virtual KxResult GetPCMWaveFormat(PCMWAVEFORMAT* format);
  virtual KxResult DecodeToPCMData(void* buffer, int32_t bytes, int32_t* bytesWritten);
  virtual KxResult Rewind();
  virtual KxResult FileInfoDialog(HWND parent);
  virtual KxResult GetCurrentPosition(QWUNION* position, uint32_t origin);
  virtual KxResult SetCurrentPosition(QWUNION position, uint32_t origin);
  virtual KxResult ReferenceTimeToSamples(QWUNION time, QWUNION* samples);
  virtual KxResult SamplesToReferenceTime(QWUNION samples, QWUNION* time);
  virtual KxResult GetReferenceTime(QWUNION* time);
  virtual KxResult GetTotalTime(QWUNION* time);

  // Overrides of the object interface.
  KxResult ResetData() override;                                  // frees the comment record
  KxResult QueryInterface(uint32_t fourcc, void** out) override;  // FOURCC_ZAFC: this reader
  KxResult AddInterface(void* arg) override;                      // registers under FOURCC_ZAFC
  KxResult DeleteInterface() override;

  // The comment source: a comment record in core memory (or null). The base takes
  // ownership and frees any record it held before.
  void SetCommentSource(void* commentRecord);
  const void* GetCommentSource() const { return comment_; }

 private:
  void* comment_ = nullptr;
};

// Position origins understood by GetCurrentPosition / SetCurrentPosition.
constexpr uint32_t AF_ORIGIN_START = 0;    // any value other than the two below
constexpr uint32_t AF_ORIGIN_CURRENT = 2;
constexpr uint32_t AF_ORIGIN_END = 4;
