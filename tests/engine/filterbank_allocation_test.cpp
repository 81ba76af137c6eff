// The per-granule steps of the filterbank allocate nothing: the test binary's global
// operator new counts calls while a step runs.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

#include "dsp_test_util.h"
#include "engine/engine_types.h"
#include "engine/imdct.h"
#include "engine/output.h"
#include "engine/reorder_alias.h"
#include "engine/stereo.h"
#include "engine/synthesis.h"
#include "engine/engine_state.h"

namespace {

std::atomic<bool> gCounting{false};
std::atomic<int> gAllocations{0};

void* Allocate(std::size_t bytes) {
  if (gCounting.load(std::memory_order_relaxed)) gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(bytes == 0 ? 1 : bytes)) return p;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t bytes) { return Allocate(bytes); }
void* operator new[](std::size_t bytes) { return Allocate(bytes); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace kxmp3 {
namespace {

TEST(FilterbankAllocation, AGranuleThroughEveryStepAllocatesNothing) {
  kxtest::EnsureDecoderTables();
  auto state = std::make_unique<EngineState>();
  SetupDeemphasis(*state, 44100);
  kxtest::Random rnd(1);
  auto spectrum = std::make_unique<kxtest::Doubles<1152>>();
  auto overlap = std::make_unique<kxtest::Doubles<1152>>();
  auto rings = std::make_unique<kxtest::Doubles<2048>>();
  auto planar = std::make_unique<kxtest::Doubles<1152>>();
  auto out = std::make_unique<kxtest::Doubles<1152>>();
  uint32_t positions[2] = {0, 0};
  ScaleFactors sf{};
  for (uint32_t& v : sf.sf) v = rnd.Below(7);

  for (uint32_t blockType : {0u, 2u, 1u}) {
    for (uint32_t bps : {2u, 8u}) {
      rnd.Fill(spectrum->data(), 1152, 0.01);
      GranuleInfo gi[2] = {};
      for (GranuleInfo& g : gi) {
        g.block_type = blockType;
        g.active_subbands = 32;
        g.is_start_long = 10;
        g.is_start_short[0] = g.is_start_short[1] = g.is_start_short[2] = 5;
      }
      gAllocations = 0;
      gCounting = true;
      for (int ch = 0; ch < 2; ++ch) ReorderShortBlock(spectrum->data() + 576 * ch, gi[ch], 0);
      ApplyStereo(spectrum->data(), gi[0], gi[1], sf, 0, true, true, false);
      for (int ch = 0; ch < 2; ++ch) {
        AliasReduce(spectrum->data() + 576 * ch, gi[ch]);
        ImdctGranule(spectrum->data() + 576 * ch, overlap->data() + 576 * ch, gi[ch]);
        SynthesizeGranule(spectrum->data() + 576 * ch, rings->data() + 1024 * ch, &positions[ch], bps,
                          reinterpret_cast<uint8_t*>(planar->data()) + 576 * bps * ch);
      }
      OutputGranule(planar->data(), 2, *state, out->data(), bps, 1);
      gCounting = false;
      EXPECT_EQ(0, gAllocations.load()) << "block type " << blockType << " bytes per sample " << bps;
    }
  }
  // The counter works: an allocation while counting is seen.
  gAllocations = 0;
  gCounting = true;
  auto probe = std::make_unique<int>(1);
  gCounting = false;
  EXPECT_EQ(1, gAllocations.load());
}

}  // namespace
}  // namespace kxmp3
