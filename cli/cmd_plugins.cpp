// kxhost plugins [--plugin PATH]: loads the module and prints every string and
// FourCC of its plug-in information and format records.
#include <cstdio>

#include "commands.h"
#include "module_loader.h"
#include "text.h"

namespace kxhost {

namespace {

int RunPlugins(const GlobalOptions& options) {
  const auto module = PrepareModule(options);
  const PluginInfo& info = module->Info();
  const FormatInfo& format = module->Format();
  std::printf("module: %s\n", module->Path().c_str());
  std::printf("interface version: 0x%04X\n", info.interfaceVersion);
  std::printf("library: %s\n", ToUtf8(info.libraryName).c_str());
  std::printf("maker: %s\n", ToUtf8(info.makerName).c_str());
  std::printf("web: %s\n", ToUtf8(info.webAddress).c_str());
  std::printf("description: %s\n", ToUtf8(info.description).c_str());
  std::printf("formats: %u\n", format.formatCount);
  for (uint32_t i = 0; i < format.formatCount; ++i) {
    const uint32_t code = format.formatCodes != nullptr ? format.formatCodes[i] : 0;
    const char16_t* text = nullptr;
    if (format.formatDescriptions != nullptr) {
      // The description list ends with a null pointer; never read past it.
      for (uint32_t k = 0; k <= i; ++k) {
        text = format.formatDescriptions[k];
        if (text == nullptr) break;
      }
    }
    std::printf("  %s  %s\n", FourCCText(code).c_str(), text != nullptr ? ToUtf8(text).c_str() : "(no description)");
  }
  std::printf("callbacks: probe %s, create %s, about %s\n", format.probe ? "yes" : "no",
              format.create ? "yes" : "no", format.about ? "yes" : "no");
  return 0;
}

}  // namespace

void AddPluginsCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("plugins", "load the module and print its information records");
  sub->footer(
      "The module is --plugin PATH, else $KX_PLUGIN_PATH, else KXMP3Lib.zss found beside\n"
      "kxhost, in ../lib/kxmp3/plugins or in ../plugins.\n"
      "\n"
      "Examples:\n"
      "  kxhost plugins\n"
      "  kxhost plugins --plugin build/release/plugins/KXMP3Lib.zss");
  sub->callback([&options, &result] { result.exitCode = RunPlugins(options); });
}

}  // namespace kxhost
