// A decoder made by the loaded module and opened on a file, as a player holds one:
// the format record's create callback, the ZMP3 interface, Create with a stream the
// host opened and hands over. Used by the info, decode and dialog commands.
#pragma once

#include <cstdint>
#include <string>

#include "host/kxaudiofile.h"
#include "module_loader.h"

namespace kxhost {

// Whether the module's probe callback takes `file` for its first format (or any of
// its formats, when `fourcc` is given, the code that took it). Throws FileError when
// the file cannot be opened.
bool ProbeFile(const LoadedModule& module, const std::string& file, uint32_t* fourcc = nullptr);

class DecoderSession {
 public:
  // Creates a decoder for the module's first format and opens `file` with `flags`
  // (OPEN_FLAG_*; the stream flag is added) and `requestedBits`. Throws FileError
  // when the file cannot be opened or the decoder refuses it, CliError when the
  // module cannot make a decoder at all.
  DecoderSession(const LoadedModule& module, const std::string& file, uint32_t flags, uint32_t requestedBits);
  ~DecoderSession();
  DecoderSession(const DecoderSession&) = delete;
  DecoderSession& operator=(const DecoderSession&) = delete;

  Class_KXAudioFile* Audio() const { return audio_; }
  // The size of the file (of the copy, for a pipe), in bytes.
  uint64_t FileSize() const { return fileSize_; }

 private:
  uint64_t fileSize_ = 0;
  Class_ZCOM* object_ = nullptr;
  Class_KXAudioFile* audio_ = nullptr;
};

}  // namespace kxhost
