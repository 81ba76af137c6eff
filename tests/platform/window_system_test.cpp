// The headless window system: dialogs from registered templates, control texts,
// combo boxes, focus, window properties, message routing and destruction.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/kx_platform.h"

namespace {

constexpr int kTemplate = 500;
constexpr KxControlTemplate kControls[] = {
    {1, KX_CONTROL_BUTTON, u"OK"},
    {2, KX_CONTROL_BUTTON, u"Cancel"},
    {100, KX_CONTROL_EDIT, u"initial"},
    {101, KX_CONTROL_COMBOBOX, nullptr},
    {102, KX_CONTROL_STATIC, u""},
};
constexpr KxDialogTemplate kDialog = {u"Test Dialog", kControls, 5};

HMODULE Module() {
  static HMODULE module = [] {
    HMODULE m = KxGetResourceModule("window-system-test");
    KxRegisterDialogTemplate(m, kTemplate, &kDialog);
    return m;
  }();
  return module;
}

// What the dialog procedure saw; reached through the parameter of WM_INITDIALOG.
struct Recorder {
  std::vector<uint32_t> messages;
  std::vector<uintptr_t> commands;
  intptr_t initParam = 0;
  HWND initFocusControl = nullptr;
  void* propAtDestroy = nullptr;
  int isWindowAtDestroy = -1;
  std::u16string editAtDestroy;
  intptr_t initAnswer = 0;
  bool destroyOnInit = false;
  bool handleClose = false;
};

std::atomic<Recorder*> g_current{nullptr};

intptr_t RecordingProc(HWND dialog, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  Recorder* r = message == WM_INITDIALOG ? reinterpret_cast<Recorder*>(lParam)
                                         : static_cast<Recorder*>(KxGetPropW(dialog, u"recorder"));
  if (r == nullptr) return 0;
  r->messages.push_back(message);
  switch (message) {
    case WM_INITDIALOG:
      r->initParam = lParam;
      r->initFocusControl = reinterpret_cast<HWND>(wParam);
      KxSetPropW(dialog, u"recorder", r);
      if (r->destroyOnInit) KxDestroyWindow(dialog);
      return r->initAnswer;
    case WM_COMMAND:
      r->commands.push_back(wParam);
      if ((wParam & 0xFFFF) == IDOK || (wParam & 0xFFFF) == IDCANCEL) KxDestroyWindow(dialog);
      return 1;
    case WM_CLOSE:
      return r->handleClose ? 1 : 0;
    case WM_DESTROY: {
      r->isWindowAtDestroy = KxIsWindow(dialog);
      r->propAtDestroy = KxRemovePropW(dialog, u"recorder");
      char16_t text[64];
      KxGetDlgItemTextW(dialog, 100, text, 64);
      r->editAtDestroy = text;
      return 0;
    }
    default:
      return 0;
  }
}

std::u16string ItemText(HWND dialog, int id) {
  char16_t text[256];
  KxGetDlgItemTextW(dialog, id, text, 256);
  return text;
}

TEST(Dialog, CreationSendsInitDialogAndCopiesTheTemplate) {
  Recorder r;
  const int before = KxLiveDialogCount();
  HWND dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(KxIsWindow(dialog), 1);
  EXPECT_EQ(KxLiveDialogCount(), before + 1);
  ASSERT_EQ(r.messages.size(), 1u);
  EXPECT_EQ(r.messages[0], WM_INITDIALOG);
  EXPECT_EQ(r.initParam, reinterpret_cast<intptr_t>(&r));
  EXPECT_EQ(r.initFocusControl, KxGetDlgItem(dialog, 1));  // the first control
  char16_t title[64];
  EXPECT_EQ(KxGetWindowTextW(dialog, title, 64), 11);
  EXPECT_EQ(std::u16string(title), u"Test Dialog");
  EXPECT_EQ(ItemText(dialog, 1), u"OK");
  EXPECT_EQ(ItemText(dialog, 2), u"Cancel");
  EXPECT_EQ(ItemText(dialog, 100), u"initial");
  EXPECT_EQ(ItemText(dialog, 101), u"");
  int ids[8] = {};
  ASSERT_EQ(KxGetDialogControls(dialog, ids, 8), 5);
  EXPECT_EQ(ids[0], 1);
  EXPECT_EQ(ids[2], 100);
  EXPECT_EQ(ids[4], 102);
  KxDestroyWindow(dialog);
  EXPECT_EQ(KxLiveDialogCount(), before);
}

TEST(Dialog, ControlsAreWindowsOfTheirDialog) {
  Recorder r;
  HWND dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  HWND edit = KxGetDlgItem(dialog, 100);
  ASSERT_NE(edit, nullptr);
  EXPECT_EQ(KxIsWindow(edit), 1);
  EXPECT_EQ(KxGetDlgCtrlID(edit), 100);
  EXPECT_EQ(KxGetDlgCtrlID(dialog), 0);
  EXPECT_EQ(KxGetParent(edit), dialog);
  EXPECT_EQ(KxGetDlgItem(dialog, 999), nullptr);
  EXPECT_EQ(KxGetDlgItem(edit, 100), nullptr);  // a control has no items
  KxDestroyWindow(dialog);
  EXPECT_EQ(KxIsWindow(edit), 0);  // controls go with their dialog
}

TEST(Dialog, TextsOfControls) {
  Recorder r;
  HWND dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(KxSetDlgItemTextW(dialog, 102, u"song.mp3 \u30A2"), 1);
  EXPECT_EQ(ItemText(dialog, 102), u"song.mp3 \u30A2");
  EXPECT_EQ(KxSetDlgItemTextW(dialog, 100, nullptr), 1);
  EXPECT_EQ(ItemText(dialog, 100), u"");
  EXPECT_EQ(KxSetDlgItemTextW(dialog, 999, u"x"), 0);
  // A small buffer takes the start of the text and the terminator.
  KxSetDlgItemTextW(dialog, 100, u"abcdef");
  char16_t small[4];
  EXPECT_EQ(KxGetDlgItemTextW(dialog, 100, small, 4), 3);
  EXPECT_EQ(std::u16string(small), u"abc");
  // The text messages work as well.
  HWND edit = KxGetDlgItem(dialog, 100);
  EXPECT_EQ(KxSendMessageW(edit, WM_GETTEXTLENGTH, 0, 0), 6);
  KxSendMessageW(edit, WM_SETTEXT, 0, reinterpret_cast<intptr_t>(u"xyz"));
  char16_t text[16];
  EXPECT_EQ(KxSendMessageW(edit, WM_GETTEXT, 16, reinterpret_cast<intptr_t>(text)), 3);
  EXPECT_EQ(std::u16string(text), u"xyz");
  EXPECT_EQ(KxSetWindowTextW(dialog, u"New Title"), 1);
  EXPECT_EQ(KxGetWindowTextW(dialog, text, 16), 9);
  KxDestroyWindow(dialog);
}

TEST(Dialog, ComboBox) {
  Recorder r;
  HWND dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  HWND combo = KxGetDlgItem(dialog, 101);
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCOUNT, 0, 0), 0);
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCURSEL, 0, 0), CB_ERR);
  EXPECT_EQ(KxSendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<intptr_t>(u"Blues")), 0);
  EXPECT_EQ(KxSendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<intptr_t>(u"Classic Rock")), 1);
  EXPECT_EQ(KxSendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<intptr_t>(u"Country")), 2);
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCOUNT, 0, 0), 3);
  EXPECT_EQ(KxSendMessageW(combo, CB_GETLBTEXTLEN, 1, 0), 12);
  char16_t item[32];
  EXPECT_EQ(KxSendMessageW(combo, CB_GETLBTEXT, 1, reinterpret_cast<intptr_t>(item)), 12);
  EXPECT_EQ(std::u16string(item), u"Classic Rock");
  EXPECT_EQ(KxSendMessageW(combo, CB_GETLBTEXT, 3, reinterpret_cast<intptr_t>(item)), CB_ERR);
  EXPECT_EQ(KxSendMessageW(combo, CB_SETCURSEL, 2, 0), 2);
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCURSEL, 0, 0), 2);
  EXPECT_EQ(ItemText(dialog, 101), u"Country");  // the selection shows as the text
  EXPECT_EQ(KxSendMessageW(combo, CB_SETCURSEL, 7, 0), CB_ERR);  // out of range clears it
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCURSEL, 0, 0), CB_ERR);
  EXPECT_EQ(KxSendMessageW(combo, CB_FINDSTRINGEXACT, static_cast<uintptr_t>(-1),
                           reinterpret_cast<intptr_t>(u"classic rock")),
            1);
  EXPECT_EQ(KxSendMessageW(combo, CB_SELECTSTRING, static_cast<uintptr_t>(-1), reinterpret_cast<intptr_t>(u"Co")), 2);
  // Setting the text selects the item of that text, or nothing.
  KxSetDlgItemTextW(dialog, 101, u"Blues");
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCURSEL, 0, 0), 0);
  KxSetDlgItemTextW(dialog, 101, u"Unlisted");
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCURSEL, 0, 0), CB_ERR);
  EXPECT_EQ(ItemText(dialog, 101), u"Unlisted");
  EXPECT_EQ(KxSendMessageW(combo, CB_INSERTSTRING, 0, reinterpret_cast<intptr_t>(u"Acid")), 0);
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCOUNT, 0, 0), 4);
  EXPECT_EQ(KxSendMessageW(combo, CB_DELETESTRING, 0, 0), 3);
  EXPECT_EQ(KxSendMessageW(combo, CB_RESETCONTENT, 0, 0), 1);
  EXPECT_EQ(KxSendMessageW(combo, CB_GETCOUNT, 0, 0), 0);
  // Combo-box messages to a control that is not a combo box fail.
  EXPECT_EQ(KxSendMessageW(KxGetDlgItem(dialog, 100), CB_ADDSTRING, 0, reinterpret_cast<intptr_t>(u"x")), CB_ERR);
  KxDestroyWindow(dialog);
}

