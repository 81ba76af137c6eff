// Internal to the POSIX platform layer: which code page CP_ACP stands for, the
// lead-byte ranges of the double-byte code pages, and the iconv name of a code page.
// Used by the multi-byte conversions and by IsDBCSLeadByteEx.
#pragma once

#include <cstdint>
#include <string>

namespace kxplat {

// Replaces CP_ACP (0) and CP_THREAD_ACP (3) by the process's ANSI code page.
uint32_t ResolveCodePage(uint32_t codePage);

// The iconv name of a Windows code page ("CP932"), or "" when there is none.
std::string IconvName(uint32_t codePage);

// Can a byte sequence in this code page be converted (65001 or an iconv converter)?
bool IsSupportedCodePage(uint32_t codePage);

// Lead-byte and trail-byte ranges of the double-byte code pages 932, 936, 949, 950.
// Both are false for every single-byte code page and for UTF-8.
bool IsLeadByte(uint32_t codePage, uint8_t byte);
bool IsTrailByte(uint32_t codePage, uint8_t byte);

}  // namespace kxplat
