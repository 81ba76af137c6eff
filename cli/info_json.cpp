// `kxhost info --json` objects (see info_json.h).
#include "info_json.h"

#include <cstdio>

#include "cli_error.h"
#include "text.h"
#include "time_value.h"

namespace kxhost {

const std::vector<std::string> kInfoJsonKeys = {
    "file",         "container",       "container_type", "mpeg_version",  "layer",
    "sample_rate",  "channels",        "channel_mode",   "bitrate_kbps",  "vbr",
    "frames",       "frames_source",   "duration_ms",    "total_samples", "truncated",
    "present_samples", "present_duration_ms", "file_size", "audio_bytes", "encoder",
    "description",  "start_skip",      "delay",          "removed_samples", "emphasis",
    "emphasis_name", "crc",            "private",        "copyright",     "original",
    "tags",         "replaygain"};

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

std::string Hex(KxResult code) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%X", code);
  return text;
}

}  // namespace

nlohmann::ordered_json ReportToJson(const FileReport& report) {
  nlohmann::ordered_json j;
  j["file"] = report.file;
  if (report.failed) {
    const std::string name = ResultName(report.errorCode);
    j["error"] = {{"name", name.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(name)},
                  {"code", Hex(report.errorCode)},
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
  j["frames_source"] = FrameCountSourceKey(info);
  j["duration_ms"] = Copy(g.playTimeMs);
  j["total_samples"] = TotalSamples(info);
  j["truncated"] = report.truncated;
  j["present_samples"] = report.presentSamples;
  j["present_duration_ms"] = g.sampleRate != 0 ? report.presentSamples * 1000 / g.sampleRate : 0;
  j["file_size"] = report.fileSize;
  j["audio_bytes"] = Copy(g.dataLength);
  const auto encoder = EncoderFromDescription(description);
  j["encoder"] = encoder ? nlohmann::ordered_json(*encoder) : nlohmann::ordered_json(nullptr);
  j["description"] = description;
  j["start_skip"] = Copy(info.startSkip);
  j["delay"] = Copy(info.startSkip);
  j["removed_samples"] = Copy(info.samplesRemoved);
  j["emphasis"] = Copy(info.emphasis);
  j["emphasis_name"] = EmphasisName(info.emphasis);
  j["crc"] = info.errorProtection != 0;
  j["private"] = info.privateBit != 0;
  j["copyright"] = info.copyrightBit != 0;
  j["original"] = info.originalBit != 0;
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

nlohmann::ordered_json SelectFields(const nlohmann::ordered_json& object, const std::vector<std::string>& fields) {
  nlohmann::ordered_json out;
  out["file"] = object["file"];
  if (object.contains("error")) {
    out["error"] = object["error"];
    return out;
  }
  for (const auto& field : fields) {
    if (field != "file" && object.contains(field)) out[field] = object[field];
  }
  return out;
}

std::string ReportsToJsonText(const nlohmann::ordered_json& array) {
  return array.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace kxhost
