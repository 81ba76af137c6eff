// kxhost: a command-line host for .zss modules. It loads a module the way a player
// does (dlopen, ZSSGetPluginInfo, the format record) and runs one command on it.
// Errors a user can act on are one line on standard error and a non-zero exit:
// 1 when an input file failed, 2 for bad arguments or a missing module; a run
// stopped by Ctrl-C ends by that signal after removing its unfinished output.
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "interrupt.h"

int main(int argc, char** argv) {
  kxhost::InstallInterruptHandlers();
  CLI::App app{"kxhost: decodes and inspects MPEG audio Layer III files through the KXMP3Lib module", "kxhost"};
  app.require_subcommand(1);
  // Options of the application may also follow the command's name.
  app.fallthrough();
  kxhost::GlobalOptions options;
  kxhost::CommandResult result;
  app.add_option("--plugin", options.plugin,
                 "module to load (default: $KX_PLUGIN_PATH, else beside kxhost, ../lib/kxmp3/plugins, ../plugins)");
  app.add_option("--codepage", options.codePage,
                 "Windows code page of 8-bit tag text (default: $KX_ANSI_CODEPAGE, else 1252)");
  app.add_flag("-q,--quiet", options.quiet, "no progress bar and no summary lines (errors are still printed)");
  app.footer(
      "Run \"kxhost COMMAND --help\" for a command's options and examples; \"man kxhost\" for more.\n"
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
  kxhost::AddDialogCommand(app, options, result);
  kxhost::AddAboutCommand(app, options, result);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help is a "parse error" with status 0; real ones are usage errors.
    return app.exit(e) == 0 ? kxhost::kExitOk : kxhost::kExitUsage;
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
