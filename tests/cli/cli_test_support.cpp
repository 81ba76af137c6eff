// Helpers of the kxhost tests (see cli_test_support.h).
#include "cli_test_support.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace kxtest {

namespace {

void RemoveTree(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return;
  if (S_ISDIR(st.st_mode)) {
    for (const auto& name : ListNames(path)) RemoveTree(path + "/" + name);
    rmdir(path.c_str());
  } else {
    unlink(path.c_str());
  }
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

ScratchDir::ScratchDir() {
  char name[] = "/tmp/kxhost_test_XXXXXX";
  path_ = mkdtemp(name) != nullptr ? name : "";
}

ScratchDir::~ScratchDir() {
  if (!path_.empty()) RemoveTree(path_);
}

std::vector<uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

bool PathExists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

std::vector<std::string> ListNames(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

void MakeDir(const std::string& path) { mkdir(path.c_str(), 0777); }

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
