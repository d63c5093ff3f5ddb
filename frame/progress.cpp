// The progress dialog: "PROGRESSDLG" with a Cancel button and a smooth bar.
#include "progress.h"
#include "thread_state.h"

#ifdef _WIN32
#include <commctrl.h>
#include <mutex>
#endif

namespace {

INT_PTR CALLBACK ProgressDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
    ThreadState *state = GetThreadState();
    switch (message) {
    case WM_INITDIALOG: {
        HWND bar = GetDlgItem(dialog, kProgressBarId);
        SendMessageA(bar, PBM_SETRANGE32, 0, state->progressTotal / state->progressDivisor + 1);
        SendMessageA(bar, PBM_SETSTEP, static_cast<WPARAM>(state->progressStep), 0);
        return TRUE;
    }
    case WM_COMMAND:
        if (LOWORD(wParam) == IDCANCEL) {
            state->cancelled = 1;
            ReenableOwner();
            DestroyWindow(dialog);
            state->progressDialog = nullptr;
        }
        return FALSE;
    default:
        return FALSE;
    }
}

void InitProgressControl() {
#ifdef _WIN32
    static std::once_flag once;
    std::call_once(once, [] {
        INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_PROGRESS_CLASS};
        InitCommonControlsEx(&controls);
    });
#endif
}

} // namespace

int OpenProgress(HWND owner, LONG total, LONG divisor) {
    ThreadState *state = GetThreadState();
    if (state->progressDialog) return 0;
    state->progressStep = 1;
    state->progressTotal = total;
    state->progressDivisor = divisor;
    state->cancelled = 0;
    state->ownerWindow = owner;
    InitProgressControl();
    state->progressDialog =
        CreateDialogParamA(ModuleInstance(), "PROGRESSDLG", owner, ProgressDialogProc, 0);
    if (!state->progressDialog) return 0;
    if (owner && IsWindowEnabled(owner)) {
        EnableWindow(owner, FALSE);
        state->ownerDisabled = 1;
    }
    ShowWindow(state->progressDialog, SW_SHOW);
    UpdateWindow(state->progressDialog);
    return 1;
}

void PumpMessages() {
    MSG msg;
    while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
        // Looked up per message: Cancel destroys the dialog during the loop.
        HWND dialog = GetThreadState()->progressDialog;
        if (!dialog || !IsDialogMessageA(dialog, &msg)) {
            TranslateMessage(&msg);
            DispatchMessageA(&msg);
        }
    }
}

void StepProgress() {
    PumpMessages();
    HWND dialog = GetThreadState()->progressDialog;
    if (dialog) SendMessageA(GetDlgItem(dialog, kProgressBarId), PBM_STEPIT, 0, 0);
}

int CloseProgress() {
    ThreadState *state = GetThreadState();
    if (!state->progressDialog) return 0;
    ReenableOwner();
    DestroyWindow(state->progressDialog);
    state->progressDialog = nullptr;
    return 1;
}

void ReenableOwner() {
    ThreadState *state = GetThreadState();
    if (state->ownerDisabled && state->ownerWindow) EnableWindow(state->ownerWindow, TRUE);
    state->ownerDisabled = 0;
}
