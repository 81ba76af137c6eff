// kxhost info --json as a program would use it: one array, an object per file with
// the documented keys, every fixture conforming to cli/kxhost-info.schema.json, the
// values the fixtures were made with, errors as objects beside the good files, a
// folder of 1,000 files (some broken) reported file by file, and the code page
// option applied to 8-bit tag text.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;
using nlohmann::json;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kDataRoot = KX_TEST_DATA_DIR;
const std::string kMp3 = kDataRoot + "/mp3/";
const std::string kTags = kDataRoot + "/tags/";

json Schema() {
  std::ifstream in(std::string(KX_SOURCE_DIR) + "/cli/kxhost-info.schema.json");
  return json::parse(in);
}

// Runs info --json and parses standard output (a parse failure fails the test).
json InfoJson(std::vector<std::string> args, kxtest::ProcessResult* result = nullptr) {
  args.insert(args.begin(), {"--plugin", kModule, "info", "--json"});
  const auto r = RunProcess(kHost, args);
  if (result != nullptr) *result = r;
  json doc = json::parse(r.out, nullptr, false);
  EXPECT_FALSE(doc.is_discarded()) << "not JSON: " << r.out.substr(0, 400) << r.err;
  return doc;
}

size_t LineCount(const std::string& text) { return static_cast<size_t>(std::count(text.begin(), text.end(), '\n')); }

std::vector<std::string> FixtureFiles(const std::string& dir) {
  std::vector<std::string> files;
  for (const auto& name : kxtest::ListNames(dir)) {
    if (name.find(".txt") == std::string::npos && name.find(".raw") == std::string::npos) files.push_back(dir + name);
  }
  return files;
}

TEST(KxhostInfoJson, TheSchemaCheckerFindsViolations) {
  const json schema = Schema();
  json good = InfoJson({kMp3 + "m1_44100_joint_cbr.mp3"});
  ASSERT_TRUE(good.is_array());
  EXPECT_TRUE(kxtest::CheckSchema(schema, good).empty());
  json missing = good;
  missing[0].erase("frames");
  EXPECT_FALSE(kxtest::CheckSchema(schema, missing).empty());
  json extra = good;
  extra[0]["bogus"] = true;
  EXPECT_FALSE(kxtest::CheckSchema(schema, extra).empty());
  json badEnum = good;
  badEnum[0]["container"] = "wav";
  EXPECT_FALSE(kxtest::CheckSchema(schema, badEnum).empty());
  json badType = good;
  badType[0]["vbr"] = 0;
  EXPECT_FALSE(kxtest::CheckSchema(schema, badType).empty());
  json badTags = good;
  badTags[0]["tags"] = {{"artist", "x"}};
  EXPECT_FALSE(kxtest::CheckSchema(schema, badTags).empty());
}

TEST(KxhostInfoJson, EveryFixtureConformsToTheSchema) {
  std::vector<std::string> files = FixtureFiles(kMp3);
  const std::vector<std::string> tagFiles = FixtureFiles(kTags);
  files.insert(files.end(), tagFiles.begin(), tagFiles.end());
  files.push_back(kDataRoot + "/sample.mp3");
  ASSERT_GE(files.size(), 35u);
  kxtest::ProcessResult r;
  const json doc = InfoJson(files, &r);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(r.err.empty()) << r.err;
  ASSERT_TRUE(doc.is_array());
  ASSERT_EQ(doc.size(), files.size());
  for (const auto& problem : kxtest::CheckSchema(Schema(), doc)) ADD_FAILURE() << problem;
  for (size_t i = 0; i < files.size(); ++i) {
    EXPECT_EQ(doc[i]["file"], files[i]);
    EXPECT_FALSE(doc[i].contains("error")) << files[i];
  }
}

