// Per-thread status records and the version text.
#include "census.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

// Each thread's own record and code: threads_test.cpp (every export on eight
// threads) and library_load_test.cpp (a zeroed record on a thread's first call).
#ifndef _WIN32
TEST(ThreadState, RecordIsFreedWhenItsThreadEnds) {
    paxtest::Snapshot before = paxtest::TakeSnapshot();
    long during = -1;
    std::thread t([&] {
        GetLastColorConvertError();
        during = win32lite::TakeCensus().liveBlocks;
    });
    t.join();
    EXPECT_EQ(during, before.liveBlocks + 1);
    paxtest::ExpectCensus(before, 0, "after the thread ended");
}
#endif

// The text with its terminating zero (the 14th byte), cut to the size given;
// nothing at all for a size below 1 or a null buffer.
TEST(Version, WritesExactlyAsManyBytesAsAllowed) {
    GetPaxImageVersion(nullptr, 14);
    const struct { int size; const char *expected; int written; } cases[] = {
        {14, "Version 12.08", 14}, {20, "Version 12.08", 14}, {13, "Version 12.08", 13},
        {5, "Versi", 5},           {1, "V", 1},               {0, "", 0},
        {-1, "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.size);
        char buffer[32];
        std::memset(buffer, '#', sizeof buffer);
        GetPaxImageVersion(buffer, c.size);
        const std::string want = std::string(c.expected, c.written) + std::string(32 - c.written, '#');
        EXPECT_EQ(std::string(buffer, sizeof buffer), want);
    }
}

} // namespace
