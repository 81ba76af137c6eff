// Dialogs on Windows: the system's windows, made from dialog resources of a module.
// Each function is the system call of the same name; the few that a headless system
// needs for reading a dialog back (its controls, the focus, the live dialogs) are
// answered from the real windows.
#include "windows_api.h"

#include <algorithm>
#include <cwchar>
#include <vector>

#include "../kx_platform.h"

namespace {

bool IsComboBox(WinHWND window) {
  wchar_t name[32] = {};
  return GetClassNameW(window, name, 32) > 0 && _wcsicmp(name, L"ComboBox") == 0;
}

bool IsComboBoxMessage(uint32_t message) { return message >= CB_GETEDITSEL && message <= CB_MSGMAX; }

// The system's class name of dialog windows.
bool IsDialog(WinHWND window) {
  wchar_t name[16] = {};
  return GetClassNameW(window, name, 16) > 0 && std::wcscmp(name, L"#32770") == 0;
}

BOOL CALLBACK CountDialog(WinHWND window, LPARAM count) {
  if (IsDialog(window)) ++*reinterpret_cast<int*>(count);
  return TRUE;
}

}  // namespace

extern "C" {

int KxRegisterDialogTemplate(HMODULE module, int templateId, const KxDialogTemplate* dialogTemplate) {
  if (module == nullptr || dialogTemplate == nullptr) return 0;
  return FindResourceW(kxwin::Native(module), MAKEINTRESOURCEW(templateId), MAKEINTRESOURCEW(5)) != nullptr ? 1 : 0;
}

HMODULE KxGetResourceModule(const char* name) {
  if (name == nullptr) return nullptr;
  return kxwin::Portable(GetModuleHandleA(name));
}

HWND KxCreateDialogParamW(HMODULE module, int templateId, HWND owner, DLGPROC dialogProc, intptr_t param) {
  if (dialogProc == nullptr) return nullptr;
  // The platform's dialog procedure has the system's signature, with its own names
  // for the handle types.
  return kxwin::Portable(CreateDialogParamW(kxwin::Native(module), MAKEINTRESOURCEW(templateId), kxwin::Native(owner),
                                            reinterpret_cast<WinDLGPROC>(dialogProc), param));
}

int KxDestroyWindow(HWND window) { return DestroyWindow(kxwin::Native(window)) ? 1 : 0; }

int KxIsWindow(HWND window) { return window != nullptr && IsWindow(kxwin::Native(window)) ? 1 : 0; }

int KxSetDlgItemTextW(HWND dialog, int controlId, const char16_t* text) {
  return SetDlgItemTextW(kxwin::Native(dialog), controlId, kxwin::Wide(text != nullptr ? text : u"")) ? 1 : 0;
}

int KxGetDlgItemTextW(HWND dialog, int controlId, char16_t* text, int capacity) {
  if (text == nullptr || capacity <= 0) return 0;
  return static_cast<int>(GetDlgItemTextW(kxwin::Native(dialog), controlId, kxwin::Wide(text), capacity));
}

HWND KxGetDlgItem(HWND dialog, int controlId) { return kxwin::Portable(GetDlgItem(kxwin::Native(dialog), controlId)); }

int KxGetDlgCtrlID(HWND control) {
  if (control == nullptr) return 0;
  const int id = GetDlgCtrlID(kxwin::Native(control));
  return id == -1 ? 0 : id;
}

HWND KxGetParent(HWND window) { return kxwin::Portable(GetParent(kxwin::Native(window))); }

int KxGetDialogControls(HWND dialog, int* ids, int capacity) {
  std::vector<int> found;
  for (WinHWND child = GetWindow(kxwin::Native(dialog), GW_CHILD); child != nullptr;
       child = GetWindow(child, GW_HWNDNEXT)) {
    const int id = GetDlgCtrlID(child);
    if (id != -1 && id != 0xFFFF && id != 0) found.push_back(id);
  }
  std::sort(found.begin(), found.end());
  for (int i = 0; i < capacity && i < static_cast<int>(found.size()); ++i) ids[i] = found[static_cast<size_t>(i)];
  return static_cast<int>(found.size());
}

intptr_t KxSendMessageW(HWND window, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  if (IsComboBoxMessage(message) && !IsComboBox(kxwin::Native(window))) return CB_ERR;
  return SendMessageW(kxwin::Native(window), message, wParam, lParam);
}

HWND KxSetFocus(HWND window) { return kxwin::Portable(SetFocus(kxwin::Native(window))); }

HWND KxGetFocus(void) { return kxwin::Portable(GetFocus()); }

int KxSetPropW(HWND window, const char16_t* name, void* value) {
  return SetPropW(kxwin::Native(window), kxwin::Wide(name), value) ? 1 : 0;
}

void* KxGetPropW(HWND window, const char16_t* name) { return GetPropW(kxwin::Native(window), kxwin::Wide(name)); }

void* KxRemovePropW(HWND window, const char16_t* name) {
  return RemovePropW(kxwin::Native(window), kxwin::Wide(name));
}

int KxGetWindowTextW(HWND window, char16_t* text, int capacity) {
  if (text == nullptr || capacity <= 0) return 0;
  return GetWindowTextW(kxwin::Native(window), kxwin::Wide(text), capacity);
}

int KxSetWindowTextW(HWND window, const char16_t* text) {
  return SetWindowTextW(kxwin::Native(window), kxwin::Wide(text != nullptr ? text : u"")) ? 1 : 0;
}

// Dialogs of this thread's: top-level dialog windows of the calling thread.
int KxLiveDialogCount(void) {
  int count = 0;
  EnumThreadWindows(GetCurrentThreadId(), CountDialog, reinterpret_cast<LPARAM>(&count));
  return count;
}

int KxIsDialogMessageW(HWND dialog, void* message) {
  if (dialog == nullptr || message == nullptr) return 0;
  return IsDialogMessageW(kxwin::Native(dialog), static_cast<MSG*>(message)) ? 1 : 0;
}

}  // extern "C"
