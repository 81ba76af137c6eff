// The ISO conformance streams of ../shared/conformance as the whole-stream tests
// use them: name, channels, samples per frame and the frames that this decoder
// outputs in front of the reference; a frame count of a bare stream; and a copy
// of a file under another name (a host gives l3-sin1k0db, which has zero bytes
// before its first frame, the name of an MP3 file).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kxtest {

struct ConformanceStream {
  const char* name;
  uint32_t channels;
  uint32_t samplesPerFrame;      // per channel
  uint32_t silentFramesInFront;  // frames the reference leaves out and this decoder outputs as silence
};

// The 14 streams a conformant decoder decodes within 1 LSB of the reference.
const std::vector<ConformanceStream>& ConformantStreams();

// Frames of a bare stream of valid frames, counted from the first sync word on by
// the lengths their headers give.
size_t CountFrames(const std::vector<uint8_t>& bits);

// A copy of a file under another name in a scratch folder, removed at the end.
class RenamedCopy {
 public:
  RenamedCopy(const std::string& from, const std::string& name);
  ~RenamedCopy();
  RenamedCopy(const RenamedCopy&) = delete;
  RenamedCopy& operator=(const RenamedCopy&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string dir_;
  std::string path_;
};

}  // namespace kxtest
