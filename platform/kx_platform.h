// The Windows calls the module and the host libraries make, behind one small
// interface, with two backends: posix/ (the shared library libKXPlatform on Linux)
// and win32/ (a static library on Windows, linked into each of the three PE files,
// whose functions call the system function of the same name).
//
// Code pages: code page 0 (CP_ACP) is the "ANSI code page". On POSIX it is a setting
// of the host: the environment variable KX_ANSI_CODEPAGE holding a Windows code-page
// number (default 1252); 932, 936, 949, 950, 1252 and 65001 are supported (through
// iconv), among others iconv knows as "CPnnnn". On Windows it is the system's ANSI
// code page, unless the process environment holds KX_ANSI_CODEPAGE (which
// KxSetAnsiCodePage sets, so that a host such as kxhost and the module it loads,
// each with its own copy of the backend, agree on one setting).
//
// Windows: on POSIX a headless implementation. Dialogs are made from templates that
// a module registers (KxRegisterDialogTemplate); their controls keep texts,
// combo-box lists and selections, focus and window properties, so a host can show
// them and tests can read them back. On Windows these are the real windows, made
// from dialog resources of the module.
#pragma once

#include <cstddef>
#include <cstdint>

#include "../host/kx_export.h"
#include "../host/kx_types.h"

extern "C" {

// Constants named after the system's; a file that includes <windows.h> through
// platform/win32/windows_api.h has them from the system already (same values).
#if !defined(KX_WINDOWS_API_INCLUDED)
constexpr uint32_t CP_ACP = 0;
constexpr uint32_t CP_UTF8 = 65001;
#endif

// Sets the ANSI code page for this process (overrides KX_ANSI_CODEPAGE); 0 = back to
// the environment setting. Returns 0 on success, -1 for a code page iconv lacks.
KXPLAT_API int KxSetAnsiCodePage(uint32_t codePage);
// The code page CP_ACP stands for.
KXPLAT_API uint32_t KxGetAnsiCodePage(void);

#if !defined(KX_WINDOWS_API_INCLUDED)
// Flag of KxMultiByteToWideChar: fail (return 0) instead of replacing undecodable bytes.
constexpr uint32_t MB_ERR_INVALID_CHARS = 0x00000008;
#endif

// Like MultiByteToWideChar: converts `srcBytes` bytes (-1: up to and including the
// terminator) to UTF-16. With dstChars 0 returns the units needed. Returns 0 on error
// (unknown code page, bad arguments, dstChars too small: then nothing is written).
// Undecodable bytes become U+FFFD (never fails for a known code page): a lead byte
// with a valid trail byte whose pair is unmapped gives one U+FFFD for both bytes.
// Code page 1252's undefined bytes 0x81, 0x8D, 0x8F, 0x90, 0x9D give U+0081 etc., as
// on Windows. Conversions are thread-safe; no state survives a call.
KXPLAT_API int KxMultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* src, int srcBytes,
                                     char16_t* dst, int dstChars);
// Like WideCharToMultiByte: converts `srcChars` units (-1: with the terminator).
// Unmappable characters and unpaired surrogates become '?' (in UTF-8: U+FFFD). With
// dstBytes 0 returns the bytes needed; 0 on error or when dstBytes is too small.
KXPLAT_API int KxWideCharToMultiByte(uint32_t codePage, uint32_t flags, const char16_t* src, int srcChars,
                                     char* dst, int dstBytes);
// Like IsDBCSLeadByteEx: is `byte` a lead byte of a double-byte character? (932:
// 0x81-0x9F and 0xE0-0xFC; 936, 949, 950: 0x81-0xFE; every other code page: none.)
KXPLAT_API int KxIsDBCSLeadByteEx(uint32_t codePage, uint8_t byte);

// Like PathFindExtensionW: pointer to the last ".ext" of the file-name part of
// `path`, or to its terminator when there is none.
KXPLAT_API const char16_t* KxPathFindExtensionW(const char16_t* path);

