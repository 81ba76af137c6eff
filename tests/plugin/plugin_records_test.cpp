// The plug-in information record, the format record and its callbacks: contents
// byte for byte, null records, the probe's refusal of foreign formats without
// touching the stream, the create callback's codes and the about box.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "host/kxcore.h"
#include "platform/kx_platform.h"
#include "plugin/kxmp3.h"
#include "plugin/plugin_info.h"
#include "support/memory_stream.h"

namespace {

using kxmp3::CreateDecoder;
using kxmp3::GetFormatInfo;
using kxmp3::ProbeFormat;
using kxmp3::ShowAbout;

const uint32_t kForeign = MakeFourCC('Z', 'W', 'A', 'V');

std::vector<uint8_t> Fixture(const std::string& name) {
  return kxtest::ReadFile(std::string(KX_TEST_DATA_DIR) + "/mp3/" + name);
}

TEST(PluginInfoRecord, NullRecordIsRefused) {
  EXPECT_EQ(ZSSGetPluginInfo(nullptr), AF_E_POINTER);
  EXPECT_EQ(GetFormatInfo(nullptr), AF_E_POINTER);
}

TEST(PluginInfoRecord, FieldsByteForByte) {
  PluginInfo info;
  std::memset(&info, 0xA5, sizeof(info));
  ASSERT_EQ(ZSSGetPluginInfo(&info), AF_S_OK);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&info);
  // Interface version 0x3000, little-endian at offset 0.
  EXPECT_EQ(bytes[0], 0x00);
  EXPECT_EQ(bytes[1], 0x30);
  EXPECT_EQ(bytes[2], 0x00);
  EXPECT_EQ(bytes[3], 0x00);
  // Pointers follow at 4, 12, 20, 28 and 36 with no gap.
  const char16_t* p = nullptr;
  std::memcpy(&p, bytes + 4, 8);
  EXPECT_EQ(std::u16string(p), u"Kx MPEG Audio Layer-III File Library");
  std::memcpy(&p, bytes + 12, 8);
  EXPECT_EQ(std::u16string(p), u"KXMP3Lib developers");
  std::memcpy(&p, bytes + 20, 8);
  EXPECT_EQ(std::u16string(p), u"https://kxmp3lib.invalid/");
  std::memcpy(&p, bytes + 28, 8);
  EXPECT_EQ(std::u16string(p), u"MPEG Audio Layer-III File Reader/Decoder");
  ZssGetFormatInfoFn fn = nullptr;
  std::memcpy(&fn, bytes + 36, 8);
  EXPECT_EQ(fn, &GetFormatInfo);
  // The 16 reserved bytes are written as zero.
  for (int i = 44; i < 60; ++i) EXPECT_EQ(bytes[i], 0) << "reserved byte " << i;
}

TEST(FormatInfoRecord, FieldsByteForByte) {
  FormatInfo format;
  std::memset(&format, 0xA5, sizeof(format));
  ASSERT_EQ(GetFormatInfo(&format), AF_S_OK);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&format);
  uint32_t count = 0;
  std::memcpy(&count, bytes, 4);
  EXPECT_EQ(count, 1u);
  const uint32_t* codes = nullptr;
  std::memcpy(&codes, bytes + 4, 8);
  ASSERT_NE(codes, nullptr);
  EXPECT_EQ(codes[0], FOURCC_ZMP3);
  // FourCC: first character in the low byte.
  const auto* codeBytes = reinterpret_cast<const uint8_t*>(codes);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(codeBytes), 4), "ZMP3");
  const char16_t* const* texts = nullptr;
  std::memcpy(&texts, bytes + 12, 8);
  ASSERT_NE(texts, nullptr);
  EXPECT_EQ(std::u16string(texts[0]), u"MPEG Audio Layer-III File");
  EXPECT_EQ(texts[1], nullptr);
  ZssProbeFn probe = nullptr;
  ZssCreateFn create = nullptr;
  ZssAboutFn about = nullptr;
  std::memcpy(&probe, bytes + 20, 8);
  std::memcpy(&create, bytes + 28, 8);
  std::memcpy(&about, bytes + 36, 8);
  EXPECT_EQ(probe, &ProbeFormat);
  EXPECT_EQ(create, &CreateDecoder);
  EXPECT_EQ(about, &ShowAbout);
}

