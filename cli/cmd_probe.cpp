// kxhost probe FILE: opens FILE as a host file stream and asks the module's probe
// callback whether it takes it, for each format the module serves. Exit 0 when it
// does, 1 when not.
#include <cstdio>
#include <string>

#include "commands.h"
#include "file_stream.h"
#include "module_loader.h"
#include "text.h"

namespace kxhost {

namespace {

int RunProbe(const GlobalOptions& options, const std::string& file) {
  LoadedModule module(FindModule(options.plugin));
  StreamRef stream(OpenFileStream(file));
  const FormatInfo& format = module.Format();
  if (format.probe == nullptr) throw CliError("the module has no probe callback: " + module.Path());
  for (uint32_t i = 0; i < format.formatCount; ++i) {
    const uint32_t code = format.formatCodes[i];
    stream.Get()->Seek(0, ZS_SEEK_SET);
    if (format.probe(stream.Get(), code) == AF_S_OK) {
      std::printf("%s: %s\n", file.c_str(), FourCCText(code).c_str());
      return 0;
    }
  }
  std::printf("%s: not taken\n", file.c_str());
  return 1;
}

}  // namespace

void AddProbeCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("probe", "does the module take FILE? (exit 0 yes, 1 no)");
  static std::string file;  // the parsed argument, read by the callback
  sub->add_option("FILE", file, "file to probe")->required();
  sub->callback([&options, &result] { result.exitCode = RunProbe(options, file); });
}

}  // namespace kxhost
