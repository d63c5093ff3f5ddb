// The progress-bar watch and dialog helpers of the conversion progress tests.
#include "progress_watch.h"

#include "progress.h"
#include "thread_state.h"

#include <cstdlib>

#ifdef _WIN32
#include <commctrl.h>
#else
#include "win32lite_test.h"
#endif

namespace convtest {

#ifdef _WIN32

namespace {
HHOOK g_hook = nullptr;
long g_steps = 0;
long g_rangeMax = -1;
long g_cancelAfter = 0;
std::function<void(long)> g_onStep;

LRESULT CALLBACK WatchBar(int code, WPARAM wParam, LPARAM lParam) {
    if (code == HC_ACTION) {
        const auto *m = reinterpret_cast<const CWPSTRUCT *>(lParam);
        if (GetDlgCtrlID(m->hwnd) == kProgressBarId) {
            if (m->message == PBM_SETRANGE32) g_rangeMax = static_cast<long>(m->lParam);
            if (m->message == PBM_STEPIT) {
                ++g_steps;
                if (g_onStep) g_onStep(g_steps);
                if (g_steps == g_cancelAfter)
                    PostMessageA(GetParent(m->hwnd), WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED),
                                 0);
            }
        }
    }
    return CallNextHookEx(g_hook, code, wParam, lParam);
}
} // namespace

StepWatch::StepWatch(long cancelAfter) {
    g_steps = 0;
    g_rangeMax = -1;
    g_cancelAfter = cancelAfter;
    g_onStep = nullptr;
    g_hook = SetWindowsHookExA(WH_CALLWNDPROC, WatchBar, nullptr, GetCurrentThreadId());
}
StepWatch::~StepWatch() {
    // A Cancel posted after the last step of a run is never picked up by it;
    // drop it, or the next dialog (which may reuse the handle) would get it.
    MSG stale;
    while (PeekMessageA(&stale, nullptr, WM_COMMAND, WM_COMMAND, PM_REMOVE)) {
    }
    if (g_hook) UnhookWindowsHookEx(g_hook);
    g_hook = nullptr;
    g_onStep = nullptr;
}
long StepWatch::Steps() const { return g_steps; }
long StepWatch::RangeMax() const { return g_rangeMax; }
void StepWatch::OnStep(std::function<void(long)> f) { g_onStep = std::move(f); }
bool StepWatch::SeesEachStep() { return true; }

bool HaveDisplay() { return std::getenv("DISPLAY") != nullptr; }

HWND MakeOwner() {
    return CreateWindowExA(0, "STATIC", "owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 400,
                           300, nullptr, nullptr, GetModuleHandleA(nullptr), nullptr);
}

namespace {
void CALLBACK ClickCancel(HWND, UINT, UINT_PTR id, DWORD) {
    KillTimer(nullptr, id);
    HWND dialog = GetThreadState()->progressDialog;
    if (dialog) SendMessageA(GetDlgItem(dialog, IDCANCEL), BM_CLICK, 0, 0);
}
} // namespace

void ClickCancelAfter(unsigned ms) { SetTimer(nullptr, 0, ms, ClickCancel); }
// Without a display Wine cannot create the dialog at all.
bool ArrangeDialogFailure() { return !HaveDisplay(); }
void ResetDialogScript() {}

#else

StepWatch::StepWatch(long cancelAfter) {
    win32lite::ScriptDialogs({false, cancelAfter});
}
StepWatch::~StepWatch() {
    // A scripted click queued after the last step of a run is never picked up
    // by it; drop it before the next dialog.
    MSG stale;
    while (PeekMessageA(&stale, nullptr, 0, 0, PM_REMOVE)) {
    }
    win32lite::ScriptDialogs({});
}
long StepWatch::Steps() const { return win32lite::LastDialog().stepsTaken; }
long StepWatch::RangeMax() const { return win32lite::LastDialog().rangeMax; }
void StepWatch::OnStep(std::function<void(long)>) {}
bool StepWatch::SeesEachStep() { return false; }

bool HaveDisplay() { return true; }
HWND MakeOwner() { return win32lite::CreateTestWindow(); }
void ClickCancelAfter(unsigned) { win32lite::ScriptDialogs({false, 2}); }
bool ArrangeDialogFailure() {
    win32lite::ScriptDialogs({true, 0});
    return true;
}
void ResetDialogScript() { win32lite::ScriptDialogs({}); }

#endif

} // namespace convtest
