// ID3v2 reader: byte-built tags of versions 2.2, 2.3 and 2.4 covering what common
// writers never produce (2.2, "ea3", 2.3.1, whole-tag and per-frame
// unsynchronisation, extended headers, frames that overrun the tag), every text
// encoding, COMM, TCON, TXXX, and the failure paths.
#include <gtest/gtest.h>

#include <cstring>

#include "tag_test_util.h"
#include "tags/comment_record.h"
#include "tags/id3v2.h"
#include "tags/replaygain.h"

namespace {

using kxmp3::ReadId3v2Tag;
using kxmp3::ReplayGainRecord;
using namespace kxtest;

// Frame bodies: encoding byte, then the text as the encoding stores it.
Bytes Latin1(const std::string& text) { return Cat({Bytes{0}, Bytes(text.begin(), text.end())}); }
Bytes Utf8(const std::string& text) { return Cat({Bytes{3}, Bytes(text.begin(), text.end())}); }
Bytes Utf16Bom(const std::u16string& text) { return Cat({Bytes{1, 0xFF, 0xFE}, Utf16LE(text)}); }
Bytes Utf16BomBigEndian(const std::u16string& text) { return Cat({Bytes{1, 0xFE, 0xFF}, Utf16BE(text)}); }
Bytes Utf16BE2(const std::u16string& text) { return Cat({Bytes{2}, Utf16BE(text)}); }

RecordPtr Read(const Bytes& data, ReplayGainRecord* rg = nullptr) {
  ReplayGainRecord scratch;
  auto stream = MakeStream(data);
  return RecordPtr(ReadId3v2Tag(stream.get(), rg ? rg : &scratch));
}

// A version-3 or version-4 tag of the given frames followed by audio bytes.
Bytes Tag(uint8_t major, std::initializer_list<Bytes> frames, uint8_t flags = 0, size_t padding = 0) {
  Bytes body;
  for (const Bytes& f : frames) body.insert(body.end(), f.begin(), f.end());
  body.resize(body.size() + padding, 0);
  return Cat({Id3v2Tag(major, 0, flags, body), AudioFiller()});
}

TEST(Id3v2, ReadsTheSevenFramesOfA23Tag) {
  const Bytes file = Tag(3, {Id3v2Frame(3, "TPE1", Latin1("Artist")), Id3v2Frame(3, "TIT2", Latin1("Title")),
                             Id3v2Frame(3, "TALB", Latin1("Album")), Id3v2Frame(3, "TYER", Latin1("1999")),
                             Id3v2Frame(3, "TRCK", Latin1("3/12")), Id3v2Frame(3, "TCON", Latin1("(17)"))},
                         0, 32);
  RecordPtr record = Read(file);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Artist");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Title");
  EXPECT_EQ(Field(record, kxmp3::kCommentAlbum), u"Album");
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"1999");
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"3/12");
  EXPECT_EQ(Field(record, kxmp3::kCommentGenre), u"Rock");
}

TEST(Id3v2, CommentFrameLatin1SkipsLanguageAndDescription) {
  Bytes comm{0};
  Put(comm, "eng");
  Put(comm, "some description");
  comm.push_back(0);
  Put(comm, "The comment");
  RecordPtr record = Read(Tag(3, {Id3v2Frame(3, "COMM", comm)}));
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"The comment");
}

TEST(Id3v2, OnlyPaddingGivesARecordWithSevenEmptyFields) {
  RecordPtr record = Read(Tag(4, {}, 0, 100));
  ASSERT_NE(record, nullptr);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(Field(record, i), u"") << i;
  EXPECT_EQ(kxmp3::CommentRecordSize(record.get()), 78u);
}

