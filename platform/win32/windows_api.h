// <windows.h> for the Win32 backend and the other Windows-only files of the tree.
//
// The platform interface (kx_platform.h, host/kx_types.h) names its handles HWND and
// HMODULE and its constants after the Windows ones, so that code reads the same on
// both systems. Including this header instead of <windows.h> renames the system's
// own handle and procedure types (WinHWND, WinHMODULE, WinDLGPROC) and tells
// kx_platform.h that the system already defines the constants, so that both can be
// used in one file; the casts between the two kinds of handle sit in this folder.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#define HWND WinHWND
#define HMODULE WinHMODULE
#define DLGPROC WinDLGPROC
#include <windows.h>
#include <shlwapi.h>
#undef HWND
#undef HMODULE
#undef DLGPROC

#define KX_WINDOWS_API_INCLUDED 1

#include "../../host/kx_types.h"

namespace kxwin {

// The platform interface's handles and the system's are the same pointers.
inline WinHWND Native(HWND window) { return reinterpret_cast<WinHWND>(window); }
inline HWND Portable(WinHWND window) { return reinterpret_cast<HWND>(window); }
inline WinHMODULE Native(HMODULE module) { return reinterpret_cast<WinHMODULE>(module); }
inline HMODULE Portable(WinHMODULE module) { return reinterpret_cast<HMODULE>(module); }

// UTF-16 text: char16_t in the tree, wchar_t (16 bits here) at the system's calls.
static_assert(sizeof(wchar_t) == sizeof(char16_t));
inline const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }
inline wchar_t* Wide(char16_t* text) { return reinterpret_cast<wchar_t*>(text); }

}  // namespace kxwin
