// The tag step of the open sequence: which tag readers run for a container type, in
// which order their records are merged (the first non-empty text of each field wins)
// and where the ReplayGain values come from.
//
//   RIFF (types 1, 3): ID3v1, then RIFF INFO  -> INFO over ID3v1; ReplayGain untouched
//   plain MPEG (4):    ID3v1, ID3v2, APE      -> ID3v2 over APE over ID3v1; ReplayGain
//                                                from ID3v2, gaps filled from APE
//   bare + APE (5):    ID3v1, APE             -> APE over ID3v1; ReplayGain from APE
//   any other:         ID3v1                  -> ID3v1; ReplayGain reset
#pragma once

#include <cstdint>

#include "../host/zstream.h"
#include "../host/kx_replaygain_record.h"

namespace kxmp3 {

// Runs the readers for `containerType` (kContainer* of host/kx_mp3_info.h) and returns
// the merged comment record (core memory, for Class_KXAudioFile::SetCommentSource), or
// null when no tag was found. `objectReplayGain` is the decoder object's record. The
// stream position is restored.
void* ReadTagsForContainer(Class_ZStream* stream, uint32_t containerType, ReplayGainRecord* objectReplayGain);

// The ReplayGain merge of a plain MPEG stream: every value whose flag is clear in
// `primary` is taken from `secondary` (flag or no flag), and the flags are OR-ed.
void MergeReplayGainRecords(ReplayGainRecord* primary, const ReplayGainRecord& secondary);

}  // namespace kxmp3
