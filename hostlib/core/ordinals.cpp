// Resolution of the core library's ordinals to its functions, as a plug-in that
// imports by ordinal would see them.
#include "host/kxcore.h"

extern "C" void* ZCoreGetProcByOrdinal(uint32_t ordinal) {
  switch (ordinal) {
    case 18: return reinterpret_cast<void*>(&ZCoreAlloc);
    case 19: return reinterpret_cast<void*>(&ZCoreFree);
    case 22: return reinterpret_cast<void*>(&ZCoreRealloc);
    case 32: return reinterpret_cast<void*>(&ZCoreCreateObject);
    case 33: return reinterpret_cast<void*>(&ZCoreRegisterInterface);
    case 34: return reinterpret_cast<void*>(&ZCoreUnregisterInterface);
    case 39: return reinterpret_cast<void*>(&ZCoreRegisterModelessDialog);
    case 40: return reinterpret_cast<void*>(&ZCoreUnregisterModelessDialog);
    case 43: return reinterpret_cast<void*>(&ZCoreLockObject);
    case 45: return reinterpret_cast<void*>(&ZCoreUnlockObject);
    case 63: return reinterpret_cast<void*>(&ZCoreUtf8ToUtf16);
    case 65: return reinterpret_cast<void*>(&ZCoreDialogRoutine);
    case 80: return reinterpret_cast<void*>(&ZCoreResourceModule);
    case 84: return reinterpret_cast<void*>(&ZCoreMulDiv64);
    default: return nullptr;
  }
}
