// Leak and lock checks around library calls, and failure sweeps.
//
// On Linux the stand-in counts every live global block and outstanding lock,
// and can make the Nth allocation, lock or file open fail. Windows offers
// neither, so there the checks fall back to the lock counts of the caller's
// blocks and the sweeps are skipped.
#ifndef PAX_TESTS_CENSUS_H
#define PAX_TESTS_CENSUS_H

#include "paximage.h"

#include <functional>
#include <vector>

namespace paxtest {

// True where the stand-in's census and fault injection exist.
#ifdef _WIN32
inline bool HaveCensus() { return false; }
#else
inline bool HaveCensus() { return true; }
#endif

// Snapshot of live blocks and locks; compare before and after a call.
struct Snapshot {
    long liveBlocks = -1, outstandingLocks = -1;
};
Snapshot TakeSnapshot();

// Expects the census to equal `before` plus `newBlocks` unlocked blocks.
void ExpectCensus(const Snapshot &before, long newBlocks, const char *where);

// Runs `op` once cleanly to count its allocations, locks and file opens,
// then again with each of those points made to fail in turn, and with every
// allocation from each point on failing. op returns the
// blocks it produced, which the sweep frees (never a caller block that comes
// back); `check` (may be empty) looks at each failed run before that. After
// every run the census must equal the one before, and each caller block must
// be byte-for-byte unchanged (in-place filters, `callerChanges`: after a failed
// run; their blocks are restored after each run) and unlocked.
struct SweepCounts {
    long allocationPoints = 0, lockPoints = 0, fileOpenPoints = 0;
};
enum class FailureKind { Allocation, Lock, FileOpen, AllocationsFrom }; // the last: every one from n on
SweepCounts SweepFailures(const std::function<std::vector<HGLOBAL>()> &op, const std::vector<HGLOBAL> &callerBlocks,
                          bool callerChanges = false,
                          const std::function<void(FailureKind, long n, const std::vector<HGLOBAL> &)> &check = {});

} // namespace paxtest

#endif
