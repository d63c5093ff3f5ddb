// Every image export on 8 threads at once against the built library, each
// thread with its own images and parameters (some of them refused on
// purpose, so the threads' codes differ). Each thread's results, status
// variables and GetLastColorConvertError must equal those of the same calls
// made one after another on one thread. Under ThreadSanitizer (linux-tsan)
// the run must also be free of data races.
#include "image_exports.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using namespace paxtest;

constexpr int kThreads = 8;

// What a call leaves: digest of the blocks, convert error, status variable,
// channel count.
using Record = std::tuple<uint64_t, DWORD, int, long>;

// One thread's calls: every export on its own image; the progress dialog on
// odd threads; every fourth thread passes an argument most exports refuse.
std::vector<Record> RunThread(int t) {
    std::vector<Record> records;
    for (const ImageExport &e : ImageExports()) {
        HGLOBAL image = MakeImageFor(e, 13 + 5 * t, 7 + 3 * t, static_cast<uint32_t>(t * 31 + records.size() + 1));
        Args g = WithMode(e, t % 2);
        if (t % 4 == 3) g.a[0] = 100000;
        Outcome o = Invoke(e, image, g);
        uint64_t digest = o.returnedCaller ? BlockDigest(image) : 0;
        for (HGLOBAL r : o.results) digest = digest * 31 + BlockDigest(r), GlobalFree(r);
        records.emplace_back(digest, o.convertError, o.errorCode, o.value);
        GlobalFree(image);
    }
    return records;
}

TEST(Threads, EveryExportOnEightThreadsMatchesOneThread) {
    std::vector<std::vector<Record>> expected;
    for (int t = 0; t < kThreads; ++t) expected.push_back(RunThread(t));
    for (int round = 0; round < 2; ++round) {
        std::vector<std::vector<Record>> got(kThreads);
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                for (++ready; ready.load() < kThreads;) std::this_thread::yield();
                got[t] = RunThread(t);
            });
        for (std::thread &th : threads) th.join();
        for (int t = 0; t < kThreads; ++t)
            for (size_t e = 0; e < ImageExports().size(); ++e)
                EXPECT_EQ(got[t][e], expected[t][e]) << "thread " << t << ", " << ImageExports()[e].name;
    }
    // The per-thread codes really differ: a refused call leaves its code on
    // its own thread only.
    EXPECT_EQ(std::get<1>(expected[3][kHueSaturationExport]), DWORD{CCE_BADARGUMENT});
    EXPECT_EQ(std::get<1>(expected[2][kHueSaturationExport]), DWORD{CCE_NONE});
    EXPECT_NE(std::get<0>(expected[2][kConvertExport]), std::get<0>(expected[3][kConvertExport]));
}

} // namespace
