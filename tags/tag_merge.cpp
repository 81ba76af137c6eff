// The open sequence's tag step (see tag_merge.h).
#include "tag_merge.h"

#include <string>

#include "../host/kxcore.h"
#include "../host/kx_mp3_info.h"
#include "ape_tag.h"
#include "comment_record.h"
#include "id3v1.h"
#include "id3v2.h"
#include "replaygain.h"
#include "riff_info.h"

namespace kxmp3 {
namespace {

// Merges two records, either of which may be null, releasing both; the primary's
// texts win.
void* MergeAndRelease(void* primary, void* secondary) {
  if (primary == nullptr) return secondary;
  if (secondary == nullptr) return primary;
  void* merged = MergeCommentRecords(primary, secondary);
  ZCoreFree(primary);
  ZCoreFree(secondary);
  return merged;
}

}  // namespace

void MergeReplayGainRecords(ReplayGainRecord* primary, const ReplayGainRecord& secondary) {
  if ((primary->flags & RG_FLAG_TRACK_GAIN) == 0) primary->trackGain = secondary.trackGain;
  if ((primary->flags & RG_FLAG_TRACK_PEAK) == 0) primary->trackPeak = secondary.trackPeak;
  if ((primary->flags & RG_FLAG_ALBUM_GAIN) == 0) primary->albumGain = secondary.albumGain;
  if ((primary->flags & RG_FLAG_ALBUM_PEAK) == 0) primary->albumPeak = secondary.albumPeak;
  primary->flags |= secondary.flags;
}

void* ReadTagsForContainer(Class_ZStream* stream, uint32_t containerType, ReplayGainRecord* objectReplayGain) {
  if (stream == nullptr) return nullptr;
  int64_t saved = 0;
  const bool havePosition = stream->GetPosition(&saved) == AF_S_OK;

  ReplayGainRecord scratch;
  void* id3v1 = ReadId3v1Tag(stream, &scratch);
  void* tags = nullptr;
  switch (containerType) {
    case kContainerRiffWave:
    case kContainerRiffRmp3: {
      const std::u16string track = CommentRecordField(id3v1, kCommentTrack);
      tags = ReadRiffInfoList(stream, track.empty() ? nullptr : track.c_str());
      break;
    }
    case kContainerId3v2: {
      ReplayGainRecord id3v2Gain;
      ReplayGainRecord apeGain;
      void* id3v2 = ReadId3v2Tag(stream, &id3v2Gain);
      void* ape = ReadApeTag(stream, &apeGain);
      if (id3v2 != nullptr && ape != nullptr) {
        MergeReplayGainRecords(&id3v2Gain, apeGain);
        if (objectReplayGain != nullptr) *objectReplayGain = id3v2Gain;
      } else if (id3v2 != nullptr) {
        if (objectReplayGain != nullptr) *objectReplayGain = id3v2Gain;
      } else if (ape != nullptr) {
        if (objectReplayGain != nullptr) *objectReplayGain = apeGain;
      } else {
        ResetReplayGainRecord(objectReplayGain);
      }
      tags = MergeAndRelease(id3v2, ape);
      break;
    }
    case kContainerBareApe:
      tags = ReadApeTag(stream, objectReplayGain);
      break;
    default:
      ResetReplayGainRecord(objectReplayGain);
      break;
  }
  tags = MergeAndRelease(tags, id3v1);
  if (havePosition) stream->Seek(saved, ZS_SEEK_SET);
  return tags;
}

}  // namespace kxmp3
