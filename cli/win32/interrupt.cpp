// Ctrl-C and Ctrl-Break on Windows (see ../interrupt.h): the console's control handler
// raises the same flag as the POSIX signal handler; a second one ends the process at
// once. An interrupted run removes its temporary files (the registered cleanup) and
// ends with the status the system gives a process that Ctrl-C ended.
#include "../../platform/win32/windows_api.h"

#include "../interrupt.h"

#include <atomic>

namespace kxhost {

namespace {

constexpr DWORD kNone = 0xFFFFFFFFu;  // no event yet (0 is CTRL_C_EVENT)
std::atomic<DWORD> g_event{kNone};
std::atomic<void (*)()> g_cleanup{nullptr};

BOOL WINAPI OnControl(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT) return FALSE;
  DWORD expected = kNone;
  if (!g_event.compare_exchange_strong(expected, event)) ExitProcess(STATUS_CONTROL_C_EXIT);
  return TRUE;
}

}  // namespace

void InstallInterruptHandlers() {
  SetConsoleCtrlHandler(OnControl, TRUE);
}

bool Interrupted() { return g_event.load(std::memory_order_relaxed) != kNone; }

void AtInterruptExit(void (*cleanup)()) { g_cleanup = cleanup; }

void ExitIfInterrupted() {
  if (!Interrupted()) return;
  if (auto cleanup = g_cleanup.load()) cleanup();
  ExitProcess(STATUS_CONTROL_C_EXIT);
}

}  // namespace kxhost