TEST(Dialog, FocusFollowsSetFocusAndTheInitAnswer) {
  Recorder r;
  r.initAnswer = 1;  // TRUE: the system focuses the first control
  HWND dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(KxGetFocus(), KxGetDlgItem(dialog, 1));
  HWND edit = KxGetDlgItem(dialog, 100);
  EXPECT_EQ(KxSetFocus(edit), KxGetDlgItem(dialog, 1));  // returns the previous focus
  EXPECT_EQ(KxGetFocus(), edit);
  EXPECT_EQ(KxSetFocus(reinterpret_cast<HWND>(0x7777)), nullptr);  // not a window: unchanged
  EXPECT_EQ(KxGetFocus(), edit);
  KxDestroyWindow(dialog);
  EXPECT_EQ(KxGetFocus(), nullptr);  // the focused control is gone
}

TEST(Dialog, Properties) {
  Recorder r;
  HWND dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  int value = 0, other = 0;
  EXPECT_EQ(KxGetPropW(dialog, u"ikxmp3"), nullptr);
  EXPECT_EQ(KxSetPropW(dialog, u"ikxmp3", &value), 1);
  EXPECT_EQ(KxGetPropW(dialog, u"ikxmp3"), &value);
  EXPECT_EQ(KxGetPropW(dialog, u"IKXMP3"), &value);  // names ignore case
  EXPECT_EQ(KxSetPropW(dialog, u"ikxmp3", &other), 1);  // replaced
  EXPECT_EQ(KxGetPropW(dialog, u"ikxmp3"), &other);
  EXPECT_EQ(KxRemovePropW(dialog, u"ikxmp3"), &other);
  EXPECT_EQ(KxGetPropW(dialog, u"ikxmp3"), nullptr);
  EXPECT_EQ(KxRemovePropW(dialog, u"ikxmp3"), nullptr);
  EXPECT_EQ(KxSetPropW(nullptr, u"x", &value), 0);
  EXPECT_EQ(KxSetPropW(dialog, nullptr, &value), 0);
  KxDestroyWindow(dialog);
  EXPECT_EQ(KxGetPropW(dialog, u"recorder"), nullptr);  // gone with the window
}

