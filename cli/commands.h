// The kxhost commands. Each command file adds one subcommand to the application and
// runs it when it is chosen; main.cpp only parses and reports errors. A new command
// is one more file with one more Add...Command function listed here.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace kxhost {

// Options every command understands.
struct GlobalOptions {
  std::string plugin;  // --plugin PATH: the module to load (empty: search)
};

// What a chosen command reports back to main.
struct CommandResult {
  int exitCode = 0;
};

// kxhost plugins: loads the module and prints its records.
void AddPluginsCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost probe FILE: does the module take the file? Exit 0 yes, 1 no.
void AddProbeCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost info FILE: the information record, tags and ReplayGain, readably.
void AddInfoCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost decode FILE -o OUT [--float] [--format raw] [--no-deemphasis].
void AddDecodeCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);
// kxhost dialog FILE: opens the file-information dialog, prints it, closes it with OK.
void AddDialogCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result);

}  // namespace kxhost
