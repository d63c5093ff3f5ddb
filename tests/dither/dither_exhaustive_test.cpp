// The long cases of the dithers: run in the release builds, left out of the
// sanitizer run.
#include "dib_builder.h"
#include "dither_reference.h"
#include "dither_test_util.h"

#include <gtest/gtest.h>

using dithertest::Dither;
using dithertest::Grey24;

namespace {

// Bright 8-bit output drives the cells past 32767: white is measured against
// 224 and 192, so every pixel adds error that only the edges and the
// truncations take away. The cells wrap to negative values.
TEST(ErrorDiffusionReference, SixteenBitCellsWrap) {
    HGLOBAL white = Grey24(1000, 1200, 255);
    ref::Source src = ref::Decode(white);
    for (const ref::Kernel &k : ref::Kernels()) {
        long wraps = 0;
        std::vector<BYTE> want = ref::ErrorDiffusion(src, k, 8, &wraps);
        EXPECT_GT(wraps, 0) << k.name << ": the image is too small to wrap a cell";
        EXPECT_TRUE(Dither(k.dither, white, 8) == want) << k.name;
    }
    GlobalFree(white);
}

// Many seeded cases against the straightforward evaluations, folded into one
// count of mismatches.
TEST(DitherReference, ManySeededCases) {
    paxtest::Rng rng(8086);
    long cases = 0, mismatches = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        const int w = 1 + rng.Below(24), h = 1 + rng.Below(9);
        const int depth = std::vector<int>{4, 8, 24}[rng.Below(3)];
        int entries = -1;
        if (depth != 24 && rng.Below(4) == 0) entries = 1 + rng.Below(depth == 4 ? 15 : 255);
        paxtest::Rng pix(rng.Next());
        // Mostly bright or mostly dark pictures as well as uniform noise.
        const int bias = rng.Below(3);
        HGLOBAL image = paxtest::MakeDib(
            w, h, depth,
            [&](int, int, int) {
                BYTE v = pix.Byte();
                return static_cast<BYTE>(bias == 0 ? v : bias == 1 ? 255 - v / 8 : v / 8);
            },
            entries);
        if (depth != 24) {
            BYTE *p = static_cast<BYTE *>(GlobalLock(image));
            int n = entries < 0 ? 1 << depth : entries;
            for (int i = 0; i < 4 * n; ++i) p[40 + i] = pix.Byte();
            GlobalUnlock(image);
        }
        ref::Source src = ref::Decode(image);
        for (int bits : {1, 4, 8}) {
            if (bits >= depth) continue;
            for (const ref::Kernel &k : ref::Kernels()) {
                mismatches += Dither(k.dither, image, bits) != ref::ErrorDiffusion(src, k, bits);
                ++cases;
            }
            if (bits == 8) continue;
            mismatches += Dither(DitherSharp, image, bits) != ref::BlockDither(src, true, bits);
            mismatches += Dither(DitherSmooth, image, bits) != ref::BlockDither(src, false, bits);
            cases += 2;
        }
        GlobalFree(image);
    }
    EXPECT_GT(cases, 30000);
    EXPECT_EQ(mismatches, 0) << "of " << cases << " cases";
}

} // namespace
