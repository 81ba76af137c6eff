// Records this module exchanges with its host or shares between its subsystems:
// the MP3 information record, the comment record header, the ReplayGain record and
// the frame-index entry. All packed and little-endian; sizes and offsets are fixed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "../host/kxaudiofile.h"

namespace kxmp3 {

#pragma pack(push, 1)

// This format's information record: the generic record followed by MPEG details.
struct MP3Info {
  AudioFileInfo generic;        // 0..2487 (fourcc ZMP3 and size 2548 in this record)
  uint32_t containerType;       // 2488: 1..5 (see layout/container)
  uint32_t reserved;            // 2492
  uint32_t frameCount;          // 2496
  uint32_t mpegVersion;         // 2500: 1, 2, or 3 for MPEG-2.5
  uint32_t layer;               // 2504: 3
  uint32_t errorProtection;     // 2508: 1 when the protection bit is 0 (CRC present)
  uint32_t privateBit;          // 2512
  uint32_t copyrightBit;        // 2516
  uint32_t originalBit;         // 2520
  uint32_t emphasis;            // 2524: 0..3
  uint32_t vbrKind;             // 2528: VBR header kind
  uint32_t encoderDelay;        // 2532: samples the open skips at the start (encoder + decoder delay + header frame)
  uint32_t samplesRemoved;      // 2536: delay plus padding
  uint32_t vbrHeaderFrame;      // 2540: first frame carries only a VBR header (skip it)
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
static_assert(offsetof(MP3Info, encoderDelay) == 2532);
static_assert(offsetof(MP3Info, samplesRemoved) == 2536);
static_assert(offsetof(MP3Info, vbrHeaderFrame) == 2540);
static_assert(offsetof(MP3Info, headerFlags) == 2544);

constexpr uint32_t MP3_HEADER_FLAG_SCANNED = 1u << 0;            // frame count found by walking every frame
constexpr uint32_t MP3_HEADER_FLAG_ENCODER_IDENTIFIED = 1u << 1; // a LAME/GOGO (or other CRC-valid) tag named the encoder
constexpr uint32_t MP3_HEADER_FLAG_ESTIMATED = 1u << 2;          // frame count estimated after 512 frames
constexpr uint32_t MP3_HEADER_FLAG_COUNT_FROM_HEADER = 1u << 3;  // frame count from a Xing/Info/VBRI header

// ReplayGain record (FourCC RPGI), 44 bytes, doubles unaligned.
struct ReplayGainRecord {
  uint32_t fourcc;     // FOURCC_RPGI
  uint32_t size;       // 44
  uint32_t flags;      // RG_FLAG_* below
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

constexpr uint32_t RG_FLAG_TRACK_GAIN = 1;
constexpr uint32_t RG_FLAG_TRACK_PEAK = 2;
constexpr uint32_t RG_FLAG_ALBUM_GAIN = 4;
constexpr uint32_t RG_FLAG_ALBUM_PEAK = 8;

// Header of a comment record (FourCC ZAFC): seven character offsets into the UTF-16
// string area that starts at byte 64.
struct CommentField {
  int32_t offset;      // UTF-16 units from byte 64
  uint32_t reserved;
};
struct CommentRecordHeader {
  uint32_t fourcc;          // FOURCC_ZAFC
  uint32_t size;            // 64 + 2 x (sum of string lengths with terminators)
  CommentField fields[7];   // artist, title, album, year, track, genre, comment
};
static_assert(sizeof(CommentRecordHeader) == 64);
static_assert(offsetof(CommentRecordHeader, fields) == 8);

enum CommentFieldIndex : int {
  kCommentArtist = 0,
  kCommentTitle = 1,
  kCommentAlbum = 2,
  kCommentYear = 3,
  kCommentTrack = 4,
  kCommentGenre = 5,
  kCommentComment = 6,
};

// One entry of the frame index, per frame read.
struct FrameIndexEntry {
  uint64_t offset;           // stream position of the frame's first header byte (0 = unknown)
  uint32_t reservoirBitPos;  // reservoir bit position after the frame was decoded
  uint32_t reservoirWrite;   // reservoir write index after its main data was appended
  uint32_t reservoirFill;    // reservoir byte count after that append
};
static_assert(sizeof(FrameIndexEntry) == 20);
static_assert(offsetof(FrameIndexEntry, reservoirBitPos) == 8);
static_assert(offsetof(FrameIndexEntry, reservoirWrite) == 12);
static_assert(offsetof(FrameIndexEntry, reservoirFill) == 16);

#pragma pack(pop)

}  // namespace kxmp3
