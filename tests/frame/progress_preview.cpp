// Shows the real progress dialog in front of an owner window for a few
// seconds, stepping its bar, so that it can be looked at or photographed
// (scripts/snapshot-progress.sh runs it under Xvfb and Wine).
#include "progress.h"
#include "thread_state.h"

#include <cstdlib>

int main(int argc, char **argv) {
    int seconds = argc > 1 ? std::atoi(argv[1]) : 4;
    HWND owner = CreateWindowExA(0, "STATIC", "Host window", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0,
                                 520, 260, nullptr, nullptr, GetModuleHandleA(nullptr), nullptr);
    if (!OpenProgress(owner, 100, 5)) return 1;
    ThreadState *state = GetThreadState();
    for (int i = 0; i < seconds * 20 && !state->cancelled; ++i) {
        if (i < 12) StepProgress();
        else PumpMessages();
        Sleep(50);
    }
    CloseProgress();
    DestroyWindow(owner);
    return 0;
}
