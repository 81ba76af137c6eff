// Comment record packing, reading and merging.
#include <gtest/gtest.h>

#include <cstring>

#include "tag_test_util.h"
#include "tags/comment_record.h"

namespace {

using kxmp3::BuildCommentRecord;
using kxmp3::CommentRecordHeader;
using kxmp3::CommentRecordSize;
using kxmp3::MergeCommentRecords;
using kxtest::Field;
using kxtest::RecordPtr;

CommentRecordHeader HeaderOf(const RecordPtr& record) {
  CommentRecordHeader header;
  std::memcpy(&header, record.get(), sizeof(header));
  return header;
}

TEST(CommentRecord, SevenAbsentStringsGiveA78ByteRecordWithOffsetsZeroToSix) {
  RecordPtr record(BuildCommentRecord(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
  ASSERT_NE(record, nullptr);
  const CommentRecordHeader header = HeaderOf(record);
  EXPECT_EQ(header.fourcc, FOURCC_ZAFC);
  EXPECT_EQ(header.size, 78u);
  EXPECT_EQ(CommentRecordSize(record.get()), 78u);
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(header.fields[i].offset, i);
    EXPECT_EQ(header.fields[i].reserved, 0u);
    EXPECT_EQ(Field(record, i), u"");
  }
  // The string area holds seven terminators and nothing else.
  const auto* bytes = static_cast<const uint8_t*>(record.get());
  for (int i = 64; i < 78; ++i) EXPECT_EQ(bytes[i], 0) << i;
}

TEST(CommentRecord, LayoutOfSevenStrings) {
  RecordPtr record(BuildCommentRecord(u"Artist", u"T", u"", u"1999", u"3/12", u"Rock", u"Note"));
  const CommentRecordHeader header = HeaderOf(record);
  // Lengths with terminators: 7, 2, 1, 5, 5, 5, 5 = 30 units.
  EXPECT_EQ(header.size, 64u + 2u * 30u);
  const int expected[7] = {0, 7, 9, 10, 15, 20, 25};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(header.fields[i].offset, expected[i]) << i;
  const auto* strings = reinterpret_cast<const char16_t*>(static_cast<const uint8_t*>(record.get()) + 64);
  EXPECT_EQ(std::u16string(strings + 20), u"Rock");
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Artist");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"T");
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"1999");
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"3/12");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"Note");
}

TEST(CommentRecord, LineBreaksAndTabsBecomeBlanksOneForOne) {
  RecordPtr record(BuildCommentRecord(u"a\r\nb", nullptr, nullptr, nullptr, nullptr, nullptr, u"x\ty\n"));
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"a  b");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"x y ");
  EXPECT_EQ(HeaderOf(record).size, 64u + 2u * (5 + 1 + 1 + 1 + 1 + 1 + 5));
}

TEST(CommentRecord, MergeKeepsABlankPrimaryTitle) {
  RecordPtr primary(BuildCommentRecord(nullptr, u" ", nullptr, nullptr, nullptr, nullptr, nullptr));
  RecordPtr secondary(BuildCommentRecord(u"Artist", u"X", nullptr, nullptr, nullptr, nullptr, nullptr));
  RecordPtr merged(MergeCommentRecords(primary.get(), secondary.get()));
  EXPECT_EQ(Field(merged, kxmp3::kCommentTitle), u" ");
  EXPECT_EQ(Field(merged, kxmp3::kCommentArtist), u"Artist");  // empty in the primary
}

TEST(CommentRecord, MergeOfTwoRecordsLackingAFieldGivesAnEmptyField) {
  RecordPtr a(BuildCommentRecord(u"A", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
  RecordPtr b(BuildCommentRecord(nullptr, u"B", nullptr, nullptr, nullptr, nullptr, nullptr));
  RecordPtr merged(MergeCommentRecords(a.get(), b.get()));
  const CommentRecordHeader header = HeaderOf(merged);
  EXPECT_EQ(header.size, 64u + 2u * (2 + 2 + 5));
  EXPECT_EQ(header.fields[kxmp3::kCommentAlbum].offset, 4);  // present, pointing at a terminator
  EXPECT_EQ(Field(merged, kxmp3::kCommentAlbum), u"");
  EXPECT_EQ(Field(merged, kxmp3::kCommentArtist), u"A");
  EXPECT_EQ(Field(merged, kxmp3::kCommentTitle), u"B");
}

TEST(CommentRecord, MergeTakesEveryFieldThePrimaryFills) {
  RecordPtr a(BuildCommentRecord(u"A1", u"T1", nullptr, u"Y1", nullptr, u"G1", nullptr));
  RecordPtr b(BuildCommentRecord(u"A2", u"T2", u"L2", u"Y2", u"K2", u"G2", u"C2"));
  RecordPtr merged(MergeCommentRecords(a.get(), b.get()));
  const std::u16string expected[7] = {u"A1", u"T1", u"L2", u"Y1", u"K2", u"G1", u"C2"};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(Field(merged, i), expected[i]) << i;
}

TEST(CommentRecord, FieldReaderNeverLeavesTheBlock) {
  RecordPtr record(BuildCommentRecord(u"abc", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
  auto* bytes = static_cast<uint8_t*>(record.get());
  // An offset far outside the record gives "".
  int32_t bad = 1000;
  std::memcpy(bytes + 8, &bad, 4);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"");
  bad = -1;
  std::memcpy(bytes + 8, &bad, 4);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"");
  // A wrong FourCC is no record.
  bytes[0] = 'X';
  EXPECT_EQ(CommentRecordSize(record.get()), 0u);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"");
  EXPECT_EQ(kxmp3::CommentRecordField(nullptr, 0), u"");
  EXPECT_EQ(kxmp3::CommentRecordField(record.get(), 7), u"");
}

TEST(CommentRecord, RecordsAreCoreMemory) {
  const int64_t before = ZCoreLiveBlocks();
  void* record = BuildCommentRecord(u"a", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(ZCoreLiveBlocks(), before + 1);
  ZCoreFree(record);
  EXPECT_EQ(ZCoreLiveBlocks(), before);
}

}  // namespace
