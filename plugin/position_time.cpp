// Position, seeking and time: the audio-file interface's last six calls. The object
// answers for its own state here (not opened, information-only open); the
// conversions and the seek itself are the stream-layout code's (layout/seeking.h),
// which decodes through the same decode step as the delivery.
#include "../layout/seeking.h"
#include "kxmp3.h"

KxResult Class_KXMP3::GetCurrentPosition(QWUNION* position, uint32_t origin) {
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  if (position == nullptr) return AF_E_POINTER;
  return kxmp3::GetPosition(state_, origin, position);
}

KxResult Class_KXMP3::SetCurrentPosition(QWUNION position, uint32_t origin) {
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  Class_ZCOM* lockObject = this;
  return kxmp3::SetPosition(state_, lockObject, position, origin, &kxmp3::DecodeStep);
}

KxResult Class_KXMP3::ReferenceTimeToSamples(QWUNION time, QWUNION* samples) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  if (samples == nullptr) return AF_E_POINTER;
  samples->i = kxmp3::ReferenceTimeToSampleCount(state_, time.i);
  return AF_S_OK;
}

KxResult Class_KXMP3::SamplesToReferenceTime(QWUNION samples, QWUNION* time) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  if (time == nullptr) return AF_E_POINTER;
  time->i = kxmp3::SampleCountToReferenceTime(state_, samples.i);
  return AF_S_OK;
}

KxResult Class_KXMP3::GetReferenceTime(QWUNION* time) {
  if (!ReadyToDecode()) return AF_E_TIME_NOT_READY;
  if (time == nullptr) return AF_E_POINTER;
  return kxmp3::GetReferenceTimeOf(state_, time);
}

KxResult Class_KXMP3::GetTotalTime(QWUNION* time) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  if (time == nullptr) return AF_E_POINTER;
  return kxmp3::GetTotalTimeOf(state_, time);
}
