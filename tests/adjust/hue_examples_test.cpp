// The documented examples of the four hue-based adjustments, whole-image
// comparisons with straightforward reference pixels, and the hue arithmetic.
#include "hue_test_util.h"

#include "desaturate.h"
#include "hue_math.h"

#include <limits>

namespace {

using namespace huetest;
using paxtest::Pixel24;

Rgb Apply1(HDIB image, const std::function<HDIB(HDIB)> &op) {
    HDIB out = op(image);
    EXPECT_NE(out, nullptr);
    Rgb p = out ? Pixel24(out, 0, 0) : Rgb{0, 0, 0};
    if (out) GlobalFree(out);
    return p;
}

// One pixel through an operation.
Rgb Through(Rgb c, const std::function<HDIB(HDIB)> &op) {
    HDIB image = Solid(c);
    Rgb p = Apply1(image, op);
    GlobalFree(image);
    return p;
}

void ExpectRgb(Rgb got, Rgb want) {
    EXPECT_TRUE(got == want) << "(" << int(got.r) << ", " << int(got.g) << ", " << int(got.b)
                             << ") instead of (" << int(want.r) << ", " << int(want.g) << ", "
                             << int(want.b) << ")";
}

// ---- Hue units and the wrap -------------------------------------------------

TEST(HueArithmetic, DegreesBecomeHueBytesDividedFirstAndTruncated) {
    EXPECT_EQ(hueadjust::DegreesToHueUnits(180), 127);
    EXPECT_EQ(hueadjust::DegreesToHueUnits(-180), -127);
    EXPECT_EQ(hueadjust::DegreesToHueUnits(120), 85);
    EXPECT_EQ(hueadjust::DegreesToHueUnits(300), 212);
    EXPECT_EQ(hueadjust::DegreesToHueUnits(60), 42);
    for (int d = -360; d <= 360; ++d) EXPECT_EQ(hueadjust::DegreesToHueUnits(d), Units(d)) << d;
}

TEST(HueArithmetic, WrapMakesOneCorrectionInsideTheCheckedRange) {
    for (int h = -255; h <= 510; ++h) {
        int want = h < 0 ? h + 255 : h > 255 ? h - 255 : h;
        EXPECT_EQ(hueadjust::WrapHue(h), want) << h;
    }
    EXPECT_EQ(hueadjust::WrapHue(255), 255);
    EXPECT_EQ(hueadjust::WrapHue(510), 255);
}

TEST(HueArithmetic, ShiftsBeyondTheRangeAreWholeTurns) {
    for (long long h = -2000; h <= 2000; ++h) EXPECT_EQ(hueadjust::WrapHue(h), Wrap(h)) << h;
    int big = hueadjust::WrapHue(static_cast<int64_t>(INT32_MAX) + 200);
    int small = hueadjust::WrapHue(static_cast<int64_t>(INT32_MIN) + 3);
    EXPECT_GE(big, 0);
    EXPECT_LE(big, 255);
    EXPECT_EQ((static_cast<int64_t>(INT32_MAX) + 200 - big) % 255, 0);
    EXPECT_GE(small, 0);
    EXPECT_EQ((static_cast<int64_t>(INT32_MIN) + 3 - small) % 255, 0);
}

TEST(HueArithmetic, InkScalingTruncatesAndLimits) {
    EXPECT_EQ(hueadjust::ScaleInk(55, 2.0), 110);
    EXPECT_EQ(hueadjust::ScaleInk(190, 0.0), 0);
    EXPECT_EQ(hueadjust::ScaleInk(200, 1.5), 255);
    EXPECT_EQ(hueadjust::ScaleInk(99, 0.5), 49);
    EXPECT_EQ(hueadjust::ScaleInk(10, -3.0), 0);
    EXPECT_EQ(hueadjust::ScaleInk(10, 1e300), 255);
    EXPECT_EQ(hueadjust::ScaleInk(10, -1e300), 0);
    EXPECT_EQ(hueadjust::ScaleInk(10, std::numeric_limits<double>::quiet_NaN()), 0);
    for (int ink = 0; ink < 256; ++ink)
        for (double f : {0.0, 0.25, 0.5, 0.99, 1.0, 1.3, 1.75, 2.0})
            EXPECT_EQ(hueadjust::ScaleInk(static_cast<BYTE>(ink), f), Ink(static_cast<BYTE>(ink), f));
}

TEST(HueArithmetic, LevelFactors) {
    EXPECT_EQ(hueadjust::LevelFactor(0), 1.0);
    EXPECT_EQ(hueadjust::LevelFactor(100), 2.0);
    EXPECT_EQ(hueadjust::LevelFactor(-100), 0.0);
    EXPECT_EQ(hueadjust::LevelFactor(-50), 0.5);
    EXPECT_EQ(hueadjust::LevelFactor(30), 30 / 100.0 + 1.0);
}

// ---- ColorHueSaturation -------------------------------------------------

HDIB HueSat(HDIB im, int hue, int sat, int light, UINT from, UINT to) {
    return ColorHueSaturation(im, hue, sat, light, from, to, 0, nullptr);
}

TEST(ColorHueSaturation, ZeroAmountsStillPassThroughHsi) {
    auto op = [](HDIB im) { return HueSat(im, 0, 0, 0, 0, 0); };
    ExpectRgb(Through({255, 0, 0}, op), {254, 0, 0});
    ExpectRgb(Through({10, 200, 30}, op), {10, 199, 28});
}

TEST(ColorHueSaturation, HalfTurnAdds127HueSteps) {
    ExpectRgb(Through({255, 0, 0}, [](HDIB im) { return HueSat(im, 180, 0, 0, 0, 0); }),
              {0, 254, 251});
}

TEST(ColorHueSaturation, RangeAcrossZeroSelectsMagentaToYellow) {
    // lo 212, hi 42: a selected colour comes back through HSI, a left one
    // keeps its bytes.
    auto op = [](HDIB im) { return HueSat(im, 0, 0, 0, 300, 60); };
    for (Rgb c : {Rgb{255, 0, 255}, Rgb{255, 0, 0}, Rgb{255, 255, 0}, Rgb{255, 0, 128}})
        ExpectRgb(Through(c, op), RefHueSaturationUnits(c, 0, 0, 0, 212, 42));
    for (Rgb c : {Rgb{0, 255, 0}, Rgb{0, 255, 255}, Rgb{0, 0, 255}, Rgb{10, 200, 30}})
        ExpectRgb(Through(c, op), c);
    ExpectRgb(Through({255, 0, 0}, op), {254, 0, 0});
}

TEST(ColorHueSaturation, SaturationAndLightnessExtremes) {
    for (Rgb c : {Rgb{255, 0, 0}, Rgb{10, 200, 30}, Rgb{90, 60, 250}}) {
        Rgb grey = Through(c, [](HDIB im) { return HueSat(im, 0, -255, 0, 0, 0); });
        EXPECT_EQ(grey.r, grey.g);
        EXPECT_EQ(grey.g, grey.b);
        EXPECT_EQ(grey.r, Hsi(c)[2]);
        // Lightness 255 gives m2 = 1 + s - s, which is 1 only up to rounding:
        // white, or 254 in a channel.
        Rgb light = Through(c, [](HDIB im) { return HueSat(im, 0, 0, 255, 0, 0); });
        ExpectRgb(light, Move(Hsi(c), 0, 0, 255));
        EXPECT_GE(std::min({light.r, light.g, light.b}), 254);
    }
    ExpectRgb(Through({255, 0, 0}, [](HDIB im) { return HueSat(im, 0, 0, 255, 0, 0); }),
              {255, 255, 255});
}

TEST(ColorHueSaturation, GreyTakesPartWithHueZero) {
    // A grey's hue byte is 0 (red): it is in a range round red, and
    // saturation colours it with that hue plus the shift.
    Rgb grey{100, 100, 100};
    EXPECT_EQ(Hsi(grey)[0], 0);
    Rgb reddish = Through(grey, [](HDIB im) { return HueSat(im, 0, 200, 0, 340, 20); });
    EXPECT_GT(reddish.r, reddish.g);
    EXPECT_EQ(reddish.g, reddish.b);
    ExpectRgb(reddish, RefHueSaturationUnits(grey, 0, 200, 0, Units(340), Units(20)));
    ExpectRgb(Through(grey, [](HDIB im) { return HueSat(im, 120, 200, 0, 0, 0); }),
              RefHueSaturationUnits(grey, 85, 200, 0, 0, 255));
    ExpectRgb(Through(grey, [](HDIB im) { return HueSat(im, 0, 200, 0, 100, 200); }), grey);
}

TEST(ColorHueSaturation, WholeImagesMatchTheReference) {
    paxtest::Rng rng(11);
    for (int w = 1; w <= 9; ++w) {
        int h = 1 + w % 4;
        HDIB im = Random(w, h, 100 + w);
        int hue = rng.Below(361) - 180, sat = rng.Below(511) - 255, light = rng.Below(101) - 50;
        UINT from = static_cast<UINT>(rng.Below(361)), to = static_cast<UINT>(rng.Below(361));
        if (from == to) to = 0, from = 0;
        HDIB out = HueSat(im, hue, sat, light, from, to);
        SCOPED_TRACE(testing::Message() << "width " << w << " hue " << hue << " range " << from
                                        << ".." << to);
        ExpectImage(im, out, [&](Rgb p) { return RefHueSaturation(p, hue, sat, light, from, to); });
        GlobalFree(out);
        GlobalFree(im);
    }
}

// ---- Desaturate -----------------------------------------------------------

TEST(Desaturate, GreyOfMaxPlusMinOverTwo) {
    auto op = [](HDIB im) { return Desaturate(im, 0, nullptr); };
    ExpectRgb(Through({255, 0, 0}, op), {127, 127, 127});
    ExpectRgb(Through({10, 200, 30}, op), {105, 105, 105});
    ExpectRgb(Through({255, 255, 254}, op), {254, 254, 254});
    ExpectRgb(Through({0, 0, 255}, op), {127, 127, 127});
    ExpectRgb(Through({255, 255, 0}, op), {127, 127, 127});
    for (int v : {0, 1, 77, 128, 254, 255}) {
        Rgb g{BYTE(v), BYTE(v), BYTE(v)};
        ExpectRgb(Through(g, op), g);
    }
}

TEST(Desaturate, HeaderAndPaddingAreTheSources) {
    for (int w = 1; w <= 9; ++w) {
        HDIB im = Random(w, 3, 200 + w); // padding bytes 0xA5
        HDIB out = Desaturate(im, 0, nullptr);
        ExpectImage(im, out, RefDesaturate);
        GlobalFree(out);
        GlobalFree(im);
    }
}

TEST(Desaturate, TableAgreesWithTheStraightPixelOnSampledColours) {
    hueadjust::GreyTable table;
    paxtest::Rng rng(5);
    for (int i = 0; i < 20000; ++i) {
        BYTE rgb[3] = {rng.Byte(), rng.Byte(), rng.Byte()}, a[3], b[3];
        hueadjust::DesaturatePixel(rgb, a);
        hueadjust::DesaturatePixelFast(table, rgb, b);
        ASSERT_TRUE(a[0] == b[0] && a[1] == b[1] && a[2] == b[2]);
    }
}

// ---- ReplaceColor -----------------------------------------------------------

TEST(ReplaceColor, PureRedTurnsGreen) {
    const BYTE target[3] = {0, 0, 255}, tolerance[3] = {0, 0, 0};
    HDIB im = paxtest::MakeDib24(4, 2, [](int x, int y) {
        return (x + y) % 2 ? Rgb{255, 0, 0} : Rgb{BYTE(250 - x), BYTE(3 * y), 0};
    });
    HDIB out = ReplaceColor(im, target, tolerance, 120, 0, 0, 0, nullptr);
    ExpectImage(im, out, [](Rgb p) { return p == Rgb{255, 0, 0} ? Rgb{0, 254, 0} : p; });
    GlobalFree(out);
    GlobalFree(im);
}

TEST(ReplaceColor, ToleranceBytesAreRedGreenBlue) {
    const BYTE target[3] = {10, 20, 30}, tolerance[3] = {5, 0, 0};
    auto op = [&](HDIB im) { return ReplaceColor(im, target, tolerance, 0, 0, 0, 0, nullptr); };
    for (int r = 20; r <= 40; ++r) {
        Rgb c{BYTE(r), 20, 10};
        Rgb want = (r >= 25 && r <= 35) ? Move(Hsi(c), 0, 0, 0) : c;
        ExpectRgb(Through(c, op), want);
    }
    for (Rgb c : {Rgb{30, 21, 10}, Rgb{30, 19, 10}, Rgb{30, 20, 11}, Rgb{30, 20, 9}, Rgb{30, 20, 15}})
        ExpectRgb(Through(c, op), c);
    ExpectRgb(Through({30, 20, 10}, op), {29, 19, 10});
}

TEST(ReplaceColor, FullToleranceActsLikeHueSaturationOverEveryHue) {
    const BYTE target[3] = {128, 7, 200}, tolerance[3] = {255, 255, 255};
    HDIB im = Random(7, 5, 31);
    HDIB a = ReplaceColor(im, target, tolerance, -70, 33, -12, 0, nullptr);
    HDIB b = ColorHueSaturation(im, -70, 33, -12, 0, 0, 0, nullptr);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_TRUE(paxtest::BlockBytes(a) == paxtest::BlockBytes(b));
    ExpectImage(im, a, [](Rgb p) { return RefHueSaturation(p, -70, 33, -12, 0, 0); });
    GlobalFree(a);
    GlobalFree(b);
    GlobalFree(im);
}

TEST(ReplaceColor, WholeImagesMatchTheReference) {
    paxtest::Rng rng(12);
    for (int w = 1; w <= 9; ++w) {
        HDIB im = Random(w, 4, 300 + w);
        BYTE target[3] = {rng.Byte(), rng.Byte(), rng.Byte()};
        BYTE tolerance[3] = {BYTE(rng.Below(160)), BYTE(rng.Below(160)), BYTE(rng.Below(160))};
        int hue = rng.Below(361) - 180, sat = rng.Below(511) - 255, light = rng.Below(511) - 255;
        HDIB out = ReplaceColor(im, target, tolerance, hue, sat, light, 0, nullptr);
        ExpectImage(im, out, [&](Rgb p) {
            return RefReplaceUnits(p, target, tolerance, Units(hue), sat, light);
        });
        GlobalFree(out);
        GlobalFree(im);
    }
}

// ---- ColorCMYKLevels ----------------------------------------------------

HDIB Levels(HDIB im, int c, int m, int y, int k) {
    return ColorCMYKLevels(im, c, m, y, k, 0, nullptr);
}

TEST(ColorCMYKLevels, ZeroLevelsGiveTheSourceExactly) {
    HDIB im = Random(9, 6, 41);
    HDIB out = Levels(im, 0, 0, 0, 0);
    ASSERT_NE(out, nullptr);
    EXPECT_TRUE(paxtest::BlockBytes(out) == paxtest::BlockBytes(im));
    GlobalFree(out);
    GlobalFree(im);
}

TEST(ColorCMYKLevels, DocumentedColours) {
    ExpectRgb(Through({10, 200, 30}, [](HDIB im) { return Levels(im, -100, 0, 0, 0); }),
              {200, 200, 30});
    ExpectRgb(Through({10, 200, 30}, [](HDIB im) { return Levels(im, 0, 0, 0, 100); }),
              {0, 145, 0});
}

TEST(ColorCMYKLevels, NoBlackMakesGreysWhite) {
    auto op = [](HDIB im) { return Levels(im, 0, 0, 0, -100); };
    for (int v : {0, 50, 200, 255}) ExpectRgb(Through({BYTE(v), BYTE(v), BYTE(v)}, op), {255, 255, 255});
    // (10, 200, 30): C 190, M 0, Y 170 stay, K goes.
    ExpectRgb(Through({10, 200, 30}, op), {65, 255, 85});
}

TEST(ColorCMYKLevels, OnlyBlackChangesAGrey) {
    Rgb grey{90, 90, 90};
    ExpectRgb(Through(grey, [](HDIB im) { return Levels(im, 100, -100, 100, 0); }), grey);
    ExpectRgb(Through(grey, [](HDIB im) { return Levels(im, 0, 0, 0, 50); }),
              RefCmyk(grey, 0, 0, 0, 50));
    EXPECT_FALSE(RefCmyk(grey, 0, 0, 0, 50) == grey);
}

TEST(ColorCMYKLevels, WholeImagesMatchTheReference) {
    paxtest::Rng rng(13);
    for (int w = 1; w <= 9; ++w) {
        HDIB im = Random(w, 3, 400 + w);
        int l[4];
        for (int &v : l) v = rng.Below(201) - 100;
        HDIB out = Levels(im, l[0], l[1], l[2], l[3]);
        ExpectImage(im, out, [&](Rgb p) { return RefCmyk(p, l[0], l[1], l[2], l[3]); });
        GlobalFree(out);
        GlobalFree(im);
    }
}

} // namespace
