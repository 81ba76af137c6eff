// Helpers of the kxhost tests: scratch folders removed with everything in them,
// whole-file reads and writes, folders of input files, and a checker for the subset
// of JSON Schema that cli/kxhost-info.schema.json uses. Paths are UTF-8 with '/'
// between names, on every system.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "run_process.h"

namespace kxtest {

// A scratch folder in the system's temporary folder, removed (recursively) at the
// end of the test.
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
std::string FileText(const std::string& path);  // the bytes of a file as a string
bool WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes);
bool PathExists(const std::string& path);
uint64_t FileSize(const std::string& path);  // 0 when there is no such file
// Names in a folder (no "." and ".."), sorted.
std::vector<std::string> ListNames(const std::string& dir);
void MakeDir(const std::string& path);

// 50 files in `root` and its subfolders cd1 and cd2, each a copy of one of ten
// fixtures (MPEG files and RIFF containers) keeping its extension; returns their
// names relative to `root`.
std::vector<std::string> MakeFiftyFiles(const std::string& root);
// A long stream at `path`: the frames of a file without a VBR header, `copies` times
// over (1500 copies are about 14 minutes of audio). Returns `path`.
std::string MakeLongStream(const std::string& path, int copies);

// kxhost's decode of `input` to raw 16-bit samples on standard output (`extra`
// options added); a failed run is a test failure.
std::string DecodeToRaw(const std::string& input, const std::vector<std::string>& extra = {});
// The info --json object of a run on one input, without its "file" key (null when
// the output is not an array of one object).
nlohmann::json InfoWithoutName(const ProcessResult& r);

// Checks `value` against `schema` (keywords: type, enum, minimum, maximum,
// required, properties, additionalProperties: false, items, oneOf). Returns the
// problems found, each as "where: what"; empty when the value conforms.
std::vector<std::string> CheckSchema(const nlohmann::json& schema, const nlohmann::json& value,
                                     const std::string& where = "$");

}  // namespace kxtest
