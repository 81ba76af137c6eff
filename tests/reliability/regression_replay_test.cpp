// Replays every input under tests/data/regression/<target>/ through the body of that
// fuzz target (fuzz/harness), the same code the fuzzers run: each of these inputs
// once crashed, leaked, hung or broke a promise, and must not again. The folder's
// README.md says what each input broke and where it was fixed.
//
// KX_REPLAY=<target>:<file> replays one more file (a fresh fuzzer finding) in the
// test Replay.FromEnvironment.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "harness/harness.h"
#include "support/memory_stream.h"

namespace {

namespace fs = std::filesystem;

struct Case {
  std::string target;
  std::string path;
};

std::string RegressionDir() { return std::string(KX_TEST_DATA_DIR) + "/regression"; }

std::vector<Case> Cases() {
  std::vector<Case> cases;
  std::error_code ec;
  for (const auto& folder : fs::directory_iterator(RegressionDir(), ec)) {
    if (!folder.is_directory()) continue;
    for (const auto& file : fs::directory_iterator(folder.path(), ec)) {
      if (!file.is_regular_file() || file.path().extension() == ".md") continue;
      cases.push_back({folder.path().filename().string(), file.path().string()});
    }
  }
  std::sort(cases.begin(), cases.end(), [](const Case& a, const Case& b) { return a.path < b.path; });
  return cases;
}

void Replay(const std::string& target, const std::string& path) {
  const kxfuzz::Target* t = kxfuzz::FindTarget(target.c_str());
  ASSERT_NE(t, nullptr) << "no fuzz target named " << target;
  const std::vector<uint8_t> data = kxtest::ReadFile(path);
  ASSERT_TRUE(!data.empty() || fs::file_size(path) == 0) << "cannot read " << path;
  t->run(data.data(), data.size());
}

class RegressionInput : public ::testing::TestWithParam<Case> {};

TEST_P(RegressionInput, RunsCleanThroughItsTarget) { Replay(GetParam().target, GetParam().path); }

std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
  std::string name = info.param.target + "_" + fs::path(info.param.path).filename().string();
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Regression, RegressionInput, ::testing::ValuesIn(Cases()), CaseName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RegressionInput);

TEST(Replay, EveryRegressionFolderNamesATarget) {
  std::error_code ec;
  for (const auto& folder : fs::directory_iterator(RegressionDir(), ec)) {
    if (!folder.is_directory()) continue;
    EXPECT_NE(kxfuzz::FindTarget(folder.path().filename().string().c_str()), nullptr) << folder.path();
  }
}

TEST(Replay, FromEnvironment) {
  const char* request = std::getenv("KX_REPLAY");
  if (request == nullptr) GTEST_SKIP() << "set KX_REPLAY=<target>:<file> to replay a file";
  const std::string text = request;
  const size_t colon = text.find(':');
  ASSERT_NE(colon, std::string::npos) << "KX_REPLAY must be <target>:<file>";
  Replay(text.substr(0, colon), text.substr(colon + 1));
}

}  // namespace
