// kxhost: a command-line host for .zss modules. It loads a module the way a player
// does (dlopen, ZSSGetPluginInfo, the format record) and runs one command on it.
// Errors a user can act on are one line on standard error and a non-zero exit.
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "module_loader.h"

int main(int argc, char** argv) {
  CLI::App app{"kxhost: loads a .zss audio-file module and runs a command on it", "kxhost"};
  app.require_subcommand(1);
  // Options of the application may also follow the command's name.
  app.fallthrough();
  kxhost::GlobalOptions options;
  kxhost::CommandResult result;
  app.add_option("--plugin", options.plugin,
                 "module to load (default: $KX_PLUGIN_PATH, else beside kxhost, ../lib/kxmp3/plugins, ../plugins)");
  kxhost::AddPluginsCommand(app, options, result);
  kxhost::AddProbeCommand(app, options, result);
  kxhost::AddInfoCommand(app, options, result);
  kxhost::AddDecodeCommand(app, options, result);
  kxhost::AddDialogCommand(app, options, result);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  } catch (const kxhost::CliError& e) {
    std::fprintf(stderr, "kxhost: %s\n", e.what());
    return e.ExitCode();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "kxhost: %s\n", e.what());
    return 2;
  }
  return result.exitCode;
}
