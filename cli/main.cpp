// kxhost: a command-line host for .zss modules. It loads a module the way a player
// does (dlopen, ZSSGetPluginInfo, the format record) and runs one command on it.
// Errors a user can act on are one line "kxhost: ..." on standard error and a
// non-zero exit: 1 when an input file failed, 2 for bad arguments, a missing module
// or an output (standard output included) that cannot be written, 3 when decode
// met a file shorter than its header declares; a run stopped by Ctrl-C ends by that
// signal after removing its unfinished output.
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "file_stream.h"
#include "interrupt.h"
#include "progress.h"
#include "standard_output.h"

#ifndef KX_VERSION
#define KX_VERSION "unknown"
#endif

namespace kxhost {

namespace {

// The commands, in the order --help lists them.
std::string CommandList(const CLI::App& app) {
  std::string list;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    list += (list.empty() ? "" : ", ") + command->get_name();
  }
  return list;
}

// The first argument that is neither an option nor an option's value, when no
// command was recognised: the unknown command the user meant.
std::string UnknownCommand(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--plugin" || arg == "--codepage" || arg == "--pipe-limit") {
      ++i;
      continue;
    }
    if (!arg.empty() && arg[0] == '-') continue;
    return arg;
  }
  return "";
}

// "512M", "2G", "1048576": a byte count with an optional binary K, M or G.
uint64_t ParseSize(const std::string& text) {
  uint64_t value = 0;
  size_t i = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9' && value < (uint64_t{1} << 50); ++i) {
    value = value * 10 + static_cast<uint64_t>(text[i] - '0');
  }
  const std::string suffix = text.substr(i);
  int shift = -1;
  if (suffix.empty()) shift = 0;
  else if (suffix == "K" || suffix == "k") shift = 10;
  else if (suffix == "M" || suffix == "m") shift = 20;
  else if (suffix == "G" || suffix == "g") shift = 30;
  if (i == 0 || shift < 0 || value == 0 || value >= (uint64_t{1} << 50)) {
    throw CliError("bad --pipe-limit " + text + ": give bytes, or a number with K, M or G (512M, 2G)");
  }
  return value << shift;
}

}  // namespace

}  // namespace kxhost

namespace {

// --help and --version text, written through the checked standard output.
void PrintThroughStdio(CLI::App& app, const CLI::ParseError& e) {
  std::ostringstream out;
  std::ostringstream err;
  app.exit(e, out, err);
  std::fputs(out.str().c_str(), stdout);
  std::fputs(err.str().c_str(), stderr);
  kxhost::CloseStandardOutput();
}

}  // namespace

int main(int argc, char** argv) {
  kxhost::InstallInterruptHandlers();
  CLI::App app{"kxhost: decodes and inspects MPEG audio Layer III files through the KXMP3Lib module", "kxhost"};
  app.require_subcommand(1);
  // Options begin with "-" on every system: "/music/a.mp3" is a file on Windows too
  // (CLI11 would read it as a Windows-style option there), so both take the same lines.
  app.allow_windows_style_options(false);
  // Options of the application may also follow the command's name.
  app.fallthrough();
  app.set_version_flag("--version", std::string("kxhost ") + KX_VERSION, "print kxhost's version and exit");
  kxhost::GlobalOptions options;
  kxhost::CommandResult result;
  app.add_option("--plugin", options.plugin,
                 "module to load (default: $KX_PLUGIN_PATH, else beside kxhost, ../lib/kxmp3/plugins, ../plugins)");
  app.add_option("--codepage", options.codePage,
                 "Windows code page of 8-bit tag text (default: $KX_ANSI_CODEPAGE, else 1252)");
  app.add_flag("-q,--quiet", options.quiet, "no progress line and no summary lines (errors and warnings are still printed)");
  app.add_flag("--progress", options.progress, "draw the progress line even when standard error is not a terminal");
  app.add_option("--pipe-limit", options.pipeLimit,
                 "the most read from standard input (-) or a pipe, which is kept in a temporary file (default 1G)");
  app.footer(
      "FILE may be - (standard input) or a pipe. Run \"kxhost COMMAND --help\" for a\n"
      "command's options and examples; \"man kxhost\" for more.\n"
      "\n"
      "Examples:\n"
      "  kxhost info song.mp3\n"
      "  kxhost info --json -r ~/Music > music.json\n"
      "  kxhost decode song.mp3 -o song.wav\n"
      "  kxhost decode -r ~/Music --out-dir /tmp/wav -j 4");
  kxhost::AddPluginsCommand(app, options, result);
  kxhost::AddProbeCommand(app, options, result);
  kxhost::AddInfoCommand(app, options, result);
  kxhost::AddDecodeCommand(app, options, result);
  kxhost::AddPlayCommand(app, options, result);
  kxhost::AddDialogCommand(app, options, result);
  kxhost::AddAboutCommand(app, options, result);
  // Applied before any command runs (CLI11 runs the command's callback at the end of parsing).
  app.parse_complete_callback([&options] {
    kxhost::Progress::Force(options.progress);
    if (!options.pipeLimit.empty()) kxhost::SetPipeLimit(kxhost::ParseSize(options.pipeLimit));
  });
  try {
    try {
      app.parse(argc, argv);
      kxhost::CloseStandardOutput();
    } catch (const CLI::CallForHelp& e) {
      PrintThroughStdio(app, e);
      return kxhost::kExitOk;
    } catch (const CLI::CallForAllHelp& e) {
      PrintThroughStdio(app, e);
      return kxhost::kExitOk;
    } catch (const CLI::CallForVersion& e) {
      PrintThroughStdio(app, e);
      return kxhost::kExitOk;
    }
  } catch (const CLI::ParseError& e) {
    std::fflush(stdout);
    std::string message = e.what();
    const std::string unknown = app.get_subcommands().empty() ? kxhost::UnknownCommand(argc, argv) : "";
    if (!unknown.empty()) {
      message = "unknown command \"" + unknown + "\" (commands: " + kxhost::CommandList(app) + ")";
    } else if (app.get_subcommands().empty() && dynamic_cast<const CLI::RequiredError*>(&e) != nullptr) {
      message = "name a command: " + kxhost::CommandList(app);
    }
    std::fprintf(stderr, "kxhost: %s\nRun \"kxhost --help\" (or \"kxhost COMMAND --help\") for more.\n",
                 message.c_str());
    return kxhost::kExitUsage;
  } catch (const kxhost::Interruption&) {
    kxhost::ExitIfInterrupted();
    return 130;
  } catch (const kxhost::CliError& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "kxhost: %s\n", e.what());
    return e.ExitCode();
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "kxhost: %s\n", e.what());
    return kxhost::kExitUsage;
  }
  kxhost::ExitIfInterrupted();
  return result.exitCode;
}
