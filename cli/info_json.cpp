// `kxhost info --json` objects (see info_json.h).
#include "info_json.h"

#include "cli_error.h"
#include "text.h"

namespace kxhost {

namespace {

// The records are packed: a field is copied out before JSON code, which takes its
// arguments by reference, can see it.
template <typename T>
T Copy(T value) {
  return value;
}

nlohmann::ordered_json OptionalNumber(bool present, double value) {
  return present ? nlohmann::ordered_json(value) : nlohmann::ordered_json(nullptr);
}

}  // namespace

nlohmann::ordered_json ReportToJson(const FileReport& report) {
  nlohmann::ordered_json j;
  j["file"] = report.file;
  if (report.failed) {
    const std::string name = ResultName(report.errorCode);
    j["error"] = {{"name", name.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(name)},
                  {"code", Copy(report.errorCode)},
                  {"reason", report.errorReason}};
    return j;
  }
  const kxmp3::MP3Info& info = report.info;
  const AudioFileInfo& g = info.generic;
  const std::string description = ToUtf8(g.description);
  j["container"] = ContainerKey(info.containerType);
  j["container_type"] = Copy(info.containerType);
  j["mpeg_version"] = MpegVersionText(info.mpegVersion);
  j["layer"] = Copy(info.layer);
  j["sample_rate"] = Copy(g.sampleRate);
  j["channels"] = Copy(g.channels);
  j["channel_mode"] = ToUtf8(g.channelModeName);
  j["bitrate_kbps"] = Copy(g.bitrateKbps);
  j["vbr"] = (g.formatFlags & AFI_FLAG_VBR) != 0;
  j["frames"] = Copy(info.frameCount);
  j["duration_ms"] = Copy(g.playTimeMs);
  j["total_samples"] = TotalSamples(info);
  const auto encoder = EncoderFromDescription(description);
  j["encoder"] = encoder ? nlohmann::ordered_json(*encoder) : nlohmann::ordered_json(nullptr);
  j["description"] = description;
  j["delay"] = Copy(info.startSkip);
  j["removed_samples"] = Copy(info.samplesRemoved);
  j["emphasis"] = Copy(info.emphasis);
  if (report.tags) {
    nlohmann::ordered_json tags = nlohmann::ordered_json::object();
    for (int i = 0; i < 7; ++i) tags[kTagFieldNames[i]] = (*report.tags)[i];
    j["tags"] = tags;
  }
  const kxmp3::ReplayGainRecord& rg = report.replayGain;
  j["replaygain"] = {
      {"track_gain", OptionalNumber((rg.flags & kxmp3::RG_FLAG_TRACK_GAIN) != 0, Copy(rg.trackGain))},
      {"track_peak", OptionalNumber((rg.flags & kxmp3::RG_FLAG_TRACK_PEAK) != 0, Copy(rg.trackPeak))},
      {"album_gain", OptionalNumber((rg.flags & kxmp3::RG_FLAG_ALBUM_GAIN) != 0, Copy(rg.albumGain))},
      {"album_peak", OptionalNumber((rg.flags & kxmp3::RG_FLAG_ALBUM_PEAK) != 0, Copy(rg.albumPeak))},
  };
  return j;
}

std::string ReportsToJsonText(const nlohmann::ordered_json& array) {
  return array.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace kxhost
