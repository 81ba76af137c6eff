// Helpers of the kxhost tests (see cli_test_support.h).
#include "cli_test_support.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace kxtest {

namespace {

namespace fs = std::filesystem;

// The tests' paths are UTF-8 (on POSIX, bytes whatever their encoding): through
// char8_t they reach the system as they are on POSIX and as UTF-16 on Windows.
fs::path Fs(const std::string& path) { return fs::path(std::u8string(path.begin(), path.end())); }

std::string Text(const fs::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

bool HasType(const nlohmann::json& value, const std::string& type) {
  if (type == "object") return value.is_object();
  if (type == "array") return value.is_array();
  if (type == "string") return value.is_string();
  if (type == "boolean") return value.is_boolean();
  if (type == "null") return value.is_null();
  if (type == "integer") return value.is_number_integer();
  if (type == "number") return value.is_number();
  return false;
}

}  // namespace

ScratchDir::ScratchDir() : path_(MakeTempFolder("kxhost_test_")) {}

ScratchDir::~ScratchDir() {
  std::error_code ec;
  if (!path_.empty()) fs::remove_all(Fs(path_), ec);
}

std::vector<uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream in(Fs(path), std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(Fs(path), std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

bool PathExists(const std::string& path) {
  std::error_code ec;
  return fs::exists(Fs(path), ec);
}

std::vector<std::string> ListNames(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (fs::directory_iterator it(Fs(dir), ec), end; !ec && it != end; it.increment(ec)) {
    names.push_back(Text(it->path().filename()));
  }
  std::sort(names.begin(), names.end());
  return names;
}

void MakeDir(const std::string& path) {
  std::error_code ec;
  fs::create_directory(Fs(path), ec);
}

uint64_t FileSize(const std::string& path) {
  std::error_code ec;
  const uintmax_t size = fs::file_size(Fs(path), ec);
  return ec ? 0 : size;
}

std::string FileText(const std::string& path) {
  const auto bytes = ReadFileBytes(path);
  return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> MakeFiftyFiles(const std::string& root) {
  static const char* const kSources[] = {"m1_44100_joint_cbr.mp3", "m2_16000_mono_cbr.mp3", "m25_11025_stereo_cbr.mp3",
                                         "id3v2_ape.mp3", "riff_wave_50.wav", "m1_32000_mono_abr.mp3",
                                         "m2_24000_joint_vbr.mp3", "apetag.mp3", "m1_44100_noheader_short.mp3",
                                         "riff_rmp3.rmp"};
  const std::string mp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";
  MakeDir(root);
  MakeDir(root + "/cd1");
  MakeDir(root + "/cd2");
  std::vector<std::string> relative;
  for (int i = 0; i < 50; ++i) {
    const std::string source = kSources[i % 10];
    const std::string ext = source.substr(source.rfind('.'));
    const std::string folder = i < 20 ? "" : (i < 35 ? "cd1/" : "cd2/");
    char name[32];
    std::snprintf(name, sizeof(name), "track%02d", i);
    relative.push_back(folder + name + ext);
    WriteFileBytes(root + "/" + relative.back(), ReadFileBytes(mp3 + source));
  }
  return relative;
}

std::string MakeLongStream(const std::string& path, int copies) {
  const std::vector<uint8_t> one = ReadFileBytes(std::string(KX_TEST_DATA_DIR) + "/mp3/m1_44100_noheader_short.mp3");
  std::vector<uint8_t> all;
  for (int i = 0; i < copies; ++i) all.insert(all.end(), one.begin(), one.end());
  WriteFileBytes(path, all);
  return path;
}

std::string DecodeToRaw(const std::string& input, const std::vector<std::string>& extra) {
  std::vector<std::string> args = {"--plugin", KX_MODULE_PATH, "decode", input, "-o", "-", "--format", "raw"};
  args.insert(args.end(), extra.begin(), extra.end());
  const auto r = RunProcess(KX_KXHOST_PATH, args);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return r.out;
}

nlohmann::json InfoWithoutName(const ProcessResult& r) {
  nlohmann::json doc = nlohmann::json::parse(r.out, nullptr, false);
  if (!doc.is_array() || doc.size() != 1) return nlohmann::json();
  doc[0].erase("file");
  return doc[0];
}

std::vector<std::string> CheckSchema(const nlohmann::json& schema, const nlohmann::json& value,
                                     const std::string& where) {
  std::vector<std::string> problems;
  auto fail = [&](const std::string& what) { problems.push_back(where + ": " + what); };
  if (schema.contains("type")) {
    const auto& type = schema["type"];
    bool ok = false;
    if (type.is_string()) ok = HasType(value, type.get<std::string>());
    else for (const auto& t : type) ok = ok || HasType(value, t.get<std::string>());
    if (!ok) fail("type is not " + type.dump() + ": " + value.dump());
  }
  if (schema.contains("enum")) {
    const auto& options = schema["enum"];
    if (std::find(options.begin(), options.end(), value) == options.end()) fail("not one of " + options.dump());
  }
  if (value.is_number()) {
    if (schema.contains("minimum") && value.get<double>() < schema["minimum"].get<double>()) fail("below minimum");
    if (schema.contains("maximum") && value.get<double>() > schema["maximum"].get<double>()) fail("above maximum");
  }
  if (value.is_object()) {
    if (schema.contains("required")) {
      for (const auto& key : schema["required"]) {
        if (!value.contains(key.get<std::string>())) fail("missing key " + key.get<std::string>());
      }
    }
    const bool closed = schema.contains("additionalProperties") && schema["additionalProperties"] == false;
    for (const auto& [key, item] : value.items()) {
      if (schema.contains("properties") && schema["properties"].contains(key)) {
        auto sub = CheckSchema(schema["properties"][key], item, where + "." + key);
        problems.insert(problems.end(), sub.begin(), sub.end());
      } else if (closed) {
        fail("unexpected key " + key);
      }
    }
  }
  if (value.is_array() && schema.contains("items")) {
    for (size_t i = 0; i < value.size(); ++i) {
      auto sub = CheckSchema(schema["items"], value[i], where + "[" + std::to_string(i) + "]");
      problems.insert(problems.end(), sub.begin(), sub.end());
    }
  }
  if (schema.contains("oneOf")) {
    int matches = 0;
    for (const auto& option : schema["oneOf"]) matches += CheckSchema(option, value, where).empty();
    if (matches != 1) fail("matches " + std::to_string(matches) + " of the oneOf choices, not exactly one");
  }
  return problems;
}

}  // namespace kxtest