TEST(KxhostInfoJson, ValuesMatchTheFixtureManifest) {
  // name rate channels samples: what the encoder was given.
  std::ifstream manifest(kMp3 + "manifest.txt");
  std::vector<std::string> names;
  std::map<std::string, std::vector<long>> expected;
  std::string line;
  while (std::getline(manifest, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name;
    long rate = 0, channels = 0, samples = 0;
    if (fields >> name >> rate >> channels >> samples) {
      names.push_back(kMp3 + name);
      expected[kMp3 + name] = {rate, channels, samples};
    }
  }
  ASSERT_GE(names.size(), 20u);
  const json doc = InfoJson(names);
  ASSERT_EQ(doc.size(), names.size());
  for (const auto& entry : doc) {
    const std::string file = entry["file"];
    SCOPED_TRACE(file);
    const auto& want = expected[file];
    EXPECT_EQ(entry["sample_rate"], want[0]);
    EXPECT_EQ(entry["channels"], want[1]);
    EXPECT_EQ(entry["layer"], 3);
    const long samples = entry["total_samples"];
    if (file.find("noheader") != std::string::npos) {
      // No encoder tag: whole frames, nothing removed, no encoder named.
      EXPECT_GE(samples, want[2]);
      EXPECT_TRUE(entry["encoder"].is_null());
      EXPECT_EQ(entry["delay"], 0);
      EXPECT_EQ(entry["removed_samples"], 0);
    } else {
      EXPECT_EQ(samples, want[2]);
      EXPECT_EQ(entry["encoder"], "Lame Audio Codec v3.100");
      EXPECT_EQ(entry["description"].get<std::string>().rfind("Lame Audio Codec v3.100 (Compatible with MPEG ", 0), 0u);
      EXPECT_GT(entry["removed_samples"].get<long>(), 0);
    }
    // The duration follows from the samples.
    EXPECT_EQ(entry["duration_ms"], samples * 1000 / want[0]);
  }
}

TEST(KxhostInfoJson, ContainersVersionsAndHeaderFields) {
  const json doc = InfoJson({kMp3 + "riff_wave_55.wav", kMp3 + "m1_44100_joint_cbr.mp3", kMp3 + "riff_rmp3.rmp",
                             kMp3 + "id3v2.mp3", kMp3 + "apetag.mp3", kMp3 + "m25_8000_joint_abr.mp3",
                             kMp3 + "m1_44100_emph5015.mp3", kMp3 + "m2_22050_dual_cbr.mp3",
                             kMp3 + "m1_48000_stereo_vbr.mp3", kMp3 + "m2_16000_mono_cbr.mp3"});
  ASSERT_EQ(doc.size(), 10u);
  const char* containers[5] = {"riff-wave", "mp3", "riff-rmp3", "id3v2", "ape"};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(doc[i]["container"], containers[i]) << doc[i]["file"];
    EXPECT_EQ(doc[i]["container_type"], i + 1) << doc[i]["file"];
  }
  EXPECT_EQ(doc[0]["mpeg_version"], "1");
  EXPECT_EQ(doc[2]["mpeg_version"], "2");
  EXPECT_EQ(doc[5]["mpeg_version"], "2.5");
  EXPECT_EQ(doc[5]["sample_rate"], 8000);
  EXPECT_EQ(doc[6]["emphasis"], 1);
  EXPECT_EQ(doc[6]["channel_mode"], "Monaural");
  EXPECT_EQ(doc[1]["emphasis"], 0);
  EXPECT_EQ(doc[1]["channel_mode"], "Joint Stereo");
  EXPECT_EQ(doc[1]["bitrate_kbps"], 128);
  EXPECT_EQ(doc[1]["vbr"], false);
  // The open skips the encoder delay, the decoder's 529 and the header-only frame.
  EXPECT_EQ(doc[1]["delay"], 576 + 529 + 1152);
  EXPECT_EQ(doc[7]["channel_mode"], "Dual Channel");
  EXPECT_EQ(doc[8]["channel_mode"], "Stereo");
  EXPECT_EQ(doc[8]["vbr"], true);
  EXPECT_EQ(doc[9]["channels"], 1);
  EXPECT_GT(doc[1]["frames"].get<long>(), 38);  // one second at 1152 samples per frame
}

