// Process set-up of the reliability suite: the decoder tables (as the module's load
// hook builds them) and a violation handler that turns a broken promise found by a
// fuzz target body into a test failure instead of an abort, so that one run reports
// every broken promise of an input.
#include <gtest/gtest.h>

#include "harness/harness.h"

namespace {

void FailTest(const char* message) { ADD_FAILURE() << "broken promise: " << message; }

class ReliabilityEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    kxfuzz::Initialise();
    kxfuzz::SetViolationHandler(&FailTest);
  }
};

const ::testing::Environment* const kEnvironment = ::testing::AddGlobalTestEnvironment(new ReliabilityEnvironment);

}  // namespace