// Like DisableThreadLibraryCalls: returns the system's answer (on POSIX, which has
// no thread notifications, 1 for any module). Every call with a module handle is
// recorded, answered or declined, so that tests can see the module made it.
KXPLAT_API int KxDisableThreadLibraryCalls(HMODULE module);
KXPLAT_API int KxThreadLibraryCallsRequested(HMODULE module);

#if !defined(KX_WINDOWS_API_INCLUDED)
// Message box.
constexpr uint32_t MB_OK = 0x00000000;
constexpr uint32_t MB_TOPMOST = 0x00040000;
constexpr int IDOK = 1;
constexpr int IDCANCEL = 2;
#endif
// Shows a message box through the installed handler, else (POSIX) prints
// "caption: text" to standard error and returns IDOK, or (Windows) shows it with
// MessageBoxW and returns the button pressed.
KXPLAT_API int KxMessageBoxW(HWND owner, const char16_t* text, const char16_t* caption, uint32_t type);
using KxMessageBoxHandler = int (*)(HWND owner, const char16_t* text, const char16_t* caption, uint32_t type,
                                    void* context);
KXPLAT_API void KxSetMessageBoxHandler(KxMessageBoxHandler handler, void* context);

#if !defined(KX_WINDOWS_API_INCLUDED)
// Window messages used by dialogs.
constexpr uint32_t WM_INITDIALOG = 0x0110;
constexpr uint32_t WM_COMMAND = 0x0111;
constexpr uint32_t WM_DESTROY = 0x0002;
constexpr uint32_t WM_CLOSE = 0x0010;
constexpr uint32_t WM_SETTEXT = 0x000C;
constexpr uint32_t WM_GETTEXT = 0x000D;        // wParam: capacity, lParam: char16_t buffer
constexpr uint32_t WM_GETTEXTLENGTH = 0x000E;
constexpr uint32_t CB_ADDSTRING = 0x0143;
constexpr uint32_t CB_DELETESTRING = 0x0144;
constexpr uint32_t CB_INSERTSTRING = 0x014A;
constexpr uint32_t CB_SELECTSTRING = 0x014D;   // selects the first item starting with the text
constexpr uint32_t CB_FINDSTRINGEXACT = 0x0158;
constexpr uint32_t CB_GETCOUNT = 0x0146;
constexpr uint32_t CB_GETCURSEL = 0x0147;
constexpr uint32_t CB_SETCURSEL = 0x014E;
constexpr uint32_t CB_GETLBTEXT = 0x0148;
constexpr uint32_t CB_GETLBTEXTLEN = 0x0149;
constexpr uint32_t CB_RESETCONTENT = 0x014B;
constexpr intptr_t CB_ERR = -1;
#endif

using DLGPROC = intptr_t (*)(HWND dialog, uint32_t message, uintptr_t wParam, intptr_t lParam);

// Dialog templates: a control list with ids, kinds and initial texts.
enum KxControlKind : uint32_t { KX_CONTROL_STATIC = 0, KX_CONTROL_EDIT = 1, KX_CONTROL_BUTTON = 2, KX_CONTROL_COMBOBOX = 3 };
struct KxControlTemplate {
  int id;
  KxControlKind kind;
  const char16_t* text;
};
struct KxDialogTemplate {
  const char16_t* title;
  const KxControlTemplate* controls;
  int controlCount;
};
// Registers (or replaces) dialog template `templateId` of `module`; the data is copied.
// Returns 1, or 0 for a null module or template. On Windows the templates are dialog
// resources of the module and nothing is registered: 1 when the module holds a
// dialog resource of that id.
KXPLAT_API int KxRegisterDialogTemplate(HMODULE module, int templateId, const KxDialogTemplate* dialogTemplate);
// A module handle for a library's resources, made once per name (Windows: the loaded
// library of that name, ".dll" added when it has no extension).
KXPLAT_API HMODULE KxGetResourceModule(const char* name);

