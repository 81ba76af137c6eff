// Standard error as a terminal on POSIX (see progress.h): isatty and the window
// size the terminal reports.
#include <sys/ioctl.h>
#include <unistd.h>

#include "progress.h"

namespace kxhost {

bool StderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

int StderrTerminalWidth() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 20) return size.ws_col;
  return 80;
}

}  // namespace kxhost
