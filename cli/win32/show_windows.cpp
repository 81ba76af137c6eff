// Windows: the message loop of kxhost's dialog and about commands (see
// ../show_windows.h). Messages for the host's modeless dialogs go through
// ZCoreIsDialogMessage (IsDialogMessageW for each dialog the core library lists), so
// Tab, Enter and Esc work in them; the rest are translated and dispatched.
#include "../../platform/win32/windows_api.h"

#include "../show_windows.h"

#include <cstdio>
#include <string>

#include "host/kxcore.h"
#include "utf16_path.h"

namespace kxhost {

namespace {

constexpr UINT_PTR kCloseTimer = 0x4B58;  // "KX"

// What the timer found of the message box.
struct BoxWatch {
  bool found = false;
};
BoxWatch g_watch;

std::string WindowText(WinHWND window) {
  const int length = GetWindowTextLengthW(window);
  std::wstring text(static_cast<size_t>(length) + 1, L'\0');
  const int n = GetWindowTextW(window, text.data(), length + 1);
  text.resize(static_cast<size_t>(n > 0 ? n : 0));
  return Utf8Path(text);
}

BOOL CALLBACK FindBoxText(WinHWND child, LPARAM found) {
  wchar_t name[16] = {};
  if (GetClassNameW(child, name, 16) > 0 && _wcsicmp(name, L"Static") == 0 && GetWindowTextLengthW(child) > 0) {
    *reinterpret_cast<std::string*>(found) = WindowText(child);
    return FALSE;
  }
  return TRUE;
}

BOOL CALLBACK FindBox(WinHWND window, LPARAM result) {
  wchar_t name[16] = {};
  if (IsWindowVisible(window) && GetClassNameW(window, name, 16) > 0 && std::wcscmp(name, L"#32770") == 0) {
    *reinterpret_cast<WinHWND*>(result) = window;
    return FALSE;
  }
  return TRUE;
}

// Runs inside the message box's own loop, which dispatches this thread's timers.
void CALLBACK CloseBox(WinHWND, UINT, UINT_PTR timer, DWORD) {
  KillTimer(nullptr, timer);
  WinHWND box = nullptr;
  EnumThreadWindows(GetCurrentThreadId(), FindBox, reinterpret_cast<LPARAM>(&box));
  if (box == nullptr) return;
  std::string text;
  EnumChildWindows(box, FindBoxText, reinterpret_cast<LPARAM>(&text));
  std::fprintf(stderr, "%s: %s\n", WindowText(box).c_str(), text.c_str());
  std::fflush(stderr);
  g_watch.found = true;
  PostMessageW(box, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
}

UINT Milliseconds(double seconds) { return seconds <= 0 ? 0u : static_cast<UINT>(seconds * 1000.0); }

}  // namespace

void KeepDialogsShown(double seconds) {
  const ULONGLONG end = GetTickCount64() + Milliseconds(seconds);
  for (;;) {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      if (ZCoreIsDialogMessage(&message) != 0) continue;
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
    const ULONGLONG now = GetTickCount64();
    if (now >= end || ZCoreModelessDialogCount() == 0) return;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(end - now), QS_ALLINPUT);
  }
}

bool RunMessageBoxClosedAfter(double seconds, const std::function<void()>& open) {
  g_watch = BoxWatch{};
  const UINT_PTR timer = SetTimer(nullptr, kCloseTimer, Milliseconds(seconds) + 1, CloseBox);
  open();
  KillTimer(nullptr, timer);
  return g_watch.found;
}

}  // namespace kxhost
