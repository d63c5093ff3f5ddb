// Leak and lock checks around library calls, and failure sweeps.
//
// On Linux the stand-in counts every live global block and outstanding lock,
// and can make the Nth allocation or lock fail. Windows offers neither, so
// there the checks fall back to the lock counts of the caller's blocks and the
// sweeps are skipped.
#ifndef PAX_TESTS_CENSUS_H
#define PAX_TESTS_CENSUS_H

#include "paximage.h"

#include <functional>
#include <vector>

namespace paxtest {

// True where the stand-in's census and fault injection exist.
bool HaveCensus();

// Snapshot of live blocks and locks; compare before and after a call.
struct Snapshot {
    long liveBlocks = -1, outstandingLocks = -1;
};
Snapshot TakeSnapshot();

// Expects the census to equal `before` plus `newBlocks` unlocked blocks.
void ExpectCensus(const Snapshot &before, long newBlocks, const char *where);

// Runs `op` with each allocation point and then each lock point made to fail
// in turn. op returns the blocks it produced (they are freed by the sweep,
// except the caller's own blocks when an operation hands one back). After
// every run the census must equal the one before, and each caller block must
// be byte-for-byte unchanged and unlocked. Returns the number of points
// swept (0 where there is no injection). `callerChanges` marks operations
// that write the caller's block by design (in-place filters).
struct SweepCounts {
    long allocationPoints = 0, lockPoints = 0;
};
SweepCounts SweepFailures(const std::function<std::vector<HGLOBAL>()> &op,
                          const std::vector<HGLOBAL> &callerBlocks, bool callerChanges = false);

// Same, for an operation that returns one image handle (or null).
SweepCounts SweepFailures(const std::function<HGLOBAL()> &op,
                          const std::vector<HGLOBAL> &callerBlocks);

} // namespace paxtest

#endif