TEST(Id3v2, Version231IsReadWithSyncSafeFrameSizes) {
  // A 200-byte TIT2: its size field 00 00 01 48 is 200 as 4 x 7 bits but 328 as a
  // plain 32-bit number. Only the sync-safe reading finds the TPE1 behind it.
  const std::string longTitle(199, 't');
  Bytes body = Cat({Id3v2Frame(4, "TIT2", Latin1(longTitle)), Id3v2Frame(4, "TPE1", Latin1("Behind"))});
  body.resize(body.size() + 200, 0);
  RecordPtr record = Read(Cat({Id3v2Tag(3, 1, 0, body), AudioFiller()}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), std::u16string(199, u't'));
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Behind");
  // The same bytes as version 2.3.0: the title frame is taken as 328 bytes long, so
  // the artist frame is swallowed (and the title runs on into it).
  RecordPtr v230 = Read(Cat({Id3v2Tag(3, 0, 0, body), AudioFiller()}));
  EXPECT_EQ(Field(v230, kxmp3::kCommentArtist), u"");
}

TEST(Id3v2, VersionAbove24GivesNoRecord) {
  const Bytes body = Id3v2Frame(4, "TIT2", Latin1("x"));
  EXPECT_EQ(Read(Cat({Id3v2Tag(5, 0, 0, body), AudioFiller()})), nullptr);
  EXPECT_EQ(Read(Cat({Id3v2Tag(4, 1, 0, body), AudioFiller()})), nullptr);  // 2.4.1
  EXPECT_NE(Read(Cat({Id3v2Tag(4, 0, 0, body), AudioFiller()})), nullptr);
}

TEST(Id3v2, SecondTitleFrameWins) {
  RecordPtr record = Read(Tag(4, {Id3v2Frame(4, "TIT2", Latin1("First")), Id3v2Frame(4, "TIT2", Latin1("Second"))}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Second");
}

TEST(Id3v2, CommentInUtf16WithAnEmptyDescription) {
  // Encoding 1, language, description "" as BOM + zero unit, then BOM + text.
  Bytes comm{1};
  Put(comm, "eng");
  Put(comm, {0xFF, 0xFE, 0x00, 0x00});
  Put(comm, {0xFF, 0xFE});
  comm = Cat({comm, Utf16LE(u"Texte ♪")});
  RecordPtr record = Read(Tag(3, {Id3v2Frame(3, "COMM", comm)}));
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"Texte ♪");
}

TEST(Id3v2, CommentInUtf16BigEndianWithMarkAndDescription) {
  Bytes comm{1};
  Put(comm, "deu");
  comm = Cat({comm, Bytes{0xFE, 0xFF}, Utf16BE(u"desc"), Bytes{0, 0}, Bytes{0xFE, 0xFF}, Utf16BE(u"Große Notiz")});
  RecordPtr record = Read(Tag(3, {Id3v2Frame(3, "COMM", comm)}));
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"Große Notiz");
}

TEST(Id3v2, CommentWithoutMarkBeforeTheTextIsIgnored) {
  Bytes bad{1};
  Put(bad, "eng");
  bad = Cat({bad, Bytes{0xFF, 0xFE, 0, 0}, Utf16LE(u"no mark")});
  Bytes good{0};
  Put(good, "eng");
  good.push_back(0);
  Put(good, "Earlier");
  RecordPtr record2 = Read(Tag(3, {Id3v2Frame(3, "COMM", good), Id3v2Frame(3, "COMM", bad)}));
  EXPECT_EQ(Field(record2, kxmp3::kCommentComment), u"Earlier");
}

TEST(Id3v2, CommentInUtf16BEAndUtf8) {
  Bytes be{2};
  Put(be, "eng");
  be = Cat({be, Utf16BE(u"d"), Bytes{0, 0}, Utf16BE(u"Big endian")});
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "COMM", be)})), kxmp3::kCommentComment), u"Big endian");
  Bytes u8{3};
  Put(u8, "eng");
  Put(u8, "déscription");
  u8.push_back(0);
  Put(u8, "Ünïcode ✓");
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "COMM", u8)})), kxmp3::kCommentComment), u"Ünïcode ✓");
}

