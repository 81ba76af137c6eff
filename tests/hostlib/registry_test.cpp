// The interface registry (33/34), the modeless-dialog list (39/40), the dialog
// routine (65) and the resource module with the file-information template (80).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/kxcore.h"
#include "host/zcom.h"
#include "platform/kx_platform.h"

namespace {

class Thing : public Class_ZCOM {};

TEST(InterfaceRegistry, RegisterCountAndUnregisterNewestFirst) {
  auto* thing = new Thing;
  int argA = 0, argB = 0;
  EXPECT_EQ(ZCoreInterfaceCount(thing), 0u);
  ASSERT_EQ(ZCoreRegisterInterface(thing, thing, FOURCC_ZMP3, &argA), AF_S_OK);
  ASSERT_EQ(ZCoreRegisterInterface(thing, thing, FOURCC_ZAFC, &argB), AF_S_OK);
  EXPECT_EQ(ZCoreInterfaceCount(thing), 2u);
  Class_ZCOM* zcom = nullptr;
  void* arg = nullptr;
  EXPECT_EQ(ZCoreHasInterface(thing, FOURCC_ZMP3, &zcom, &arg), 1);
  EXPECT_EQ(zcom, thing);
  EXPECT_EQ(arg, &argA);
  EXPECT_EQ(ZCoreHasInterface(thing, FOURCC_ZAFC, nullptr, &arg), 1);
  EXPECT_EQ(arg, &argB);
  EXPECT_EQ(ZCoreHasInterface(thing, FOURCC_RPGI, nullptr, nullptr), 0);
  EXPECT_EQ(ZCoreUnregisterInterface(thing), AF_S_OK);  // takes back ZAFC, the newest
  EXPECT_EQ(ZCoreInterfaceCount(thing), 1u);
  EXPECT_EQ(ZCoreHasInterface(thing, FOURCC_ZAFC, nullptr, nullptr), 0);
  EXPECT_EQ(ZCoreHasInterface(thing, FOURCC_ZMP3, nullptr, nullptr), 1);
  EXPECT_EQ(ZCoreUnregisterInterface(thing), AF_S_OK);
  EXPECT_EQ(ZCoreInterfaceCount(thing), 0u);
  EXPECT_EQ(ZCoreUnregisterInterface(thing), AF_E_FAIL);  // nothing left
  thing->Release();
}

TEST(InterfaceRegistry, ObjectsAreKeptApart) {
  auto* a = new Thing;
  auto* b = new Thing;
  ZCoreRegisterInterface(a, a, FOURCC_ZMP3, nullptr);
  ZCoreRegisterInterface(b, b, FOURCC_ZMP3, nullptr);
  EXPECT_EQ(ZCoreUnregisterInterface(a), AF_S_OK);
  EXPECT_EQ(ZCoreInterfaceCount(a), 0u);
  EXPECT_EQ(ZCoreInterfaceCount(b), 1u);
  ZCoreUnregisterInterface(b);
  a->Release();
  b->Release();
}

TEST(InterfaceRegistry, NullArguments) {
  auto* thing = new Thing;
  EXPECT_EQ(ZCoreRegisterInterface(nullptr, thing, FOURCC_ZMP3, nullptr), AF_E_POINTER);
  EXPECT_EQ(ZCoreRegisterInterface(thing, nullptr, FOURCC_ZMP3, nullptr), AF_E_POINTER);
  EXPECT_EQ(ZCoreUnregisterInterface(nullptr), AF_E_POINTER);
  EXPECT_EQ(ZCoreInterfaceCount(thing), 0u);
  thing->Release();
}

intptr_t QuietProc(HWND, uint32_t, uintptr_t, intptr_t) { return 0; }

TEST(ModelessDialogs, ListedOnceAndTakenOut) {
  HWND dialog = KxCreateDialogParamW(ZCoreResourceModule(), ZCORE_DIALOG_FILE_INFO, nullptr, &QuietProc, 0);
  ASSERT_NE(dialog, nullptr);
  const int before = ZCoreModelessDialogCount();
  EXPECT_EQ(ZCoreIsModelessDialog(dialog), 0);
  EXPECT_EQ(ZCoreRegisterModelessDialog(dialog), AF_S_OK);
  EXPECT_EQ(ZCoreRegisterModelessDialog(dialog), AF_S_OK);  // a second time changes nothing
  EXPECT_EQ(ZCoreIsModelessDialog(dialog), 1);
  EXPECT_EQ(ZCoreModelessDialogCount(), before + 1);
  EXPECT_EQ(ZCoreUnregisterModelessDialog(dialog), AF_S_OK);
  EXPECT_EQ(ZCoreIsModelessDialog(dialog), 0);
  EXPECT_EQ(ZCoreModelessDialogCount(), before);
  EXPECT_EQ(ZCoreUnregisterModelessDialog(dialog), AF_E_FAIL);
  EXPECT_EQ(ZCoreRegisterModelessDialog(nullptr), AF_E_POINTER);
  EXPECT_EQ(ZCoreUnregisterModelessDialog(nullptr), AF_E_POINTER);
  KxDestroyWindow(dialog);
}

// A dialog procedure like a plug-in's: it ends its initialisation with the host's
// dialog routine, and passes WM_DESTROY to it as well. It closes on a click of OK
// only: the system's controls also send WM_COMMAND notifications of their own (an
// edit control whose text changes, for one), which it leaves alone.
intptr_t RoutineProc(HWND dialog, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  if (message == WM_INITDIALOG || message == WM_DESTROY) return ZCoreDialogRoutine(dialog, message, wParam, lParam);
  if (message == WM_COMMAND && wParam == KxMakeWParam(ZCORE_ID_OK, 0)) {
    KxDestroyWindow(dialog);
    return 1;
  }
  return 0;
}

TEST(DialogRoutine, ListsTheDialogWhileItLives) {
  HWND dialog = KxCreateDialogParamW(ZCoreResourceModule(), ZCORE_DIALOG_FILE_INFO, nullptr, &RoutineProc, 0);
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(ZCoreIsModelessDialog(dialog), 1);
  KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(ZCORE_ID_OK, 0), 0);
  EXPECT_EQ(KxIsWindow(dialog), 0);
  EXPECT_EQ(ZCoreIsModelessDialog(dialog), 0);
}

