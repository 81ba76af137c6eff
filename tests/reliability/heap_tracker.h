// Counts the bytes of the C++ heap (global operator new and delete of the whole
// test process) so that the resource-bound tests can measure what the tag readers
// and the open sequence take from it besides core memory. Process-wide: measure
// from one thread at a time.
#pragma once

#include <cstdint>

namespace kxrel {

int64_t HeapLiveBytes();
int64_t HeapPeakBytes();
// Sets the peak to the bytes live now.
void ResetHeapPeak();

// The most core memory (ZCoreAlloc) and C++ heap a call took above what was live
// when it started.
struct PeakUse {
  int64_t core = 0;
  int64_t heap = 0;
};
template <typename F>
PeakUse MeasurePeak(F&& run);

}  // namespace kxrel

#include "host/kxcore.h"

template <typename F>
kxrel::PeakUse kxrel::MeasurePeak(F&& run) {
  const int64_t core = ZCoreLiveBytes();
  const int64_t heap = HeapLiveBytes();
  ZCoreResetPeakLiveBytes();
  ResetHeapPeak();
  run();
  return PeakUse{ZCorePeakLiveBytes() - core, HeapPeakBytes() - heap};
}
