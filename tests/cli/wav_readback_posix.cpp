// WAV samples read back by libsndfile (see wav_file.h): a reader that shares no code
// with kxhost's writer, so a test that passes shows that other programs read the
// files as kxhost meant them.
#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstring>

#include "wav_file.h"

namespace kxtest {

WavSamples ReadWavSamples(const std::string& path, bool asDouble) {
  WavSamples out;
  SF_INFO info{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
  if (f == nullptr) {
    ADD_FAILURE() << "libsndfile cannot read " << path << ": " << sf_strerror(nullptr);
    return out;
  }
  out.read = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV;
  switch (info.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_16: out.encoding = WavSamples::Encoding::kPcm16; break;
    case SF_FORMAT_DOUBLE: out.encoding = WavSamples::Encoding::kFloat64; break;
    default: break;
  }
  out.channels = info.channels;
  out.rate = info.samplerate;
  const size_t count = static_cast<size_t>(info.frames) * static_cast<size_t>(info.channels);
  if (asDouble) {
    std::vector<double> samples(count);
    EXPECT_EQ(sf_read_double(f, samples.data(), static_cast<sf_count_t>(count)), static_cast<sf_count_t>(count));
    out.bytes.resize(count * 8);
    std::memcpy(out.bytes.data(), samples.data(), out.bytes.size());
  } else {
    std::vector<short> samples(count);
    EXPECT_EQ(sf_read_short(f, samples.data(), static_cast<sf_count_t>(count)), static_cast<sf_count_t>(count));
    out.bytes.resize(count * 2);
    std::memcpy(out.bytes.data(), samples.data(), out.bytes.size());
  }
  sf_close(f);
  return out;
}

}  // namespace kxtest
