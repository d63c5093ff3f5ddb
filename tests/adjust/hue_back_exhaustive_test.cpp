// The way back from HSI of the hue adjustments (hsi_back.h) against
// HSItoRGB over all 2^24 (H, S, I) values: one pixel at a time, and the
// vector forms (SSE2, and AVX2 where the processor has it) over planes of 256
// pixels, with a block that does not end on a multiple of four. Then the
// whole hue move with every hue selected, over all colours in runs whose
// blocks end at every offset.
#include "hsi_back.h"
#include "hue_fast.h"
#include "hue_math.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using pax::HsiBackTables;

TEST(HsiBack, EveryHueHasAtMostOneRampThatIsNotM1) {
    const HsiBackTables &t = pax::HsiBackTablesOnce();
    int ramps = 0;
    for (int h = 0; h < 256; ++h) {
        int taken = 0;
        for (int ch = 0; ch < 3; ++ch) taken += t.take[h][ch] == HsiBackTables::TakeRamp;
        ASSERT_LE(taken, 1) << h;
        ramps += taken;
    }
    EXPECT_EQ(ramps, 252); // 0, 85, 170 and 255 sit on the corners of the ramps
}

void ExpectKernelEqualsConversion(pax::HsiToBgrKernel kernel, const char *what) {
    alignas(16) BYTE h[260] = {}, s[260] = {}, i[260] = {};
    alignas(16) uint32_t bgr[260];
    const HsiBackTables &t = pax::HsiBackTablesOnce();
    for (uint32_t top = 0; top < (1u << 16); ++top) {
        const int n = top % 7 == 0 ? 253 : 256; // 253: the last three pixels come alone
        for (int k = 0; k < 256; ++k) {
            h[k] = static_cast<BYTE>(k), s[k] = static_cast<BYTE>(top), i[k] = static_cast<BYTE>(top >> 8);
        }
        kernel(h, s, i, bgr, n);
        if (n < 256) kernel(h + n, s + n, i + n, bgr + n, 256 - n);
        for (int k = 0; k < 256; ++k) {
            const BYTE hsi[3] = {h[k], s[k], i[k]};
            BYTE rgb[3], one[3];
            HSItoRGB(rgb, hsi);
            const uint32_t expect = rgb[2] | rgb[1] << 8 | rgb[0] << 16;
            ASSERT_EQ(bgr[k], expect) << what << ": H " << k << " S " << int(s[k]) << " I " << int(i[k]);
            t.Convert(hsi[0], hsi[1], hsi[2], one);
            ASSERT_TRUE(one[0] == rgb[0] && one[1] == rgb[1] && one[2] == rgb[2]) << "one pixel " << k;
        }
    }
}

TEST(HsiBack, VectorFormsEqualTheConversionForEveryValue) {
    ExpectKernelEqualsConversion(pax::HsiToBgrSse2(), "SSE2");
    if (pax::HsiToBgrAvx2()) ExpectKernelEqualsConversion(pax::HsiToBgrAvx2(), "AVX2");
    else GTEST_LOG_(INFO) << "AVX2 form not built or not supported here";
}

TEST(HueMove, EveryHueSelectedEqualsTheConversionsInRowsOfOddLength) {
    std::vector<BYTE> in(size_t{3} << 24);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<BYTE>(i / 3 >> (8 * (i % 3)));
    hueadjust::HueMoveRun run{};
    run.shift = hueadjust::DegreesToHueUnits(30), run.saturation = 20, run.lightness = 10;
    run.selectByHue = true, run.lo = 0, run.hi = 255;
    run.Prepare();
    std::vector<BYTE> fast(in.size()), straight(in);
    constexpr int64_t kAll = int64_t{1} << 24, kRow = 4093;
    for (int64_t at = 0; at < kAll; at += kRow) {
        const int64_t n = std::min(kRow, kAll - at);
        run.reference = false;
        run.Run(in.data() + 3 * at, fast.data() + 3 * at, n);
        run.reference = true;
        run.Run(in.data() + 3 * at, straight.data() + 3 * at, n);
    }
    const auto diff = std::mismatch(fast.begin(), fast.end(), straight.begin());
    EXPECT_TRUE(diff.first == fast.end()) << "colour " << (diff.first - fast.begin()) / 3;
}

} // namespace
