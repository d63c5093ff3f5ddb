// A watch on the progress bar that can press Cancel after a given step on
// both platforms, and the dialog helpers of the conversion progress tests.
#ifndef PAX_TESTS_PROGRESS_WATCH_H
#define PAX_TESTS_PROGRESS_WATCH_H

#include "paximage.h"

#include <functional>

namespace convtest {

// A progress-bar watch for the current thread. On Windows it hooks the
// messages sent to the real bar; on Linux it reads the stand-in's record and
// script. With cancelAfter = k > 0, Cancel is pressed right after the k-th
// step and delivered by the next pump, on both platforms. One watch at a time.
class StepWatch {
public:
    explicit StepWatch(long cancelAfter = 0);
    ~StepWatch();
    long Steps() const;
    long RangeMax() const;
    // Called at every step with its number (1 first); Windows only.
    void OnStep(std::function<void(long)> f);
    static bool SeesEachStep();
};

// Whether the dialog can be shown (a display under Wine; always on Linux).
bool HaveDisplay();
// An owner window for the dialog, and a timer that clicks Cancel after ms
// milliseconds (the real button on Windows; the scripted one on Linux, after
// the second step).
HWND MakeOwner();
void ClickCancelAfter(unsigned ms);
// Makes the next dialog creation fail where that can be arranged: scripted on
// Linux; on Windows only when there is no display, so that it fails anyway.
bool ArrangeDialogFailure();
void ResetDialogScript();

} // namespace convtest

#endif