TEST(Id3v2, LastCommentFrameWinsWhateverItsDescription) {
  Bytes a{0};
  Put(a, "eng");
  Put(a, "iTunNORM");
  a.push_back(0);
  Put(a, "first");
  Bytes b{0};
  Put(b, "xyz");
  Put(b, "other");
  b.push_back(0);
  Put(b, "second");
  RecordPtr record = Read(Tag(3, {Id3v2Frame(3, "COMM", b), Id3v2Frame(3, "COMM", a)}));
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"first");
}

TEST(Id3v2, CommentWithTooShortTextIsIgnored) {
  // Latin-1: the text behind the description must have at least two bytes.
  Bytes one{0};
  Put(one, "eng");
  one.push_back(0);
  Put(one, "x");
  EXPECT_EQ(Field(Read(Tag(3, {Id3v2Frame(3, "COMM", one)})), kxmp3::kCommentComment), u"");
  // UTF-8: one byte is enough.
  Bytes u8{3};
  Put(u8, "eng");
  u8.push_back(0);
  Put(u8, "y");
  EXPECT_EQ(Field(Read(Tag(3, {Id3v2Frame(3, "COMM", u8)})), kxmp3::kCommentComment), u"y");
  // No description terminator at all.
  Bytes none{0};
  Put(none, "engdescription");
  EXPECT_EQ(Field(Read(Tag(3, {Id3v2Frame(3, "COMM", none)})), kxmp3::kCommentComment), u"");
}

TEST(Id3v2, GenreTexts) {
  const std::pair<std::string, std::u16string> cases[] = {
      {"(17)", u"Rock"},          {"(17)Rock & Roll", u"Rock & Roll"}, {"(17)   ", u"Rock"},
      {"((17)", u"Rock"},         {"17", u"17"},                       {"(abc)", u"(abc)"},
      {"(148)", u"Unknown"},      {"(300)", u"Unknown"},               {"()", u"Blues"},
      {"(17", u"Rock"},           {"Rock", u"Rock"},                   {"(4)Eurodisco", u"Eurodisco"},
      {"(147)", u"Synthpop"},     {"(9)(138)", u"(138)"},              {"(99999999999)", u"Unknown"},
      {"Rock (live)", u"Rock (live)"}, {"(52) Electro", u" Electro"},
  };
  for (const auto& [text, genre] : cases) {
    RecordPtr record = Read(Tag(4, {Id3v2Frame(4, "TCON", Latin1(text))}));
    EXPECT_EQ(Field(record, kxmp3::kCommentGenre), genre) << text;
  }
}

TEST(Id3v2, GenreResolutionOfWhiteSpaceAndIdeographicSpace) {
  EXPECT_EQ(kxmp3::ResolveGenreText(u"(17)\u3000\t\r\n "), u"Rock");
  EXPECT_EQ(kxmp3::ResolveGenreText(u"(17)\u3000X"), u"\u3000X");
  EXPECT_EQ(kxmp3::ResolveGenreText(u""), u"");
  EXPECT_EQ(kxmp3::ResolveGenreText(u"(2"), u"Country");
  EXPECT_EQ(kxmp3::ResolveGenreText(u"("), u"Blues");
}

TEST(Id3v2, FrameOfSizeOneLeavesItsSlotAlone) {
  RecordPtr record = Read(Tag(3, {Id3v2Frame(3, "TIT2", Latin1("Keep")), Id3v2Frame(3, "TIT2", Bytes{0}),
                                  Id3v2Frame(3, "TPE1", Latin1("After"))}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Keep");
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"After");
}

TEST(Id3v2, PerFrameUnsynchronisationRewritesTheStartOfTheTagData) {
  // Frame 1 (TIT2, 6 data bytes) holds two FF 00 pairs at tag offsets 12-13 and 14-15.
  // Frame 2 (TPE1, 20 data bytes, format flag 0x02) has none. Its flag runs the
  // removal over the first 20 bytes of the tag data, which drops the two zeros of
  // frame 1, so its own size becomes 18: the artist loses two characters, and the
  // walk goes on 2 bytes before the real end of frame 2.
  const Bytes frame1 = Id3v2Frame(4, "TIT2", Bytes{0, 'T', 0xFF, 0x00, 0xFF, 0x00});
  const Bytes frame2 = Id3v2Frame(4, "TPE1", Latin1("ABCDEFGHIJKLMNOPQRS"), 0x02);
  RecordPtr record = Read(Tag(4, {frame1, frame2}, 0, 20));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"T\u00FF");  // read before the removal
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"ABCDEFGHIJKLMNOPQ");
}