TEST(Dialog, CommandsReachTheDialogProcedure) {
  Recorder r;
  HWND dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(100, 0x300), 0), 1);
  ASSERT_EQ(r.commands.size(), 1u);
  EXPECT_EQ(r.commands[0], 100u | (0x300u << 16));
  EXPECT_EQ(KxIsWindow(dialog), 1);
  // OK destroys the dialog from inside its own procedure.
  KxSetDlgItemTextW(dialog, 100, u"last words");
  EXPECT_EQ(KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(IDOK, 0), 0), 1);
  EXPECT_EQ(KxIsWindow(dialog), 0);
  ASSERT_EQ(r.messages.back(), WM_DESTROY);
  EXPECT_EQ(r.isWindowAtDestroy, 1);  // still a window while WM_DESTROY runs
  EXPECT_EQ(r.propAtDestroy, &r);
  EXPECT_EQ(r.editAtDestroy, u"last words");
  // The handle stays invalid: messages and calls to it do nothing.
  EXPECT_EQ(KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(IDOK, 0), 0), 0);
  EXPECT_EQ(KxDestroyWindow(dialog), 0);
  EXPECT_EQ(KxSetDlgItemTextW(dialog, 100, u"x"), 0);
  EXPECT_EQ(r.commands.size(), 2u);
}

TEST(Dialog, UnhandledCloseBecomesCancel) {
  Recorder r;
  HWND dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  KxSendMessageW(dialog, WM_CLOSE, 0, 0);
  ASSERT_EQ(r.commands.size(), 1u);
  EXPECT_EQ(r.commands[0] & 0xFFFF, static_cast<uintptr_t>(IDCANCEL));
  EXPECT_EQ(KxIsWindow(dialog), 0);

  Recorder handled;
  handled.handleClose = true;
  dialog = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&handled));
  KxSendMessageW(dialog, WM_CLOSE, 0, 0);
  EXPECT_TRUE(handled.commands.empty());
  EXPECT_EQ(KxIsWindow(dialog), 1);
  KxDestroyWindow(dialog);
}

