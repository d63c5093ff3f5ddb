// The progress and cancel dialog of long operations. All state lives in the
// calling thread's ThreadState; the operation itself pumps the messages.
#ifndef PAX_FRAME_PROGRESS_H
#define PAX_FRAME_PROGRESS_H

#include "paximage.h"
#include "thread_state.h"

#include <cstdint>

#include "resource_ids.h"

constexpr int kProgressBarId = IDC_PROGRESS_BAR;

// Shows the dialog in front of owner (may be null), disabling owner if it was
// enabled. The bar's range is 0 .. total / divisor + 1. 1 on success; 0 when
// the dialog cannot be created, or when a dialog is already open on this
// thread (an operation started from a window procedure during another one's
// message pump gets no dialog of its own rather than taking the first one's).
int OpenProgress(HWND owner, LONG total, LONG divisor);

// Pumps the thread's messages, then advances the bar by one step.
void StepProgress();

// Dispatches every waiting message of the thread; the dialog takes its own.
void PumpMessages();

// Destroys the dialog and re-enables the owner; 0 if none was open.
int CloseProgress();

// Re-enables the owner when the library disabled it.
void ReenableOwner();

// What an operation's mode argument asks for: 1 the progress dialog, 2 the
// parameter dialog, 3 both; 0 and every other value neither.
struct ModeRequest {
    bool paramDialog;
    bool progress;
};
inline ModeRequest ReadMode(int mode) { return {mode == 2 || mode == 3, mode == 1 || mode == 3}; }

// The progress totals, one per walk shape, kept inside the dialog's 32-bit
// range for any image:
// - a walk stepped every divisor units of `units`, counting one past the
//   last (the conversions' bytes, the hue-based adjustments' columns);
inline LONG ProgressTotalPastLast(int64_t units) {
    return static_cast<LONG>(units + 1 > 0x7FFFFFFF ? 0x7FFFFFFF : units + 1);
}
// - a walk stepped every `perStep` units, the total rounded up to whole steps
//   with division truncating toward zero (gamma's columns, the convolution's
//   rows less the kernel size).
inline LONG ProgressTotalWholeSteps(int64_t units, LONG perStep) {
    const int64_t total = (units + perStep - 1) / perStep * perStep;
    return static_cast<LONG>(total > 0x7FFFFFFF ? 0x7FFFFFFF : total);
}

// The progress dialog of one operation. Open() shows it when it is wanted;
// it is closed, and the owner re-enabled, at Close() or when the guard ends,
// on every path.
class ProgressGuard {
public:
    ProgressGuard() = default;
    ~ProgressGuard() { Close(); }
    ProgressGuard(const ProgressGuard &) = delete;
    ProgressGuard &operator=(const ProgressGuard &) = delete;
    // False only when the dialog was wanted and could not be opened.
    bool Open(bool wanted, HWND owner, LONG total, LONG divisor) {
        if (!wanted) return true;
        open_ = OpenProgress(owner, total, divisor) != 0;
        return open_;
    }
    void Close() {
        if (open_) CloseProgress();
        open_ = false;
    }

private:
    bool open_ = false;
};

// Whether a walk that asked for progress steps the bar before unit index i:
// the dialog is still open and i is a multiple of the divisor.
inline bool ProgressDue(const ThreadState *state, bool progressAsked, int64_t unit) {
    return progressAsked && state->progressDialog && unit % state->progressDivisor == 0;
}

#endif
