// Errors of kxhost (see cli_error.h).
#include "cli_error.h"

#include <cstdio>

namespace kxhost {

namespace {

std::string Hex(KxResult code) {
  char hex[16];
  std::snprintf(hex, sizeof(hex), "0x%X", code);
  return hex;
}

}  // namespace

FileError::FileError(const std::string& file, const std::string& reason, KxResult code)
    : CliError(file + ": " + reason + " (" + ResultText(code) + ")", kExitFileFailed),
      file_(file),
      reason_(reason),
      code_(code) {}

std::string ResultName(KxResult code) {
  const char* name = KxResultName(code);
  return name != nullptr ? name : "";
}

std::string ResultText(KxResult code) {
  const std::string name = ResultName(code);
  return name.empty() ? Hex(code) : name + ", " + Hex(code);
}

std::string ResultReason(KxResult code) {
  switch (code) {
    case AF_E_UNSUPPORTED: return "not a file the module takes";
    case AF_E_NO_SYNC: return "no MPEG audio frame found";
    case AF_E_BAD_FORMAT: return "no confirmed MPEG audio frame start";
    case AF_E_NOT_MPEG_LAYER3: return "a WAVE file that does not hold MPEG Layer-3 audio";
    case AF_E_BAD_VERSION: return "reserved MPEG version in the first frame header";
    case AF_E_BAD_LAYER: return "MPEG audio, but not Layer III";
    case AF_E_BAD_BITRATE: return "invalid bitrate in the first frame header";
    case AF_E_BAD_SAMPLERATE: return "invalid sample rate in the first frame header";
    case AF_E_OUT_OF_RANGE: return "position beyond the end of the audio";
    case AF_E_NOT_READY: return "the decoder is not open";
    case ZS_E_NOT_FOUND: return "file not found";
    case ZS_E_ACCESS: return "permission denied";
    case ZS_E_FAIL: return "read error";
    case ZS_E_END_OF_DATA: return "unexpected end of the file";
    default: return "the module refused the file";
  }
}

}  // namespace kxhost
