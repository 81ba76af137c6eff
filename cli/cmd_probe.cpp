// kxhost probe FILE: opens FILE as a host file stream and asks the module's probe
// callback whether it takes it, for each format the module serves. Exit 0 when it
// does, 1 when not, 2 when the file cannot be opened at all.
#include <cstdio>
#include <string>

#include "commands.h"
#include "decoder_session.h"
#include "text.h"

namespace kxhost {

namespace {

int RunProbe(const GlobalOptions& options, const std::string& file) {
  const auto module = PrepareModule(options);
  uint32_t code = 0;
  bool taken = false;
  try {
    taken = ProbeFile(*module, file, &code);
  } catch (const FileError& e) {
    // "Not taken" is the answer 1; a file that cannot be read is another matter.
    throw CliError(e.what(), kExitUsage);
  }
  if (taken) {
    std::printf("%s: %s\n", file.c_str(), FourCCText(code).c_str());
    return kExitOk;
  }
  std::printf("%s: not taken\n", file.c_str());
  return kExitFileFailed;
}

}  // namespace

void AddProbeCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("probe", "does the module take FILE? (exit 0 yes, 1 no)");
  static std::string file;  // the parsed argument, read by the callback
  sub->add_option("FILE", file, "file to probe")->required();
  sub->footer(
      "Prints \"FILE: ZMP3\" and exits 0 when the module takes the file, \"FILE: not taken\"\n"
      "and exits 1 when not; a file that cannot be read exits 2.\n"
      "\n"
      "Examples:\n"
      "  kxhost probe song.mp3\n"
      "  for f in *; do kxhost probe \"$f\" >/dev/null && echo \"$f\"; done");
  sub->callback([&options, &result] { result.exitCode = RunProbe(options, file); });
}

}  // namespace kxhost
