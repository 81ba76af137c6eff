// Manifest reader of the layout tests (see layout_test_util.h).
#include "support/layout_test_util.h"

#include <fstream>
#include <sstream>

namespace layouttest {

std::string FixturePath(const std::string& name) { return std::string(KX_TEST_DATA_DIR) + "/mp3/" + name; }

Bytes LoadFixture(const std::string& name) { return kxtest::ReadFile(FixturePath(name)); }

std::vector<FixtureInfo> LoadManifest() {
  std::vector<FixtureInfo> out;
  std::ifstream in(FixturePath("manifest.txt"));
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    FixtureInfo f;
    words >> f.name >> f.rate >> f.channels >> f.samples;
    std::string word;
    while (words >> word) {
      if (!f.options.empty()) f.options += ' ';
      f.options += word;
      size_t eq = word.find('=');
      if (eq != std::string::npos) f.keys[word.substr(0, eq)] = word.substr(eq + 1);
    }
    out.push_back(f);
  }
  return out;
}

}  // namespace layouttest
