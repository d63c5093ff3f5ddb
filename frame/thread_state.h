// The per-thread status record and the module's loader notifications.
#ifndef PAX_FRAME_THREAD_STATE_H
#define PAX_FRAME_THREAD_STATE_H

#include "paximage.h"

// One per thread, zero-filled when made: no error, no dialog, not cancelled.
struct ThreadState {
    DWORD imageStatus;  // IMS_ code of the dithers and of brightness and contrast
    DWORD convertError; // CCE_ code, read by GetLastColorConvertError
    HWND progressDialog;
    DWORD cancelled;     // 1 once Cancel was pressed; cleared on entry and by OpenProgress
    DWORD ownerDisabled; // 1 while the library holds ownerWindow disabled
    HWND ownerWindow;
    LONG progressTotal;
    LONG progressDivisor;
    LONG progressStep;
};

// The null result of a failed call: a null handle, 0 or false.
struct NullResult {
    template <typename T> operator T *() const { return nullptr; }
    operator int() const { return 0; }
    operator bool() const { return false; }
};

// Stores a failure's code where the operation reports it and gives the null
// result to return: a CCE_ code goes to convertError, an IMS_ code to
// imageStatus, and the convolution's codes to the caller's variable.
inline NullResult Fail(ThreadState *state, PaxConvertError code) {
    state->convertError = code;
    return {};
}
inline NullResult Fail(ThreadState *state, PaxImageStatus code) {
    state->imageStatus = code;
    return {};
}
inline NullResult Fail(int *errorCode, PaxImageStatus code) {
    *errorCode = code;
    return {};
}

// The calling thread's record, made on demand for a thread that the library
// did not see attach. Never null: when no record can be made the thread ends.
ThreadState *GetThreadState();

// What the loader notifications do (DllMain on Windows, load/unload and
// thread-exit hooks elsewhere).
BOOL ProcessAttach(HINSTANCE instance);
void ThreadAttach();
void ThreadDetach();
BOOL ProcessDetach();

// The module whose resources hold the progress dialog.
HINSTANCE ModuleInstance();

#endif
