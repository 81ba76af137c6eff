// Timing of the engine's steps beyond the filterbank kernels: Huffman decoding of a
// granule (look-up tables beside the tree walk, and the one-pass decoding with
// requantisation the decoder uses), requantisation, the final layout
// of a granule (16-bit and float interleaving, with and without de-emphasis), and
// whole frames through the decoder object (16-bit and float).
// Run: bench --benchmark_filter='Huffman|Requantise|Output|Frame'
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "engine/huffman.h"
#include "engine/huffman_requantise.h"
#include "engine/output.h"
#include "engine/requantise.h"
#include "engine/tables.h"
#include "host/kxcore.h"
#include "plugin/kxmp3.h"

namespace {

using namespace kxmp3;

// ---- A realistic granule's Huffman data ----

class Bits {
 public:
  void Put(uint32_t value, uint32_t count) {
    for (uint32_t k = count; k-- > 0;) {
      if (bits_ % 8 == 0) bytes_.push_back(0);
      if (((value >> k) & 1) != 0) bytes_.back() |= static_cast<uint8_t>(0x80 >> (bits_ % 8));
      ++bits_;
    }
  }
  uint32_t Count() const { return bits_; }
  const std::vector<uint8_t>& Bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  uint32_t bits_ = 0;
};

// One value's magnitude extension and sign after the code word.
void PutValue(Bits& b, int v, uint32_t linbits) {
  const uint32_t m = static_cast<uint32_t>(std::abs(v));
  if (linbits != 0 && m >= 15) b.Put(m - 15, linbits);
  if (m != 0) b.Put(v < 0 ? 1 : 0, 1);
}

void PutPair(Bits& b, uint32_t table, int x, int y) {
  const HuffmanCodeList l = PairCodeList(table);
  const uint32_t linbits = kPairTables[table].linbits;
  const uint32_t cap = l.width - 1;
  const uint32_t ax = std::min<uint32_t>(static_cast<uint32_t>(std::abs(x)), cap);
  const uint32_t ay = std::min<uint32_t>(static_cast<uint32_t>(std::abs(y)), cap);
  const uint32_t i = ax * l.width + ay;
  b.Put(l.codes[i], l.lengths[i]);
  PutValue(b, x, linbits);
  PutValue(b, y, linbits);
}

// A long-block granule as an encoder at about 128 kbit/s would write it: large
// values at low frequencies (table 24 with 4 linbits), medium ones in region 1
// (table 13), small ones in region 2 (table 7), then quadruples of ones.
struct HuffmanGranule {
  std::vector<uint8_t> ring = std::vector<uint8_t>(4096, 0);
  GranuleInfo gi{};
};

HuffmanGranule MakeHuffmanGranule() {
  std::mt19937 gen(42);
  HuffmanGranule g;
  g.gi.big_value_count = 400;
  g.gi.table_select[0] = 24;
  g.gi.table_select[1] = 13;
  g.gi.table_select[2] = 7;
  g.gi.region0_count = 7;  // region 1 from line 36 at 44.1 kHz
  g.gi.region1_count = 6;  // region 2 from line 110
  const uint32_t region1 = 36;
  const uint32_t region2 = 110;
  Bits b;
  for (uint32_t i = 0; i < 400; i += 2) {
    const double scale = 14.0 * std::exp(-static_cast<double>(i) / 110.0);
    std::exponential_distribution<double> mag(1.0 / (scale + 0.3));
    std::bernoulli_distribution neg(0.5);
    auto value = [&] {
      const int m = static_cast<int>(mag(gen));
      return neg(gen) ? -m : m;
    };
    const uint32_t table = i < region1 ? 24 : (i < region2 ? 13 : 7);
    PutPair(b, table, value(), value());
  }
  std::bernoulli_distribution one(0.3);
  std::bernoulli_distribution sign(0.5);
  for (uint32_t i = 400; i < 500; i += 4) {
    uint32_t flags = 0;
    for (int k = 0; k < 4; ++k) flags = (flags << 1) | (one(gen) ? 1u : 0u);
    const HuffmanCodeList q = QuadCodeList(0);
    b.Put(q.codes[flags], q.lengths[flags]);
    for (int k = 0; k < 4; ++k) {
      if (((flags >> (3 - k)) & 1) != 0) b.Put(sign(gen) ? 1 : 0, 1);
    }
  }
  g.gi.part2_3_length = b.Count();
  std::copy(b.Bytes().begin(), b.Bytes().end(), g.ring.begin());
  return g;
}

const HuffmanGranule& Granule() {
  static const HuffmanGranule g = [] {
    InitDecoderTables();
    return MakeHuffmanGranule();
  }();
  return g;
}

// Argument 0: look-up tables (DecodeSpectrum), 1: tree walk (DecodeSpectrumByTree).
void HuffmanGranuleDecode(benchmark::State& state) {
  const HuffmanGranule& g = Granule();
  uint32_t values[576];
  const bool tree = state.range(0) == 1;
  for (auto _ : state) {
    uint32_t pos = 0;
    const int32_t n = tree ? DecodeSpectrumByTree(values, g.ring.data(), pos, g.gi, 0, 0)
                           : DecodeSpectrum(values, g.ring.data(), pos, g.gi, 0, 0);
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.SetLabel(tree ? "tree walk" : "look-up");
  state.counters["bits"] = g.gi.part2_3_length;
}
BENCHMARK(HuffmanGranuleDecode)->Arg(0)->Arg(1);

// The same granule through the one-pass decoding with requantisation
// (DecodeGranuleSpectrum), as the decoder runs it.
void HuffmanRequantiseGranule(benchmark::State& state) {
  const HuffmanGranule& g = Granule();
  ScaleFactors sf{};
  for (uint32_t i = 0; i < 22; ++i) sf.sf[i] = i % 5;
  GranuleInfo base = g.gi;
  base.global_gain_ref = kGainOrigin - 150;
  base.scalefac_multiplier = 1;
  alignas(16) double spectrum[576];
  for (auto _ : state) {
    GranuleInfo gi = base;
    uint32_t pos = 0;
    const int32_t n = DecodeGranuleSpectrum(spectrum, g.ring.data(), pos, gi, sf, 0, 0);
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.counters["bits"] = g.gi.part2_3_length;
}
BENCHMARK(HuffmanRequantiseGranule);

// ---- Requantisation ----

// Argument 0: long block, 1: short block.
void Requantise(benchmark::State& state) {
  const HuffmanGranule& g = Granule();
  uint32_t coded[576];
  uint32_t pos = 0;
  const int32_t count = DecodeSpectrum(coded, g.ring.data(), pos, g.gi, 0, 0);
  GranuleInfo gi = g.gi;
  gi.global_gain_ref = kGainOrigin - 150;
  gi.scalefac_multiplier = 1;
  for (uint32_t w = 0; w < 3; ++w) gi.subblock_gain_ref[w] = gi.global_gain_ref + 8 * w;
  if (state.range(0) == 1) gi.block_type = 2;
  ScaleFactors sf{};
  for (uint32_t i = 0; i < 36; ++i) sf.sf[i] = i % 5;
  alignas(16) double spectrum[576];
  for (auto _ : state) {
    kxmp3::Requantise(coded, spectrum, sf, gi, 0, count);
    benchmark::ClobberMemory();
  }
  state.SetLabel(state.range(0) == 1 ? "short" : "long");
}
BENCHMARK(Requantise)->Arg(0)->Arg(1);

// ---- Final layout of a granule: de-emphasis, conversion, interleaving ----

// Arguments: bytes per sample (2 or 8), emphasis code (0 none, 1 50/15 us).
void OutputGranuleStereo(benchmark::State& state) {
  InitDecoderTables();
  const uint32_t bps = static_cast<uint32_t>(state.range(0));
  const uint32_t emphasis = static_cast<uint32_t>(state.range(1));
  static EngineState decoder{};
  SetupDeemphasis(decoder, 44100);
  alignas(16) static uint8_t planar[2 * 576 * 8];
  alignas(16) static uint8_t out[2 * 576 * 8];
  std::mt19937 gen(3);
  if (bps == 2) {
    for (uint32_t i = 0; i < 2 * 576; ++i) reinterpret_cast<int16_t*>(planar)[i] = static_cast<int16_t>(gen());
  } else {
    for (uint32_t i = 0; i < 2 * 576; ++i) reinterpret_cast<double*>(planar)[i] = (gen() % 20000) / 20000.0 - 0.5;
  }
  for (auto _ : state) {
    OutputGranule(planar, 2, decoder, out, bps, emphasis);
    benchmark::ClobberMemory();
  }
  state.SetLabel(std::string(bps == 2 ? "16-bit" : "float") + (emphasis != 0 ? ", de-emphasis" : ""));
}
BENCHMARK(OutputGranuleStereo)->Args({2, 0})->Args({8, 0})->Args({2, 1})->Args({8, 1});

// ---- Whole frames through the decoder object ----

// A file stream over the fixture, opened by the core library.
Class_ZStream* OpenStream(const std::string& name) {
  const std::string path = std::string(KX_TEST_DATA_DIR) + "/mp3/" + name;
  void* object = nullptr;
  if (ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object) != AF_S_OK) return nullptr;
  auto* stream = static_cast<Class_ZStream*>(object);
  std::u16string wide(path.begin(), path.end());  // the source tree's path: ASCII
  ZStreamOpenRecord record{};
  record.tag = FOURCC_ZSTM;
  record.size = sizeof(record);
  record.mode = ZS_MODE_READ;
  record.source = wide.c_str();
  if (stream->Create(&record) != AF_S_OK) {
    stream->Release();
    return nullptr;
  }
  return stream;
}

// One 44.1 kHz joint-stereo 128 kbit/s frame per iteration, 4,608 (16-bit) or
// 18,432 (float) bytes straight into the caller's buffer; the decoder rewinds (not
// timed) when the one-second fixture ends. Argument: bits per sample.
void DecodeOneFrame(benchmark::State& state) {
  InitDecoderTables();
  const uint32_t bits = static_cast<uint32_t>(state.range(0));
  Class_ZStream* stream = OpenStream("m1_44100_joint_cbr.mp3");
  Class_ZCOM* object = nullptr;
  if (stream == nullptr || CreateInstance_KXMP3(&object) != AF_S_OK) {
    state.SkipWithError("cannot open the fixture");
    return;
  }
  auto* decoder = dynamic_cast<Class_KXMP3*>(object);
  OpenParams params{};
  params.tag = FOURCC_ZAFC;
  params.size = sizeof(OpenParams);
  params.flags = OPEN_FLAG_STREAM;
  params.source = stream;
  params.requestedBits = bits;
  if (decoder->Create(&params) != AF_S_OK) {
    state.SkipWithError("the decoder cannot open the fixture");
    decoder->Release();
    return;
  }
  const int32_t frameBytes = 1152 * 2 * static_cast<int32_t>(bits / 8);
  std::vector<uint8_t> buffer(static_cast<size_t>(frameBytes));
  for (auto _ : state) {
    int32_t written = 0;
    const KxResult rc = decoder->DecodeToPCMData(buffer.data(), frameBytes, &written);
    if (rc == AF_S_END_OF_DATA || written < frameBytes) {
      state.PauseTiming();
      decoder->Rewind();
      state.ResumeTiming();
    }
    benchmark::ClobberMemory();
  }
  decoder->Release();
  state.SetLabel(bits == 16 ? "16-bit" : "float");
}
BENCHMARK(DecodeOneFrame)->Arg(16)->Arg(64);

}  // namespace