// Like CreateDialogParamW: makes a modeless dialog from a registered template, sends
// it WM_INITDIALOG (wParam: the first control, lParam: `param`) and returns it (null
// when the template is unknown, the dialog procedure is null, the owner is not a live
// window, or the procedure destroyed the dialog during WM_INITDIALOG). A non-zero
// answer to WM_INITDIALOG focuses the first control. Handles are never reused.
KXPLAT_API HWND KxCreateDialogParamW(HMODULE module, int templateId, HWND owner, DLGPROC dialogProc,
                                     intptr_t param);
// Like DestroyWindow: destroys the dialogs it owns first, sends WM_DESTROY to the
// dialog procedure (the window, its controls and properties are still valid then),
// and frees the window; its handle is invalid afterwards (KxIsWindow gives 0).
KXPLAT_API int KxDestroyWindow(HWND window);
// Like IsWindow.
KXPLAT_API int KxIsWindow(HWND window);
KXPLAT_API int KxSetDlgItemTextW(HWND dialog, int controlId, const char16_t* text);
// Copies a control's text (at most capacity units with the terminator); returns its length.
KXPLAT_API int KxGetDlgItemTextW(HWND dialog, int controlId, char16_t* text, int capacity);
KXPLAT_API HWND KxGetDlgItem(HWND dialog, int controlId);
// Control id of a control window (0 for a dialog or unknown window).
KXPLAT_API int KxGetDlgCtrlID(HWND control);
// Like GetParent: a control's dialog, a dialog's owner.
KXPLAT_API HWND KxGetParent(HWND window);
// Ids of a dialog's controls in template order (at most capacity written); returns the
// count. On Windows: the dialog's child windows that have an id (labels without one,
// id -1, are left out), in ascending order of id.
KXPLAT_API int KxGetDialogControls(HWND dialog, int* ids, int capacity);
// Like SendMessageW (on Windows the system call, except that a combo-box message sent
// to a window that is not a combo box answers CB_ERR). On POSIX: the combo-box and
// text messages above to a control; to a dialog
// the text messages, and every other message (WM_COMMAND, WM_CLOSE, ...) passed to
// its dialog procedure. A WM_CLOSE the procedure leaves unhandled (returns 0) is
// followed by WM_COMMAND IDCANCEL, as the system's default does. Combo boxes are
// unsorted; setting a combo box's text selects the item with that text (ASCII case
// ignored) or clears the selection; CB_SETCURSEL sets the text to the item.
KXPLAT_API intptr_t KxSendMessageW(HWND window, uint32_t message, uintptr_t wParam, intptr_t lParam);
// Like SetFocus: returns the window that had the focus before.
KXPLAT_API HWND KxSetFocus(HWND window);
KXPLAT_API HWND KxGetFocus(void);
// Window properties; names compare without regard to ASCII case.
KXPLAT_API int KxSetPropW(HWND window, const char16_t* name, void* value);
KXPLAT_API void* KxGetPropW(HWND window, const char16_t* name);
KXPLAT_API void* KxRemovePropW(HWND window, const char16_t* name);
// Title of a dialog (as the template gave it or SetWindowText set it), or a control's text.
KXPLAT_API int KxGetWindowTextW(HWND window, char16_t* text, int capacity);
KXPLAT_API int KxSetWindowTextW(HWND window, const char16_t* text);
// Number of dialog windows now alive (for tests).
KXPLAT_API int KxLiveDialogCount(void);
// Like IsDialogMessageW: lets `dialog` take `message` (a system MSG) if it is one of
// its keyboard messages (Tab, Enter, Esc) or meant for it or its controls; returns 1
// when the dialog took it. The headless POSIX dialogs receive no messages: 0.
KXPLAT_API int KxIsDialogMessageW(HWND dialog, void* message);

}  // extern "C"

// Helper for building command WPARAMs: LOWORD = control id, HIWORD = notification.
constexpr uintptr_t KxMakeWParam(uint32_t low, uint32_t high) { return (low & 0xFFFFu) | ((high & 0xFFFFu) << 16); }
