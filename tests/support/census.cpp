#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <algorithm>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace paxtest {

Snapshot TakeSnapshot() {
    GetThreadState(); // the thread's record exists before any count is taken
    Snapshot s;
#ifndef _WIN32
    win32lite::Census c = win32lite::TakeCensus();
    s.liveBlocks = c.liveBlocks;
    s.outstandingLocks = c.outstandingLocks;
#endif
    return s;
}

void ExpectCensus(const Snapshot &before, long newBlocks, const char *where) {
    Snapshot now = TakeSnapshot();
    EXPECT_EQ(now.liveBlocks, before.liveBlocks + (HaveCensus() ? newBlocks : 0)) << where << ": live blocks";
    EXPECT_EQ(now.outstandingLocks, before.outstandingLocks) << where << ": outstanding locks";
}

SweepCounts SweepFailures(const std::function<std::vector<HGLOBAL>()> &op, const std::vector<HGLOBAL> &callerBlocks,
                          bool callerChanges,
                          const std::function<void(FailureKind, long, const std::vector<HGLOBAL> &)> &check) {
    SweepCounts counts;
#ifndef _WIN32
    std::vector<std::vector<BYTE>> original;
    for (HGLOBAL b : callerBlocks) original.push_back(BlockBytes(b));
    // Runs op with `arm` set up, checks the caller's blocks and the census.
    auto run = [&](void (*arm)(long), long n, FailureKind kind) {
        SCOPED_TRACE(testing::Message() << "failure " << static_cast<int>(kind) << " at point " << n);
        Snapshot before = TakeSnapshot();
        win32lite::ResetFaults();
        if (arm) arm(n);
        std::vector<HGLOBAL> made = op();
        if (!arm) {
            counts = {win32lite::AllocationCalls(), win32lite::LockCalls(), win32lite::FileOpenCalls()};
        }
        win32lite::ResetFaults();
        if (arm && check) check(kind, n, made);
        for (size_t i = 0; i < callerBlocks.size(); ++i) {
            EXPECT_EQ(LockCount(callerBlocks[i]), 0) << "caller block " << i << " left locked";
            if (callerChanges) {
                // A failed in-place call leaves the caller's block as it was.
                EXPECT_TRUE(!arm || !made.empty() || BlockBytes(callerBlocks[i]) == original[i]) << "failed, changed";
                BYTE *p = static_cast<BYTE *>(GlobalLock(callerBlocks[i]));
                std::copy(original[i].begin(), original[i].end(), p);
                GlobalUnlock(callerBlocks[i]);
            }
            EXPECT_TRUE(BlockBytes(callerBlocks[i]) == original[i]) << "caller block " << i << " changed";
        }
        for (HGLOBAL h : made)
            if (h && std::find(callerBlocks.begin(), callerBlocks.end(), h) == callerBlocks.end()) GlobalFree(h);
        ExpectCensus(before, 0, "after the run");
    };
    run(nullptr, 0, FailureKind::Allocation);
    const struct {
        FailureKind kind;
        void (*arm)(long);
        long points;
    } kinds[] = {{FailureKind::Allocation, win32lite::FailAllocationAt, counts.allocationPoints},
                 {FailureKind::Lock, win32lite::FailLockAt, counts.lockPoints},
                 {FailureKind::FileOpen, win32lite::FailFileOpenAt, counts.fileOpenPoints},
                 {FailureKind::AllocationsFrom, win32lite::FailAllocationsFrom, counts.allocationPoints}};
    for (const auto &k : kinds)
        for (long n = 1; n <= k.points; ++n) run(k.arm, n, k.kind);
#else
    (void)op, (void)callerBlocks, (void)callerChanges, (void)check;
#endif
    return counts;
}

} // namespace paxtest
