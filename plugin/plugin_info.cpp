// The plug-in's information records and the format record's callbacks: what the
// host reads after loading the module (ZSSGetPluginInfo, then the format record),
// how it probes a stream, creates a decoder and shows the about box.
#include "plugin_info.h"

#include <cstring>

#include "../layout/container.h"
#include "../platform/kx_platform.h"
#include "kxmp3.h"

namespace kxmp3 {

const char16_t kLibraryName[] = u"Kx MPEG Audio Layer-III File Library";
const char16_t kMakerName[] = u"KXMP3Lib developers";
const char16_t kWebAddress[] = u"https://kxmp3lib.invalid/";
const char16_t kPluginDescription[] = u"MPEG Audio Layer-III File Reader/Decoder";
const char16_t kFormatDescription[] = u"MPEG Audio Layer-III File";

namespace {

const uint32_t kFormatCodes[] = {FOURCC_ZMP3};
const char16_t* const kFormatDescriptions[] = {kFormatDescription, nullptr};

}  // namespace

KxResult GetFormatInfo(FormatInfo* record) {
  if (record == nullptr) return AF_E_POINTER;
  record->formatCount = 1;
  record->formatCodes = kFormatCodes;
  record->formatDescriptions = kFormatDescriptions;
  record->probe = &ProbeFormat;
  record->create = &CreateDecoder;
  record->about = &ShowAbout;
  return AF_S_OK;
}

KxResult ProbeFormat(Class_ZStream* stream, uint32_t fourcc) {
  // A foreign format is refused before the stream is touched.
  if (fourcc != FOURCC_ZMP3) return AF_E_UNSUPPORTED;
  if (stream == nullptr) return AF_E_UNSUPPORTED;
  StreamLayout scratch{};
  const KxResult rc = DetectContainer(stream, 0, &scratch, nullptr, nullptr);
  return rc == AF_S_OK ? AF_S_OK : AF_E_UNSUPPORTED;
}

KxResult CreateDecoder(uint32_t fourcc, Class_ZCOM** out) {
  if (fourcc != FOURCC_ZMP3) return AF_E_UNSUPPORTED;
  if (out == nullptr) return AF_E_FAIL;
  return CreateInstance_KXMP3(out);
}

KxResult ShowAbout(uint32_t fourcc, void* /*reserved*/, HWND parentWindow) {
  // A foreign format is deliberately not an error: the box is just not shown.
  if (fourcc == FOURCC_ZMP3) {
    KxMessageBoxW(parentWindow, kFormatDescription, kLibraryName, MB_OK | MB_TOPMOST);
  }
  return AF_S_OK;
}

}  // namespace kxmp3

extern "C" KxResult ZSSGetPluginInfo(PluginInfo* record) {
  if (record == nullptr) return AF_E_POINTER;
  record->interfaceVersion = ZSS_INTERFACE_VERSION;
  record->libraryName = kxmp3::kLibraryName;
  record->makerName = kxmp3::kMakerName;
  record->webAddress = kxmp3::kWebAddress;
  record->description = kxmp3::kPluginDescription;
  record->getFormatInfo = &kxmp3::GetFormatInfo;
  std::memset(record->reserved, 0, sizeof(record->reserved));
  return AF_S_OK;
}
