// The format record's callbacks and the library attach/detach handling, declared for
// the module entry and for tests (the module itself exports none of these: the host
// reaches the callbacks through the records).
#pragma once

#include <cstdint>

#include "../host/kx_result_codes.h"
#include "../host/kx_types.h"
#include "../host/zss_plugin.h"

namespace kxmp3 {

// Display strings of the records.
extern const char16_t kLibraryName[];
extern const char16_t kMakerName[];
extern const char16_t kWebAddress[];
extern const char16_t kPluginDescription[];
extern const char16_t kFormatDescription[];

// Fills the format record (one format: ZMP3). Null record: AF_E_POINTER.
KxResult GetFormatInfo(FormatInfo* record);
// 0 when the stream holds this format (container detection succeeds), else
// AF_E_UNSUPPORTED; a foreign fourcc is refused without reading the stream.
KxResult ProbeFormat(Class_ZStream* stream, uint32_t fourcc);
// Like CreateInstance_KXMP3 for fourcc ZMP3; AF_E_UNSUPPORTED for another fourcc,
// AF_E_FAIL for a null out.
KxResult CreateDecoder(uint32_t fourcc, Class_ZCOM** out);
// Shows the about box for ZMP3 (nothing for another fourcc); always 0.
KxResult ShowAbout(uint32_t fourcc, void* reserved, HWND parentWindow);

// Library attach: counts attaches atomically; only the first (0 -> 1) stores the
// module handle, builds the decoder tables and switches off thread notifications.
// Returns true when this call did that first-attach work.
bool ProcessAttach(HMODULE module);
// Library detach: counts down atomically.
void ProcessDetach();
// The module handle stored by the first attach (null before it).
HMODULE ModuleHandle();
// Current attach count and how often the decoder tables were built (for tests).
uint32_t AttachCount();
uint32_t TableBuildCount();

}  // namespace kxmp3
