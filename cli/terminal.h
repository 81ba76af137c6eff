// The terminal of `kxhost play`: keys read from standard input without waiting
// (raw mode while playing, the terminal's own settings restored on every way out,
// Ctrl-C included), and the status line on standard error.
#pragma once

#include <string>

namespace kxhost {

enum class Key { kNone, kPause, kForward, kBack, kForwardLong, kBackLong, kNext, kPrevious, kQuit, kOther };

class KeyReader {
 public:
  // Reads keys from standard input when it is a terminal (`enabled`); otherwise
  // every Poll answers kNone.
  explicit KeyReader(bool enabled);
  ~KeyReader();
  KeyReader(const KeyReader&) = delete;
  KeyReader& operator=(const KeyReader&) = delete;

  bool Enabled() const { return enabled_; }
  // The next key pressed, or kNone when none is waiting.
  Key Poll();

 private:
  bool enabled_ = false;
  std::string pending_;
};

// Restores the terminal's settings if raw mode is on (safe from a signal handler's
// caller and at exit).
void RestoreTerminal();

// "m:ss" (or "h:mm:ss") of a number of seconds.
std::string ClockText(double seconds);

}  // namespace kxhost
