// Every image export on 8 threads at once against the built library, each
// thread with its own images and parameters (some of them refused on
// purpose, so the threads' codes differ). Each thread's results, status
// variables and GetLastColorConvertError must equal those of the same calls
// made one after another on one thread. Under ThreadSanitizer (linux-tsan)
// the run must also be free of data races.
#include "exports.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace {

using namespace paxfuzz;

constexpr int kThreads = 8;

struct Record {
    uint64_t digest;
    DWORD error;
    int status;
    long value;
    bool operator==(const Record &o) const {
        return digest == o.digest && error == o.error && status == o.status && value == o.value;
    }
};

HGLOBAL ThreadImage(int t, int which) {
    const int w = 13 + 5 * t, h = 7 + 3 * t, stride = (3 * w + 3) / 4 * 4;
    HGLOBAL block = GlobalAlloc(GHND, 40 + static_cast<SIZE_T>(stride) * h);
    BYTE *p = static_cast<BYTE *>(GlobalLock(block));
    BITMAPINFOHEADER hd = {40, w, h, 1, 24, 0, static_cast<DWORD>(stride * h), 0, 0, 0, 0};
    std::memcpy(p, &hd, sizeof hd);
    uint32_t s = 0x9E3779B9u * static_cast<uint32_t>(t * 31 + which + 1);
    for (int i = 0; i < stride * h; ++i) {
        s ^= s << 13, s ^= s >> 17, s ^= s << 5;
        p[40 + i] = static_cast<BYTE>(s >> 24);
    }
    GlobalUnlock(block);
    return block;
}

// One thread's calls: every export on its own image; the progress dialog on
// odd threads; every fourth thread passes an argument most exports refuse.
std::vector<Record> RunThread(int t) {
    std::vector<Record> records;
    for (int e = 0; e < kExportCount; ++e) {
        HGLOBAL image = ThreadImage(t, e);
        Args g = TypicalArgs(e);
        if (t % 4 == 3) g.a[0] = 100000;
        if (e != kBrightnessContrast) g.mode = t % 2;
        Outcome o = Invoke(e, image, g);
        uint64_t digest = o.returnedCaller ? BlockDigest(image) : 0;
        for (HGLOBAL r : o.results) digest = digest * 31 + BlockDigest(r), GlobalFree(r);
        records.push_back({digest, o.convertError, o.errorCode, o.value});
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
            for (int e = 0; e < kExportCount; ++e)
                EXPECT_TRUE(got[t][e] == expected[t][e]) << "thread " << t << ", " << kExportNames[e];
    }
    // The per-thread codes really differ: a refused call leaves its code on
    // its own thread only.
    EXPECT_EQ(expected[3][kHueSaturation].error, DWORD{CCE_BADARGUMENT});
    EXPECT_EQ(expected[2][kHueSaturation].error, DWORD{CCE_NONE});
    EXPECT_NE(expected[2][kConvert].digest, expected[3][kConvert].digest);
}

} // namespace
