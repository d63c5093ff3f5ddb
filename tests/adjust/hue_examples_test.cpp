// The hue-based adjustments by example: pixels worked out by hand from the HSI
// and CMYK formulas, one table and one loop per operation; the hue arithmetic;
// and one digest per operation over seeded images of odd widths (padding
// marked) with random parameters. The program runs on the fast and on the
// straightforward paths (BOTH_PATHS), so each pinned digest also says that
// both paths give the same bytes. When they were pinned, the digested images
// agreed pixel for pixel with a separate evaluation of the formulas.
#include "dib_builder.h"
#include "hue_math.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

namespace {

using paxtest::Rgb;

// One pixel through an operation.
Rgb Through(Rgb c, const std::function<HDIB(HDIB)> &op) {
    HDIB image = paxtest::MakeDib24(1, 1, [c](int, int) { return c; }), out = op(image);
    EXPECT_NE(out, nullptr);
    Rgb p = out ? paxtest::Pixel24(out, 0, 0) : Rgb{1, 2, 3};
    GlobalFree(out);
    GlobalFree(image);
    return p;
}

void ExpectRgb(Rgb got, Rgb want, int row) {
    EXPECT_TRUE(got == want) << "row " << row << ": (" << int(got.r) << ", " << int(got.g) << ", "
                             << int(got.b) << ") instead of (" << int(want.r) << ", " << int(want.g)
                             << ", " << int(want.b) << ")";
}

TEST(HueSaturation, WorkedPixels) {
    const struct { int hue, sat, light; UINT from, to; Rgb in, want; } rows[] = {
        {0, 0, 0, 0, 0, {255, 0, 0}, {254, 0, 0}}, // every pixel passes through HSI
        {0, 0, 0, 0, 0, {10, 200, 30}, {10, 199, 28}},
        {180, 0, 0, 0, 0, {255, 0, 0}, {0, 254, 251}},  // H 0 + 127
        {-180, 0, 0, 0, 0, {255, 0, 0}, {0, 251, 254}}, // H 0 - 127 + 255
        {180, 0, 0, 0, 0, {0, 0, 255}, {254, 251, 0}},  // H 170 + 127 - 255
        {0, 0, 0, 300, 60, {255, 0, 0}, {254, 0, 0}},   // 212..42 across 0: H 0 in
        {0, 0, 0, 300, 60, {255, 0, 255}, {251, 0, 254}}, // H 212 in
        {0, 0, 0, 300, 60, {255, 255, 0}, {254, 251, 0}}, // H 42 in
        {0, 0, 0, 300, 60, {0, 255, 0}, {0, 255, 0}},     // H 85 out
        {0, 0, 0, 300, 60, {0, 255, 255}, {0, 255, 255}}, // H 127 out
        {0, 0, 0, 300, 60, {0, 0, 255}, {0, 0, 255}},     // H 170 out
        {0, 0, 0, 0, 120, {0, 255, 0}, {0, 254, 0}},      // 0..85: H 85 in
        {0, 0, 0, 0, 120, {0, 255, 10}, {0, 255, 10}},    // H 86 out
        {0, -255, 0, 0, 0, {10, 200, 30}, {105, 105, 105}}, // grey of its lightness
        {0, 0, 255, 0, 0, {255, 0, 0}, {255, 255, 255}},
        {0, 0, -255, 0, 0, {90, 60, 250}, {0, 0, 0}},
        {0, 200, 0, 340, 20, {100, 100, 100}, {178, 21, 21}}, // a grey has hue 0
        {0, 200, 0, 100, 200, {100, 100, 100}, {100, 100, 100}},
        {120, 200, -40, 0, 0, {10, 200, 30}, {12, 0, 130}},
        {-90, -60, 25, 200, 100, {90, 60, 250}, {126, 233, 197}}, // 141..70: H 176 in
        {-90, -60, 25, 200, 100, {0, 255, 0}, {0, 255, 0}},
    };
    for (const auto &r : rows)
        ExpectRgb(Through(r.in, [&](HDIB im) {
                      return ColorHueSaturation(im, r.hue, r.sat, r.light, r.from, r.to, 0, nullptr);
                  }), r.want, static_cast<int>(&r - rows));
}

TEST(Desaturate, WorkedPixels) {
    const Rgb rows[][2] = {{{255, 0, 0}, {127, 127, 127}},     {{10, 200, 30}, {105, 105, 105}},
                           {{255, 255, 254}, {254, 254, 254}}, {{0, 0, 255}, {127, 127, 127}},
                           {{255, 255, 0}, {127, 127, 127}},   {{77, 77, 77}, {77, 77, 77}},
                           {{0, 0, 0}, {0, 0, 0}},             {{255, 255, 255}, {255, 255, 255}},
                           {{90, 60, 250}, {155, 155, 155}}};
    for (const auto &r : rows)
        ExpectRgb(Through(r[0], [](HDIB im) { return Desaturate(im, 0, nullptr); }), r[1],
                  static_cast<int>(&r - rows));
}

// target: blue, green, red; tolerance: red, green, blue.
TEST(ReplaceColor, WorkedPixels) {
    const struct { BYTE target[3], tolerance[3]; int hue, sat, light; Rgb in, want; } rows[] = {
        {{0, 0, 255}, {0, 0, 0}, 120, 0, 0, {255, 0, 0}, {0, 254, 0}},
        {{0, 0, 255}, {0, 0, 0}, 120, 0, 0, {254, 0, 0}, {254, 0, 0}},
        {{10, 20, 30}, {5, 0, 0}, 0, 0, 0, {30, 20, 10}, {29, 19, 10}}, // red 25..35 only
        {{10, 20, 30}, {5, 0, 0}, 0, 0, 0, {24, 20, 10}, {24, 20, 10}},
        {{10, 20, 30}, {5, 0, 0}, 0, 0, 0, {25, 20, 10}, {24, 19, 9}},
        {{10, 20, 30}, {5, 0, 0}, 0, 0, 0, {35, 20, 10}, {34, 19, 9}},
        {{10, 20, 30}, {5, 0, 0}, 0, 0, 0, {36, 20, 10}, {36, 20, 10}},
        {{10, 20, 30}, {5, 0, 0}, 0, 0, 0, {30, 21, 10}, {30, 21, 10}},
        {{10, 20, 30}, {5, 0, 0}, 0, 0, 0, {30, 20, 11}, {30, 20, 11}},
        {{10, 20, 30}, {5, 0, 0}, 0, 0, 0, {30, 20, 15}, {30, 20, 15}}, // never widens blue
        {{250, 5, 0}, {10, 10, 10}, 60, -50, 20, {0, 0, 255}, {231, 60, 233}}, // bounds past 0..255
        {{250, 5, 0}, {10, 10, 10}, 60, -50, 20, {11, 0, 255}, {11, 0, 255}},
    };
    for (const auto &r : rows)
        ExpectRgb(Through(r.in, [&](HDIB im) {
                      return ReplaceColor(im, r.target, r.tolerance, r.hue, r.sat, r.light, 0, nullptr);
                  }), r.want, static_cast<int>(&r - rows));
}

// (10, 200, 30) is C 190, M 0, Y 170, K 55; the grey 77 is K 178 alone.
TEST(CmykLevels, WorkedPixels) {
    const struct { int c, m, y, k; Rgb in, want; } rows[] = {
        {-100, 0, 0, 0, {10, 200, 30}, {200, 200, 30}}, {0, 0, 0, 100, {10, 200, 30}, {0, 145, 0}},
        {0, 0, 0, -100, {10, 200, 30}, {65, 255, 85}},  {0, 0, 0, 0, {10, 200, 30}, {10, 200, 30}},
        {0, 30, 0, 0, {10, 200, 30}, {10, 200, 30}},    {50, 0, 0, 0, {10, 200, 30}, {0, 200, 30}},
        {0, 0, -30, 0, {10, 200, 30}, {10, 200, 82}}, // 170 x 0.7 is just below 119
        {100, -100, 100, 0, {77, 77, 77}, {77, 77, 77}}, {0, 0, 0, -100, {77, 77, 77}, {255, 255, 255}},
        {0, 0, 0, 50, {77, 77, 77}, {0, 0, 0}},         {-50, 25, 0, -20, {200, 120, 40}, {211, 111, 51}},
    };
    for (const auto &r : rows)
        ExpectRgb(Through(r.in, [&](HDIB im) {
                      return ColorCMYKLevels(im, r.c, r.m, r.y, r.k, 0, nullptr);
                  }), r.want, static_cast<int>(&r - rows));
}

TEST(HueArithmetic, UnitsWrapInksAndFactors) {
    const int units[][2] = {{180, 127}, {-180, -127}, {120, 85}, {300, 212}, {60, 42},
                            {1, 0},     {2, 1},       {-2, -1},  {359, 254}, {360, 255}};
    for (auto &u : units) EXPECT_EQ(hueadjust::DegreesToHueUnits(u[0]), u[1]) << u[0];
    const int64_t wraps[][2] = {{-255, 0}, {-1, 254}, {0, 0}, {255, 255}, {256, 1}, {510, 255},
                                {511, 1},  {-256, 254}, {-510, 0}, {int64_t{INT32_MAX} + 200, 72}};
    for (auto &w : wraps) EXPECT_EQ(hueadjust::WrapHue(w[0]), w[1]) << w[0];
    // Beyond one turn, whole turns: below 0 into 0..254, above 255 into 1..255.
    for (int64_t h = -3000; h <= 3000; ++h) {
        const int w = hueadjust::WrapHue(h);
        ASSERT_TRUE((h - w) % 255 == 0 && w >= (h > 255) && w <= 255 - (h < 0)) << h;
    }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct { BYTE ink; double factor; int want; } inks[] = {
        {55, 2.0, 110}, {190, 0.0, 0}, {200, 1.5, 255}, {99, 0.5, 49}, {170, 0.7, 118},
        {10, -3.0, 0},  {10, 1e300, 255}, {10, -1e300, 0}, {10, nan, 0}};
    for (auto &i : inks) EXPECT_EQ(hueadjust::ScaleInk(i.ink, i.factor), i.want) << i.factor;
    const std::pair<int, double> factors[] = {{0, 1.0}, {100, 2.0}, {-100, 0.0}, {-50, 0.5}, {30, 1.3}};
    for (auto [level, f] : factors) EXPECT_EQ(hueadjust::LevelFactor(level), f) << level;
}

// ---- Whole images ------------------------------------------------------------

uint64_t Fold(uint64_t digest, const std::vector<BYTE> &bytes) {
    for (BYTE b : bytes) digest = (digest ^ b) * 0x100000001B3ull; // FNV-1a
    return (digest ^ bytes.size()) * 0x100000001B3ull;
}

// An odd-width image of the given seed: the first row cycles through
// primaries, secondaries and greys, the others are noise; padding 0xA5.
HDIB Seeded(int w, int h, uint32_t seed) {
    static const BYTE named[][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 0}, {0, 255, 255},
                                    {255, 0, 255}, {0, 0, 0}, {128, 128, 128}, {255, 255, 255}};
    return paxtest::MakeDib(w, h, 24, [seed](int x, int y, int k) {
        if (y == 0) return named[x % 9][2 - k];
        return static_cast<BYTE>(((x * 73856093u) ^ (y * 19349663u) ^ (k * 83492791u) ^ seed) * 2654435761u >> 24);
    }, -1, 0xA5);
}

