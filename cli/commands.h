// The kxhost commands. Each command file adds one subcommand to the application and
// runs it when it is chosen; main.cpp only parses and reports errors. A new command
// is one more file with one more Add...Command function listed here.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "module_loader.h"

namespace kxhost {

// Options every command understands (before or after the command's name).
struct GlobalOptions {
  std::string plugin;     // --plugin PATH: the module to load (empty: search)
  uint32_t codePage = 0;  // --codepage N: the ANSI code page for tag text (0: environment)
  bool quiet = false;     // --quiet: no progress bar, no summary lines
  bool progress = false;  // --progress: draw the progress line even when standard error is no terminal
  std::string pipeLimit;  // --pipe-limit SIZE: the most read from standard input or a pipe
};

// What a chosen command reports back to main.
struct CommandResult {
  int exitCode = 0;
};

// Applies the global options (code page) and loads the module; throws CliError.
std::unique_ptr<LoadedModule> PrepareModule(const GlobalOptions& options);

// kxhost plugins: loads the module and prints its records.
void AddPluginsCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost probe FILE: does the module take the file? Exit 0 yes, 1 no.
void AddProbeCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost info [--json] [-r] FILE|DIR...: everything the module knows of each file.
void AddInfoCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost decode FILE -o OUT | decode [-r] FILE|DIR... --out-dir DIR [-j N]: to WAV or raw.
void AddDecodeCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost dialog FILE: opens the file-information dialog, prints it, closes it with OK.
void AddDialogCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost about [--show SECONDS]: shows the module's about box.
void AddAboutCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost play [-r] [--shuffle] FILE|DIR...: plays through the sound output, gaplessly.
void AddPlayCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);

}  // namespace kxhost
