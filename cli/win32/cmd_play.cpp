// kxhost play on Windows: the command exists so that both systems take the same
// command lines, but this build has no sound output yet; it says so and ends with
// status 2, as for a device that cannot be opened.
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"

namespace kxhost {

void AddPlayCommand(CLI::App& app, const GlobalOptions&, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("play", "play files through the system's sound output (not in this build)");
  // The files and play's options are taken as on Linux, and left unused (kept here
  // rather than handed up to kxhost's own options, which would refuse them).
  static std::vector<std::string> files;
  sub->add_option("FILE", files, "audio files or folders");
  sub->allow_extras();
  sub->fallthrough(false);
  sub->callback([&result] {
    std::fprintf(stderr, "kxhost: play has no sound output on Windows in this build; use decode\n");
    result.exitCode = kExitUsage;
  });
}

}  // namespace kxhost
