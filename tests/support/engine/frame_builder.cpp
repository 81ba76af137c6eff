// Byte-built Layer III data for the engine tests (see frame_builder.h).
#include "support/engine/frame_builder.h"

#include <cstdlib>
#include <stdexcept>

#include "engine/frame_header.h"
#include "engine/huffman.h"

namespace kxtest {

uint32_t MakeHeader(const HeaderFields& f) {
  return 0xFFE00000u | (f.versionBits << 19) | (f.layerBits << 17) | (f.noCrc << 16) | (f.bitrate << 12) |
         (f.rate << 10) | (f.padding << 9) | (f.privateBit << 8) | (f.mode << 6) | (f.modeExt << 4) | f.emphasis;
}

void PutWord(std::vector<uint8_t>& out, uint32_t word) {
  for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<uint8_t>(word >> s));
}

void BitWriter::Put(uint32_t value, uint32_t bits) {
  for (uint32_t i = bits; i-- > 0;) {
    if (bits_ % 8 == 0) bytes_.push_back(0);
    if ((value >> i) & 1) bytes_.back() |= static_cast<uint8_t>(0x80 >> (bits_ % 8));
    ++bits_;
  }
}

void BitWriter::Align() {
  while (bits_ % 8 != 0) Put(0, 1);
}

namespace {

void PutGranule(BitWriter& w, const GranuleFields& g, bool mpeg1) {
  w.Put(g.part2_3_length, 12);
  w.Put(g.big_values, 9);
  w.Put(g.global_gain, 8);
  w.Put(g.scalefac_compress, mpeg1 ? 4 : 9);
  w.Put(g.window_switching, 1);
  if (g.window_switching) {
    w.Put(g.block_type, 2);
    w.Put(g.mixed, 1);
    w.Put(g.table_select[0], 5);
    w.Put(g.table_select[1], 5);
    for (uint32_t s : g.subblock_gain) w.Put(s, 3);
  } else {
    for (uint32_t t : g.table_select) w.Put(t, 5);
    w.Put(g.region0_count, 4);
    w.Put(g.region1_count, 3);
  }
  if (mpeg1) w.Put(g.preflag, 1);
  w.Put(g.scalefac_scale, 1);
  w.Put(g.count1table_select, 1);
}

void PutCode(BitWriter& w, const kxmp3::HuffmanCodeList& list, uint32_t index) {
  if (list.count == 0) return;  // tables without code words
  w.Put(list.codes[index], list.lengths[index]);
}

}  // namespace

std::vector<uint8_t> EncodeSideInfo(const SideFields& s, bool mpeg1, uint32_t channels) {
  BitWriter w;
  if (mpeg1) {
    w.Put(s.main_data_begin, 9);
    w.Put(s.private_bits, channels == 1 ? 5 : 3);
    for (uint32_t ch = 0; ch < channels; ++ch) w.Put(s.scfsi[ch], 4);
    for (uint32_t gr = 0; gr < 2; ++gr)
      for (uint32_t ch = 0; ch < channels; ++ch) PutGranule(w, s.gr[gr][ch], true);
  } else {
    w.Put(s.main_data_begin, 8);
    w.Put(s.private_bits, channels == 1 ? 1 : 2);
    for (uint32_t ch = 0; ch < channels; ++ch) PutGranule(w, s.gr[0][ch], false);
  }
  return w.Bytes();
}

void EncodePair(BitWriter& w, uint32_t table, int x, int y) {
  const kxmp3::HuffmanCodeList list = kxmp3::PairCodeList(table);
  const uint32_t linbits = kxmp3::kPairTables[table].linbits;
  uint32_t ax = static_cast<uint32_t>(std::abs(x));
  uint32_t ay = static_cast<uint32_t>(std::abs(y));
  const uint32_t cx = linbits != 0 && ax >= 15 ? 15 : ax;
  const uint32_t cy = linbits != 0 && ay >= 15 ? 15 : ay;
  if (list.count == 0) {
    if (ax != 0 || ay != 0) throw std::invalid_argument("table without codes holds only zeros");
    return;
  }
  if (cx >= list.width || cy >= list.width) throw std::invalid_argument("value outside the table");
  if ((cx == 15 && ax - 15 >= (1u << linbits)) || (cy == 15 && ay - 15 >= (1u << linbits)))
    throw std::invalid_argument("value beyond the table's linbits");
  PutCode(w, list, cx * list.width + cy);
  if (cx == 15 && linbits != 0) w.Put(ax - 15, linbits);
  if (ax != 0) w.Put(x < 0 ? 1 : 0, 1);
  if (cy == 15 && linbits != 0) w.Put(ay - 15, linbits);
  if (ay != 0) w.Put(y < 0 ? 1 : 0, 1);
}

