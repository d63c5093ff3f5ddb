// The module's entry point: DllMain on Windows, load and unload hooks on Linux
// (thread exit is handled by the record's own hook there).
#include "thread_state.h"

#ifdef _WIN32
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        return ProcessAttach(instance);
    case DLL_THREAD_ATTACH:
        ThreadAttach();
        return TRUE;
    case DLL_THREAD_DETACH:
        ThreadDetach();
        return TRUE;
    case DLL_PROCESS_DETACH:
        return ProcessDetach();
    default:
        return FALSE;
    }
}
#else
__attribute__((constructor)) static void LibraryLoaded() { ProcessAttach(nullptr); }
__attribute__((destructor)) static void LibraryUnloaded() { ProcessDetach(); }
#endif
