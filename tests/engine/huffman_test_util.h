// Random inputs for the Huffman decoding tests: side information (valid or damaged)
// and ring bytes of a chosen bit density.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "engine/engine_types.h"

namespace kxtest {

// Random side information, valid or not: any table, any region counts, big values
// up to 576 (damaged streams included: a granule's big values may need far more
// bits than its part2_3_length).
inline kxmp3::GranuleInfo RandomHuffmanGranule(std::mt19937& gen) {
  kxmp3::GranuleInfo gi{};
  gi.part2_3_length = gen() % 4096;
  gi.big_value_count = 2 * (gen() % 289);
  gi.block_type = gen() % 4;
  gi.mixed_block_flag = gi.block_type == 2 ? gen() % 2 : 0;
  for (uint32_t& t : gi.table_select) t = gen() % 32;
  gi.region0_count = gen() % 16;
  gi.region1_count = gen() % 8;
  gi.count1table_select = gen() % 2;
  return gi;
}

// Ring bytes whose bits are ones with probability `density`: sparse rings reach the
// long code words (mostly zeros), dense ones the short ones and the escapes.
inline void FillRingBits(std::vector<uint8_t>& ring, std::mt19937& gen, double density) {
  std::bernoulli_distribution one(density);
  for (uint8_t& b : ring) {
    uint32_t v = 0;
    for (int k = 0; k < 8; ++k) v = (v << 1) | (one(gen) ? 1u : 0u);
    b = static_cast<uint8_t>(v);
  }
}

}  // namespace kxtest
