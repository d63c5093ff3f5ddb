// The hue-based adjustments by example: pixels and hue arithmetic worked out
// by hand from the HSI and CMYK formulas (hue_examples.txt); and one digest
// per operation over seeded images of odd widths (padding marked) with
// random parameters. The program runs on the fast and on the straightforward
// paths (BOTH_PATHS), so each digest also says that both give the same bytes.
// When they were pinned, the digested images agreed pixel for pixel with a
// separate evaluation of the formulas.
#include "examples.h"
#include "hue_math.h"

#include <gtest/gtest.h>

namespace {

using namespace paxtest;

// The example's operation on its input pixel: the output.
std::vector<int> Adjusted(const Example &e) {
    const auto &p = e.v;
    const size_t n = p.size();
    const BYTE target[3] = {BYTE(p[0]), BYTE(p[1]), BYTE(p[2])}, tolerance[3] = {BYTE(p[3]), BYTE(p[4]), BYTE(p[5])};
    const Rgb got = OnePixel(Rgb{BYTE(p[n - 6]), BYTE(p[n - 5]), BYTE(p[n - 4])}, [&](HDIB im) {
        if (e.tag == "hue") return ColorHueSaturation(im, e.I(0), e.I(1), e.I(2), e.I(3), e.I(4), 0, nullptr);
        if (e.tag == "desaturate") return Desaturate(im, 0, nullptr);
        if (e.tag == "cmyk") return ColorCMYKLevels(im, e.I(0), e.I(1), e.I(2), e.I(3), 0, nullptr);
        return ReplaceColor(im, target, tolerance, e.I(6), e.I(7), e.I(8), 0, nullptr);
    });
    return {got.r, got.g, got.b};
}

TEST(HueAdjustments, WorkedExamples) {
    int pixels = 0;
    for (const Example &e : ReadExamples("hue_examples.txt")) {
        SCOPED_TRACE(e.line);
        if (e.tag == "units") EXPECT_EQ(hueadjust::DegreesToHueUnits(e.v[0]), e.I(1));
        else if (e.tag == "wrap") EXPECT_EQ(hueadjust::WrapHue(static_cast<int64_t>(e.v[0])), e.I(1));
        else if (e.tag == "ink") EXPECT_EQ(hueadjust::ScaleInk(BYTE(e.v[0]), e.v[1]), e.I(2));
        else if (e.tag == "factor") EXPECT_EQ(hueadjust::LevelFactor(e.I(0)), e.v[1]);
        else {
            ASSERT_GE(e.v.size(), 6u);
            EXPECT_EQ(Adjusted(e), std::vector<int>(e.v.end() - 3, e.v.end()));
            ++pixels;
        }
    }
    EXPECT_EQ(pixels, 57);
}

// ---- Whole images ------------------------------------------------------------

// A parameter in lo..hi, one of its ends or 0 now and then.
int Pick(Rng &rng, int lo, int hi) {
    const int r = rng.Below(8);
    return r == 0 ? lo : r == 1 ? hi : r == 2 ? 0 : lo + rng.Below(hi - lo + 1);
}

const int kRanges[9][2] = {{-180, 180}, {-255, 255}, {-255, 255}, {0, 360}, {0, 360},
                           {-100, 100}, {-100, 100}, {-100, 100}, {-100, 100}};

TEST(WholeImages, OneDigestPerOperation) {
    Rng rng(19);
    uint64_t digests[4] = {kDigestStart, kDigestStart, kDigestStart, kDigestStart};
    for (int w : {1, 2, 3, 5, 9, 15, 17, 31, 33, 47, 65, 101})
        for (int round = 0; round < 3; ++round) {
            HDIB image = SeededImage(w, 1 + (w + round) % 5, 24, rng.Next());
            int p[9]; // in order: hue, saturation, lightness, hue range, four levels
            for (int i = 0; i < 9; ++i) p[i] = Pick(rng, kRanges[i][0], kRanges[i][1]);
            if (p[3] == p[4]) p[3] = p[4] = 0;
            const BYTE target[3] = {rng.Byte(), rng.Byte(), rng.Byte()};
            const BYTE tolerance[3] = {BYTE(Pick(rng, 0, 255)), BYTE(Pick(rng, 0, 255)), BYTE(Pick(rng, 0, 255))};
            const HDIB outs[4] = {ColorHueSaturation(image, p[0], p[1], p[2], p[3], p[4], 0, nullptr), Desaturate(image, 0, nullptr),
                                  ReplaceColor(image, target, tolerance, p[0], p[1], p[2], 0, nullptr),
                                  ColorCMYKLevels(image, p[5], p[6], p[7], p[8], 0, nullptr)};
            for (int f = 0; f < 4; ++f) digests[f] = Fold(digests[f], Consume(outs[f]));
            GlobalFree(image);
        }
    const uint64_t pinned[4] = {0xd5bb6b0cc6940a6dull, 0xd873d41b2fcf1aa8ull, 0x1e1e5c386f6f438bull, 0x838abfa02e2f1ed9ull};
    for (int f = 0; f < 4; ++f) EXPECT_EQ(digests[f], pinned[f]) << f << std::hex << " 0x" << digests[f];
}

} // namespace
