// The dialogs in tests, on both platforms: whether windows can be shown, an
// owner window, a watch on the progress bar that can press Cancel after a
// given step, making the dialog's creation fail, and the parameter-dialog
// double beside the test program.
//
// On Windows (and Wine) the progress dialog is the real one: a hook sees the
// messages sent to its bar, and Cancel is a click on its button posted right
// after a step, delivered by the operation's own message pump. On Linux the
// stand-in records the bar and clicks its scripted Cancel the same way.
#ifndef PAX_TESTS_DIALOGS_H
#define PAX_TESTS_DIALOGS_H

#include "dialog_double_control.h"
#include "paximage.h"

#include <string>

namespace paxtest {

// Whether this thread can create windows: asked of the system by creating a
// hidden one (under Wine without an X server that fails). Always on Linux.
bool HaveDisplay();

// A top-level window, enabled and not shown (showing a window costs Wine a
// wait without a window manager); proc (may be null) gets its messages.
HWND MakeOwner(WNDPROC proc = nullptr);

// Watches the progress bars of this thread while it lives. With
// cancelAfter = k > 0, Cancel is clicked right after the k-th step and
// reaches the walk at the next pump. One watch at a time.
class StepWatch {
public:
    explicit StepWatch(long cancelAfter = 0);
    ~StepWatch();
    StepWatch(const StepWatch &) = delete;
    StepWatch &operator=(const StepWatch &) = delete;
    long Steps() const;    // PBM_STEPIT messages the bar received
    long RangeMax() const; // upper end of the bar's range, -1 if never set
};

// Makes the next dialog creations fail where that can be arranged: scripted
// on Linux; on Windows only when there is no display, so that they fail
// anyway. False when it cannot be arranged. Undone by ResetDialogScript.
bool ArrangeCreationFailure();
void ResetDialogScript();

// The folder of the running program, with its trailing separator.
std::string ExecutableFolder();

// The parameter-dialog double beside the running program, loaded (and
// reset) for the life of this object. loaded() is false when there is none.
// The double's control of that name, by its declared type; null when missing.
#define PAX_DOUBLE_CONTROL(name) Control<decltype(&name)>(#name)
class DialogDouble {
public:
    DialogDouble();
    ~DialogDouble();
    DialogDouble(const DialogDouble &) = delete;
    DialogDouble &operator=(const DialogDouble &) = delete;

    bool loaded() const { return PAX_DOUBLE_CONTROL(DialogDoubleGetCall) != nullptr; }
    HMODULE module() const { return module_; }
    bool HasEntries() const { return GetProcAddress(module_, "DesaturateUI") != nullptr; }
    void Reset() const { PAX_DOUBLE_CONTROL(DialogDoubleReset)(); }
    void SetResult(int entry, int result) const { PAX_DOUBLE_CONTROL(DialogDoubleSetResult)(entry, result); }
    void SetValue(int entry, int argument, double value) const {
        PAX_DOUBLE_CONTROL(DialogDoubleSetValue)(entry, argument, value);
    }
    int CallCount() const { return PAX_DOUBLE_CONTROL(DialogDoubleCallCount)(); }
    DialogDoubleCall Call(int index) const; // entry -1 when there is no such call

private:
    template <typename F> F Control(const char *name) const {
        return module_ ? reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(module_, name))) : nullptr;
    }
    HMODULE module_;
};

} // namespace paxtest

#endif
