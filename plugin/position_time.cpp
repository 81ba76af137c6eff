// Position, seeking and time: the audio-file interface's last six calls. The object
// answers for its own state here (not opened, information-only open); the
// conversions and the seek itself belong to the stream-layout code.
#include "kxmp3.h"

KxResult Class_KXMP3::GetCurrentPosition(QWUNION* position, uint32_t origin) {
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  (void)position;
  (void)origin;
  return AF_E_FAIL;
}

KxResult Class_KXMP3::SetCurrentPosition(QWUNION position, uint32_t origin) {
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  (void)position;
  (void)origin;
  return AF_E_FAIL;
}

KxResult Class_KXMP3::ReferenceTimeToSamples(QWUNION time, QWUNION* samples) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  (void)time;
  (void)samples;
  return AF_E_FAIL;
}

KxResult Class_KXMP3::SamplesToReferenceTime(QWUNION samples, QWUNION* time) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  (void)samples;
  (void)time;
  return AF_E_FAIL;
}

KxResult Class_KXMP3::GetReferenceTime(QWUNION* time) {
  if (!ReadyToDecode()) return AF_E_TIME_NOT_READY;
  (void)time;
  return AF_E_FAIL;
}

KxResult Class_KXMP3::GetTotalTime(QWUNION* time) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  (void)time;
  return AF_E_FAIL;
}
