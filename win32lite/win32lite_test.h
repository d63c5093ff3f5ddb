// Test controls of win32lite: what a test needs that Windows cannot give it.
//
// - Fault injection: make the Nth global allocation, lock or file open from now
//   fail, so a test can sweep every failure point of an operation.
// - A census of live global blocks and outstanding locks, to prove that an
//   operation leaves nothing allocated or locked behind.
// - Owner windows for the progress dialog, and a script for the dialog itself:
//   creation fails, or Cancel is clicked after the k-th step of the bar.
//
// These live in the static library only; libPAXIMGUser.so does not export them.
#ifndef WIN32LITE_TEST_H
#define WIN32LITE_TEST_H

#include "win32lite.h"

namespace win32lite {

struct Census {
    long liveBlocks = 0;       // blocks allocated and not yet freed
    long movableBlocks = 0;    // of those, the movable ones
    long outstandingLocks = 0; // sum of the lock counts of all live blocks
    bool operator==(const Census &o) const {
        return liveBlocks == o.liveBlocks && movableBlocks == o.movableBlocks &&
               outstandingLocks == o.outstandingLocks;
    }
    bool operator!=(const Census &o) const { return !(*this == o); }
};

Census TakeCensus();

// Lock count of one block (what GlobalFlags reports in GMEM_LOCKCOUNT), or -1
// for a handle that is not a live block.
int LockCountOf(HGLOBAL block);

// Counters of calls since the last ResetFaults(); a sweep first runs an
// operation once to learn how many allocations and locks it makes.
long AllocationCalls();
long LockCalls();
long FileOpenCalls();

// The Nth call from now (1 = the next one) fails; 0 disables. One-shot.
void FailAllocationAt(long n);
void FailLockAt(long n);
void FailFileOpenAt(long n);
// Out of memory for good: the Nth allocation from now and every one after it
// fail; 0 disables.
void FailAllocationsFrom(long n);
void ResetFaults();

// Allocations of more than `bytes` fail, as on a host with that much memory
// free (0: no limit). Not reset by ResetFaults.
void LimitBlockSize(SIZE_T bytes);

// Windows. A test window can be an owner: enabled or disabled, destroyed by
// DestroyWindow. An optional procedure receives dispatched messages.
HWND CreateTestWindow(WNDPROC proc = nullptr);

// The progress dialog script. cancelAfterSteps = k > 0 queues a click on the
// dialog's Cancel button right after the k-th PBM_STEPIT; it is delivered by
// the next message pump. failCreate makes CreateDialogParamA return null.
struct DialogScript {
    bool failCreate = false;
    long cancelAfterSteps = 0;
};
void ScriptDialogs(const DialogScript &script);

// What happened to the most recent dialog created on any thread.
struct DialogRecord {
    bool created = false;
    bool shown = false;
    bool destroyed = false;
    HWND dialog = nullptr;
    HWND parent = nullptr;
    long rangeMin = 0, rangeMax = 0;
    long step = 0;
    long position = 0;
    long stepsTaken = 0;     // PBM_STEPIT messages received
    long pumpsWithCancel = 0; // pumps that delivered a scripted Cancel
};
DialogRecord LastDialog();
long LiveWindows();

} // namespace win32lite

#endif
