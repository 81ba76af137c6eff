// ReplayGainRecord (FourCC RPGI, 44 bytes): up to four ReplayGain values that the
// tag readers find and GetInfo("RPGI") hands to the host. Packed, the doubles
// unaligned; every size and offset is fixed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kxmp3 {

#pragma pack(push, 1)

struct ReplayGainRecord {
  uint32_t fourcc;     // FOURCC_RPGI
  uint32_t size;       // 44
  uint32_t flags;      // RG_FLAG_* below: which values are meaningful
  double trackGain;    // dB
  double trackPeak;    // linear
  double albumGain;    // dB
  double albumPeak;    // linear
};
static_assert(sizeof(ReplayGainRecord) == 44);
static_assert(offsetof(ReplayGainRecord, flags) == 8);
static_assert(offsetof(ReplayGainRecord, trackGain) == 12);
static_assert(offsetof(ReplayGainRecord, trackPeak) == 20);
static_assert(offsetof(ReplayGainRecord, albumGain) == 28);
static_assert(offsetof(ReplayGainRecord, albumPeak) == 36);

#pragma pack(pop)

constexpr uint32_t RG_FLAG_TRACK_GAIN = 1;
constexpr uint32_t RG_FLAG_TRACK_PEAK = 2;
constexpr uint32_t RG_FLAG_ALBUM_GAIN = 4;
constexpr uint32_t RG_FLAG_ALBUM_PEAK = 8;

}  // namespace kxmp3
