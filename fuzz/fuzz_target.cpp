// The libFuzzer entry shared by every fuzz executable: fuzz_<name> is this file
// built with KX_FUZZ_TARGET="<name>", and runs that target's body of harness/ on
// every input the fuzzer makes.
#include <cstdio>
#include <cstdlib>

#include "harness/harness.h"

namespace {

kxfuzz::RunFunction gRun = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  const kxfuzz::Target* target = kxfuzz::FindTarget(KX_FUZZ_TARGET);
  if (target == nullptr) {
    std::fprintf(stderr, "unknown fuzz target %s\n", KX_FUZZ_TARGET);
    std::abort();
  }
  gRun = target->run;
  kxfuzz::Initialise();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  gRun(data, size);
  return 0;
}
