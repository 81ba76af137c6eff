// Ordinal resolution of the core library's functions and the result-code names.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "host/kxcore.h"
#include "host/kx_result_codes.h"

namespace {

TEST(Ordinals, EachResolvesToItsFunction) {
  EXPECT_EQ(ZCoreGetProcByOrdinal(18), reinterpret_cast<void*>(&ZCoreAlloc));
  EXPECT_EQ(ZCoreGetProcByOrdinal(19), reinterpret_cast<void*>(&ZCoreFree));
  EXPECT_EQ(ZCoreGetProcByOrdinal(22), reinterpret_cast<void*>(&ZCoreRealloc));
  EXPECT_EQ(ZCoreGetProcByOrdinal(32), reinterpret_cast<void*>(&ZCoreCreateObject));
  EXPECT_EQ(ZCoreGetProcByOrdinal(33), reinterpret_cast<void*>(&ZCoreRegisterInterface));
  EXPECT_EQ(ZCoreGetProcByOrdinal(34), reinterpret_cast<void*>(&ZCoreUnregisterInterface));
  EXPECT_EQ(ZCoreGetProcByOrdinal(39), reinterpret_cast<void*>(&ZCoreRegisterModelessDialog));
  EXPECT_EQ(ZCoreGetProcByOrdinal(40), reinterpret_cast<void*>(&ZCoreUnregisterModelessDialog));
  EXPECT_EQ(ZCoreGetProcByOrdinal(43), reinterpret_cast<void*>(&ZCoreLockObject));
  EXPECT_EQ(ZCoreGetProcByOrdinal(45), reinterpret_cast<void*>(&ZCoreUnlockObject));
  EXPECT_EQ(ZCoreGetProcByOrdinal(63), reinterpret_cast<void*>(&ZCoreUtf8ToUtf16));
  EXPECT_EQ(ZCoreGetProcByOrdinal(65), reinterpret_cast<void*>(&ZCoreDialogRoutine));
  EXPECT_EQ(ZCoreGetProcByOrdinal(80), reinterpret_cast<void*>(&ZCoreResourceModule));
  EXPECT_EQ(ZCoreGetProcByOrdinal(84), reinterpret_cast<void*>(&ZCoreMulDiv64));
}

TEST(Ordinals, OthersResolveToNothing) {
  const std::set<uint32_t> known = {18, 19, 22, 32, 33, 34, 39, 40, 43, 45, 63, 65, 80, 84};
  for (uint32_t ordinal = 0; ordinal < 200; ++ordinal) {
    if (known.count(ordinal) == 0) {
      EXPECT_EQ(ZCoreGetProcByOrdinal(ordinal), nullptr) << ordinal;
    }
  }
}

TEST(Ordinals, CallsThroughResolvedPointersWork) {
  using MulDiv = int64_t (*)(int64_t, int64_t, int64_t);
  using Alloc = void* (*)(uint32_t, size_t);
  using Free = void (*)(void*);
  auto mulDiv = reinterpret_cast<MulDiv>(ZCoreGetProcByOrdinal(84));
  EXPECT_EQ(mulDiv(6, 7, 2), 21);
  auto alloc = reinterpret_cast<Alloc>(ZCoreGetProcByOrdinal(18));
  auto free = reinterpret_cast<Free>(ZCoreGetProcByOrdinal(19));
  void* p = alloc(ZMEM_ZEROED, 32);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(static_cast<uint8_t*>(p)[31], 0);
  free(p);
}

TEST(ResultNames, EveryCodeHasItsName) {
  struct Entry {
    KxResult code;
    const char* name;
  };
  const Entry entries[] = {
      {AF_S_OK, "AF_S_OK"},
      {AF_E_UNSUPPORTED, "AF_E_UNSUPPORTED"},
      {AF_E_POINTER, "AF_E_POINTER"},
      {AF_E_TIME_NOT_READY, "AF_E_TIME_NOT_READY"},
      {AF_S_END_OF_DATA, "AF_S_END_OF_DATA"},
      {AF_S_FRAME_ERROR, "AF_S_FRAME_ERROR"},
      {AF_E_NO_SYNC, "AF_E_NO_SYNC"},
      {AF_E_ALREADY_CREATED, "AF_E_ALREADY_CREATED"},
      {AF_E_BAD_PARAM_TAG, "AF_E_BAD_PARAM_TAG"},
      {AF_E_BAD_PARAM_SIZE, "AF_E_BAD_PARAM_SIZE"},
      {AF_E_OUT_OF_RANGE, "AF_E_OUT_OF_RANGE"},
      {AF_E_NOT_READY, "AF_E_NOT_READY"},
      {AF_E_NO_COMMENT, "AF_E_NO_COMMENT"},
      {AF_E_BUFFER_TOO_SMALL, "AF_E_BUFFER_TOO_SMALL"},
      {AF_E_BAD_FORMAT, "AF_E_BAD_FORMAT"},
      {AF_E_NOT_MPEG_LAYER3, "AF_E_NOT_MPEG_LAYER3"},
      {AF_E_UNKNOWN_CODE, "AF_E_UNKNOWN_CODE"},
      {AF_E_DIALOG_FAILED, "AF_E_DIALOG_FAILED"},
      {AF_E_BAD_VERSION, "AF_E_BAD_VERSION"},
      {AF_E_UNDERFLOW, "AF_E_UNDERFLOW"},
      {AF_E_BAD_LAYER, "AF_E_BAD_LAYER"},
      {AF_E_BAD_BITRATE, "AF_E_BAD_BITRATE"},
      {AF_E_BAD_SAMPLERATE, "AF_E_BAD_SAMPLERATE"},
      {AF_E_ROOM_TOO_SMALL, "AF_E_ROOM_TOO_SMALL"},
      {AF_S_RESYNC, "AF_S_RESYNC"},
      {AF_E_FAIL, "AF_E_FAIL"},
      {ZS_E_END_OF_DATA, "ZS_E_END_OF_DATA"},
      {ZS_E_FAIL, "ZS_E_FAIL"},
      {ZS_E_NOT_FOUND, "ZS_E_NOT_FOUND"},
      {ZS_E_INVALID_ARG, "ZS_E_INVALID_ARG"},
      {ZS_E_SEEK, "ZS_E_SEEK"},
      {ZS_E_ACCESS, "ZS_E_ACCESS"},
      {ZS_E_NOT_OPEN, "ZS_E_NOT_OPEN"},
      {ZS_E_UNKNOWN_KIND, "ZS_E_UNKNOWN_KIND"},
  };
  for (const Entry& e : entries) {
    ASSERT_NE(KxResultName(e.code), nullptr) << e.name;
    EXPECT_STREQ(KxResultName(e.code), e.name);
  }
  EXPECT_EQ(KxResultName(0x3008), nullptr);
  EXPECT_EQ(KxResultName(0x1234), nullptr);
}

// Every constant the header declares has its own name, new ones included: the
// header is read as text and each "constexpr KxResult NAME = VALUE;" checked.
TEST(ResultNames, EveryConstantOfTheHeaderIsNamed) {
  FILE* f = std::fopen(KX_SOURCE_DIR "/host/kx_result_codes.h", "r");
  ASSERT_NE(f, nullptr);
  char line[512];
  int declared = 0;
  while (std::fgets(line, sizeof(line), f) != nullptr) {
    char name[128], value[64];
    if (std::sscanf(line, "constexpr KxResult %127[A-Z0-9_] = %63[0-9a-fA-FxX]", name, value) != 2) continue;
    ++declared;
    const auto code = static_cast<KxResult>(std::strtoul(value, nullptr, 0));
    const char* got = KxResultName(code);
    ASSERT_NE(got, nullptr) << name;
    EXPECT_STREQ(got, name);
  }
  std::fclose(f);
  EXPECT_GE(declared, 34);
}

}  // namespace
