// Per-thread status records and the version text.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

TEST(ThreadState, FreshThreadReadsZero) {
    DWORD seen = 99;
    std::thread t([&] { seen = GetLastColorConvertError(); });
    t.join();
    EXPECT_EQ(seen, 0u);
}

TEST(ThreadState, EachThreadReadsItsOwnCode) {
    DWORD a = 0, b = 0;
    std::thread ta([&] {
        GetThreadState()->convertError = CCE_BADMODEL;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        a = GetLastColorConvertError();
    });
    std::thread tb([&] {
        GetThreadState()->convertError = CCE_NOPROGRESS;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        b = GetLastColorConvertError();
    });
    ta.join();
    tb.join();
    EXPECT_EQ(paxtest::CceName(a), "CCE_BADMODEL");
    EXPECT_EQ(paxtest::CceName(b), "CCE_NOPROGRESS");
}

TEST(ThreadState, RecordStartsZeroAndPersistsBetweenCalls) {
    std::thread t([] {
        ThreadState *s = GetThreadState();
        ThreadState zero = {};
        EXPECT_EQ(std::memcmp(s, &zero, sizeof zero), 0);
        s->convertError = CCE_NOMEMORY;
        EXPECT_EQ(GetThreadState(), s);
        EXPECT_EQ(GetLastColorConvertError(), static_cast<DWORD>(CCE_NOMEMORY));
    });
    t.join();
}

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

struct VersionCase {
    int size;
    const char *expected; // bytes written, then the untouched fill
    int written;
};

TEST(Version, WritesExactlyAsManyBytesAsAllowed) {
    const VersionCase cases[] = {
        {14, "Version 12.08", 14}, {20, "Version 12.08", 14}, {13, "Version 12.08", 13},
        {5, "Versi", 5},           {1, "V", 1},               {0, "", 0},
        {-1, "", 0},
    };
    for (const VersionCase &c : cases) {
        SCOPED_TRACE(c.size);
        char buffer[32];
        std::memset(buffer, '#', sizeof buffer);
        GetPaxImageVersion(buffer, c.size);
        EXPECT_EQ(std::memcmp(buffer, c.expected, static_cast<size_t>(c.written)), 0);
        if (c.written == 14) {
            EXPECT_EQ(buffer[13], '\0');
        }
        for (int i = c.written; i < static_cast<int>(sizeof buffer); ++i)
            ASSERT_EQ(buffer[i], '#') << "byte " << i << " written";
    }
}

TEST(Version, NullBufferIsIgnored) {
    GetPaxImageVersion(nullptr, 14);
    SUCCEED() << "no crash";
    char b[2] = {'#', '#'};
    GetPaxImageVersion(b, 0);
    EXPECT_EQ(b[0], '#');
}

} // namespace
