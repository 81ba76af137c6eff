// Names of the result codes of host/kx_result_codes.h, for messages and logs.
#include "host/kx_result_codes.h"

extern "C" const char* KxResultName(KxResult code) {
#define KX_NAME(name) \
  case name: return #name
  switch (code) {
    KX_NAME(AF_S_OK);
    KX_NAME(AF_E_UNSUPPORTED);
    KX_NAME(AF_E_POINTER);
    KX_NAME(AF_E_TIME_NOT_READY);
    KX_NAME(AF_S_END_OF_DATA);
    KX_NAME(AF_S_FRAME_ERROR);
    KX_NAME(AF_E_NO_SYNC);
    KX_NAME(AF_E_ALREADY_CREATED);
    KX_NAME(AF_E_BAD_PARAM_TAG);
    KX_NAME(AF_E_BAD_PARAM_SIZE);
    KX_NAME(AF_E_OUT_OF_RANGE);
    KX_NAME(AF_E_NOT_READY);
    KX_NAME(AF_E_NO_COMMENT);
    KX_NAME(AF_E_BUFFER_TOO_SMALL);
    KX_NAME(AF_E_BAD_FORMAT);
    KX_NAME(AF_E_NOT_MPEG_LAYER3);
    KX_NAME(AF_E_UNKNOWN_CODE);
    KX_NAME(AF_E_DIALOG_FAILED);
    KX_NAME(AF_E_BAD_VERSION);
    KX_NAME(AF_E_UNDERFLOW);
    KX_NAME(AF_E_BAD_LAYER);
    KX_NAME(AF_E_BAD_BITRATE);
    KX_NAME(AF_E_BAD_SAMPLERATE);
    KX_NAME(AF_E_ROOM_TOO_SMALL);
    KX_NAME(AF_S_RESYNC);
    KX_NAME(AF_E_FAIL);
    KX_NAME(ZS_E_END_OF_DATA);
    KX_NAME(ZS_E_FAIL);
    KX_NAME(ZS_E_NOT_FOUND);
    KX_NAME(ZS_E_INVALID_ARG);
    KX_NAME(ZS_E_SEEK);
    KX_NAME(ZS_E_ACCESS);
    KX_NAME(ZS_E_NOT_OPEN);
    KX_NAME(ZS_E_UNKNOWN_KIND);
    default: return nullptr;
  }
#undef KX_NAME
}
