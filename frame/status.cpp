// The two small exports: the thread's last conversion error and the version.
#include "paximage.h"
#include "thread_state.h"

#include <cstring>

namespace {
const char kVersion[] = "Version 12.08"; // 13 characters and the terminating zero
}

extern "C" DWORD PAXCALL GetLastColorConvertError(void) { return GetThreadState()->convertError; }

// size 14 or more copies the text with its zero; 1 to 13 copies exactly that
// many characters and no zero; 0 or less (or a null buffer) writes nothing.
extern "C" void PAXCALL GetPaxImageVersion(char *buffer, int size) {
    if (!buffer || size <= 0) return;
    if (size >= static_cast<int>(sizeof kVersion)) {
        lstrcpyA(buffer, kVersion);
        return;
    }
    std::memcpy(buffer, kVersion, static_cast<size_t>(size));
}
