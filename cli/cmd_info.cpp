// kxhost info FILE: opens FILE for information only and prints what the decoder
// knows of it: format, rate, channels, bitrate, frames, duration, encoder, start
// skip and removed samples, container, the merged tags and the ReplayGain values.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "decoder_session.h"
#include "plugin/records.h"
#include "text.h"

namespace kxhost {

namespace {

const char* ContainerName(uint32_t type) {
  switch (type) {
    case 1: return "RIFF WAVE (MP3)";
    case 2: return "MP3";
    case 3: return "RIFF MP3";
    case 4: return "ID3 v2.x";
    case 5: return "MP3 with APE tag";
    default: return "Unknown";
  }
}

const char* VersionName(uint32_t version) {
  switch (version) {
    case 1: return "MPEG-1";
    case 2: return "MPEG-2";
    case 3: return "MPEG-2.5";
    default: return "unknown";
  }
}

const char* EmphasisName(uint32_t emphasis) {
  switch (emphasis) {
    case 0: return "none";
    case 1: return "50/15 us";
    case 3: return "CCITT J.17";
    default: return "reserved";
  }
}

const char* const kFieldNames[7] = {"artist", "title", "album", "year", "track", "genre", "comment"};

void PrintTags(Class_KXAudioFile* audio) {
  uint32_t size = 0;
  KxResult rc = audio->GetComment(FOURCC_ZMP3, nullptr, &size);
  if (rc != AF_S_OK || size < sizeof(kxmp3::CommentRecordHeader)) {
    std::printf("tags: none\n");
    return;
  }
  std::vector<uint8_t> record(size);
  rc = audio->GetComment(FOURCC_ZMP3, record.data(), &size);
  if (rc != AF_S_OK) {
    std::printf("tags: unreadable (%s)\n", ResultText(rc).c_str());
    return;
  }
  kxmp3::CommentRecordHeader header;
  std::memcpy(&header, record.data(), sizeof(header));
  const size_t units = (size - sizeof(header)) / 2;
  std::vector<char16_t> strings(units + 1, 0);
  std::memcpy(strings.data(), record.data() + sizeof(header), units * 2);
  std::printf("tags:\n");
  for (int i = 0; i < 7; ++i) {
    const int32_t offset = header.fields[i].offset;
    const std::string text =
        offset >= 0 && static_cast<size_t>(offset) < units ? ToUtf8(strings.data() + offset) : std::string();
    std::printf("  %-8s %s\n", (std::string(kFieldNames[i]) + ":").c_str(), text.c_str());
  }
}

void PrintReplayGain(Class_KXAudioFile* audio) {
  kxmp3::ReplayGainRecord rg{};
  uint32_t size = sizeof(rg);
  if (audio->GetInfo(FOURCC_RPGI, &rg, &size) != AF_S_OK || rg.flags == 0) {
    std::printf("replaygain: none\n");
    return;
  }
  std::printf("replaygain:\n");
  if (rg.flags & kxmp3::RG_FLAG_TRACK_GAIN) std::printf("  track gain: %+.2f dB\n", rg.trackGain);
  if (rg.flags & kxmp3::RG_FLAG_TRACK_PEAK) std::printf("  track peak: %.6f\n", rg.trackPeak);
  if (rg.flags & kxmp3::RG_FLAG_ALBUM_GAIN) std::printf("  album gain: %+.2f dB\n", rg.albumGain);
  if (rg.flags & kxmp3::RG_FLAG_ALBUM_PEAK) std::printf("  album peak: %.6f\n", rg.albumPeak);
}

int RunInfo(const GlobalOptions& options, const std::string& file) {
  LoadedModule module(FindModule(options.plugin));
  DecoderSession session(module, file, OPEN_FLAG_INFO_ONLY, 16);
  Class_KXAudioFile* audio = session.Audio();
  kxmp3::MP3Info info{};
  uint32_t size = sizeof(info);
  const KxResult rc = audio->GetInfo(FOURCC_ZMP3, &info, &size);
  if (rc != AF_S_OK) throw CliError("the decoder refused its information record: " + ResultText(rc));
  const AudioFileInfo& g = info.generic;
  const uint64_t ms = g.playTimeMs;
  std::printf("file: %s\n", file.c_str());
  std::printf("format: %s\n", ToUtf8(g.description).c_str());
  std::printf("version: %s Layer %u\n", VersionName(info.mpegVersion), info.layer);
  std::printf("container: %s\n", ContainerName(info.containerType));
  std::printf("sample rate: %u Hz\n", g.sampleRate);
  std::printf("channels: %u (%s)\n", g.channels, ToUtf8(g.channelModeName).c_str());
  std::printf("bitrate: %u kbps (%s)\n", g.bitrateKbps, (g.formatFlags & AFI_FLAG_VBR) ? "VBR" : "CBR");
  const char* countSource = (info.headerFlags & kxmp3::MP3_HEADER_FLAG_COUNT_FROM_HEADER) ? "from the VBR header"
                            : (info.headerFlags & kxmp3::MP3_HEADER_FLAG_ESTIMATED)     ? "estimated"
                            : (info.headerFlags & kxmp3::MP3_HEADER_FLAG_SCANNED)       ? "counted"
                                                                                         : "unknown";
  std::printf("frames: %u (%s)\n", info.frameCount, countSource);
  std::printf("duration: %llu:%02llu.%03llu (%llu ms)\n", static_cast<unsigned long long>(ms / 60000),
              static_cast<unsigned long long>(ms / 1000 % 60), static_cast<unsigned long long>(ms % 1000),
              static_cast<unsigned long long>(ms));
  std::printf("audio data: %llu bytes\n", static_cast<unsigned long long>(g.dataLength));
  std::printf("pcm bytes: %llu (16-bit)\n", static_cast<unsigned long long>(g.totalPcmBytes));
  // An identified encoder leads the description: "NAME (Compatible with ...)".
  std::string encoder = "not identified";
  if ((info.headerFlags & kxmp3::MP3_HEADER_FLAG_ENCODER_IDENTIFIED) != 0) {
    encoder = ToUtf8(g.description);
    const size_t cut = encoder.find(" (Compatible with");
    if (cut != std::string::npos) encoder.resize(cut);
  }
  std::printf("encoder: %s\n", encoder.c_str());
  std::printf("start skip: %u samples\n", info.encoderDelay);
  std::printf("delay + padding: %u samples\n", info.samplesRemoved);
  std::printf("vbr header frame: %s\n", info.vbrHeaderFrame ? "yes" : "no");
  std::printf("emphasis: %s\n", EmphasisName(info.emphasis));
  std::printf("crc: %s, private: %s, copyright: %s, original: %s\n", info.errorProtection ? "yes" : "no",
              info.privateBit ? "yes" : "no", info.copyrightBit ? "yes" : "no", info.originalBit ? "yes" : "no");
  PrintTags(audio);
  PrintReplayGain(audio);
  return 0;
}

}  // namespace

void AddInfoCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("info", "print what the decoder knows of FILE");
  static std::string file;  // the parsed argument, read by the callback
  sub->add_option("FILE", file, "audio file")->required();
  sub->callback([&options, &result] { result.exitCode = RunInfo(options, file); });
}

}  // namespace kxhost
