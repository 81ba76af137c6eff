// The clock text of `kxhost play`'s status line and reports (see terminal.h).
#include "terminal.h"

#include <cstdio>

namespace kxhost {

std::string ClockText(double seconds) {
  if (seconds < 0) seconds = 0;
  const auto total = static_cast<unsigned long long>(seconds);
  char text[32];
  if (total >= 3600) {
    std::snprintf(text, sizeof(text), "%llu:%02llu:%02llu", total / 3600, total / 60 % 60, total % 60);
  } else {
    std::snprintf(text, sizeof(text), "%llu:%02llu", total / 60, total % 60);
  }
  return text;
}

}  // namespace kxhost