TEST(Id3v2, PerFrameFlagWithoutPairsChangesNothing) {
  const Bytes frame = Id3v2Frame(4, "TPE1", Latin1("Plain"), 0x02);
  RecordPtr record = Read(Tag(4, {frame, Id3v2Frame(4, "TIT2", Latin1("Next"))}));
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Plain");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Next");
}

TEST(Id3v2, WholeTagUnsynchronisation) {
  // Text bytes FF E0 and FF 00 become FF 00 E0 and FF 00 00 once unsynchronised.
  Bytes frames = Cat({Id3v2Frame(3, "TIT2", Bytes{0, 'a', 0xFF, 0xE0, 'b'}),
                      Id3v2Frame(3, "TPE1", Bytes{0, 0xFF, 0x00, 'c'})});
  Bytes unsynchronised;
  for (size_t i = 0; i < frames.size(); ++i) {
    unsynchronised.push_back(frames[i]);
    if (frames[i] == 0xFF && i + 1 < frames.size() && (frames[i + 1] >= 0xE0 || frames[i + 1] == 0)) {
      unsynchronised.push_back(0);
    }
  }
  ASSERT_EQ(unsynchronised.size(), frames.size() + 2);
  unsynchronised.resize(unsynchronised.size() + 16, 0);
  RecordPtr record = Read(Cat({Id3v2Tag(3, 0, 0x80, unsynchronised), AudioFiller()}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"a\u00FF\u00E0b");
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"\u00FF");  // FF, then the kept zero ends it
  // Without the flag the inserted zeros stay and shift the frames.
  RecordPtr raw = Read(Cat({Id3v2Tag(3, 0, 0x00, unsynchronised), AudioFiller()}));
  EXPECT_NE(Field(raw, kxmp3::kCommentTitle), u"a\u00FF\u00E0b");
}

TEST(Id3v2, RemoveUnsynchronisationBytes) {
  uint8_t a[] = {0xFF, 0x00, 0x00, 0x41, 0xFF, 0x00, 0xFF, 0x00, 0xE0};
  EXPECT_EQ(kxmp3::RemoveUnsynchronisation(a, sizeof(a)), 6u);
  const uint8_t expected[] = {0xFF, 0x00, 0x41, 0xFF, 0xFF, 0xE0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(a, expected, sizeof(a)), 0);
  uint8_t b[] = {0xFF, 0xFF, 0x00, 0x00};
  EXPECT_EQ(kxmp3::RemoveUnsynchronisation(b, sizeof(b)), 3u);  // FF FF 00 00 -> FF FF 00
  EXPECT_EQ(b[2], 0x00);
  EXPECT_EQ(kxmp3::RemoveUnsynchronisation(b, 0), 0u);
}

