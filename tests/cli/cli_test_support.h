// Helpers of the kxhost tests: scratch folders removed with everything in them,
// whole-file reads and writes, and a checker for the subset of JSON Schema that
// cli/kxhost-info.schema.json uses.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace kxtest {

// A scratch folder under /tmp, removed (recursively) at the end of the test.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::vector<uint8_t> ReadFileBytes(const std::string& path);
bool WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes);
bool PathExists(const std::string& path);
// Names in a folder (no "." and ".."), sorted.
std::vector<std::string> ListNames(const std::string& dir);
void MakeDir(const std::string& path);

// Checks `value` against `schema` (keywords: type, enum, minimum, maximum,
// required, properties, additionalProperties: false, items, oneOf). Returns the
// problems found, each as "where: what"; empty when the value conforms.
std::vector<std::string> CheckSchema(const nlohmann::json& schema, const nlohmann::json& value,
                                     const std::string& where = "$");

}  // namespace kxtest
