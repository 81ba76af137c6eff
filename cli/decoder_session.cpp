// A decoder opened on a file (see decoder_session.h).
#include "decoder_session.h"

#include "file_stream.h"

namespace kxhost {

bool ProbeFile(const LoadedModule& module, const std::string& file, uint32_t* fourcc) {
  const FormatInfo& format = module.Format();
  if (format.probe == nullptr) throw CliError("the module has no probe callback: " + module.Path());
  StreamRef stream(OpenFileStream(file));
  for (uint32_t i = 0; i < format.formatCount; ++i) {
    const uint32_t code = format.formatCodes[i];
    stream.Get()->Seek(0, ZS_SEEK_SET);
    if (format.probe(stream.Get(), code) == AF_S_OK) {
      if (fourcc != nullptr) *fourcc = code;
      return true;
    }
  }
  return false;
}

DecoderSession::DecoderSession(const LoadedModule& module, const std::string& file, uint32_t flags,
                               uint32_t requestedBits) {
  const FormatInfo& format = module.Format();
  if (format.create == nullptr || format.formatCount == 0) {
    throw CliError("the module has no create callback: " + module.Path());
  }
  const uint32_t fourcc = format.formatCodes[0];
  StreamRef stream(OpenFileStream(file));
  int64_t size = 0;
  if (stream.Get()->GetSize(&size) == AF_S_OK && size > 0) fileSize_ = static_cast<uint64_t>(size);
  KxResult rc = format.create(fourcc, &object_);
  if (rc != AF_S_OK || object_ == nullptr) throw CliError("the module could not create a decoder: " + ResultText(rc));
  void* audio = nullptr;
  rc = object_->QueryInterface(fourcc, &audio);
  if (rc != AF_S_OK || audio == nullptr) {
    object_->Release();
    object_ = nullptr;
    throw CliError("the decoder has no audio-file interface: " + ResultText(rc));
  }
  audio_ = static_cast<Class_KXAudioFile*>(audio);
  OpenParams params{};
  params.tag = FOURCC_ZAFC;
  params.size = sizeof(OpenParams);
  params.flags = flags | OPEN_FLAG_STREAM;
  params.source = stream.Release();  // the decoder takes the reference over, even on failure
  params.requestedBits = requestedBits;
  rc = audio_->Create(&params);
  if (rc != AF_S_OK) {
    audio_->Release();
    object_->Release();
    audio_ = nullptr;
    object_ = nullptr;
    throw FileError(file, ResultReason(rc), rc);
  }
}

DecoderSession::~DecoderSession() {
  if (audio_ != nullptr) audio_->Release();
  if (object_ != nullptr) object_->Release();
}

}  // namespace kxhost
