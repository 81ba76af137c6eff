// Byte-literal tags that no common writer makes, every field annotated: an ID3v2.2
// tag, a 2.4 tag with an extended header and a per-frame unsynchronised frame, an APE
// tag with its header block, and a Shift-JIS ID3v1.1 tag whose last character has a
// trail byte of 0x20.
#include <gtest/gtest.h>

#include "tag_test_util.h"
#include "tags/ape_tag.h"
#include "tags/id3v1.h"
#include "tags/id3v2.h"

namespace {

using kxmp3::ReplayGainRecord;
using namespace kxtest;

Bytes Literal(std::initializer_list<int> bytes) {
  Bytes b;
  Put(b, bytes);
  return b;
}

TEST(LiteralFixtures, Id3v22Tag) {
  const Bytes file = Literal({
      'I', 'D', '3',           // magic
      0x02, 0x00,              // version 2.2.0
      0x00,                    // flags: none
      0x00, 0x00, 0x00, 0x25,  // tag size 37 (4 x 7 bits)
      'T', 'T', '2',           // frame ID: title (becomes TIT2)
      0x00, 0x00, 0x06,        // frame size 6 (3 bytes, big-endian; no flags in 2.2)
      0x00,                    //   encoding 0: ISO-8859-1
      'H', 'e', 'l', 'l', 'o', //   text
      'T', 'C', 'O',           // frame ID: content type (becomes TCON)
      0x00, 0x00, 0x05,        // frame size 5
      0x00,                    //   encoding 0
      '(', '3', '1', ')',      //   genre reference 31: "Trance"
      0x00, 0x00, 0x00, 0x00,  // padding
      0x00, 0x00, 0x00, 0x00,
      0x00, 0x00,
      0xFF, 0xFB, 0x90, 0x00,  // audio starts here
  });
  auto stream = MakeStream(file);
  ReplayGainRecord rg;
  RecordPtr record(kxmp3::ReadId3v2Tag(stream.get(), &rg));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Hello");
  EXPECT_EQ(Field(record, kxmp3::kCommentGenre), u"Trance");
}

TEST(LiteralFixtures, Id3v24ExtendedHeaderAndPerFrameUnsynchronisation) {
  const Bytes file = Literal({
      'I', 'D', '3',           // magic
      0x04, 0x00,              // version 2.4.0
      0x40,                    // flags: extended header
      0x00, 0x00, 0x00, 0x28,  // tag size 40
      0x00, 0x00, 0x00, 0x06,  // extended header size 6 (sync-safe, counts itself)
      0x01,                    //   one flag byte follows
      0x00,                    //   extended flags: none
      'P', 'A', 'D', '!',      // 4 bytes the reader skips as well (size + 4)
      'T', 'P', 'E', '1',      // frame ID: artist
      0x00, 0x00, 0x00, 0x06,  // frame size 6 (sync-safe)
      0x00,                    // status flags
      0x02,                    // format flags: this frame is unsynchronised
      0x00,                    //   encoding 0
      'M', 'o', 'z', 'a', 'r', //   text ("Mozar": the removal over the tag start finds
                               //   no FF 00 pair, so the size stays 6)
      'T', 'I', 'T', '2',      // frame ID: title
      0x00, 0x00, 0x00, 0x02,  // frame size 2
      0x00, 0x00,              // flags
      0x00,                    //   encoding 0
      'K',                     //   text
      0x00, 0x00,              // padding
      0xFF, 0xFB, 0x90, 0x00,  // audio starts here
  });
  auto stream = MakeStream(file);
  ReplayGainRecord rg;
  RecordPtr record(kxmp3::ReadId3v2Tag(stream.get(), &rg));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Mozar");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"K");
}

TEST(LiteralFixtures, ApeTagWithHeaderBlockAndReadOnlyItem) {
  const Bytes file = Literal({
      0xFF, 0xFB, 0x90, 0x00,                          // end of the audio
      'A', 'P', 'E', 'T', 'A', 'G', 'E', 'X',          // header block
      0xD0, 0x07, 0x00, 0x00,                          //   version 2000
      0x3F, 0x00, 0x00, 0x00,                          //   tag size 63: items + footer
      0x02, 0x00, 0x00, 0x00,                          //   2 items
      0x00, 0x00, 0x00, 0xA0,                          //   flags: has header, is header
      0, 0, 0, 0, 0, 0, 0, 0,                          //   reserved
      0x03, 0x00, 0x00, 0x00,                          // item 1: value size 3
      0x01, 0x00, 0x00, 0x00,                          //   flags: read-only, text
      'Y', 'e', 'a', 'r', 0x00,                        //   key "Year"
      '1', '9', '9',                                   //   value
      0x02, 0x00, 0x00, 0x00,                          // item 2: value size 2
      0x00, 0x00, 0x00, 0x00,                          //   flags: text
      'y', 'E', 'A', 'R', 0x00,                        //   key "yEAR": the same field
      '2', '0',                                        //   value, dropped: read-only
      'A', 'P', 'E', 'T', 'A', 'G', 'E', 'X',          // footer
      0xD0, 0x07, 0x00, 0x00,                          //   version 2000
      0x3F, 0x00, 0x00, 0x00,                          //   tag size 63
      0x02, 0x00, 0x00, 0x00,                          //   2 items
      0x00, 0x00, 0x00, 0x80,                          //   flags: has header
      0, 0, 0, 0, 0, 0, 0, 0,                          //   reserved
  });
  auto stream = MakeStream(file);
  ReplayGainRecord rg;
  RecordPtr record(kxmp3::ReadApeTag(stream.get(), &rg));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"199");
}

TEST(LiteralFixtures, ShiftJisId3v11WithTrailByte0x20) {
  CodePageGuard cp(932);
  ASSERT_TRUE(cp.ok());
  Bytes file = Literal({
      'T', 'A', 'G',                      // magic
      0x83, 0x65, 0x83, 0x58, 0x83, 0x67, // title "テスト"
      0x82, 0x20,                         //   then lead byte 0x82 with trail byte 0x20
  });
  file.resize(3 + 30, 0);                 //   title padded with zeros to 30 bytes
  file.resize(3 + 30 + 30 + 30, 0);       // artist, album: empty
  Put(file, "2000");                      // year
  file.resize(97 + 28, 0);                // comment: empty, 28 bytes
  Put(file, {0x00, 0x0C});                // ID3v1.1: zero, then track 12
  Put(file, {0x92});                      // genre 146: "JPop"
  ASSERT_EQ(file.size(), 128u);
  auto stream = MakeStream(file);
  ReplayGainRecord rg;
  RecordPtr record(kxmp3::ReadId3v1Tag(stream.get(), &rg));
  ASSERT_NE(record, nullptr);
  // 0x82 0x20 is no valid pair of code page 932, and the trimming kept it whole.
  // The system's conversion then shows it as the POSIX layer does (one replacement
  // character for the lead byte, the 0x20 as a blank) or as Windows does (its
  // default character U+30FB for the pair).
#if defined(_WIN32)
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"テスト\u30FB");
#else
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"テスト\uFFFD ");
#endif
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"2000");
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"12");
  EXPECT_EQ(Field(record, kxmp3::kCommentGenre), u"JPop");
}

}  // namespace
