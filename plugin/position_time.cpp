// Position, seeking and time: the audio-file interface's last six calls. The object
// answers for its own state here (not opened, information-only open), takes the
// object lock for a seek, and hands the arithmetic and the engine's restart to the
// stream-layout code (layout/seeking.h); the delivery cursor moves through the
// delivery's own functions (pcm_delivery.cpp).
#include "kxmp3.h"

using namespace kxmp3;

DeliveryPosition Class_KXMP3::Position() const {
  const DecoderState& s = state_;
  const AudioFileInfo& g = s.info.generic;
  DeliveryPosition p;
  p.framesRead = s.engine.frameCounter;
  p.frameBytes = s.pcmBufferSize;
  p.readPos = s.pcmReadPos;
  p.blockAlign = g.channels * s.engine.bytesPerSample;
  p.startSkipBytes = static_cast<uint64_t>(s.startSkip) * p.blockAlign;
  p.totalBytes = g.totalPcmBytes;
  p.bytesPerSecond = static_cast<uint64_t>(g.bitsPerSample / 8) * g.sampleRate * g.channels;
  return p;
}

KxResult Class_KXMP3::GetCurrentPosition(QWUNION* position, uint32_t origin) {
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  if (position == nullptr) return AF_E_POINTER;
  position->u = CurrentPosition(Position(), origin);
  return AF_S_OK;
}

KxResult Class_KXMP3::SetCurrentPosition(QWUNION position, uint32_t origin) {
  if (!ReadyToDecode()) return AF_E_NOT_READY;
  if (LockObject(kSeekLockFile, kSeekLockLine) != AF_S_OK) return AF_E_FAIL;
  KxResult result = AF_S_OK;
  const SeekPlan plan = PlanSeek(Position(), position, origin);
  if (plan.refusal != AF_S_OK) {
    result = plan.refusal;
  } else if (plan.withinBuffer) {
    KeepUnread(plan.keepUnread);
  } else {
    const SeekOutcome outcome = SeekToFrame(state_.engine, state_.stream, plan.frame, state_.pcmBuffer);
    if (outcome.restarted || outcome.atEnd) RestartDelivery(outcome.atEnd);
    result = outcome.result;
    if (result == AF_S_OK && plan.offset != 0) result = EnterFrameAt(plan.offset);
  }
  UnLockObject();
  return result;
}

KxResult Class_KXMP3::ReferenceTimeToSamples(QWUNION time, QWUNION* samples) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  if (samples == nullptr) return AF_E_POINTER;
  samples->i = ReferenceTimeToSampleCount(state_.info.generic.sampleRate, time.i);
  return AF_S_OK;
}

KxResult Class_KXMP3::SamplesToReferenceTime(QWUNION samples, QWUNION* time) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  if (time == nullptr) return AF_E_POINTER;
  time->i = SampleCountToReferenceTime(state_.info.generic.sampleRate, samples.i);
  return AF_S_OK;
}

KxResult Class_KXMP3::GetReferenceTime(QWUNION* time) {
  if (!ReadyToDecode()) return AF_E_TIME_NOT_READY;
  if (time == nullptr) return AF_E_POINTER;
  time->i = ReferenceTime(Position());
  return AF_S_OK;
}

KxResult Class_KXMP3::GetTotalTime(QWUNION* time) {
  if (!Opened()) return AF_E_TIME_NOT_READY;
  if (time == nullptr) return AF_E_POINTER;
  time->i = TotalTime(Position());
  return AF_S_OK;
}
