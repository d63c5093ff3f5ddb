// Out of memory: both attempts at an allocation fail. Linked with GlobalAlloc
// wrapped (Linux only), so a test can refuse a run of allocations in a row,
// which the one-shot fault injection of the stand-in cannot.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <functional>

extern "C" HGLOBAL __real_GlobalAlloc(UINT flags, SIZE_T bytes);

namespace {
long g_skip = 0;   // allocations let through before refusing
long g_refuse = 0; // allocations refused after that
} // namespace

extern "C" HGLOBAL __wrap_GlobalAlloc(UINT flags, SIZE_T bytes) {
    if (g_skip > 0) {
        --g_skip;
        return __real_GlobalAlloc(flags, bytes);
    }
    if (g_refuse > 0) {
        --g_refuse;
        return nullptr;
    }
    return __real_GlobalAlloc(flags, bytes);
}

namespace {

using paxtest::BlockBytes;
using paxtest::ImsName;

// Each allocation that an operation makes, refused on both attempts: the
// work block and the new image of a convolution (in place allocates the work
// block only), and the result of brightness and contrast.
TEST(ToneOutOfMemory, EveryAllocationRefusedTwice) {
    HGLOBAL image = paxtest::MakeRandomDib24(6, 6, 1);
    std::vector<BYTE> src = BlockBytes(image);
    int code = 0;
    struct Case {
        const char *what;
        long skip;
        std::function<HDIB()> run;
        std::function<DWORD()> status;
    } cases[] = {
        {"work block", 0, [&] { return ColorConvolution(image, 1, 0, CONV_MEAN, 3, nullptr, nullptr, &code, 0, nullptr); },
         [&] { return static_cast<DWORD>(code); }},
        {"new image", 1, [&] { return ColorConvolution(image, 1, 0, CONV_MEAN, 3, nullptr, nullptr, &code, 0, nullptr); },
         [&] { return static_cast<DWORD>(code); }},
        {"in place", 0, [&] { return ColorConvolution(image, 0, 0, CONV_MEAN, 3, nullptr, nullptr, &code, 0, nullptr); },
         [&] { return static_cast<DWORD>(code); }},
        {"adjusted", 0, [&] { return ColorBrightnessContrast(image, 5, 5, 0); },
         [] { return GetThreadState()->imageStatus; }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        g_skip = c.skip;
        g_refuse = 2;
        HDIB r = c.run();
        g_skip = g_refuse = 0;
        EXPECT_EQ(r, nullptr);
        EXPECT_EQ(ImsName(c.status()), ImsName(IMS_NOMEMORY));
        EXPECT_TRUE(BlockBytes(image) == src);
        EXPECT_EQ(paxtest::LockCount(image), 0);
        paxtest::ExpectCensus(before, 0, "out of memory");
    }
    GlobalFree(image);
}

} // namespace