// A parameter in lo..hi, one of its ends or 0 now and then.
int Pick(paxtest::Rng &rng, int lo, int hi) {
    const int r = rng.Below(8);
    return r == 0 ? lo : r == 1 ? hi : r == 2 ? 0 : lo + rng.Below(hi - lo + 1);
}

TEST(WholeImages, OneDigestPerOperation) {
    using Run = std::function<HDIB(HDIB, paxtest::Rng &)>;
    const struct { const char *name; uint64_t digest; Run run; } families[] = {
        {"ColorHueSaturation", 0x06e40fcc3fe513cfull, [](HDIB im, paxtest::Rng &rng) {
             UINT from = UINT(Pick(rng, 0, 360)), to = UINT(Pick(rng, 0, 360));
             if (from == to) from = to = 0;
             const int v[3] = {Pick(rng, -180, 180), Pick(rng, -255, 255), Pick(rng, -255, 255)};
             return ColorHueSaturation(im, v[0], v[1], v[2], from, to, 0, nullptr);
         }},
        {"Desaturate", 0xb244a73f6905b7feull, [](HDIB im, paxtest::Rng &) { return Desaturate(im, 0, nullptr); }},
        {"ReplaceColor", 0x44021912076beb00ull, [](HDIB im, paxtest::Rng &rng) {
             const BYTE target[3] = {rng.Byte(), rng.Byte(), rng.Byte()};
             const BYTE tolerance[3] = {BYTE(Pick(rng, 0, 160)), BYTE(Pick(rng, 0, 160)), BYTE(Pick(rng, 0, 255))};
             const int v[3] = {Pick(rng, -180, 180), Pick(rng, -255, 255), Pick(rng, -255, 255)};
             return ReplaceColor(im, target, tolerance, v[0], v[1], v[2], 0, nullptr);
         }},
        {"ColorCMYKLevels", 0x9508350c5f1a9e08ull, [](HDIB im, paxtest::Rng &rng) {
             int v[4]; // drawn in order (argument order is unspecified)
             for (int &level : v) level = Pick(rng, -100, 100);
             return ColorCMYKLevels(im, v[0], v[1], v[2], v[3], 0, nullptr);
         }},
    };
    for (const auto &f : families) {
        paxtest::Rng rng(19);
        uint64_t digest = 14695981039346656037ull;
        for (int w : {1, 2, 3, 5, 9, 15, 17, 31, 33, 47, 65, 101})
            for (int round = 0; round < 3; ++round) {
                HDIB image = Seeded(w, 1 + (w + round) % 5, rng.Next());
                const std::vector<BYTE> source = paxtest::BlockBytes(image);
                HDIB out = f.run(image, rng);
                ASSERT_NE(out, nullptr) << f.name;
                EXPECT_EQ(paxtest::LockCount(out), 0);
                digest = Fold(digest, paxtest::BlockBytes(out));
                EXPECT_TRUE(paxtest::BlockBytes(image) == source) << f.name;
                GlobalFree(out);
                GlobalFree(image);
            }
        EXPECT_EQ(digest, f.digest) << f.name << std::hex << " 0x" << digest;
    }
}

// Full tolerance selects every pixel, as the full hue range does; zero
// levels give the source byte for byte.
TEST(WholeImages, FullToleranceAndZeroLevels) {
    HDIB image = Seeded(23, 4, 7);
    const BYTE target[3] = {128, 7, 200}, all[3] = {255, 255, 255};
    HDIB a = ReplaceColor(image, target, all, -70, 33, -12, 0, nullptr);
    HDIB b = ColorHueSaturation(image, -70, 33, -12, 0, 0, 0, nullptr);
    HDIB c = ColorCMYKLevels(image, 0, 0, 0, 0, 0, nullptr);
    ASSERT_TRUE(a && b && c);
    EXPECT_TRUE(paxtest::BlockBytes(a) == paxtest::BlockBytes(b));
    EXPECT_TRUE(paxtest::BlockBytes(c) == paxtest::BlockBytes(image));
    for (HDIB h : {a, b, c, image}) GlobalFree(h);
}

} // namespace
