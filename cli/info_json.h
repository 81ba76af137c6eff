// The JSON form of `kxhost info --json`: one object per file with fixed keys in a
// fixed order, the same facts as the text view (see the man page and
// kxhost-info.schema.json, which describes every key with its unit).
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "file_report.h"

namespace kxhost {

// The keys of a file's object, in order ("tags" only when the file has a tag).
extern const std::vector<std::string> kInfoJsonKeys;

// The object of one file; for a file that could not be opened
// {"file", "error": {"name", "code" ("0x3101"), "reason"}}.
nlohmann::ordered_json ReportToJson(const FileReport& report);

// Keeps only `fields` (and "file", and "error" of a failed file) of `object`.
nlohmann::ordered_json SelectFields(const nlohmann::ordered_json& object, const std::vector<std::string>& fields);

// The whole document, an array of the reports, as text (two-space indent, invalid
// UTF-8 in file names replaced rather than fatal), ending with a newline.
std::string ReportsToJsonText(const nlohmann::ordered_json& array);

}  // namespace kxhost
