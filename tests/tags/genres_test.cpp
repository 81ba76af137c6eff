// The genre tables: sizes, the deliberate wordings, and the fourteen rows in which the
// APE table differs from the ID3 table.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "tags/genres.h"

namespace {

using kxmp3::ApeGenreNames;
using kxmp3::GenreNames;

TEST(Genres, TableSizesAndEnds) {
  EXPECT_EQ(sizeof(GenreNames) / sizeof(GenreNames[0]), 157u);
  EXPECT_EQ(sizeof(ApeGenreNames) / sizeof(ApeGenreNames[0]), 148u);
  EXPECT_EQ(std::u16string(GenreNames[0]), u"Blues");
  EXPECT_EQ(std::u16string(GenreNames[17]), u"Rock");
  EXPECT_EQ(std::u16string(GenreNames[147]), u"Synthpop");
  EXPECT_EQ(std::u16string(GenreNames[148]), u"Unknown");
  EXPECT_EQ(std::u16string(GenreNames[149]), u"Heavy Rock(J)");
  EXPECT_EQ(std::u16string(GenreNames[156]), u"アニメもの");
  EXPECT_EQ(std::u16string(ApeGenreNames[0]), u"Blues");
  EXPECT_EQ(std::u16string(ApeGenreNames[147]), u"SynthPop");
}

TEST(Genres, DeliberateSpellingsAndExtendedEntries) {
  const std::map<int, std::u16string> expected = {
      {25, u"Euro-tecno"}, {29, u"Juzz+Funk"}, {40, u"AlternRock"}, {67, u"Psychadelic"},
      {85, u"Bedob"}, {90, u"Avantagarde"}, {93, u"Psychadelic Rock"}, {96, u"Big band"},
      {118, u"Rhytmic Soul"}, {123, u"Acapella"}, {133, u"Negerpunk"}, {134, u"Polsk Punk"},
      {150, u"Doom Rock(J)"}, {151, u"J-POP(J)"}, {152, u"声優モノ"}, {153, u"Tecno Ambient"},
      {154, u"萌え萌え☆彡"}, {155, u"特撮モノ"}};
  for (const auto& [index, name] : expected) EXPECT_EQ(std::u16string(GenreNames[index]), name) << index;
}

TEST(Genres, ApeTableDiffersInExactlyFourteenRows) {
  const std::map<int, std::u16string> differing = {
      {25, u"Euro-Techno"}, {29, u"Jazz+Funk"}, {81, u"Folk-Rock"}, {84, u"Fast Fusion"},
      {85, u"Bebop"}, {90, u"Avantgarde"}, {93, u"Psychedelic Rock"}, {96, u"Big Band"},
      {118, u"Rhythmic Soul"}, {128, u"Club House"}, {133, u"Black Punk"}, {136, u"Christian Gangsta"},
      {140, u"Contemporary C"}, {147, u"SynthPop"}};
  int differences = 0;
  for (int i = 0; i < 148; ++i) {
    const std::u16string id3(GenreNames[i]);
    const std::u16string ape(ApeGenreNames[i]);
    auto it = differing.find(i);
    if (it == differing.end()) {
      EXPECT_EQ(ape, id3) << i;
    } else {
      EXPECT_EQ(ape, it->second) << i;
      EXPECT_NE(ape, id3) << i;
      ++differences;
    }
  }
  EXPECT_EQ(differences, 14);
}

TEST(Genres, NamesAreUniqueAndNonEmpty) {
  std::set<std::u16string> seen;
  for (const char16_t* name : GenreNames) {
    ASSERT_NE(name, nullptr);
    EXPECT_FALSE(std::u16string(name).empty());
    EXPECT_TRUE(seen.insert(name).second) << "duplicate";
  }
}

// A spot check of the whole list through a checksum of its names in index order:
// any changed, dropped or moved entry changes it. The value is the FNV-1a hash of the
// UTF-16 units of all 157 names, each followed by a zero unit.
TEST(Genres, WholeTableChecksum) {
  uint64_t hash = 1469598103934665603ull;
  for (const char16_t* name : GenreNames) {
    for (const char16_t* p = name;; ++p) {
      hash = (hash ^ static_cast<uint64_t>(*p)) * 1099511628211ull;
      if (*p == 0) break;
    }
  }
  EXPECT_EQ(hash, 0x39780f152b00e729ull);
}

}  // namespace
