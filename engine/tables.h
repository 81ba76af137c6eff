// Process-wide decoder tables: built once by InitDecoderTables when the module is
// loaded, read-only afterwards and shared by every decoder object without locking.
#pragma once

#include <cstdint>

namespace kxmp3 {

constexpr uint32_t kPowerEntries = 8207;  // magnitudes 0..8206 (15 + largest 13-bit linbits value)
constexpr uint32_t kGainEntries = 512;
constexpr uint32_t kGainOrigin = 256;     // entry 256 - global_gain = 2^((global_gain - 210) / 4)

struct DecoderTables {
  // Requantisation: entry k = 2^(-(k - 46) / 4).
  alignas(16) double gain[kGainEntries];
  // Requantisation: entry 2m = m^(4/3), entry 2m + 1 = -(m^(4/3)); indexed by the coded value.
  alignas(16) double power[2 * kPowerEntries];
  // Further tables of the filterbank, stereo and synthesis steps are declared
  // alongside below by the steps that own them.
};

extern DecoderTables gTables;

// Builds every computed table. Called once from the module's load handling (and by
// test harnesses); calling it again rebuilds the same values.
void InitDecoderTables();

}  // namespace kxmp3
