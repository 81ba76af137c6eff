// A decoder made by the loaded module and opened on a file, as a player holds one:
// the format record's create callback, the ZMP3 interface, Create with a stream the
// host opened and hands over. Used by the info, decode and dialog commands.
#pragma once

#include <cstdint>
#include <string>

#include "host/kxaudiofile.h"
#include "module_loader.h"

namespace kxhost {

// "0x3109 (AF_E_BAD_FORMAT)" for a result code.
std::string ResultText(KxResult code);

class DecoderSession {
 public:
  // Creates a decoder for the module's first format and opens `file` with `flags`
  // (OPEN_FLAG_*; the stream flag is added) and `requestedBits`. Throws CliError.
  DecoderSession(const LoadedModule& module, const std::string& file, uint32_t flags, uint32_t requestedBits);
  ~DecoderSession();
  DecoderSession(const DecoderSession&) = delete;
  DecoderSession& operator=(const DecoderSession&) = delete;

  Class_KXAudioFile* Audio() const { return audio_; }

 private:
  Class_ZCOM* object_ = nullptr;
  Class_KXAudioFile* audio_ = nullptr;
};

}  // namespace kxhost
