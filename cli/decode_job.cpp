// Decoding one file to one output (see decode_job.h).
#include "decode_job.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "decoder_session.h"
#include "interrupt.h"
#include "output_file.h"
#include "host/kx_mp3_info.h"

namespace kxhost {

namespace {

// A request size that is no multiple of any frame's PCM, as a player's would be.
constexpr int32_t kRequestBytes = 65536 + 8;

}  // namespace

DecodeOutcome DecodeFile(const LoadedModule& module, const std::string& input, const std::string& output,
                         const DecodeSettings& settings, const DecodeProgressFn& progress) {
  const bool toStdout = output == "-";
  if (!toStdout && SameFile(input, output)) {
    throw CliError(output + ": the output would replace the input; choose another name");
  }
  const uint32_t flags = settings.noDeemphasis ? OPEN_FLAG_NO_DEEMPHASIS : 0;
  DecoderSession session(module, input, flags, settings.useFloat ? 64 : 16);
  Class_KXAudioFile* audio = session.Audio();
  DecodeOutcome outcome;
  KxResult rc = audio->GetPCMWaveFormat(&outcome.format);
  if (rc != AF_S_OK) throw FileError(input, "the decoder refused its PCM format", rc);
  const PCMWAVEFORMAT& format = outcome.format;
  const uint64_t block = format.nBlockAlign;
  if (block == 0) throw FileError(input, "the decoder reports an empty sample format", AF_E_FAIL);

  // The bytes the whole file should give, in the output format.
  kxmp3::MP3Info info{};
  uint32_t infoSize = sizeof(info);
  uint64_t expected = audio->GetInfo(FOURCC_ZAFC, &info, &infoSize) == AF_S_OK ? info.generic.totalPcmBytes : 0;

  if (settings.start) {
    const uint64_t startBytes = TimeToSamples(*settings.start, format.nSamplesPerSec) * block;
    QWUNION position{};
    position.u = startBytes;
    rc = audio->SetCurrentPosition(position, AF_ORIGIN_START);
    if (rc == AF_E_OUT_OF_RANGE) {
      throw FileError(input, "--start is beyond the end of the audio (" + std::to_string(expected / block) +
                                 " samples)", rc);
    }
    if (rc != AF_S_OK) throw FileError(input, "seeking to --start failed", rc);
    expected = expected > startBytes ? expected - startBytes : 0;
  }
  uint64_t limit = UINT64_MAX;
  if (settings.duration) {
    limit = TimeToSamples(*settings.duration, format.nSamplesPerSec) * block;
    expected = std::min(expected, limit);
  }

  std::unique_ptr<TempOutput> temp;
  std::unique_ptr<SampleSink> sink;
  if (toStdout) {
    sink = MakeRawSink(STDOUT_FILENO);
  } else {
    temp = std::make_unique<TempOutput>(output);
    sink = settings.raw ? MakeRawSink(temp->Fd()) : MakeWavSink(temp->Fd(), format, output);
  }

  std::vector<uint8_t> buffer(kRequestBytes);
  while (outcome.bytes < limit) {
    if (Interrupted()) throw Interruption();
    const uint64_t wanted = std::min<uint64_t>(buffer.size(), limit - outcome.bytes);
    int32_t written = 0;
    rc = audio->DecodeToPCMData(buffer.data(), static_cast<int32_t>(wanted), &written);
    if (written > 0) {
      if (!sink->Write(buffer.data(), static_cast<size_t>(written))) {
        throw CliError("cannot write " + (toStdout ? std::string("standard output") : output) + ": " +
                       std::strerror(errno));
      }
      outcome.bytes += static_cast<uint64_t>(written);
      if (progress) progress(outcome.bytes, expected);
    }
    if (rc == AF_S_END_OF_DATA) break;
    if (rc == AF_S_FRAME_ERROR) {
      ++outcome.concealedCalls;
    } else if (rc != AF_S_OK) {
      throw FileError(input, "decoding failed after " + std::to_string(outcome.bytes / block) + " samples", rc);
    } else if (written <= 0) {
      throw FileError(input, "the decoder delivered nothing and did not report the end", AF_E_FAIL);
    }
  }
  if (Interrupted()) throw Interruption();
  if (!sink->Close()) throw CliError("cannot finish " + output + ": " + std::strerror(errno));
  if (temp) temp->Commit();
  outcome.sampleFrames = outcome.bytes / block;
  return outcome;
}

}  // namespace kxhost
