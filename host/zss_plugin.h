// The .zss plug-in module interface: the records a host obtains from a module's
// exported ZSSGetPluginInfo, and the callbacks they carry.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kx_result_codes.h"
#include "kx_types.h"

class Class_ZCOM;
class Class_ZStream;

struct FormatInfo;

using ZssGetFormatInfoFn = KxResult (*)(FormatInfo* record);
using ZssProbeFn = KxResult (*)(Class_ZStream* stream, uint32_t fourcc);
using ZssCreateFn = KxResult (*)(uint32_t fourcc, Class_ZCOM** out);
using ZssAboutFn = KxResult (*)(uint32_t fourcc, void* reserved, HWND parentWindow);

constexpr uint32_t ZSS_INTERFACE_VERSION = 0x3000;

#pragma pack(push, 1)
struct PluginInfo {
  uint32_t interfaceVersion;        // 0x3000
  const char16_t* libraryName;
  const char16_t* makerName;
  const char16_t* webAddress;
  const char16_t* description;
  ZssGetFormatInfoFn getFormatInfo;
  uint8_t reserved[16];
};

struct FormatInfo {
  uint32_t formatCount;
  const uint32_t* formatCodes;              // array of FourCCs
  const char16_t* const* formatDescriptions; // wide strings, null-terminated list
  ZssProbeFn probe;
  ZssCreateFn create;
  ZssAboutFn about;
};
#pragma pack(pop)

static_assert(sizeof(PluginInfo) == 60);
static_assert(offsetof(PluginInfo, interfaceVersion) == 0);
static_assert(offsetof(PluginInfo, libraryName) == 4);
static_assert(offsetof(PluginInfo, makerName) == 12);
static_assert(offsetof(PluginInfo, webAddress) == 20);
static_assert(offsetof(PluginInfo, description) == 28);
static_assert(offsetof(PluginInfo, getFormatInfo) == 36);
static_assert(offsetof(PluginInfo, reserved) == 44);

static_assert(sizeof(FormatInfo) == 44);
static_assert(offsetof(FormatInfo, formatCount) == 0);
static_assert(offsetof(FormatInfo, formatCodes) == 4);
static_assert(offsetof(FormatInfo, formatDescriptions) == 12);
static_assert(offsetof(FormatInfo, probe) == 20);
static_assert(offsetof(FormatInfo, create) == 28);
static_assert(offsetof(FormatInfo, about) == 36);

// Exports every module provides (C linkage).
using ZssGetPluginInfoFn = KxResult (*)(PluginInfo* record);
constexpr const char* ZSS_EXPORT_GET_PLUGIN_INFO = "ZSSGetPluginInfo";
