// WAV samples read back on Windows (see wav_file.h): no build of libsndfile exists
// for it among the system packages the build uses, so the tests' own parser reads
// the file, which takes the samples as stored: 16-bit integers or 64-bit floats.
#include <gtest/gtest.h>

#include "cli_test_support.h"
#include "wav_file.h"

namespace kxtest {

WavSamples ReadWavSamples(const std::string& path, bool asDouble) {
  WavSamples out;
  const Wav wav = ParseWav(ReadFileBytes(path));
  if (!wav.ok) {
    ADD_FAILURE() << "not a WAV file: " << path;
    return out;
  }
  out.read = true;
  if (wav.formatTag == 1 && wav.bits == 16) out.encoding = WavSamples::Encoding::kPcm16;
  if (wav.formatTag == 3 && wav.bits == 64) out.encoding = WavSamples::Encoding::kFloat64;
  out.channels = wav.channels;
  out.rate = static_cast<int>(wav.rate);
  const bool stored = asDouble ? out.encoding == WavSamples::Encoding::kFloat64
                               : out.encoding == WavSamples::Encoding::kPcm16;
  EXPECT_TRUE(stored) << path << ": samples stored as format " << wav.formatTag << ", " << wav.bits << " bits";
  if (stored) out.bytes = wav.data;
  return out;
}

}  // namespace kxtest
