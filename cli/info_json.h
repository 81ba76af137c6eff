// The JSON form of `kxhost info --json`: one object per file with fixed keys (see
// the man page and kxhost-info.schema.json), in a fixed order.
#pragma once

#include <nlohmann/json.hpp>

#include "file_report.h"

namespace kxhost {

// {"file", "container", "container_type", "mpeg_version", "layer", "sample_rate",
//  "channels", "channel_mode", "bitrate_kbps", "vbr", "frames", "duration_ms",
//  "total_samples", "encoder", "description", "delay", "removed_samples",
//  "emphasis", "tags" (only when the file has a tag), "replaygain"}; for a file that
// could not be opened {"file", "error": {"name", "code", "reason"}}.
nlohmann::ordered_json ReportToJson(const FileReport& report);

// The whole document, an array of the reports, as text (two-space indent, invalid
// UTF-8 in file names replaced rather than fatal), ending with a newline.
std::string ReportsToJsonText(const nlohmann::ordered_json& array);

}  // namespace kxhost
