// kxhost's WAV output as the tests read it back: the parts of the file a test looks
// at (ParseWav, the tests' own parser), and the samples as a reader independent of
// kxhost decodes them (ReadWavSamples: libsndfile where the system has it, the
// tests' parser on Windows, which has no build of it).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kxtest {

uint16_t LittleU16(const uint8_t* p);
uint32_t LittleU32(const uint8_t* p);

// The parts of a WAV file the tests look at.
struct Wav {
  bool ok = false;  // RIFF WAVE with a format chunk before the data chunk
  uint16_t formatTag = 0, channels = 0, blockAlign = 0, bits = 0;  // formatTag: extensible's sub-format
  uint32_t rate = 0, byteRate = 0;
  std::vector<uint8_t> data;  // the data chunk's bytes (cut at the end of the file)
};

Wav ParseWav(const std::vector<uint8_t>& bytes);

// The samples of a WAV file read back.
struct WavSamples {
  enum class Encoding { kOther, kPcm16, kFloat64 };
  bool read = false;  // the reader took the file as WAV
  Encoding encoding = Encoding::kOther;
  int channels = 0;
  int rate = 0;
  std::vector<uint8_t> bytes;  // the samples as the module gives them (s16le or f64le)
};

// Reads the samples of the WAV file at `path` as 16-bit integers or, with
// `asDouble`, 64-bit floats. A failure to read is a test failure.
WavSamples ReadWavSamples(const std::string& path, bool asDouble);

}  // namespace kxtest
