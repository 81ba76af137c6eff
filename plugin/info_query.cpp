// Information queries: GetInfo hands out this format's information record (ZMP3),
// its generic part (ZAFC) or the ReplayGain record (RPGI); GetComment hands out the
// merged tags held by the audio-file base.
#include <cstring>

#include "kxmp3.h"

namespace {

// The common pattern of the three records: a null record asks for the size, a short
// one is refused with the size it needs, otherwise the bytes are copied.
KxResult CopyRecord(const void* source, uint32_t needed, void* record, uint32_t* size) {
  if (record == nullptr) {
    if (size != nullptr) *size = needed;
    return AF_S_OK;
  }
  if (size == nullptr) return AF_E_POINTER;
  if (*size < needed) {
    *size = needed;
    return AF_E_BUFFER_TOO_SMALL;
  }
  std::memcpy(record, source, needed);
  *size = needed;
  return AF_S_OK;
}

}  // namespace

KxResult Class_KXMP3::GetInfo(uint32_t code, void* record, uint32_t* size) {
  if (!Opened()) return AF_E_NOT_READY;
  switch (code) {
    case FOURCC_ZMP3:
      return CopyRecord(&state_.info, sizeof(kxmp3::MP3Info), record, size);
    case FOURCC_ZAFC: {
      const KxResult rc = CopyRecord(&state_.info.generic, sizeof(AudioFileInfo), record, size);
      if (rc == AF_S_OK && record != nullptr) {
        // The generic copy names itself.
        auto* generic = static_cast<AudioFileInfo*>(record);
        generic->fourcc = FOURCC_ZAFC;
        generic->size = sizeof(AudioFileInfo);
      }
      return rc;
    }
    case FOURCC_RPGI:
      return CopyRecord(&state_.replayGain, sizeof(kxmp3::ReplayGainRecord), record, size);
    default:
      return AF_E_UNKNOWN_CODE;
  }
}

KxResult Class_KXMP3::GetComment(uint32_t code, void* record, uint32_t* size) {
  if (!Opened()) return AF_E_NOT_READY;
  // The base knows the comment record by the generic code only.
  if (code == FOURCC_ZMP3) code = FOURCC_ZAFC;
  return Class_KXAudioFile::GetComment(code, record, size);
}
