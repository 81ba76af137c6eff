// kxhost dialog FILE: opens the decoder's file-information dialog the way a player
// does, prints everything the dialog holds (title, every control's text, the genre
// list), then closes it with OK.
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "decoder_session.h"
#include "host/kxcore.h"
#include "show_windows.h"
#include "platform/kx_platform.h"
#include "text.h"

namespace kxhost {

namespace {

std::string WindowText(HWND window) {
  std::vector<char16_t> buffer(8192, 0);
  KxGetWindowTextW(window, buffer.data(), static_cast<int>(buffer.size()));
  return ToUtf8(buffer.data());
}

std::string ControlText(HWND dialog, int id) {
  std::vector<char16_t> buffer(8192, 0);
  KxGetDlgItemTextW(dialog, id, buffer.data(), static_cast<int>(buffer.size()));
  return ToUtf8(buffer.data());
}

// Multi-line text indented under its control's line.
void PrintIndented(const std::string& text) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::printf("    %s\n", text.substr(start, end - start).c_str());
    start = end + 1;
  }
}

int RunDialog(const GlobalOptions& options, const std::string& file, double showSeconds) {
  const auto module = PrepareModule(options);
  DecoderSession session(*module, file, OPEN_FLAG_INFO_ONLY, 16);
  KxResult rc = session.Audio()->FileInfoDialog(nullptr);
  if (rc != AF_S_OK) throw CliError("the decoder could not open its dialog: " + ResultText(rc));
  KeepDialogsShown(showSeconds);
  // The dialog gives the focus to one of its controls; that control leads to it.
  HWND focus = KxGetFocus();
  HWND dialog = focus != nullptr ? KxGetParent(focus) : nullptr;
  if (dialog == nullptr || !ZCoreIsModelessDialog(dialog)) {
    throw CliError("the dialog opened but could not be found (no control has the focus)");
  }
  std::printf("dialog: %s\n", WindowText(dialog).c_str());
  std::printf("focus: control %d\n", KxGetDlgCtrlID(focus));
  std::vector<int> ids(64);
  const int count = KxGetDialogControls(dialog, ids.data(), static_cast<int>(ids.size()));
  for (int i = 0; i < count && i < static_cast<int>(ids.size()); ++i) {
    const int id = ids[i];
    HWND control = KxGetDlgItem(dialog, id);
    const intptr_t entries = KxSendMessageW(control, CB_GETCOUNT, 0, 0);
    const std::string text = ControlText(dialog, id);
    if (entries != CB_ERR && entries >= 0) {
      std::printf("control %d: %s\n", id, text.c_str());
      std::printf("  list of %ld entries:\n", static_cast<long>(entries));
      for (intptr_t k = 0; k < entries; ++k) {
        const intptr_t length = KxSendMessageW(control, CB_GETLBTEXTLEN, static_cast<uintptr_t>(k), 0);
        std::vector<char16_t> entry(static_cast<size_t>(length > 0 ? length : 0) + 1, 0);
        KxSendMessageW(control, CB_GETLBTEXT, static_cast<uintptr_t>(k), reinterpret_cast<intptr_t>(entry.data()));
        std::printf("    %3ld %s\n", static_cast<long>(k), ToUtf8(entry.data()).c_str());
      }
    } else if (text.find('\n') != std::string::npos) {
      std::printf("control %d:\n", id);
      PrintIndented(text);
    } else {
      std::printf("control %d: %s\n", id, text.c_str());
    }
  }
  KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(IDOK, 0), 0);
  if (KxIsWindow(dialog)) throw CliError("the dialog did not close on OK");
  std::printf("closed with OK\n");
  return 0;
}

}  // namespace

void AddDialogCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("dialog", "open the file-information dialog of FILE, print it, close it with OK");
  static std::string file;  // the parsed argument, read by the callback
  static double showSeconds = 0;
  sub->add_option("FILE", file, "audio file")->required();
  sub->add_option("--show", showSeconds, "seconds the dialog stays on screen before it is read (Windows)")
      ->check(CLI::Range(0.0, 3600.0));
  sub->footer(
      "Opens the module's own file-information dialog the way a player does (a real\n"
      "window on Windows, headless on Linux), prints its title and every control's text,\n"
      "then presses OK.\n"
      "\n"
      "Examples:\n"
      "  kxhost dialog song.mp3\n"
      "  kxhost dialog --codepage 932 japanese.mp3");
  sub->callback([&options, &result] { result.exitCode = RunDialog(options, file, showSeconds); });
}

}  // namespace kxhost
