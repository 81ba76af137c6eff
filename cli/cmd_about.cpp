// kxhost about: shows the module's about box the way a player's "About plug-in"
// button does (the format record's about callback for ZMP3). On Windows the box is on
// screen until --show seconds have passed, then its caption and text are written to
// standard error and it is closed with OK; on Linux the headless box writes them there.
#include <cstdio>

#include "commands.h"
#include "show_windows.h"

namespace kxhost {

namespace {

int RunAbout(const GlobalOptions& options, double seconds) {
  const auto module = PrepareModule(options);
  const FormatInfo& format = module->Format();
  if (format.about == nullptr) throw CliError("the module has no about box");
  KxResult rc = AF_S_OK;
  const bool shown =
      RunMessageBoxClosedAfter(seconds, [&] { rc = format.about(FOURCC_ZMP3, nullptr, nullptr); });
  if (rc != AF_S_OK) throw CliError("the module refused its about box: " + ResultText(rc));
  if (!shown) throw CliError("the about box did not appear");
  return kExitOk;
}

}  // namespace

void AddAboutCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("about", "show the module's about box");
  static double seconds = 0.5;  // the parsed option, read by the callback
  sub->add_option("--show", seconds, "seconds the box stays on screen before OK closes it (Windows)")
      ->check(CLI::Range(0.0, 3600.0));
  sub->footer(
      "Shows the about box of the module's format (ZMP3) as a player does, and writes\n"
      "its caption and text to standard error (\"caption: text\").\n"
      "\n"
      "Examples:\n"
      "  kxhost about\n"
      "  kxhost about --show 10");
  sub->callback([&options, &result] { result.exitCode = RunAbout(options, seconds); });
}

}  // namespace kxhost