TEST(KxhostInfoJson, TagsAndReplayGain) {
  const json doc = InfoJson({kTags + "id3v23_latin1.mp3", kTags + "id3v2_ape.mp3", kTags + "ape_replaygain.mp3",
                             kTags + "riff_info.wav", kMp3 + "m1_44100_joint_cbr.mp3"});
  ASSERT_EQ(doc.size(), 5u);
  const json& latin1 = doc[0];
  EXPECT_EQ(latin1["tags"]["artist"], "Artiste Caf\u00e9");
  EXPECT_EQ(latin1["tags"]["title"], "Chanson d'\u00e9t\u00e9");
  EXPECT_EQ(latin1["tags"]["year"], "1999");
  EXPECT_EQ(latin1["tags"]["track"], "3/12");
  EXPECT_EQ(latin1["tags"]["genre"], "Rock");
  EXPECT_DOUBLE_EQ(latin1["replaygain"]["track_gain"].get<double>(), -6.48);
  EXPECT_DOUBLE_EQ(latin1["replaygain"]["track_peak"].get<double>(), 0.988831);
  EXPECT_DOUBLE_EQ(latin1["replaygain"]["album_gain"].get<double>(), -5.2);
  EXPECT_DOUBLE_EQ(latin1["replaygain"]["album_peak"].get<double>(), 1.012345);
  // ID3v2 first, APE filling the gaps; values the tags lack are null.
  const json& merged = doc[1];
  EXPECT_EQ(merged["tags"]["title"], "ID3 Title");
  EXPECT_EQ(merged["tags"]["album"], "APE Album");
  EXPECT_EQ(merged["tags"]["artist"], "");
  EXPECT_DOUBLE_EQ(merged["replaygain"]["track_gain"].get<double>(), -1.0);
  EXPECT_DOUBLE_EQ(merged["replaygain"]["album_gain"].get<double>(), -4.5);
  EXPECT_TRUE(merged["replaygain"]["track_peak"].is_null());
  EXPECT_TRUE(merged["replaygain"]["album_peak"].is_null());
  EXPECT_EQ(doc[2]["tags"]["title"], "APE Title \u2713");
  EXPECT_DOUBLE_EQ(doc[2]["replaygain"]["album_peak"].get<double>(), 0.999);
  EXPECT_EQ(doc[3]["tags"]["artist"], "Riff Artist");
  EXPECT_EQ(doc[3]["tags"]["track"], "09");
  // No tag at all: no "tags" key, and every ReplayGain value null.
  EXPECT_FALSE(doc[4].contains("tags"));
  for (const char* key : {"track_gain", "track_peak", "album_gain", "album_peak"}) {
    EXPECT_TRUE(doc[4]["replaygain"][key].is_null()) << key;
  }
}