TEST(DialogRoutine, AnswersZeroAndIgnoresNonWindows) {
  EXPECT_EQ(ZCoreDialogRoutine(nullptr, WM_INITDIALOG, 0, 0), 0);
  HWND fake = reinterpret_cast<HWND>(0x4440);
  EXPECT_EQ(ZCoreDialogRoutine(fake, WM_INITDIALOG, 0, 0), 0);
  EXPECT_EQ(ZCoreIsModelessDialog(fake), 0);
  using Routine = intptr_t (*)(HWND, uint32_t, uintptr_t, intptr_t);
  auto routine = reinterpret_cast<Routine>(ZCoreGetProcByOrdinal(65));
  ASSERT_NE(routine, nullptr);
  EXPECT_EQ(routine(fake, WM_COMMAND, 1, 0), 0);
}

TEST(ResourceModule, HoldsTheFileInformationTemplate) {
  HMODULE module = ZCoreResourceModule();
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(ZCoreResourceModule(), module);
  HWND dialog = KxCreateDialogParamW(module, ZCORE_DIALOG_FILE_INFO, nullptr, &QuietProc, 0);
  ASSERT_NE(dialog, nullptr);
  char16_t text[64];
  KxGetWindowTextW(dialog, text, 64);
  EXPECT_EQ(std::u16string(text), u"File Information");
  int ids[16] = {};
  ASSERT_EQ(KxGetDialogControls(dialog, ids, 16), 11);
  EXPECT_EQ(std::vector<int>(ids, ids + 11),
            (std::vector<int>{1, 2, 1000, 1002, 1009, 1010, 1011, 1012, 1013, 1014, 1015}));
  KxGetDlgItemTextW(dialog, ZCORE_ID_OK, text, 64);
  EXPECT_EQ(std::u16string(text), u"OK");
  KxGetDlgItemTextW(dialog, ZCORE_ID_CANCEL, text, 64);
  EXPECT_EQ(std::u16string(text), u"Cancel");
  for (int id : {1000, 1009, 1010, 1011, 1012, 1013, 1014, 1015}) {
    EXPECT_EQ(KxGetDlgItemTextW(dialog, id, text, 64), 0) << id;  // empty at first
    // Only the genre control is a combo box.
    EXPECT_EQ(KxSendMessageW(KxGetDlgItem(dialog, id), CB_ADDSTRING, 0, reinterpret_cast<intptr_t>(u"x")), CB_ERR);
  }
  HWND genre = KxGetDlgItem(dialog, ZCORE_ID_GENRE);
  EXPECT_EQ(KxSendMessageW(genre, CB_ADDSTRING, 0, reinterpret_cast<intptr_t>(u"Blues")), 0);
  EXPECT_EQ(KxSendMessageW(genre, CB_GETCOUNT, 0, 0), 1);
  KxDestroyWindow(dialog);
}

}  // namespace
