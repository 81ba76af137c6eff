// Decoding one file to one output (see decode_job.h).
#include "decode_job.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "decoder_session.h"
#include "interrupt.h"
#include "file_report.h"
#include "output_file.h"
#include "host/kx_mp3_info.h"

namespace kxhost {

namespace {

// Bytes of output gathered before they are written.
constexpr uint64_t kWriteBytes = 64 * 1024;

// Samples per channel in one Layer III frame: 1152 for MPEG-1, 576 otherwise.
uint32_t SamplesPerFrame(const kxmp3::MP3Info& info) { return info.mpegVersion == 1 ? 1152 : 576; }

// Whether the record's length was read from the file (not estimated).
bool LengthFromFile(const kxmp3::MP3Info& info) {
  return (info.headerFlags & (kxmp3::MP3_HEADER_FLAG_COUNT_FROM_HEADER | kxmp3::MP3_HEADER_FLAG_SCANNED)) != 0 &&
         (info.headerFlags & kxmp3::MP3_HEADER_FLAG_ESTIMATED) == 0;
}

}  // namespace

DecodeOutcome DecodeFile(const LoadedModule& module, const std::string& input, const std::string& output,
                         const DecodeSettings& settings, const DecodeProgressFn& progress) {
  if (output != "-" && SameFile(input, output)) {
    throw CliError(output + ": the output would replace the input; choose another name");
  }
  DecodeOutcome outcome;
  // ReplayGain: the factor from the file's tags. Scaled samples are computed from
  // the decoder's 64-bit float output in double precision and, for 16-bit output,
  // rounded here as the decoder rounds its own; unscaled ones come as they are.
  if (settings.gain.mode != GainMode::kOff) {
    const FileReport report = ReadFileReport(module, input);
    if (report.failed) throw FileError(input, report.errorReason, report.errorCode);
    outcome.gain = ComputeGain(report.replayGain, settings.gain);
  }
  const bool scaled = outcome.gain.factor != 1.0;
  const uint32_t flags = settings.noDeemphasis ? OPEN_FLAG_NO_DEEMPHASIS : 0;
  DecoderSession session(module, input, flags, settings.useFloat || scaled ? 64 : 16);
  Class_KXAudioFile* audio = session.Audio();
  PCMWAVEFORMAT decoded{};
  KxResult rc = audio->GetPCMWaveFormat(&decoded);
  if (rc != AF_S_OK) throw FileError(input, "the decoder refused its PCM format", rc);
  const PCMWAVEFORMAT& format = decoded;
  const uint64_t block = format.nBlockAlign;
  if (block == 0) throw FileError(input, "the decoder reports an empty sample format", AF_E_FAIL);
  // The output's format: the decoder's, or 16-bit when 16-bit samples are rounded here.
  outcome.format = decoded;
  const bool roundHere = scaled && !settings.useFloat;
  if (roundHere) {
    outcome.format.wFormatTag = WAVE_FORMAT_PCM;
    outcome.format.wBitsPerSample = 16;
    outcome.format.nBlockAlign = static_cast<uint16_t>(2 * decoded.nChannels);
    outcome.format.nAvgBytesPerSec = uint32_t{outcome.format.nBlockAlign} * decoded.nSamplesPerSec;
  }
  const uint64_t outBlock = outcome.format.nBlockAlign;
  const uint32_t rate = format.nSamplesPerSec;

  // The bytes the whole file should give, in the output format.
  kxmp3::MP3Info info{};
  uint32_t infoSize = sizeof(info);
  const bool haveInfo = audio->GetInfo(FOURCC_ZMP3, &info, &infoSize) == AF_S_OK;
  uint64_t expected = haveInfo ? info.generic.totalPcmBytes : 0;
  const bool lengthKnown = haveInfo && LengthFromFile(info);

  if (settings.start) {
    outcome.startSample = TimeToSamples(*settings.start, rate);
    const uint64_t startBytes = outcome.startSample * block;
    QWUNION position{};
    position.u = startBytes;
    rc = audio->SetCurrentPosition(position, AF_ORIGIN_START);
    if (rc == AF_E_OUT_OF_RANGE) {
      throw FileError(input, "--start is beyond the end of the audio (" + std::to_string(expected / block) +
                                 " samples)", rc);
    }
    if (rc == AF_S_END_OF_DATA) {
      throw FileError(input, "--start " + FormatSamplesAsTime(outcome.startSample, rate) +
                                 " is beyond where the file ends (it is shorter than its header declares)",
                      ZS_E_END_OF_DATA);
    }
    if (rc != AF_S_OK) throw FileError(input, "seeking to --start failed", rc);
    expected = expected > startBytes ? expected - startBytes : 0;
  }
  uint64_t limit = UINT64_MAX;
  if (settings.duration) {
    limit = TimeToSamples(*settings.duration, rate) * block;
    expected = std::min(expected, limit);
  }
  if (lengthKnown) outcome.expectedFrames = expected / block;

  OutputTarget target(output);
  std::unique_ptr<SampleSink> sink = settings.raw ? MakeRawSink(target.Fd())
                                                  : MakeWavSink(target.Fd(), target.Seekable(), outcome.format,
                                                                target.DisplayName());
  auto writeError = [&target] { return CliError("cannot write " + target.DisplayName() + ": " + std::strerror(errno)); };

  // One frame's samples per request: each status then belongs to (at most) two
  // frames, which places concealed damage to within a frame. The requests fill a
  // buffer of several frames that is written when full, so that the output takes one
  // write call per 64 KiB or so, not one per frame.
  const uint64_t request = (haveInfo ? SamplesPerFrame(info) : 1152) * block;
  const uint64_t outRequest = roundHere ? request / 4 : request;  // bytes a request gives in the output format
  const size_t framesPerWrite = static_cast<size_t>(std::max<uint64_t>(1, kWriteBytes / request));
  std::vector<uint8_t> buffer(request);
  std::vector<uint8_t> pending(framesPerWrite * outRequest);
  size_t pendingBytes = 0;
  auto flush = [&] {
    const bool ok = sink->Write(pending.data(), pendingBytes);
    pendingBytes = 0;
    return ok;
  };
  // After the start skip (and a seek) the decoder's frame buffer holds the rest of a
  // frame. A first request of exactly that rest puts every later request on a frame
  // boundary, so that the decoder writes whole frames straight into our buffer
  // instead of through its frame buffer. (Were the rest reckoned wrongly, the bytes
  // would be the same, only copied once more.)
  uint64_t nextRequest = request;
  if (haveInfo) {
    const uint64_t decodedBefore = (uint64_t{info.startSkip} + outcome.startSample) * block;
    const uint64_t rest = (request - decodedBefore % request) % request;
    if (rest != 0) nextRequest = rest;
  }
  // Bytes of decoder output taken so far (positions and the --duration limit are
  // counted in them); outcome.bytes counts the output's bytes.
  uint64_t taken = 0;
  while (taken < limit) {
    if (Interrupted()) throw Interruption();
    const uint64_t wanted = std::min<uint64_t>(nextRequest, limit - taken);
    nextRequest = request;
    // Unscaled samples are decoded straight into the pending output.
    uint8_t* into = scaled ? buffer.data() : pending.data() + pendingBytes;
    int32_t written = 0;
    rc = audio->DecodeToPCMData(into, static_cast<int32_t>(wanted), &written);
    const uint64_t before = taken;
    if (written > 0) {
      const size_t samples = static_cast<size_t>(written) / (block / format.nChannels);
      size_t bytes = static_cast<size_t>(written);
      if (roundHere) {
        ScaleTo16(reinterpret_cast<const double*>(buffer.data()), samples, outcome.gain.factor,
                  reinterpret_cast<int16_t*>(pending.data() + pendingBytes));
        bytes = samples * 2;
      } else if (scaled) {
        ScaleFloat(reinterpret_cast<double*>(buffer.data()), samples, outcome.gain.factor);
        std::memcpy(pending.data() + pendingBytes, buffer.data(), bytes);
      }
      pendingBytes += bytes;
      if (pending.size() - pendingBytes < outRequest && !flush()) throw writeError();
      taken += static_cast<uint64_t>(written);
      outcome.bytes += bytes;
      if (progress) progress(taken / block, expected / block, rate);
    }
    if (rc == AF_S_END_OF_DATA) break;
    if (rc == AF_S_FRAME_ERROR) {
      const uint64_t first = outcome.startSample + before / block;
      const uint64_t end = outcome.startSample + taken / block;
      if (!outcome.concealed.empty() && outcome.concealed.back().endSample >= first) {
        outcome.concealed.back().endSample = std::max(outcome.concealed.back().endSample, end);
      } else {
        outcome.concealed.push_back({first, std::max(end, first + 1)});
      }
      continue;
    }
    if (rc == AF_S_OK && written > 0) continue;
    FileError failure = rc != AF_S_OK
                            ? FileError(input, "decoding failed at " +
                                                   FormatSamplesAsTime(outcome.startSample + taken / block, rate),
                                        rc)
                            : FileError(input, "the decoder delivered nothing and did not report the end", AF_E_FAIL);
    // What decoded is kept (unless all or nothing was asked for, or nothing decoded).
    if (settings.strict || outcome.bytes == 0) throw failure;
    outcome.failure = failure;
    break;
  }
  if (pendingBytes != 0 && !flush()) throw writeError();
  if (Interrupted()) throw Interruption();
  outcome.sampleFrames = outcome.bytes / outBlock;
  outcome.shortInput = !outcome.failure && outcome.expectedFrames != 0 && outcome.sampleFrames < outcome.expectedFrames;
  if (outcome.shortInput && settings.strict) {
    throw FileError(input, "the file ends at " + FormatSamplesAsTime(outcome.startSample + outcome.sampleFrames, rate) +
                               ", before the " + FormatSamplesAsTime(outcome.startSample + outcome.expectedFrames, rate) +
                               " its header declares",
                    ZS_E_END_OF_DATA);
  }
  if (!sink->Close()) throw CliError("cannot finish " + target.DisplayName() + ": " + std::strerror(errno));
  target.Commit();
  return outcome;
}

}  // namespace kxhost