TEST(KxhostInfoJson, FilesThatCannotBeOpenedAreReportedBesideTheOthers) {
  kxtest::ScratchDir dir;
  const std::string junk = dir / "junk.mp3";
  ASSERT_TRUE(kxtest::WriteFileBytes(junk, std::vector<uint8_t>(5000, 'j')));
  const std::string layer2 = dir / "empty.mp3";
  ASSERT_TRUE(kxtest::WriteFileBytes(layer2, {}));
  kxtest::ProcessResult r;
  const json doc = InfoJson({kMp3 + "id3v1.mp3", junk, dir / "missing.mp3", layer2, kMp3 + "apetag.mp3"}, &r);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(LineCount(r.err), 3u) << r.err;
  EXPECT_NE(r.err.find("kxhost: " + junk + ": "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("kxhost: " + dir / "missing.mp3" + ": file not found (ZS_E_NOT_FOUND, 0x2102)\n"),
            std::string::npos)
      << r.err;
  ASSERT_EQ(doc.size(), 5u);
  for (const auto& problem : kxtest::CheckSchema(Schema(), doc)) ADD_FAILURE() << problem;
  EXPECT_FALSE(doc[0].contains("error"));
  EXPECT_EQ(doc[0]["sample_rate"], 22050);
  EXPECT_EQ(doc[1]["file"], junk);
  EXPECT_EQ(doc[1].size(), 2u);  // file and error only
  EXPECT_TRUE(doc[1]["error"]["name"].get<std::string>().rfind("AF_E_", 0) == 0) << doc[1];
  EXPECT_EQ(doc[2]["error"]["name"], "ZS_E_NOT_FOUND");
  EXPECT_EQ(doc[2]["error"]["code"], "0x2102");
  EXPECT_EQ(doc[2]["error"]["reason"], "file not found");
  EXPECT_TRUE(doc[3].contains("error"));
  EXPECT_EQ(doc[4]["container"], "ape");
}

TEST(KxhostInfoJson, AThousandFilesInAFolderTreeAreEachReported) {
  kxtest::ScratchDir dir;
  const std::vector<uint8_t> sources[3] = {kxtest::ReadFileBytes(kMp3 + "id3v1.mp3"),
                                           kxtest::ReadFileBytes(kMp3 + "m2_16000_mono_cbr.mp3"),
                                           kxtest::ReadFileBytes(kMp3 + "apetag.mp3")};
  for (const auto& s : sources) ASSERT_FALSE(s.empty());
  size_t broken = 0;
  for (int folder = 0; folder < 10; ++folder) {
    const std::string sub = dir / ("disc" + std::to_string(folder));
    kxtest::MakeDir(sub);
    for (int i = 0; i < 100; ++i) {
      char name[32];
      std::snprintf(name, sizeof(name), "/track%03d.mp3", i);
      std::vector<uint8_t> bytes = sources[(folder + i) % 3];
      if (i % 25 == 7) {
        bytes.assign(3000, static_cast<uint8_t>(i));  // not MPEG audio at all
        ++broken;
      } else if (i % 25 == 13) {
        bytes.resize(300);  // cut inside the first frames
        ++broken;
      }
      ASSERT_TRUE(kxtest::WriteFileBytes(sub + name, bytes));
    }
  }
  const auto started = std::chrono::steady_clock::now();
  kxtest::ProcessResult r;
  const json doc = InfoJson({"-r", dir.Path()}, &r);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  ASSERT_TRUE(doc.is_array());
  // The junk is not MPEG audio: skipped, as decode skips it. The cut files may
  // still hold a frame or two the module accepts (then reported), or be skipped.
  const size_t skipped = 1000 - doc.size();
  EXPECT_GE(skipped, broken / 2);
  EXPECT_LE(skipped, broken);
  size_t errors = 0;
  size_t truncated = 0;
  size_t previous = 0;
  for (size_t k = 0; k < doc.size(); ++k) {
    const std::string file = doc[k]["file"];
    unsigned disc = 0, track = 0;
    ASSERT_EQ(std::sscanf(file.c_str() + dir.Path().size(), "/disc%u/track%u.mp3", &disc, &track), 2) << file;
    const size_t index = disc * 100 + track;
    EXPECT_TRUE(k == 0 || index > previous) << file;  // in order
    previous = index;
    if (doc[k].contains("error")) {
      ++errors;
      EXPECT_EQ(doc[k]["error"]["code"].get<std::string>().rfind("0x", 0), 0u);
    } else {
      EXPECT_GT(doc[k]["total_samples"].get<long>(), 0);
      truncated += doc[k]["truncated"].get<bool>();
    }
  }
  EXPECT_LE(errors + skipped + truncated, broken);
  // One line per error, one warning per truncated file, and the count of skipped files.
  EXPECT_EQ(LineCount(r.err), errors + truncated + 1) << r.err.substr(0, 500);
  EXPECT_NE(r.err.find("kxhost: " + std::to_string(skipped) + " files skipped (not MPEG audio); -v lists them\n"),
            std::string::npos)
      << r.err.substr(0, 500);
  EXPECT_EQ(r.exitCode, errors != 0 ? 1 : 0);
  EXPECT_LT(seconds, 60.0);
  // Without -r a folder's subfolders are left out.
  const json top = InfoJson({dir.Path()});
  EXPECT_TRUE(top.is_array() && top.empty());
}

TEST(KxhostInfoJson, CodePageOfEightBitTagText) {
  const json sjis = InfoJson({"--codepage", "932", kTags + "id3v11_sjis.mp3"});
  ASSERT_EQ(sjis.size(), 1u);
  EXPECT_EQ(sjis[0]["tags"]["title"], "\u30c6\u30b9\u30c8");
  EXPECT_EQ(sjis[0]["tags"]["artist"], "\u3042\u3044");
  const json western = InfoJson({"--codepage", "1252", kTags + "id3v11_sjis.mp3"});
  EXPECT_NE(western[0]["tags"]["title"], sjis[0]["tags"]["title"]);
  const auto bad = RunProcess(kHost, {"--plugin", kModule, "info", "--codepage", "77777", kTags + "id3v11.mp3"});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_EQ(bad.err, "kxhost: unknown code page 77777 (try 1252, 932, 936, 949, 950 or 65001)\n");
}

TEST(KxhostInfoJson, CarriesEveryFactOfTheTextView) {
  const std::string sample = kDataRoot + "/sample.mp3";
  const std::string crc = kMp3 + "m1_44100_crc.mp3";
  const std::string estimated = kMp3 + "m25_8000_noheader_long.mp3";
  const json doc = InfoJson({sample, crc, estimated});
  ASSERT_EQ(doc.size(), 3u);
  EXPECT_EQ(doc[0]["frames"], 155);
  EXPECT_EQ(doc[0]["frames_source"], "vbr-header");
  EXPECT_EQ(doc[0]["file_size"], kxtest::ReadFileBytes(sample).size());
  EXPECT_EQ(doc[0]["audio_bytes"], 42262);
  EXPECT_EQ(doc[0]["start_skip"], 2257);
  EXPECT_EQ(doc[0]["removed_samples"], 2160);
  EXPECT_EQ(doc[0]["emphasis_name"], "none");
  EXPECT_EQ(doc[0]["crc"], false);
  EXPECT_EQ(doc[0]["private"], false);
  EXPECT_EQ(doc[0]["copyright"], false);
  EXPECT_EQ(doc[0]["original"], true);
  EXPECT_EQ(doc[1]["crc"], true);
  EXPECT_EQ(doc[2]["frames_source"], "estimated");  // an estimated count no longer looks exact
  // The text view says the same of each file.
  for (size_t i = 0; i < doc.size(); ++i) {
    const json& j = doc[i];
    SCOPED_TRACE(j["file"].get<std::string>());
    const auto text = RunProcess(kHost, {"--plugin", kModule, "info", j["file"]});
    ASSERT_EQ(text.exitCode, 0);
    const std::string source = j["frames_source"] == "vbr-header" ? "from the VBR header" : j["frames_source"].get<std::string>();
    auto has = [&text](const std::string& line) { return text.out.find("\n" + line + "\n") != std::string::npos; };
    EXPECT_TRUE(has("frames: " + std::to_string(j["frames"].get<long>()) + " (" + source + ")")) << text.out;
    EXPECT_TRUE(has("file size: " + std::to_string(j["file_size"].get<long>()) + " bytes")) << text.out;
    EXPECT_TRUE(has("audio data: " + std::to_string(j["audio_bytes"].get<long>()) + " bytes")) << text.out;
    EXPECT_TRUE(has("start skip: " + std::to_string(j["start_skip"].get<long>()) + " samples")) << text.out;
    EXPECT_TRUE(has("removed: " + std::to_string(j["removed_samples"].get<long>()) +
                    " samples (encoder delay and padding)"))
        << text.out;
    EXPECT_TRUE(has("emphasis: " + j["emphasis_name"].get<std::string>())) << text.out;
    auto yes = [](const json& v) { return v.get<bool>() ? std::string("yes") : std::string("no"); };
    EXPECT_TRUE(has("crc: " + yes(j["crc"]) + ", private: " + yes(j["private"]) + ", copyright: " +
                    yes(j["copyright"]) + ", original: " + yes(j["original"])))
        << text.out;
  }
}

// Every key of the schema in the order kxhost prints them, each with a description
// and, when it is a number, a unit.
void CheckDocumented(const nlohmann::ordered_json& properties, const std::string& where) {
  for (const auto& [key, property] : properties.items()) {
    SCOPED_TRACE(where + "." + key);
    EXPECT_TRUE(property.contains("description") && property["description"].is_string() &&
                !property["description"].get<std::string>().empty());
    bool numeric = false;
    if (property.contains("type")) {
      const std::string types = property["type"].dump();
      numeric = types.find("integer") != std::string::npos || types.find("number") != std::string::npos;
    } else if (property.contains("enum")) {
      numeric = property["enum"][0].is_number();
    }
    if (numeric) {
      EXPECT_TRUE(property.contains("unit") && !property["unit"].get<std::string>().empty());
    }
    if (property.contains("properties")) CheckDocumented(property["properties"], where + "." + key);
  }
}

TEST(KxhostInfoJson, TheSchemaDocumentsEveryKeyInOrder) {
  std::ifstream in(std::string(KX_SOURCE_DIR) + "/cli/kxhost-info.schema.json");
  const auto schema = nlohmann::ordered_json::parse(in);
  const auto& file = schema["items"]["oneOf"][0]["properties"];
  CheckDocumented(file, "file");
  CheckDocumented(schema["items"]["oneOf"][1]["properties"], "error");
  const auto r = RunProcess(kHost, {"--plugin", kModule, "info", "--json", kDataRoot + "/sample.mp3"});
  const auto doc = nlohmann::ordered_json::parse(r.out);
  std::vector<std::string> printed, documented;
  for (const auto& [key, value] : doc[0].items()) printed.push_back(key);
  for (const auto& [key, value] : file.items()) documented.push_back(key);
  EXPECT_EQ(printed, documented);
  // The error object's code is the hexadecimal text of standard error, with the name.
  kxtest::ProcessResult junk;
  const json error = InfoJson({kDataRoot + "/regression/README.md"}, &junk);
  EXPECT_EQ(error[0]["error"]["code"], "0x3101");
  EXPECT_EQ(error[0]["error"]["name"], "AF_E_NO_SYNC");
  EXPECT_NE(junk.err.find("(AF_E_NO_SYNC, 0x3101)"), std::string::npos) << junk.err;
}

TEST(KxhostInfoJson, FieldsChooseTheKeysForScripts) {
  const auto r = RunProcess(kHost, {"--plugin", kModule, "info", "--fields", "duration_ms, truncated,file",
                                    kDataRoot + "/sample.mp3", kDataRoot + "/regression/README.md"});
  EXPECT_EQ(r.exitCode, 1);
  const auto doc = nlohmann::ordered_json::parse(r.out);  // --fields implies --json
  ASSERT_EQ(doc.size(), 2u);
  std::vector<std::string> keys;
  for (const auto& [key, value] : doc[0].items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"file", "duration_ms", "truncated"}));
  EXPECT_EQ(doc[0]["duration_ms"], 4000);
  EXPECT_EQ(doc[1].size(), 2u);  // a failed file keeps its error
  EXPECT_EQ(doc[1]["error"]["name"], "AF_E_NO_SYNC");
  const auto bad = RunProcess(kHost, {"--plugin", kModule, "info", "--fields", "file,length", kDataRoot + "/sample.mp3"});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_EQ(bad.err.rfind("kxhost: --fields: no field \"length\" (fields: file, container, ", 0), 0u) << bad.err;
  EXPECT_TRUE(bad.out.empty());
}

}  // namespace
