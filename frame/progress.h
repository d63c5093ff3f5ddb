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

// Whether a walk that asked for progress steps the bar before unit index i:
// the dialog is still open and i is a multiple of the divisor.
inline bool ProgressDue(const ThreadState *state, bool progressAsked, int64_t unit) {
    return progressAsked && state->progressDialog && unit % state->progressDivisor == 0;
}

#endif