TEST(Id3v2, ExtendedHeaderOf23IsSkipped) {
  // 2.3 extended header: size 6 (32-bit, not counting itself), 2 flag bytes, 4 bytes
  // of padding size: 10 bytes in all.
  Bytes body;
  PutBE32(body, 6);
  Put(body, {0, 0, 0, 0, 0, 0});
  body = Cat({body, Id3v2Frame(3, "TIT2", Latin1("After extended"))});
  RecordPtr record = Read(Cat({Id3v2Tag(3, 0, 0x40, body), AudioFiller()}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"After extended");
}

TEST(Id3v2, ExtendedHeaderOf24IsSkippedFourBytesTooFar) {
  // 2.4 extended header: sync-safe size 6 counting itself, flag-byte count 1, flags 0.
  // The reader adds 4 to the size, so it skips 10 bytes: the 4 bytes after the real
  // extended header are never looked at.
  Bytes body;
  PutSyncSafe(body, 6);
  Put(body, {1, 0});
  Put(body, "JUNK");
  body = Cat({body, Id3v2Frame(4, "TIT2", Latin1("After extended"))});
  RecordPtr record = Read(Cat({Id3v2Tag(4, 0, 0x40, body), AudioFiller()}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"After extended");
}

TEST(Id3v2, ExtendedHeaderNotShorterThanTheTagIsAFailure) {
  Bytes body;
  PutBE32(body, 100);  // 104 bytes claimed, 20 in the tag
  body.resize(20, 0);
  EXPECT_EQ(Read(Cat({Id3v2Tag(3, 0, 0x40, body), AudioFiller()})), nullptr);
  Bytes exact;
  PutBE32(exact, 16);  // 20 claimed, exactly the tag: still a failure
  exact.resize(20, 0);
  EXPECT_EQ(Read(Cat({Id3v2Tag(3, 0, 0x40, exact), AudioFiller()})), nullptr);
}

TEST(Id3v2, Version22FramesAndIdMapping) {
  const Bytes body = Cat({Id3v2Frame(2, "TT2", Latin1("Title 2.2")), Id3v2Frame(2, "TP1", Latin1("Artist 2.2")),
                          Id3v2Frame(2, "TAL", Latin1("Album 2.2")), Id3v2Frame(2, "TYE", Latin1("1995")),
                          Id3v2Frame(2, "TRK", Latin1("4/9")), Id3v2Frame(2, "TCO", Latin1("(8)")),
                          Id3v2Frame(2, "COM", Cat({Bytes{0}, Bytes{'e', 'n', 'g', 0}, Bytes{'N', 'o', 't', 'e'}})),
                          Id3v2Frame(2, "TXX", Cat({Bytes{0}, Bytes{'r', 'e', 'p', 'l', 'a', 'y', 'g', 'a', 'i', 'n',
                                                                    '_', 't', 'r', 'a', 'c', 'k', '_', 'g', 'a', 'i',
                                                                    'n', 0, '-', '3'}})),
                          Bytes(12, 0)});
  ReplayGainRecord rg;
  // Flag 0x40 means nothing in 2.2: no extended header is skipped.
  RecordPtr record = Read(Cat({Id3v2Tag(2, 0, 0x40, body), AudioFiller()}), &rg);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Title 2.2");
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Artist 2.2");
  EXPECT_EQ(Field(record, kxmp3::kCommentAlbum), u"Album 2.2");
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"1995");
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"4/9");
  EXPECT_EQ(Field(record, kxmp3::kCommentGenre), u"Jazz");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"Note");
  EXPECT_EQ(rg.flags, 0u);  // a 2.2 "TXX" frame is never read
}

TEST(Id3v2, Ea3MagicIsAccepted) {
  const Bytes body = Cat({Id3v2Frame(3, "TIT2", Latin1("From ea3")), Bytes(10, 0)});
  RecordPtr record = Read(Cat({Id3v2Tag(3, 0, 0, body, "ea3"), AudioFiller()}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"From ea3");
  EXPECT_EQ(Read(Cat({Id3v2Tag(3, 0, 0, body, "ID4"), AudioFiller()})), nullptr);
}

TEST(Id3v2, TyerIsTheYearOnlyIn23) {
  EXPECT_EQ(Field(Read(Tag(3, {Id3v2Frame(3, "TYER", Latin1("1970"))})), kxmp3::kCommentYear), u"1970");
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TYER", Latin1("1970"))})), kxmp3::kCommentYear), u"");
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TDRC", Latin1("2021-05-06T10:00"))})), kxmp3::kCommentYear),
            u"2021-05-06T10:00");
}

