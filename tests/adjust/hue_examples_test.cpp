// The hue-based adjustments by example: pixels and hue arithmetic worked out
// by hand from the HSI and CMYK formulas (hue_examples.txt); and one digest per operation over seeded images of odd widths (padding
// marked) with random parameters. The program runs on the fast and on the
// straightforward paths (BOTH_PATHS), so each pinned digest also says that
// both paths give the same bytes. When they were pinned, the digested images
// agreed pixel for pixel with a separate evaluation of the formulas.
#include "adjust_support.h"
#include "hue_math.h"

#include <gtest/gtest.h>

#include <functional>

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

HDIB Adjust(const paxtest::Example &e, HDIB im) {
    const auto &p = e.v;
    if (e.tag == "hue") return ColorHueSaturation(im, e.I(0), e.I(1), e.I(2), e.I(3), e.I(4), 0, nullptr);
    if (e.tag == "desaturate") return Desaturate(im, 0, nullptr);
    if (e.tag == "cmyk") return ColorCMYKLevels(im, e.I(0), e.I(1), e.I(2), e.I(3), 0, nullptr);
    const BYTE target[3] = {BYTE(p[0]), BYTE(p[1]), BYTE(p[2])}, tolerance[3] = {BYTE(p[3]), BYTE(p[4]), BYTE(p[5])};
    return ReplaceColor(im, target, tolerance, e.I(6), e.I(7), e.I(8), 0, nullptr);
}

TEST(HueAdjustments, WorkedExamples) {
    int pixels = 0;
    for (const paxtest::Example &e : paxtest::ReadExamples("hue_examples.txt")) {
        SCOPED_TRACE(e.line);
        const size_t n = e.v.size();
        if (e.tag == "units") EXPECT_EQ(hueadjust::DegreesToHueUnits(e.v[0]), e.I(1));
        else if (e.tag == "wrap") EXPECT_EQ(hueadjust::WrapHue(static_cast<int64_t>(e.v[0])), e.I(1));
        else if (e.tag == "ink") EXPECT_EQ(hueadjust::ScaleInk(BYTE(e.v[0]), e.v[1]), e.I(2));
        else if (e.tag == "factor") EXPECT_EQ(hueadjust::LevelFactor(e.I(0)), e.v[1]);
        else {
            ASSERT_GE(n, 6u);
            const Rgb in{BYTE(e.v[n - 6]), BYTE(e.v[n - 5]), BYTE(e.v[n - 4])};
            const Rgb got = Through(in, [&](HDIB im) { return Adjust(e, im); });
            EXPECT_EQ(std::vector<int>({got.r, got.g, got.b}),
                      std::vector<int>(e.v.end() - 3, e.v.end()));
            ++pixels;
        }
    }
    EXPECT_EQ(pixels, 53);
    // Beyond one turn, whole turns: below 0 into 0..254, above 255 into 1..255.
    for (int64_t h = -3000; h <= 3000; ++h) {
        const int w = hueadjust::WrapHue(h);
        ASSERT_TRUE((h - w) % 255 == 0 && w >= (h > 255) && w <= 255 - (h < 0)) << h;
    }
}

// ---- Whole images ------------------------------------------------------------

// A parameter in lo..hi, one of its ends or 0 now and then.
int Pick(paxtest::Rng &rng, int lo, int hi) {
    const int r = rng.Below(8);
    return r == 0 ? lo : r == 1 ? hi : r == 2 ? 0 : lo + rng.Below(hi - lo + 1);
}

TEST(WholeImages, OneDigestPerOperation) {
    using Run = std::function<HDIB(HDIB, paxtest::Rng &)>;
    const struct { const char *name; uint64_t digest; Run run; } families[] = {
        {"ColorHueSaturation", 0x58f57414ce74b232ull, [](HDIB im, paxtest::Rng &rng) {
             UINT from = UINT(Pick(rng, 0, 360)), to = UINT(Pick(rng, 0, 360));
             if (from == to) from = to = 0;
             const int v[3] = {Pick(rng, -180, 180), Pick(rng, -255, 255), Pick(rng, -255, 255)};
             return ColorHueSaturation(im, v[0], v[1], v[2], from, to, 0, nullptr);
         }},
        {"Desaturate", 0xd6e4badac881185full, [](HDIB im, paxtest::Rng &) { return Desaturate(im, 0, nullptr); }},
        {"ReplaceColor", 0x74c80eb9ca95a9edull, [](HDIB im, paxtest::Rng &rng) {
             const BYTE target[3] = {rng.Byte(), rng.Byte(), rng.Byte()};
             const BYTE tolerance[3] = {BYTE(Pick(rng, 0, 160)), BYTE(Pick(rng, 0, 160)), BYTE(Pick(rng, 0, 255))};
             const int v[3] = {Pick(rng, -180, 180), Pick(rng, -255, 255), Pick(rng, -255, 255)};
             return ReplaceColor(im, target, tolerance, v[0], v[1], v[2], 0, nullptr);
         }},
        {"ColorCMYKLevels", 0x3f0415f82abe2542ull, [](HDIB im, paxtest::Rng &rng) {
             int v[4]; // drawn in order (argument order is unspecified)
             for (int &level : v) level = Pick(rng, -100, 100);
             return ColorCMYKLevels(im, v[0], v[1], v[2], v[3], 0, nullptr);
         }},
    };
    for (const auto &f : families) {
        paxtest::Rng rng(19);
        uint64_t digest = paxtest::kDigestStart;
        for (int w : {1, 2, 3, 5, 9, 15, 17, 31, 33, 47, 65, 101})
            for (int round = 0; round < 3; ++round) {
                HDIB image = paxtest::SeededImage(w, 1 + (w + round) % 5, 24, rng.Next());
                const std::vector<BYTE> source = paxtest::BlockBytes(image);
                HDIB out = f.run(image, rng);
                ASSERT_NE(out, nullptr) << f.name;
                EXPECT_EQ(paxtest::LockCount(out), 0);
                digest = paxtest::Fold(digest, paxtest::BlockBytes(out));
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
    HDIB image = paxtest::SeededImage(23, 4, 24, 7);
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
