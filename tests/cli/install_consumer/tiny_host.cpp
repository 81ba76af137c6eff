// A tiny host program built against an installed KXMP3Lib (by the packaging test):
// loads the module, opens a file through a core-library file stream, and prints the
// sample rate, channels and the samples it decodes, as any player would.
#include <dlfcn.h>

#include <cstdio>
#include <string>
#include <vector>

#include "host/kx_mp3_info.h"
#include "host/kxaudiofile.h"
#include "host/kxcore.h"
#include "host/zss_plugin.h"
#include "host/zstream.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: tiny_host MODULE FILE\n");
    return 2;
  }
  void* module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    std::fprintf(stderr, "dlopen: %s\n", dlerror());
    return 1;
  }
  auto getInfo = reinterpret_cast<ZssGetPluginInfoFn>(dlsym(module, ZSS_EXPORT_GET_PLUGIN_INFO));
  PluginInfo plugin{};
  FormatInfo format{};
  if (getInfo == nullptr || getInfo(&plugin) != AF_S_OK || plugin.getFormatInfo(&format) != AF_S_OK) return 1;

  void* object = nullptr;
  if (ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object) != AF_S_OK) return 1;
  auto* stream = static_cast<Class_ZStream*>(object);
  const std::string path = argv[2];
  std::u16string wide(path.begin(), path.end());  // ASCII paths only in this test
  ZStreamOpenRecord open{};
  open.tag = FOURCC_ZSTM;
  open.size = sizeof(open);
  open.mode = ZS_MODE_READ;
  open.source = wide.c_str();
  if (stream->Create(&open) != AF_S_OK) return 1;

  Class_ZCOM* decoder = nullptr;
  void* audioPtr = nullptr;
  if (format.create(format.formatCodes[0], &decoder) != AF_S_OK ||
      decoder->QueryInterface(format.formatCodes[0], &audioPtr) != AF_S_OK) {
    return 1;
  }
  auto* audio = static_cast<Class_KXAudioFile*>(audioPtr);
  OpenParams params{FOURCC_ZAFC, sizeof(OpenParams), OPEN_FLAG_STREAM, stream, 16};
  const KxResult rc = audio->Create(&params);
  if (rc != AF_S_OK) {
    std::fprintf(stderr, "open: %s\n", KxResultName(rc));
    return 1;
  }
  kxmp3::MP3Info info{};
  uint32_t size = sizeof(info);
  audio->GetInfo(FOURCC_ZMP3, &info, &size);
  std::vector<uint8_t> buffer(4608 * 3);
  unsigned long long bytes = 0;
  for (;;) {
    int32_t written = 0;
    const KxResult r = audio->DecodeToPCMData(buffer.data(), static_cast<int32_t>(buffer.size()), &written);
    bytes += static_cast<unsigned long long>(written > 0 ? written : 0);
    if (r == AF_S_END_OF_DATA || (r != AF_S_OK && r != AF_S_FRAME_ERROR)) break;
  }
  std::printf("%u Hz, %u channels, %llu samples\n", info.generic.sampleRate, info.generic.channels,
              bytes / (2ull * info.generic.channels));
  audio->Release();
  decoder->Release();
  return 0;
}