TEST(Id3v2, TextEncodings) {
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Utf16Bom(u"Ünï ✓"))})), kxmp3::kCommentTitle), u"Ünï ✓");
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Utf16BomBigEndian(u"Big ✓"))})), kxmp3::kCommentTitle),
            u"Big ✓");
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Utf16BE2(u"BE ß"))})), kxmp3::kCommentTitle), u"BE ß");
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Utf8("UTF-8 日本"))})), kxmp3::kCommentTitle), u"UTF-8 日本");
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Latin1("caf\xE9"))})), kxmp3::kCommentTitle), u"café");
}

TEST(Id3v2, TextStopsAtTheFirstZeroAndOddBytesAreDropped) {
  // 2.4 lists: "One\0Two" gives "One".
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Cat({Latin1("One"), Bytes{0}, Bytes{'T', 'w', 'o'}}))})),
                  kxmp3::kCommentTitle),
            u"One");
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Cat({Utf16Bom(u"A"), Bytes{0, 0}, Utf16LE(u"B")}))})),
                  kxmp3::kCommentTitle),
            u"A");
  // UTF-16 with an odd byte count: the last byte is dropped.
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Cat({Utf16Bom(u"XY"), Bytes{'Z'}}))})), kxmp3::kCommentTitle),
            u"XY");
  // A mark alone is an empty text.
  EXPECT_EQ(Field(Read(Tag(4, {Id3v2Frame(4, "TIT2", Latin1("Old")), Id3v2Frame(4, "TIT2", Bytes{1, 0xFF, 0xFE})})),
                  kxmp3::kCommentTitle),
            u"");
}

TEST(Id3v2, UnusableEncodingsLeaveTheSlotAlone) {
  const Bytes first = Id3v2Frame(4, "TIT2", Latin1("Kept"));
  const Bytes cases[] = {
      Id3v2Frame(4, "TIT2", Cat({Bytes{1, 'n', 'o'}, Utf16LE(u"mark")})),  // no byte-order mark
      Id3v2Frame(4, "TIT2", Bytes{1, 0xFF}),                              // UTF-16 shorter than 3
      Id3v2Frame(4, "TIT2", Bytes{2, 'x'}),                               // UTF-16BE shorter than 3
      Id3v2Frame(4, "TIT2", Bytes{4, 'a', 'b'}),                          // no such encoding
      Id3v2Frame(4, "TIT2", Bytes{0xFF, 'a', 'b'}),
  };
  for (const Bytes& second : cases) {
    EXPECT_EQ(Field(Read(Tag(4, {first, second})), kxmp3::kCommentTitle), u"Kept");
  }
}

