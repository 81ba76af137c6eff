// MP3Info: this format's information record (FourCC ZMP3, 2,548 bytes), which the
// header parser fills, the open sequence adjusts and GetInfo hands to the host. Its
// first 2,488 bytes are the host's generic audio-file record. Packed, little-endian;
// every size and offset is fixed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kxaudiofile.h"

namespace kxmp3 {

#pragma pack(push, 1)

struct MP3Info {
  AudioFileInfo generic;        // 0..2487 (fourcc ZMP3 and size 2548 in this record)
  uint32_t containerType;       // 2488: 1..5 (container detection)
  uint32_t reserved;            // 2492
  uint32_t frameCount;          // 2496
  uint32_t mpegVersion;         // 2500: 1, 2, or 3 for MPEG-2.5
  uint32_t layer;               // 2504: 3
  uint32_t errorProtection;     // 2508: 1 when the protection bit is 0 (check word present)
  uint32_t privateBit;          // 2512
  uint32_t copyrightBit;        // 2516
  uint32_t originalBit;         // 2520
  uint32_t emphasis;            // 2524: 0..3
  uint32_t vbrKind;             // 2528: VBR header kind (1 Xing or VBRI, 0 Info or none), or for a
                                //       counted stream whose bitrate changes the first frame with
                                //       another bitrate
  uint32_t startSkip;           // 2532: the record's "encoder delay" field; it holds the whole start
                                //       skip in samples (encoder delay + decoder delay + header frame)
  uint32_t samplesRemoved;      // 2536: encoder delay plus padding
  uint32_t vbrHeaderFrame;      // 2540: first frame carries only a VBR header (skip-first-frame flag)
  uint32_t headerFlags;         // 2544: MP3_HEADER_FLAG_* below
};
static_assert(sizeof(MP3Info) == 2548);
static_assert(offsetof(MP3Info, containerType) == 2488);
static_assert(offsetof(MP3Info, reserved) == 2492);
static_assert(offsetof(MP3Info, frameCount) == 2496);
static_assert(offsetof(MP3Info, mpegVersion) == 2500);
static_assert(offsetof(MP3Info, layer) == 2504);
static_assert(offsetof(MP3Info, errorProtection) == 2508);
static_assert(offsetof(MP3Info, privateBit) == 2512);
static_assert(offsetof(MP3Info, copyrightBit) == 2516);
static_assert(offsetof(MP3Info, originalBit) == 2520);
static_assert(offsetof(MP3Info, emphasis) == 2524);
static_assert(offsetof(MP3Info, vbrKind) == 2528);
static_assert(offsetof(MP3Info, startSkip) == 2532);
static_assert(offsetof(MP3Info, samplesRemoved) == 2536);
static_assert(offsetof(MP3Info, vbrHeaderFrame) == 2540);
static_assert(offsetof(MP3Info, headerFlags) == 2544);

#pragma pack(pop)

// Container types (MP3Info::containerType).
constexpr uint32_t kContainerNone = 0;      // detection failed
constexpr uint32_t kContainerRiffWave = 1;  // RIFF "WAVE" whose "fmt " declares MPEG Layer-3
constexpr uint32_t kContainerBare = 2;      // bare MPEG audio
constexpr uint32_t kContainerRiffRmp3 = 3;  // RIFF "RMP3"
constexpr uint32_t kContainerId3v2 = 4;     // MPEG audio behind an ID3v2 tag
constexpr uint32_t kContainerBareApe = 5;   // bare MPEG audio with an APE tag at its end

constexpr uint32_t MP3_HEADER_FLAG_SCANNED = 1u << 0;            // frame count found by walking every frame
constexpr uint32_t MP3_HEADER_FLAG_ENCODER_IDENTIFIED = 1u << 1; // a LAME/GOGO (or other CRC-valid) tag named the encoder
constexpr uint32_t MP3_HEADER_FLAG_ESTIMATED = 1u << 2;          // frame count estimated after 512 frames
constexpr uint32_t MP3_HEADER_FLAG_COUNT_FROM_HEADER = 1u << 3;  // frame count from a Xing/Info/VBRI header

}  // namespace kxmp3
