#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <algorithm>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace paxtest {

bool HaveCensus() {
#ifdef _WIN32
    return false;
#else
    return true;
#endif
}

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
#ifndef _WIN32
    Snapshot now = TakeSnapshot();
    EXPECT_EQ(now.liveBlocks, before.liveBlocks + newBlocks) << where << ": live blocks";
    EXPECT_EQ(now.outstandingLocks, before.outstandingLocks) << where << ": outstanding locks";
#else
    (void)before;
    (void)newBlocks;
    (void)where;
#endif
}

SweepCounts SweepFailures(const std::function<std::vector<HGLOBAL>()> &op,
                          const std::vector<HGLOBAL> &callerBlocks, bool callerChanges) {
    SweepCounts counts;
#ifndef _WIN32
    std::vector<std::vector<BYTE>> original;
    for (HGLOBAL b : callerBlocks) original.push_back(BlockBytes(b));
    auto release = [&](const std::vector<HGLOBAL> &made) {
        for (HGLOBAL h : made)
            if (h && std::find(callerBlocks.begin(), callerBlocks.end(), h) == callerBlocks.end())
                GlobalFree(h);
    };
    auto restore = [&]() {
        for (size_t i = 0; i < callerBlocks.size(); ++i) {
            BYTE *p = static_cast<BYTE *>(GlobalLock(callerBlocks[i]));
            if (p && !original[i].empty()) std::copy(original[i].begin(), original[i].end(), p);
            if (p) GlobalUnlock(callerBlocks[i]);
        }
    };

    // A clean run learns how many allocations and locks the operation makes.
    Snapshot before = TakeSnapshot();
    win32lite::ResetFaults();
    std::vector<HGLOBAL> made = op();
    counts.allocationPoints = win32lite::AllocationCalls();
    counts.lockPoints = win32lite::LockCalls();
    release(made);
    if (callerChanges) restore();
    ExpectCensus(before, 0, "clean run");

    auto check = [&](const char *kind, long n) {
        SCOPED_TRACE(testing::Message() << kind << " failure at point " << n);
        for (size_t i = 0; i < callerBlocks.size(); ++i) {
            EXPECT_EQ(LockCount(callerBlocks[i]), 0) << "caller block " << i << " left locked";
            if (!callerChanges) {
                EXPECT_TRUE(BlockBytes(callerBlocks[i]) == original[i])
                    << "caller block " << i << " changed";
            }
        }
    };
    for (long n = 1; n <= counts.allocationPoints; ++n) {
        Snapshot s = TakeSnapshot();
        win32lite::ResetFaults();
        win32lite::FailAllocationAt(n);
        std::vector<HGLOBAL> out = op();
        win32lite::ResetFaults();
        check("allocation", n);
        release(out);
        if (callerChanges) restore();
        ExpectCensus(s, 0, "after allocation failure");
    }
    for (long n = 1; n <= counts.lockPoints; ++n) {
        Snapshot s = TakeSnapshot();
        win32lite::ResetFaults();
        win32lite::FailLockAt(n);
        std::vector<HGLOBAL> out = op();
        win32lite::ResetFaults();
        check("lock", n);
        release(out);
        if (callerChanges) restore();
        ExpectCensus(s, 0, "after lock failure");
    }
#else
    (void)op;
    (void)callerBlocks;
    (void)callerChanges;
#endif
    return counts;
}

SweepCounts SweepFailures(const std::function<HGLOBAL()> &op,
                          const std::vector<HGLOBAL> &callerBlocks) {
    return SweepFailures([&] { return std::vector<HGLOBAL>{op()}; }, callerBlocks, false);
}

} // namespace paxtest
