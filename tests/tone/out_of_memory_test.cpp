// Out of memory for good: from the Nth allocation on, every one is refused,
// so a second attempt at an allocation fails too (the one-shot fault
// injection of the stand-in cannot show that). Linked with GlobalAlloc
// wrapped (Linux only).
#include "census.h"
#include "dib_builder.h"
#include "image_exports.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <algorithm>

extern "C" HGLOBAL __real_GlobalAlloc(UINT flags, SIZE_T bytes);

namespace {
long g_calls = 0;         // allocations since the count was reset
long g_refuseFrom = 0;    // the first refused one (0: none)
} // namespace

extern "C" HGLOBAL __wrap_GlobalAlloc(UINT flags, SIZE_T bytes) {
    ++g_calls;
    return g_refuseFrom && g_calls >= g_refuseFrom ? nullptr : __real_GlobalAlloc(flags, bytes);
}

namespace {

using namespace paxtest;

TEST(OutOfMemory, EveryExportFailsCleanlyFromEachAllocationOn) {
    for (const ImageExport &e : ImageExports()) {
        HGLOBAL image = MakeImageFor(e, 6, 6);
        const std::vector<BYTE> source = BlockBytes(image);
        g_calls = 0;
        const Outcome clean = Invoke(e, image, e.typical);
        const long allocations = g_calls;
        const uint64_t want = BlockDigest(clean.results.empty() ? image : clean.results[0]);
        FreeResults(clean);
        EXPECT_GE(allocations, 1) << e.name;
        for (long n = 1; n <= allocations; ++n) {
            SCOPED_TRACE(testing::Message() << e.name << ", refused from allocation " << n);
            const Snapshot before = TakeSnapshot();
            GetThreadState()->imageStatus = kUntouched;
            g_calls = 0;
            g_refuseFrom = n;
            const Outcome o = Invoke(e, image, e.typical);
            g_refuseFrom = 0;
            const DWORD code = e.channel == CodeChannel::ConvertError  ? o.convertError
                               : e.channel == CodeChannel::ImageStatus ? GetThreadState()->imageStatus
                                                                       : static_cast<DWORD>(o.errorCode);
            // Either it fails with one of its codes, or it did without the
            // block (a working buffer it can do without) and its result is the same.
            if (o.ok()) {
                EXPECT_EQ(code, 0u);
                EXPECT_EQ(BlockDigest(o.results.empty() ? image : o.results[0]), want);
            } else {
                EXPECT_NE(std::find(e.failureCodes.begin(), e.failureCodes.end(), code), e.failureCodes.end())
                    << code;
            }
            if (!e.writesCaller) {
                EXPECT_TRUE(BlockBytes(image) == source);
            }
            EXPECT_EQ(LockCount(image), 0);
            FreeResults(o);
            ExpectCensus(before, 0, "out of memory");
        }
        GlobalFree(image);
    }
}

} // namespace
