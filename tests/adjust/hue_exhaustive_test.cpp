// The fast forms of the hue-based adjustments against the straightforward
// code of the library, over whole domains: the HSI tables over every RGB and
// every HSI value; the vector forms of the way back from HSI (SSE2, and AVX2
// where the processor has it) over all 2^24 (H, S, I) values in planes of
// 256 pixels, some split where 253 is not a multiple of four; the
// desaturation, the CMYK levels (for a sample of parameters, including levels
// whose inks have no integer form and dialog factors beyond the range) and
// the hue move (by hue range and by colour box, with the processor's forms
// and with the SSE2 ones) over all colours in runs whose blocks end at every
// offset.
#include "desaturate.h"
#include "hsi_back.h"
#include "hue_fast.h"
#include "hue_math.h"
#include "simd_dispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

namespace {

using namespace hueadjust;

constexpr int64_t kAll = int64_t{1} << 24, kRow = 4093;

// Every colour once, stored as blue, green, red (the low three bytes of the
// number c, little-endian).
const std::vector<BYTE> &AllColours() {
    static const std::vector<BYTE> all = [] {
        std::vector<BYTE> v(size_t{3} << 24);
        for (uint32_t c = 0; c < (1u << 24); ++c)
            std::memcpy(&v[3 * c], &c, 3);
        return v;
    }();
    return all;
}

TEST(HsiTables, EqualTheConversionsForEveryValue) {
    const HsiForward &forward = ForwardTables();
    const HsiBack &back = BackTables();
    for (uint32_t c = 0; c < (1u << 24); ++c) {
        const BYTE v[3] = {BYTE(c >> 16), BYTE(c >> 8), BYTE(c)};
        BYTE a[3], b[3];
        RGBtoHSI(a, v);
        forward.Convert(v[0], v[1], v[2], b);
        ASSERT_TRUE(a[0] == b[0] && a[1] == b[1] && a[2] == b[2]) << "RGB " << c;
        HSItoRGB(a, v);
        back.Convert(v[0], v[1], v[2], b);
        ASSERT_TRUE(a[0] == b[0] && a[1] == b[1] && a[2] == b[2]) << "HSI " << c;
    }
}

void ExpectKernelEqualsConversion(pax::HsiToBgrKernel kernel, const char *what) {
    alignas(16) BYTE h[260] = {}, s[260] = {}, i[260] = {};
    alignas(16) uint32_t bgr[260];
    for (int k = 0; k < 256; ++k)
        h[k] = static_cast<BYTE>(k);
    for (uint32_t top = 0; top < (1u << 16); ++top) {
        std::fill(s, s + 256, static_cast<BYTE>(top));
        std::fill(i, i + 256, static_cast<BYTE>(top >> 8));
        const int n = top % 7 == 0 ? 253 : 256;
        kernel(h, s, i, bgr, n);
        kernel(h + n, s + n, i + n, bgr + n, 256 - n);
        for (int k = 0; k < 256; ++k) {
            const BYTE hsi[3] = {h[k], s[k], i[k]};
            BYTE rgb[3];
            HSItoRGB(rgb, hsi);
            ASSERT_EQ(bgr[k], uint32_t{rgb[2]} | rgb[1] << 8 | rgb[0] << 16)
                << what << ": H " << k << " S " << int(s[k]) << " I " << int(i[k]);
        }
    }
}

TEST(HsiBack, VectorFormsEqualTheConversionForEveryValue) {
    ExpectKernelEqualsConversion(pax::HsiToBgrSse2(), "SSE2");
    if (pax::HsiToBgrAvx2()) ExpectKernelEqualsConversion(pax::HsiToBgrAvx2(), "AVX2");
}

void UseAvx2(HueMoveRun &run, bool on) { run.avx2 = on; }
template <typename Run> void UseAvx2(Run &, bool) {}

// The straightforward form of `run` over all colours at once, then the fast
// one in rows of kRow pixels, with each choice of AVX2 in `avx2`.
template <typename Run> void ExpectRunsEqual(Run run, const char *what, std::initializer_list<bool> avx2 = {false}) {
    const std::vector<BYTE> &in = AllColours();
    std::vector<BYTE> straight(in);
    run.reference = true;
    run.Run(in.data(), straight.data(), kAll);
    run.reference = false;
    for (const bool on : avx2) {
        std::vector<BYTE> fast(in.size());
        UseAvx2(run, on);
        for (int64_t at = 0; at < kAll; at += kRow)
            run.Run(in.data() + 3 * at, fast.data() + 3 * at, std::min(kRow, kAll - at));
        const auto diff = std::mismatch(fast.begin(), fast.end(), straight.begin());
        EXPECT_TRUE(diff.first == fast.end())
            << what << ", AVX2 " << on << ": colour " << (diff.first - fast.begin()) / 3;
    }
}

// The straightforward pixel is checked against the rule itself: every
// colour becomes the grey (max + min) / 2.
TEST(Desaturate, EveryColourBecomesTheMeanOfMaxAndMin) {
    DesaturateRun run;
    ASSERT_TRUE(run.identity); // the vector form is in use
    ExpectRunsEqual(run, "desaturate");
    std::vector<BYTE> out(AllColours()); // it writes only the pixels it changes
    run.reference = true;
    run.Run(AllColours().data(), out.data(), kAll);
    for (uint32_t c = 0; c < (1u << 24); ++c) {
        const auto [lo, hi] = std::minmax({BYTE(c), BYTE(c >> 8), BYTE(c >> 16)});
        ASSERT_TRUE(out[3 * c] == (lo + hi) / 2 && out[3 * c + 1] == out[3 * c] && out[3 * c + 2] == out[3 * c]) << c;
    }
}

TEST(CmykLevels, IntegerFormsOfEveryLevel) {
    // The levels whose scaled inks no multiply and shift gives (the double
    // product falls on either side of whole numbers); every other level has
    // a form, checked over all inks by FindCmykForm.
    const std::vector<int> without = {-65, -42, -30, -18, 15, 16, 36, 38, 40, 84};
    std::vector<int> found;
    for (int level = -100; level <= 100; ++level) {
        BYTE scaled[4][256];
        for (int k = 0; k < 4; ++k)
            for (int v = 0; v < 256; ++v) scaled[k][v] = ScaleInk(BYTE(v), LevelFactor(level));
        CmykIntegerForm form;
        if (!FindCmykForm(scaled, &form)) found.push_back(level);
    }
    EXPECT_EQ(found, without);
}

TEST(CmykLevels, FastRunsEqualTheConversionsOverAllColours) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double sets[][4] = {
        {LevelFactor(30), LevelFactor(-20), LevelFactor(10), LevelFactor(50)},
        {LevelFactor(100), LevelFactor(-100), LevelFactor(0), LevelFactor(-55)},
        {LevelFactor(15), LevelFactor(77), LevelFactor(-42), LevelFactor(1)}, // no integer form
        {3.7, -1.0, nan, 0.25},                                               // from a dialog
    };
    for (const auto &f : sets) {
        CmykLevelsRun run(f);
        EXPECT_EQ(run.vector, CpuHasAvx2() && &f != &sets[2]);
        ExpectRunsEqual(run, "levels");
    }
    // All levels 0 give every colour back: the round trip is exact.
    const double ones[4] = {1, 1, 1, 1};
    std::vector<BYTE> out(AllColours().size());
    CmykLevelsRun(ones).Run(AllColours().data(), out.data(), kAll);
    EXPECT_TRUE(out == AllColours());
}

// By hue range (part of it, then every hue) and by colour box.
TEST(HueMove, FastFormsEqualTheConversionsOverAllColours) {
    HueMoveRun runs[4] = {};
    const int moves[4][3] = {{150, 40, -30}, {30, 20, 10}, {-90, -100, 60}, {90, 10, 5}};
    for (int r = 0; r < 4; ++r)
        runs[r].shift = DegreesToHueUnits(moves[r][0]), runs[r].saturation = moves[r][1],
        runs[r].lightness = moves[r][2];
    runs[0].selectByHue = true, runs[0].lo = 212, runs[0].hi = 42;
    runs[1].selectByHue = true, runs[1].lo = 0, runs[1].hi = 255;
    runs[2].blueLo = 10, runs[2].blueHi = 200, runs[2].greenLo = -5, runs[2].greenHi = 90;
    runs[2].redLo = 100, runs[2].redHi = 300;
    runs[3].blueLo = runs[3].greenLo = runs[3].redLo = 68, runs[3].blueHi = runs[3].greenHi = runs[3].redHi = 188;
    for (HueMoveRun &run : runs) {
        run.Prepare();
        ExpectRunsEqual(run, run.selectByHue ? "hue range" : "colour box", {run.avx2, false});
    }
}

} // namespace
