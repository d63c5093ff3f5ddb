// The way back from HSI of the hue adjustments (hsi_back.h) against HSItoRGB
// over all 2^24 (H, S, I) values, which also shows the tables' claim of at
// most one ramp per hue: one pixel at a time, and the vector forms (SSE2, and
// AVX2 where the processor has it) over planes of 256 pixels, some split
// where 253 is not a multiple of four. Then the whole hue move over all
// colours in runs whose blocks end at every offset.
#include "hsi_back.h"
#include "hue_fast.h"
#include "hue_math.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

void ExpectKernelEqualsConversion(pax::HsiToBgrKernel kernel, const char *what) {
    alignas(16) BYTE h[260] = {}, s[260] = {}, i[260] = {};
    alignas(16) uint32_t bgr[260];
    for (int k = 0; k < 256; ++k) h[k] = static_cast<BYTE>(k);
    for (uint32_t top = 0; top < (1u << 16); ++top) {
        std::fill(s, s + 256, static_cast<BYTE>(top));
        std::fill(i, i + 256, static_cast<BYTE>(top >> 8));
        const int n = top % 7 == 0 ? 253 : 256;
        kernel(h, s, i, bgr, n);
        kernel(h + n, s + n, i + n, bgr + n, 256 - n);
        for (int k = 0; k < 256; ++k) {
            const BYTE hsi[3] = {h[k], s[k], i[k]};
            BYTE rgb[3], one[3];
            HSItoRGB(rgb, hsi);
            ASSERT_EQ(bgr[k], uint32_t{rgb[2]} | rgb[1] << 8 | rgb[0] << 16)
                << what << ": H " << k << " S " << int(s[k]) << " I " << int(i[k]);
            pax::HsiBackTablesOnce().Convert(hsi[0], hsi[1], hsi[2], one);
            ASSERT_TRUE(one[0] == rgb[0] && one[1] == rgb[1] && one[2] == rgb[2]) << "one pixel " << k;
        }
    }
}

TEST(HsiBack, VectorFormsEqualTheConversionForEveryValue) {
    ExpectKernelEqualsConversion(pax::HsiToBgrSse2(), "SSE2");
    if (pax::HsiToBgrAvx2()) ExpectKernelEqualsConversion(pax::HsiToBgrAvx2(), "AVX2");
}

// Every hue selected, then a colour box, with the processor's forms and with
// the SSE2 ones.
TEST(HueMove, FastFormsEqualTheConversionsInRowsOfOddLength) {
    std::vector<BYTE> in(size_t{3} << 24);
    for (size_t k = 0; k < in.size(); ++k) in[k] = static_cast<BYTE>(k / 3 >> (8 * (k % 3)));
    hueadjust::HueMoveRun everyHue{}, box{};
    everyHue.shift = hueadjust::DegreesToHueUnits(30), everyHue.saturation = 20, everyHue.lightness = 10;
    everyHue.selectByHue = true, everyHue.lo = 0, everyHue.hi = 255;
    box.shift = hueadjust::DegreesToHueUnits(90), box.saturation = 10, box.lightness = 5;
    box.blueLo = box.greenLo = box.redLo = 68, box.blueHi = box.greenHi = box.redHi = 188;
    constexpr int64_t kAll = int64_t{1} << 24, kRow = 4093;
    for (hueadjust::HueMoveRun run : {everyHue, box}) {
        run.Prepare();
        std::vector<BYTE> straight(in);
        run.reference = true;
        for (int64_t at = 0; at < kAll; at += kRow)
            run.Run(in.data() + 3 * at, straight.data() + 3 * at, std::min(kRow, kAll - at));
        for (const bool avx2 : {run.avx2, false}) {
            std::vector<BYTE> fast(in.size());
            run.reference = false, run.avx2 = avx2;
            for (int64_t at = 0; at < kAll; at += kRow)
                run.Run(in.data() + 3 * at, fast.data() + 3 * at, std::min(kRow, kAll - at));
            const auto diff = std::mismatch(fast.begin(), fast.end(), straight.begin());
            EXPECT_TRUE(diff.first == fast.end()) << "by hue " << run.selectByHue << ", AVX2 " << avx2
                                                  << ": colour " << (diff.first - fast.begin()) / 3;
        }
    }
}

} // namespace
