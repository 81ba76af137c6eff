// The host's dialog side: the resource module (ordinal 80) that holds the dialog
// templates plug-ins create their dialogs from, registered with the platform layer
// when first asked for, and the dialog routine (ordinal 65) a plug-in's dialog
// procedure calls at the end of its initialisation.
//
// Template 203, "File Information": OK and Cancel buttons (1, 2), the information
// text (edit 1000), the genre list (combo box 1002), the file name (static 1009) and
// the tag fields title, artist, album, track, year, comment (edits 1010 to 1015).
#include <mutex>

#include "host/kxcore.h"
#include "platform/kx_platform.h"

namespace {

constexpr KxControlTemplate kFileInfoControls[] = {
    {1, KX_CONTROL_BUTTON, u"OK"},
    {2, KX_CONTROL_BUTTON, u"Cancel"},
    {1000, KX_CONTROL_EDIT, u""},
    {1002, KX_CONTROL_COMBOBOX, u""},
    {1009, KX_CONTROL_STATIC, u""},
    {1010, KX_CONTROL_EDIT, u""},
    {1011, KX_CONTROL_EDIT, u""},
    {1012, KX_CONTROL_EDIT, u""},
    {1013, KX_CONTROL_EDIT, u""},
    {1014, KX_CONTROL_EDIT, u""},
    {1015, KX_CONTROL_EDIT, u""},
};
constexpr KxDialogTemplate kFileInfoDialog = {u"File Information", kFileInfoControls,
                                              static_cast<int>(sizeof(kFileInfoControls) / sizeof(kFileInfoControls[0]))};

}  // namespace

extern "C" {

HMODULE ZCoreResourceModule(void) {
  static std::once_flag once;
  static HMODULE module = nullptr;
  std::call_once(once, [] {
    HMODULE m = KxGetResourceModule("KXLibCore");
    KxRegisterDialogTemplate(m, ZCORE_DIALOG_FILE_INFO, &kFileInfoDialog);
    module = m;
  });
  return module;
}

// The host applies no look of its own to a headless dialog; it makes sure an
// initialised dialog is in the modeless-dialog list (and leaves it on WM_DESTROY),
// and answers 0 so that the focus the dialog procedure chose stays.
intptr_t ZCoreDialogRoutine(HWND dialog, uint32_t message, uintptr_t /*wParam*/, intptr_t /*lParam*/) {
  if (dialog == nullptr || !KxIsWindow(dialog)) return 0;
  if (message == WM_INITDIALOG) ZCoreRegisterModelessDialog(dialog);
  else if (message == WM_DESTROY) ZCoreUnregisterModelessDialog(dialog);
  return 0;
}

}  // extern "C"
