// Result codes of the host interfaces and plug-ins (unsigned 32-bit, 0 = success),
// and the status values of the Layer III engine.
//
// 0x30xx are successes with information or plug-in level refusals,
// 0x31xx are failures of an audio-file object.
#pragma once

#include <cstdint>

#include "kx_export.h"

using KxResult = uint32_t;

constexpr KxResult AF_S_OK = 0x0000;                  // success
constexpr KxResult AF_E_UNSUPPORTED = 0x3001;         // not this plug-in's format / probe failed
constexpr KxResult AF_E_POINTER = 0x3005;             // null record pointer at an entry point
constexpr KxResult AF_E_TIME_NOT_READY = 0x3006;      // time query before a successful Create
constexpr KxResult AF_S_END_OF_DATA = 0x3007;         // no more PCM
constexpr KxResult AF_S_FRAME_ERROR = 0x30FF;         // data delivered, a damaged frame was concealed
constexpr KxResult AF_E_NO_SYNC = 0x3101;             // no frame sync found
constexpr KxResult AF_E_ALREADY_CREATED = 0x3102;     // Create called twice
constexpr KxResult AF_E_BAD_PARAM_TAG = 0x3103;       // open-parameter tag neither ZAFC nor ZMP3
constexpr KxResult AF_E_BAD_PARAM_SIZE = 0x3104;      // open-parameter size is not 24
constexpr KxResult AF_E_OUT_OF_RANGE = 0x3105;        // seek target beyond the total length
constexpr KxResult AF_E_NOT_READY = 0x3106;           // call before Create, or decoding an info-only open
constexpr KxResult AF_E_NO_COMMENT = 0x3107;          // the object holds no comment record (no tag found)
constexpr KxResult AF_E_BUFFER_TOO_SMALL = 0x3108;    // record too small; the needed size is returned
constexpr KxResult AF_E_BAD_FORMAT = 0x3109;          // malformed layout / no confirmed frame start
constexpr KxResult AF_E_NOT_MPEG_LAYER3 = 0x310A;     // a WAVE file whose format is not MPEG Layer-3
constexpr KxResult AF_E_UNKNOWN_CODE = 0x310B;        // unknown information code
constexpr KxResult AF_E_DIALOG_FAILED = 0x310C;       // the dialog window could not be created
constexpr KxResult AF_E_BAD_VERSION = 0x310E;         // reserved MPEG version (also bad mode extension)
constexpr KxResult AF_E_UNDERFLOW = 0x3112;           // reservoir underflow: a frame of silence was produced
constexpr KxResult AF_E_BAD_LAYER = 0x3114;           // layer other than III
constexpr KxResult AF_E_BAD_BITRATE = 0x3119;         // bitrate index 0 or 15
constexpr KxResult AF_E_BAD_SAMPLERATE = 0x311A;      // sample-rate index 3
constexpr KxResult AF_E_ROOM_TOO_SMALL = 0x3125;      // caller's room too small: frame went to the frame buffer
constexpr KxResult AF_S_RESYNC = 0x3126;              // frame start found again after a loss of sync
constexpr KxResult AF_E_FAIL = 0xFFFFFFFF;            // generic failure (null out, allocation, lock, index)

// Stream-level codes.
constexpr KxResult ZS_E_END_OF_DATA = 8458;           // 0x210A: read reached the end of the data
constexpr KxResult ZS_E_FAIL = 0x2101;                // stream operation failed (bad handle, I/O error)
constexpr KxResult ZS_E_NOT_FOUND = 0x2102;           // file could not be opened
constexpr KxResult ZS_E_INVALID_ARG = 0x2103;         // bad argument (null pointer, bad origin, bad bounds)
constexpr KxResult ZS_E_SEEK = 0x2104;                // seek before the start or past the end of the bounds
constexpr KxResult ZS_E_ACCESS = 0x2105;              // operation not allowed in the stream's access mode
constexpr KxResult ZS_E_NOT_OPEN = 0x2106;            // stream not opened yet
constexpr KxResult ZS_E_UNKNOWN_KIND = 0x2107;        // object factory: unknown FourCC

// Returns the name of a result code ("AF_E_NOT_READY"), or nullptr for an unknown code.
// Implemented in the core library.
extern "C" KXCORE_API const char* KxResultName(KxResult code);
