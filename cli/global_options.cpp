// The options every command shares, applied before a command loads the module.
#include "commands.h"
#include "platform/kx_platform.h"

namespace kxhost {

std::unique_ptr<LoadedModule> PrepareModule(const GlobalOptions& options) {
  // The module converts 8-bit tag text (ID3v1, ID3v2 Latin-1 frames, RIFF INFO)
  // with the ANSI code page of the platform layer it shares with kxhost.
  if (options.codePage != 0 && KxSetAnsiCodePage(options.codePage) != 0) {
    throw CliError("unknown code page " + std::to_string(options.codePage) +
                   " (try 1252, 932, 936, 949, 950 or 65001)");
  }
  return std::make_unique<LoadedModule>(FindModule(options.plugin));
}

}  // namespace kxhost
