// Keys and terminal settings of `kxhost play` (see terminal.h).
#include "terminal.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>

namespace kxhost {

namespace {

struct termios gSaved;
bool gRaw = false;

}  // namespace

void RestoreTerminal() {
  if (gRaw) {
    tcsetattr(STDIN_FILENO, TCSANOW, &gSaved);
    gRaw = false;
  }
}

KeyReader::KeyReader(bool enabled) {
  if (!enabled || isatty(STDIN_FILENO) == 0 || tcgetattr(STDIN_FILENO, &gSaved) != 0) return;
  struct termios raw = gSaved;
  // No line editing and no echo; Ctrl-C still raises SIGINT.
  raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
  raw.c_cc[VMIN] = 0;
  raw.c_cc[VTIME] = 0;
  if (tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0) return;
  gRaw = true;
  enabled_ = true;
  std::atexit(RestoreTerminal);
}

KeyReader::~KeyReader() { RestoreTerminal(); }

Key KeyReader::Poll() {
  if (!enabled_) return Key::kNone;
  // Gather what has arrived; escape sequences (arrow keys) come in one piece.
  for (;;) {
    struct pollfd p {};
    p.fd = STDIN_FILENO;
    p.events = POLLIN;
    if (poll(&p, 1, 0) <= 0 || (p.revents & POLLIN) == 0) break;
    char buffer[64];
    const ssize_t n = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (n <= 0) break;
    pending_.append(buffer, static_cast<size_t>(n));
  }
  if (pending_.empty()) return Key::kNone;
  if (pending_[0] == '\x1b') {
    if (pending_.size() >= 3 && (pending_[1] == '[' || pending_[1] == 'O')) {
      const char code = pending_[2];
      pending_.erase(0, 3);
      switch (code) {
        case 'C': return Key::kForward;
        case 'D': return Key::kBack;
        case 'A': return Key::kForwardLong;
        case 'B': return Key::kBackLong;
        default: return Key::kOther;
      }
    }
    if (pending_.size() < 3) {
      // A lone Escape, or the start of a sequence whose rest is late: dropped.
      pending_.clear();
      return Key::kOther;
    }
  }
  const char c = pending_[0];
  pending_.erase(0, 1);
  switch (c) {
    case ' ': return Key::kPause;
    case 'n': case 'N': return Key::kNext;
    case 'p': case 'P': return Key::kPrevious;
    case 'q': case 'Q': return Key::kQuit;
    default: return Key::kOther;
  }
}

}  // namespace kxhost