TEST(Id3v2, CompressedOrEncryptedFramesAreSkipped) {
  RecordPtr record = Read(Tag(4, {Id3v2Frame(4, "TIT2", Latin1("Plain")), Id3v2Frame(4, "TIT2", Latin1("Zip"), 0x08),
                                  Id3v2Frame(4, "TPE1", Latin1("Crypt"), 0x04)}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Plain");
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"");
  // The first flag byte is never consulted.
  Bytes frame = Id3v2Frame(3, "TALB", Latin1("Status flags"));
  frame[8] = 0xE0;
  EXPECT_EQ(Field(Read(Tag(3, {frame})), kxmp3::kCommentAlbum), u"Status flags");
}

TEST(Id3v2, UnknownFramesAreSteppedOver) {
  RecordPtr record = Read(Tag(3, {Id3v2Frame(3, "APIC", Bytes(300, 0xAB)), Id3v2Frame(3, "TPE2", Latin1("Band")),
                                  Id3v2Frame(3, "TIT2", Latin1("Found"))}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Found");
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"");
}

TEST(Id3v2, FrameClaimingMoreThanTheTagHoldsIsCutAtTheTagEnd) {
  // TIT2 claims 1000 bytes; the tag holds 6 of them. The audio bytes behind the tag
  // ("AUDIO...") must not reach the title.
  Bytes body;
  Put(body, "TIT2");
  PutBE32(body, 1000);
  Put(body, {0, 0});
  body = Cat({body, Latin1("Title")});
  Bytes audio;
  Put(audio, "AUDIO DATA THAT IS NOT TAG TEXT");
  RecordPtr record = Read(Cat({Id3v2Tag(3, 0, 0, body), audio}));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Title");
  // The same with a UTF-16 text cut in the middle of a unit and a COMM without end.
  Bytes body2;
  Put(body2, "COMM");
  PutBE32(body2, 0xFFFFFFFF);
  Put(body2, {0, 0, 1});
  Put(body2, "eng");
  Put(body2, {0xFF, 0xFE, 'd', 0});
  RecordPtr record2 = Read(Cat({Id3v2Tag(3, 0, 0, body2), audio}));
  ASSERT_NE(record2, nullptr);
  EXPECT_EQ(Field(record2, kxmp3::kCommentComment), u"");
}

TEST(Id3v2, UserTextFramesFillTheReplayGainRecord) {
  auto txxx = [](uint8_t encoding, const std::u16string& desc, const std::u16string& value) {
    Bytes body{encoding};
    if (encoding == 0 || encoding == 3) {
      for (char16_t c : desc) body.push_back(static_cast<uint8_t>(c));
      body.push_back(0);
      for (char16_t c : value) body.push_back(static_cast<uint8_t>(c));
    } else if (encoding == 1) {
      body = Cat({body, Bytes{0xFF, 0xFE}, Utf16LE(desc), Bytes{0, 0}, Bytes{0xFF, 0xFE}, Utf16LE(value)});
    } else {
      body = Cat({body, Utf16BE(desc), Bytes{0, 0}, Utf16BE(value)});
    }
    return Id3v2Frame(4, "TXXX", body);
  };
  ReplayGainRecord rg;
  RecordPtr record = Read(Tag(4, {txxx(0, u"replaygain_track_gain", u"-6.48 dB"),
                                  txxx(1, u"REPLAYGAIN_TRACK_PEAK", u"0.988831"),
                                  txxx(2, u"replaygain_album_gain", u"+2.5 dB"),
                                  txxx(3, u"replaygain_album_peak", u"1.25"),
                                  txxx(0, u"replaygain_reference_loudness", u"89.0 dB")}),
                          &rg);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(rg.flags, 15u);
  EXPECT_DOUBLE_EQ(+rg.trackGain, -6.48);
  EXPECT_DOUBLE_EQ(+rg.trackPeak, 0.988831);
  EXPECT_DOUBLE_EQ(+rg.albumGain, 2.5);
  EXPECT_DOUBLE_EQ(+rg.albumPeak, 1.25);
  // A later frame with the same key overwrites; 0.00 dB is not stored.
  ReplayGainRecord rg2;
  Read(Tag(4, {txxx(0, u"replaygain_track_gain", u"-1 dB"), txxx(0, u"replaygain_track_gain", u"-2 dB"),
               txxx(0, u"replaygain_album_gain", u"0.00 dB")}),
       &rg2);
  EXPECT_EQ(rg2.flags, kxmp3::RG_FLAG_TRACK_GAIN);
  EXPECT_DOUBLE_EQ(+rg2.trackGain, -2.0);
}

TEST(Id3v2, UserTextInUtf16BigEndianWithMarks) {
  Bytes body{1};
  body = Cat({body, Bytes{0xFE, 0xFF}, Utf16BE(u"replaygain_track_peak"), Bytes{0, 0}, Bytes{0xFE, 0xFF},
              Utf16BE(u"0.5")});
  ReplayGainRecord rg;
  Read(Tag(3, {Id3v2Frame(3, "TXXX", body)}), &rg);
  EXPECT_EQ(rg.flags, kxmp3::RG_FLAG_TRACK_PEAK);
  EXPECT_DOUBLE_EQ(+rg.trackPeak, 0.5);
}

TEST(Id3v2, FailuresGiveNoRecord) {
  const Bytes good = Tag(3, {Id3v2Frame(3, "TIT2", Latin1("x"))});
  EXPECT_NE(Read(good), nullptr);
  EXPECT_EQ(Read(Bytes()), nullptr);                                  // nothing to read
  EXPECT_EQ(Read(Bytes(good.begin(), good.begin() + 9)), nullptr);    // short header
  EXPECT_EQ(Read(Bytes(good.begin(), good.begin() + 20)), nullptr);   // tag cut short
  EXPECT_EQ(Read(Cat({Id3v2Tag(3, 0, 0, Bytes(9, 0)), AudioFiller()})), nullptr);  // shorter than a frame header
  EXPECT_EQ(Read(Cat({Id3v2Tag(2, 0, 0, Bytes(5, 0)), AudioFiller()})), nullptr);
  EXPECT_NE(Read(Cat({Id3v2Tag(2, 0, 0, Bytes(6, 0)), AudioFiller()})), nullptr);
  EXPECT_EQ(Read(Cat({Id3v2Tag(3, 0, 0, Bytes()), AudioFiller()})), nullptr);      // empty tag
}

TEST(Id3v2, HugeSizeFieldAllocatesNothingLarge) {
  Bytes header;
  Put(header, "ID3");
  Put(header, {4, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F});  // 256 MiB - 1
  auto stream = MakeStream(Cat({header, AudioFiller(1000)}));
  ReplayGainRecord rg;
  const uint64_t before = ZCoreAllocationCount();
  const int64_t live = ZCoreLiveBlocks();
  EXPECT_EQ(ReadId3v2Tag(stream.get(), &rg), nullptr);
  EXPECT_EQ(ZCoreAllocationCount(), before);  // refused before any allocation
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(Id3v2, ClearsTheReplayGainRecordFirst) {
  ReplayGainRecord rg;
  std::memset(&rg, 0x77, sizeof(rg));
  EXPECT_EQ(Read(AudioFiller(), &rg), nullptr);
  EXPECT_EQ(rg.fourcc, FOURCC_RPGI);
  EXPECT_EQ(rg.size, 44u);
  EXPECT_EQ(rg.flags, 0u);
  EXPECT_EQ(+rg.trackGain, 0.0);
}

TEST(Id3v2, StreamPositionAfterSuccessAndFailure) {
  ReplayGainRecord rg;
  auto stream = MakeStream(Tag(3, {Id3v2Frame(3, "TIT2", Latin1("x"))}));
  ASSERT_EQ(stream->Seek(17, ZS_SEEK_SET), AF_S_OK);
  RecordPtr record(ReadId3v2Tag(stream.get(), &rg));
  EXPECT_NE(record, nullptr);
  EXPECT_EQ(stream->RawPosition(), 17);
  // A failure after the buffer was made (an extended header as long as the tag) puts
  // the stream back too.
  Bytes body;
  PutBE32(body, 100);
  body.resize(20, 0);
  auto failing = MakeStream(Cat({Id3v2Tag(3, 0, 0x40, body), AudioFiller()}));
  ASSERT_EQ(failing->Seek(5, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(ReadId3v2Tag(failing.get(), &rg), nullptr);
  EXPECT_EQ(failing->RawPosition(), 5);
}

TEST(Id3v2, StreamFaultsAtEveryCall) {
  const Bytes file = Tag(3, {Id3v2Frame(3, "TIT2", Latin1("x"))});
  for (uint64_t call = 1; call <= 6; ++call) {
    auto stream = MakeStream(file);
    stream->FailCall(call);
    ReplayGainRecord rg;
    const int64_t live = ZCoreLiveBlocks();
    RecordPtr record(ReadId3v2Tag(stream.get(), &rg));
    record.reset();
    EXPECT_EQ(ZCoreLiveBlocks(), live) << call;
  }
}

}  // namespace