void EncodeQuad(BitWriter& w, uint32_t table, int v, int wv, int x, int y) {
  const kxmp3::HuffmanCodeList list = kxmp3::QuadCodeList(table);
  const int vals[4] = {v, wv, x, y};
  uint32_t index = 0;
  for (int k = 0; k < 4; ++k) index = index * 2 + (vals[k] != 0 ? 1 : 0);
  PutCode(w, list, index);
  for (int k = 0; k < 4; ++k)
    if (vals[k] != 0) w.Put(vals[k] < 0 ? 1 : 0, 1);
}

uint32_t FrameBytes(const HeaderFields& h) {
  const uint32_t version = h.versionBits == 3 ? 0 : (h.versionBits == 2 ? 1 : 2);
  return kxmp3::kFrameLengthTable[version * 3 + h.rate][h.bitrate] + h.padding;
}

uint32_t MainDataBytes(const HeaderFields& h) {
  const bool mpeg1 = h.versionBits == 3;
  const uint32_t channels = h.mode == 3 ? 1 : 2;
  const uint32_t side = mpeg1 ? (channels == 1 ? 17 : 32) : (channels == 1 ? 9 : 17);
  return FrameBytes(h) - 4 - side - (h.noCrc ? 0 : 2);
}

std::vector<uint8_t> MakeFrame(const HeaderFields& h, const std::vector<uint8_t>& side,
                               const std::vector<uint8_t>& mainData) {
  std::vector<uint8_t> f;
  PutWord(f, MakeHeader(h));
  if (!h.noCrc) {
    f.push_back(0xAB);
    f.push_back(0xCD);
  }
  f.insert(f.end(), side.begin(), side.end());
  std::vector<uint8_t> md = mainData;
  md.resize(MainDataBytes(h), 0);
  f.insert(f.end(), md.begin(), md.end());
  return f;
}

std::vector<uint8_t> SilentFrame(const HeaderFields& h) {
  const bool mpeg1 = h.versionBits == 3;
  const uint32_t channels = h.mode == 3 ? 1 : 2;
  return MakeFrame(h, EncodeSideInfo(SideFields{}, mpeg1, channels), {});
}

std::vector<uint8_t> ToneFrame(const HeaderFields& h, uint32_t mainDataBegin) {
  const bool mpeg1 = h.versionBits == 3;
  const uint32_t channels = h.mode == 3 ? 1 : 2;
  SideFields side;
  side.main_data_begin = mainDataBegin;
  BitWriter w;
  const uint32_t granules = mpeg1 ? 2 : 1;
  for (uint32_t gr = 0; gr < granules; ++gr) {
    for (uint32_t ch = 0; ch < channels; ++ch) {
      const uint32_t start = w.BitCount();
      for (int i = 0; i < 8; ++i) EncodePair(w, 1, (i % 2) ? 1 : -1, 1);
      GranuleFields& g = side.gr[gr][ch];
      g.part2_3_length = w.BitCount() - start;
      g.big_values = 8;
      g.global_gain = 210;
      g.table_select[0] = g.table_select[1] = g.table_select[2] = 1;
      g.region0_count = 15;
      g.region1_count = 7;
    }
  }
  return MakeFrame(h, EncodeSideInfo(side, mpeg1, channels), w.Bytes());
}

std::vector<uint8_t> SilentFrames(const HeaderFields& h, int count) {
  std::vector<uint8_t> d;
  for (int i = 0; i < count; ++i) {
    const auto f = SilentFrame(h);
    d.insert(d.end(), f.begin(), f.end());
  }
  return d;
}

}  // namespace kxtest
