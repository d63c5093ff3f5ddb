#include "dialogs.h"

#include "progress.h"

#include <cstdio>
#include <cstring>

#ifdef _WIN32
#include <commctrl.h>
#else
#include "win32lite_test.h"
#endif

namespace paxtest {

#ifdef _WIN32

namespace {
HHOOK g_hook = nullptr;
long g_steps = 0, g_rangeMax = -1, g_cancelAfter = 0;

LRESULT CALLBACK WatchBar(int code, WPARAM wParam, LPARAM lParam) {
    const auto *m = reinterpret_cast<const CWPSTRUCT *>(lParam);
    if (code == HC_ACTION && GetDlgCtrlID(m->hwnd) == kProgressBarId) {
        if (m->message == PBM_SETRANGE32) g_rangeMax = static_cast<long>(m->lParam);
        if (m->message == PBM_STEPIT && ++g_steps == g_cancelAfter)
            PostMessageA(GetDlgItem(GetParent(m->hwnd), IDCANCEL), BM_CLICK, 0, 0);
    }
    return CallNextHookEx(g_hook, code, wParam, lParam);
}
} // namespace

bool HaveDisplay() {
    static const bool display = [] {
        HWND probe = CreateWindowExA(0, "STATIC", "", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr,
                                     GetModuleHandleA(nullptr), nullptr);
        if (probe) DestroyWindow(probe);
        return probe != nullptr;
    }();
    return display;
}

HWND MakeOwner(WNDPROC proc) {
    // One window class per procedure, named after it.
    char name[32];
    if (!proc) proc = DefWindowProcA;
    std::snprintf(name, sizeof name, "PaxOwner%p", reinterpret_cast<void *>(proc));
    WNDCLASSA wc{};
    wc.lpfnWndProc = proc;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.lpszClassName = name;
    RegisterClassA(&wc); // fails harmlessly once registered
    return CreateWindowExA(0, name, "owner", WS_OVERLAPPEDWINDOW, 10, 10, 300, 200, nullptr, nullptr,
                           GetModuleHandleA(nullptr), nullptr);
}

StepWatch::StepWatch(long cancelAfter) {
    g_steps = 0, g_rangeMax = -1, g_cancelAfter = cancelAfter;
    g_hook = SetWindowsHookExA(WH_CALLWNDPROC, WatchBar, nullptr, GetCurrentThreadId());
}
long StepWatch::Steps() const { return g_steps; }
long StepWatch::RangeMax() const { return g_rangeMax; }

bool ArrangeCreationFailure() { return !HaveDisplay(); }
void ResetDialogScript() {}

#else

bool HaveDisplay() { return true; }
HWND MakeOwner(WNDPROC proc) { return win32lite::CreateTestWindow(proc); }
StepWatch::StepWatch(long cancelAfter) { win32lite::ScriptDialogs({false, cancelAfter}); }
long StepWatch::Steps() const { return win32lite::LastDialog().stepsTaken; }
long StepWatch::RangeMax() const { return win32lite::LastDialog().rangeMax; }
bool ArrangeCreationFailure() {
    win32lite::ScriptDialogs({true, 0});
    return true;
}
void ResetDialogScript() { win32lite::ScriptDialogs({}); }

#endif

StepWatch::~StepWatch() {
    // A click queued after the last step of a run is never picked up by it;
    // drop it, or the next dialog (which may reuse the handle) would get it.
    MSG stale;
    while (PeekMessageA(&stale, nullptr, 0, 0, PM_REMOVE)) {
    }
#ifdef _WIN32
    if (g_hook) UnhookWindowsHookEx(g_hook);
    g_hook = nullptr;
#else
    ResetDialogScript();
#endif
}

std::string ExecutableFolder() {
    char path[4096];
    DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    std::string s(path, n < sizeof path ? n : 0);
    size_t cut = s.find_last_of("/\\");
    return cut == std::string::npos ? std::string() : s.substr(0, cut + 1);
}

DialogDouble::DialogDouble() : module_(LoadLibraryA((ExecutableFolder() + "PAXDlgs.dll").c_str())) {
    if (loaded()) Reset();
}

DialogDouble::~DialogDouble() {
    if (module_) FreeLibrary(module_);
}

DialogDoubleCall DialogDouble::Call(int index) const {
    DialogDoubleCall c;
    std::memset(&c, 0, sizeof c);
    c.entry = -1;
    PAX_DOUBLE_CONTROL(DialogDoubleGetCall)(index, &c);
    return c;
}

} // namespace paxtest
