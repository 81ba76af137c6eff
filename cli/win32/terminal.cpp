// Keys of `kxhost play` on Windows (see ../terminal.h): the console's key events,
// read without waiting, with line input and echo switched off while playing and
// the console's own mode restored on every way out. Ctrl-C still reaches the
// console's control handler (processed input stays on).
#include "../../platform/win32/windows_api.h"

#include "../terminal.h"

#include <cstdlib>

namespace kxhost {

namespace {

HANDLE gInput = nullptr;
DWORD gSaved = 0;
bool gRaw = false;

Key KeyOf(const KEY_EVENT_RECORD& event) {
  switch (event.wVirtualKeyCode) {
    case VK_SPACE: return Key::kPause;
    case VK_RIGHT: return Key::kForward;
    case VK_LEFT: return Key::kBack;
    case VK_UP: return Key::kForwardLong;
    case VK_DOWN: return Key::kBackLong;
    case 'N': return Key::kNext;
    case 'P': return Key::kPrevious;
    case 'Q': return Key::kQuit;
    default: return Key::kOther;
  }
}

}  // namespace

void RestoreTerminal() {
  if (gRaw) {
    SetConsoleMode(gInput, gSaved);
    gRaw = false;
  }
}

KeyReader::KeyReader(bool enabled) {
  if (!enabled) return;
  gInput = GetStdHandle(STD_INPUT_HANDLE);
  // Standard input that is no console (a file, a pipe) has no mode to read.
  if (gInput == nullptr || gInput == INVALID_HANDLE_VALUE || !GetConsoleMode(gInput, &gSaved)) return;
  const DWORD raw = gSaved & ~static_cast<DWORD>(ENABLE_LINE_INPUT | ENABLE_ECHO_INPUT);
  if (!SetConsoleMode(gInput, raw | ENABLE_PROCESSED_INPUT)) return;
  gRaw = true;
  enabled_ = true;
  std::atexit(RestoreTerminal);
}

KeyReader::~KeyReader() { RestoreTerminal(); }

Key KeyReader::Poll() {
  if (!enabled_) return Key::kNone;
  for (;;) {
    DWORD waiting = 0;
    if (!GetNumberOfConsoleInputEvents(gInput, &waiting) || waiting == 0) return Key::kNone;
    INPUT_RECORD record{};
    DWORD read = 0;
    if (!ReadConsoleInputW(gInput, &record, 1, &read) || read == 0) return Key::kNone;
    // Key releases, mouse and window events are passed over; a key held down
    // repeats.
    if (record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown) return KeyOf(record.Event.KeyEvent);
  }
}

}  // namespace kxhost