TEST(Dialog, HandlesAreNeverReused) {
  Recorder a, b;
  HWND first = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&a));
  KxDestroyWindow(first);
  HWND second = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&b));
  EXPECT_NE(first, second);
  EXPECT_EQ(KxIsWindow(first), 0);
  KxDestroyWindow(second);
}

TEST(Dialog, CreationFailures) {
  Recorder r;
  const auto param = reinterpret_cast<intptr_t>(&r);
  EXPECT_EQ(KxCreateDialogParamW(Module(), 9999, nullptr, &RecordingProc, param), nullptr);  // unknown template
  EXPECT_EQ(KxCreateDialogParamW(KxGetResourceModule("other"), kTemplate, nullptr, &RecordingProc, param), nullptr);
  EXPECT_EQ(KxCreateDialogParamW(Module(), kTemplate, nullptr, nullptr, param), nullptr);  // no procedure
  EXPECT_EQ(KxCreateDialogParamW(Module(), kTemplate, reinterpret_cast<HWND>(0x5550), &RecordingProc, param),
            nullptr);  // owner is not a window
  EXPECT_TRUE(r.messages.empty());
  const int before = KxLiveDialogCount();
  r.destroyOnInit = true;  // a dialog that ends itself during its initialisation
  EXPECT_EQ(KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, param), nullptr);
  EXPECT_EQ(KxLiveDialogCount(), before);
  EXPECT_EQ(KxRegisterDialogTemplate(nullptr, 1, &kDialog), 0);
  EXPECT_EQ(KxRegisterDialogTemplate(Module(), 1, nullptr), 0);
}

TEST(Dialog, OwnedDialogsAreDestroyedWithTheirOwner) {
  Recorder ownerRec, ownedRec;
  HWND owner = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&ownerRec));
  HWND owned = KxCreateDialogParamW(Module(), kTemplate, owner, &RecordingProc, reinterpret_cast<intptr_t>(&ownedRec));
  ASSERT_NE(owned, nullptr);
  EXPECT_EQ(KxGetParent(owned), owner);
  KxDestroyWindow(owner);
  EXPECT_EQ(KxIsWindow(owned), 0);
  EXPECT_EQ(ownedRec.messages.back(), WM_DESTROY);
}

TEST(Dialog, TemplatesAreCopiedAndCanBeReplaced) {
  HMODULE module = KxGetResourceModule("window-system-test-copy");
  EXPECT_EQ(KxGetResourceModule("window-system-test-copy"), module);  // one handle per name
  {
    std::u16string title = u"Temporary";
    KxControlTemplate controls[] = {{7, KX_CONTROL_EDIT, u"seven"}};
    KxDialogTemplate t = {title.c_str(), controls, 1};
    ASSERT_EQ(KxRegisterDialogTemplate(module, 1, &t), 1);
    title = u"Changed";  // the registered copy does not see this
  }
  Recorder r;
  HWND dialog = KxCreateDialogParamW(module, 1, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
  ASSERT_NE(dialog, nullptr);
  char16_t title[32];
  KxGetWindowTextW(dialog, title, 32);
  EXPECT_EQ(std::u16string(title), u"Temporary");
  EXPECT_EQ(ItemText(dialog, 7), u"seven");
  KxDestroyWindow(dialog);
}

TEST(Dialog, ManyThreadsCreateUseAndDestroyDialogs) {
  const int before = KxLiveDialogCount();
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&failures, t] {
      for (int i = 0; i < 200; ++i) {
        Recorder r;
        HWND d = KxCreateDialogParamW(Module(), kTemplate, nullptr, &RecordingProc, reinterpret_cast<intptr_t>(&r));
        if (d == nullptr) {
          ++failures;
          continue;
        }
        const std::u16string text = u"thread " + std::u16string(1, static_cast<char16_t>(u'0' + t));
        KxSetDlgItemTextW(d, 100, text.c_str());
        KxSendMessageW(KxGetDlgItem(d, 101), CB_ADDSTRING, 0, reinterpret_cast<intptr_t>(text.c_str()));
        if (ItemText(d, 100) != text) ++failures;
        if (KxSendMessageW(KxGetDlgItem(d, 101), CB_GETCOUNT, 0, 0) != 1) ++failures;
        KxSendMessageW(d, WM_COMMAND, KxMakeWParam(IDCANCEL, 0), 0);
        if (KxIsWindow(d) != 0 || r.messages.back() != WM_DESTROY) ++failures;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(KxLiveDialogCount(), before);
}

}  // namespace
