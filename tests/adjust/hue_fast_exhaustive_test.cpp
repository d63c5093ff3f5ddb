// The fast forms of the hue-based adjustments against the straightforward
// code of the library, over whole domains: the HSI tables over every RGB and
// every HSI value, the desaturation and the CMYK levels over one run of all
// 2^24 colours (the levels for a sample of parameters, including levels
// whose inks have no integer form and dialog factors beyond the range).
#include "desaturate.h"
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

// Every colour once, stored as blue, green, red (the low three bytes of the
// number c, little-endian).
const std::vector<BYTE> &AllColours() {
    static const std::vector<BYTE> all = [] {
        std::vector<BYTE> v(size_t{3} << 24);
        for (uint32_t c = 0; c < (1u << 24); ++c) std::memcpy(&v[3 * c], &c, 3);
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

// Runs the fast and the straightforward form of `run` over all colours.
template <typename Run> void ExpectRunsEqual(Run run, const char *what) {
    const std::vector<BYTE> &in = AllColours();
    std::vector<BYTE> fast(in.size()), straight(in);
    run.reference = false;
    run.Run(in.data(), fast.data(), 1 << 24);
    run.reference = true;
    run.Run(in.data(), straight.data(), 1 << 24);
    for (size_t i = 0; i < in.size(); ++i)
        ASSERT_EQ(fast[i], straight[i]) << what << ": colour " << i / 3 << " byte " << i % 3;
}

// The straightforward pixel is checked against the rule itself: every
// colour becomes the grey (max + min) / 2.
TEST(Desaturate, EveryColourBecomesTheMeanOfMaxAndMin) {
    DesaturateRun run;
    ASSERT_TRUE(run.identity); // the vector form is in use
    ExpectRunsEqual(run, "desaturate");
    std::vector<BYTE> out(AllColours()); // it writes only the pixels it changes
    run.reference = true;
    run.Run(AllColours().data(), out.data(), 1 << 24);
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
    CmykLevelsRun(ones).Run(AllColours().data(), out.data(), 1 << 24);
    EXPECT_TRUE(out == AllColours());
}

// The hue move, by hue range and by colour box, over all colours.
TEST(HueMove, FastRunsEqualTheConversionsOverAllColours) {
    HueMoveRun byHue{};
    byHue.shift = DegreesToHueUnits(150), byHue.saturation = 40, byHue.lightness = -30;
    byHue.selectByHue = true, byHue.lo = 212, byHue.hi = 42;
    byHue.Prepare();
    ExpectRunsEqual(byHue, "hue range");
    HueMoveRun byBox{};
    byBox.shift = DegreesToHueUnits(-90), byBox.saturation = -100, byBox.lightness = 60;
    byBox.blueLo = 10, byBox.blueHi = 200, byBox.greenLo = -5, byBox.greenHi = 90;
    byBox.redLo = 100, byBox.redHi = 300;
    byBox.Prepare();
    ExpectRunsEqual(byBox, "colour box");
}

} // namespace