TEST(ProbeFormat, ForeignFourCCDoesNotTouchTheStream) {
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(Fixture("m1_44100_joint_cbr.mp3"));
  ASSERT_GT(stream->Data().size(), 0u);
  EXPECT_EQ(ProbeFormat(stream, kForeign), AF_E_UNSUPPORTED);
  EXPECT_EQ(ProbeFormat(stream, FOURCC_ZAFC), AF_E_UNSUPPORTED);
  EXPECT_EQ(stream->CallCount(), 0u);
  EXPECT_EQ(stream->RawPosition(), 0);
  stream->Release();
}

TEST(ProbeFormat, TakesAnMp3AndLeavesThePosition) {
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(Fixture("m1_44100_joint_cbr.mp3"));
  ASSERT_GT(stream->Data().size(), 0u);
  EXPECT_EQ(ProbeFormat(stream, FOURCC_ZMP3), AF_S_OK);
  EXPECT_GT(stream->CallCount(), 0u);
  EXPECT_EQ(stream->RawPosition(), 0);
  stream->Release();
}

TEST(ProbeFormat, RefusesWhatIsNotMpegAudio) {
  std::vector<uint8_t> text(4000);
  for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<uint8_t>("plain text, no frames "[i % 22]);
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(text, u"notes.mp3");
  EXPECT_EQ(ProbeFormat(stream, FOURCC_ZMP3), AF_E_UNSUPPORTED);
  stream->Release();
  kxtest::MemoryStream* empty = kxtest::MemoryStream::Make({}, u"empty.mp3");
  EXPECT_EQ(ProbeFormat(empty, FOURCC_ZMP3), AF_E_UNSUPPORTED);
  empty->Release();
}

TEST(ProbeFormat, ADetectionFailureIsUnsupported) {
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(Fixture("m1_44100_joint_cbr.mp3"));
  stream->FailFromCall(1);
  EXPECT_EQ(ProbeFormat(stream, FOURCC_ZMP3), AF_E_UNSUPPORTED);
  stream->Release();
}

TEST(CreateDecoder, Codes) {
  Class_ZCOM* object = reinterpret_cast<Class_ZCOM*>(uintptr_t{1});
  EXPECT_EQ(CreateDecoder(kForeign, &object), AF_E_UNSUPPORTED);
  EXPECT_EQ(object, reinterpret_cast<Class_ZCOM*>(uintptr_t{1}));  // untouched
  EXPECT_EQ(CreateDecoder(kForeign, nullptr), AF_E_UNSUPPORTED);
  EXPECT_EQ(CreateDecoder(FOURCC_ZMP3, nullptr), AF_E_FAIL);
  object = nullptr;
  ASSERT_EQ(CreateDecoder(FOURCC_ZMP3, &object), AF_S_OK);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->GetFourCC(), FOURCC_ZMP3);
  EXPECT_EQ(object->GetRefCount(), 1u);
  EXPECT_EQ(object->IsCreated(), 0u);
  EXPECT_EQ(object->Release(), 0u);
}

struct AboutCall {
  int calls = 0;
  HWND owner = nullptr;
  std::u16string text;
  std::u16string caption;
  uint32_t type = 0xFFFFFFFF;
};

int CaptureAbout(HWND owner, const char16_t* text, const char16_t* caption, uint32_t type, void* context) {
  auto* call = static_cast<AboutCall*>(context);
  ++call->calls;
  call->owner = owner;
  call->text = text;
  call->caption = caption;
  call->type = type;
  return IDOK;
}

TEST(ShowAbout, ShowsATopmostBoxForThisFormatOnly) {
  AboutCall call;
  KxSetMessageBoxHandler(&CaptureAbout, &call);
  HWND parent = reinterpret_cast<HWND>(uintptr_t{0x1234});
  EXPECT_EQ(ShowAbout(FOURCC_ZMP3, nullptr, parent), AF_S_OK);
  EXPECT_EQ(call.calls, 1);
  EXPECT_EQ(call.owner, parent);
  EXPECT_EQ(call.text, u"MPEG Audio Layer-III File");
  EXPECT_EQ(call.caption, u"Kx MPEG Audio Layer-III File Library");
  EXPECT_EQ(call.type, MB_OK | MB_TOPMOST);
  // A foreign fourcc: nothing shown, still 0.
  EXPECT_EQ(ShowAbout(kForeign, nullptr, parent), AF_S_OK);
  EXPECT_EQ(call.calls, 1);
  KxSetMessageBoxHandler(nullptr, nullptr);
}

}  // namespace
