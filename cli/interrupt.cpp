// SIGINT / SIGTERM handling (see interrupt.h).
#include "interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace kxhost {

namespace {

std::atomic<int> g_signal{0};
std::atomic<void (*)()> g_cleanup{nullptr};

extern "C" void OnSignal(int number) {
  int expected = 0;
  if (!g_signal.compare_exchange_strong(expected, number)) {
    // Second signal: the user insists; end now (temporary files may remain).
    signal(number, SIG_DFL);
    raise(number);
  }
}

}  // namespace

void InstallInterruptHandlers() {
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;  // reads and writes in progress go on; the loops check the flag
  for (int number : {SIGINT, SIGTERM}) {
    // A signal the caller ignores stays ignored (a background job of a script).
    struct sigaction previous {};
    if (sigaction(number, nullptr, &previous) == 0 && previous.sa_handler == SIG_IGN) continue;
    sigaction(number, &action, nullptr);
  }
}

bool Interrupted() { return g_signal.load(std::memory_order_relaxed) != 0; }

void AtInterruptExit(void (*cleanup)()) { g_cleanup = cleanup; }

void ExitIfInterrupted() {
  const int number = g_signal.load();
  if (number == 0) return;
  if (auto cleanup = g_cleanup.load()) cleanup();
  signal(number, SIG_DFL);
  raise(number);
  _exit(128 + number);  // only if the signal was blocked
}

}  // namespace kxhost
