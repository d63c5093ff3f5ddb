// Thread status records in a thread-local storage slot.
//
// Each record is a zero-filled fixed global block. Process attach takes the
// slot and makes the attaching thread's record; thread attach and detach make
// and free the others. A thread that predates the library gets its record on
// its first call. Where there are no per-thread loader notifications (Linux,
// or the library linked statically into a program) a thread-exit hook frees
// the record instead, and the first call attaches the module.
#include "thread_state.h"

#include <mutex>

namespace {

HINSTANCE g_instance = nullptr;
DWORD g_slot = TLS_OUT_OF_INDEXES;
DWORD g_attached = 0;
DWORD g_detached = 0;

// Bit 31 of GetVersion is set on systems not of the NT line, where a repeated
// attach or detach notification must be refused.
bool NotNtLine() { return (GetVersion() & 0x80000000u) != 0; }

#ifndef _WIN32
struct ThreadExitHook {
    bool armed = false;
    ~ThreadExitHook() {
        if (armed) ThreadDetach();
    }
};
thread_local ThreadExitHook t_exitHook;
#endif

HINSTANCE OwnModule() {
#ifdef _WIN32
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                           GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&OwnModule), &module);
    return module;
#else
    return nullptr;
#endif
}

void AttachOnFirstUse() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (!g_attached) ProcessAttach(OwnModule());
    });
}

} // namespace

BOOL ProcessAttach(HINSTANCE instance) {
    if (NotNtLine() && g_attached) return FALSE;
    g_attached = 1;
    g_instance = instance;
    g_slot = TlsAlloc();
    if (g_slot == TLS_OUT_OF_INDEXES) return FALSE;
    ThreadAttach();
    return TRUE;
}

void ThreadAttach() {
    void *record = GlobalAlloc(GPTR, sizeof(ThreadState));
    if (!record) ExitThread(0);
    if (!TlsSetValue(g_slot, record)) {
        GlobalFree(record);
        ExitThread(0);
    }
#ifndef _WIN32
    t_exitHook.armed = true;
#endif
}

void ThreadDetach() {
    if (g_slot == TLS_OUT_OF_INDEXES) return;
    void *record = TlsGetValue(g_slot);
    if (record) {
        TlsSetValue(g_slot, nullptr);
        GlobalFree(record);
    }
}

BOOL ProcessDetach() {
    if (NotNtLine() && g_detached) return FALSE;
    g_detached = 1;
    ThreadDetach();
    if (g_slot != TLS_OUT_OF_INDEXES) TlsFree(g_slot);
    g_slot = TLS_OUT_OF_INDEXES;
    return TRUE;
}

HINSTANCE ModuleInstance() {
    AttachOnFirstUse();
    return g_instance;
}

ThreadState *GetThreadState() {
    AttachOnFirstUse();
    void *record = TlsGetValue(g_slot);
    if (!record) {
        ThreadAttach();
        record = TlsGetValue(g_slot);
    }
    return static_cast<ThreadState *>(record);
}
