// kxhost on Windows: the system's error codes as the POSIX code of kxhost words
// them (errno values, so that messages read as on Linux), or in the system's words.
#pragma once

#include <string>

namespace kxhost {

// The errno value closest to the system error `error` (EIO for the others).
int ErrnoOf(unsigned long error);
// The system's message for `error`, one line.
std::string SystemMessage(unsigned long error);

}  // namespace kxhost
