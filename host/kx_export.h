// Symbol export macros of the host libraries. The host libraries build with hidden
// visibility and export only what these macros mark.
#pragma once

#if defined(_WIN32)
#define KX_DLL_EXPORT __declspec(dllexport)
#define KX_DLL_IMPORT __declspec(dllimport)
#else
#define KX_DLL_EXPORT __attribute__((visibility("default")))
#define KX_DLL_IMPORT __attribute__((visibility("default")))
#endif

#if defined(KXLIBCORE_BUILD)
#define KXCORE_API KX_DLL_EXPORT
#else
#define KXCORE_API KX_DLL_IMPORT
#endif

#if defined(KXAFLIB_BUILD)
#define KXAF_API KX_DLL_EXPORT
#else
#define KXAF_API KX_DLL_IMPORT
#endif

// The Windows build links the platform layer statically into each PE file.
#if defined(KXPLATFORM_STATIC)
#define KXPLAT_API
#elif defined(KXPLATFORM_BUILD)
#define KXPLAT_API KX_DLL_EXPORT
#else
#define KXPLAT_API KX_DLL_IMPORT
#endif
