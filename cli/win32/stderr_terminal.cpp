// Standard error as a terminal on Windows (see ../progress.h): a console, whose
// window gives the width. The progress line wipes itself with an ANSI sequence, so
// the console is asked to interpret them; one that cannot (before Windows 10) is
// treated as no terminal, and no progress is drawn on it.
#include "../../platform/win32/windows_api.h"

#include "../progress.h"

namespace kxhost {

namespace {

constexpr DWORD kVirtualTerminalProcessing = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING

}  // namespace

bool StderrIsTerminal() {
  const HANDLE console = GetStdHandle(STD_ERROR_HANDLE);
  DWORD mode = 0;
  if (console == nullptr || console == INVALID_HANDLE_VALUE || !GetConsoleMode(console, &mode)) return false;
  return (mode & kVirtualTerminalProcessing) != 0 || SetConsoleMode(console, mode | kVirtualTerminalProcessing) != 0;
}

int StderrTerminalWidth() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info)) return 80;
  const int width = info.srWindow.Right - info.srWindow.Left + 1;
  return width >= 20 ? width : 80;
}

}  // namespace kxhost
