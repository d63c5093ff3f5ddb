// Out of memory: both attempts at an allocation fail. Linked with GlobalAlloc
// wrapped (Linux only), so a test can refuse a run of allocations in a row,
// which the one-shot fault injection of the stand-in cannot.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

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

void Refuse(long skip, long refuse) {
    g_skip = skip;
    g_refuse = refuse;
}

TEST(ToneOutOfMemory, ConvolutionWorkBlockAndResult) {
    HGLOBAL image = paxtest::MakeRandomDib24(6, 6, 1);
    std::vector<BYTE> src = BlockBytes(image);
    for (int newImage : {1, 0})
        for (long skip : {0L, 1L}) {
            if (!newImage && skip) continue; // in place allocates the work block only
            paxtest::Snapshot before = paxtest::TakeSnapshot();
            int code = 0;
            Refuse(skip, 2);
            HDIB r = ColorConvolution(image, newImage, 0, CONV_MEAN, 3, nullptr, nullptr, &code, 0, nullptr);
            Refuse(0, 0);
            EXPECT_EQ(r, nullptr);
            EXPECT_EQ(ImsName(static_cast<DWORD>(code)), ImsName(IMS_NOMEMORY)) << skip;
            EXPECT_TRUE(BlockBytes(image) == src);
            EXPECT_EQ(paxtest::LockCount(image), 0);
            paxtest::ExpectCensus(before, 0, "out of memory");
        }
    GlobalFree(image);
}

TEST(ToneOutOfMemory, BrightnessContrastResult) {
    HGLOBAL image = paxtest::MakeRandomDib24(6, 6, 2);
    paxtest::Snapshot before = paxtest::TakeSnapshot();
    Refuse(0, 2);
    EXPECT_EQ(ColorBrightnessContrast(image, 5, 5, 0), nullptr);
    Refuse(0, 0);
    EXPECT_EQ(ImsName(GetThreadState()->imageStatus), ImsName(IMS_NOMEMORY));
    paxtest::ExpectCensus(before, 0, "out of memory");
    GlobalFree(image);
}

} // namespace
