// The documented examples of the four hue-based adjustments, whole-image
// comparisons with straightforward reference pixels, and the hue arithmetic.
#include "hue_test_util.h"

#include "hue_math.h"

#include <limits>

namespace {

using namespace huetest;
using Op = std::function<HDIB(HDIB)>;

// One pixel through an operation.
Rgb Through(Rgb c, const Op &op) {
    HDIB image = Solid(c), out = op(image);
    EXPECT_NE(out, nullptr);
    Rgb p = out ? paxtest::Pixel24(out, 0, 0) : Rgb{0, 0, 0};
    if (out) GlobalFree(out);
    GlobalFree(image);
    return p;
}

void ExpectRgb(Rgb got, Rgb want, const char *what = "") {
    EXPECT_TRUE(got == want) << what << ": (" << int(got.r) << ", " << int(got.g) << ", "
                             << int(got.b) << ") instead of (" << int(want.r) << ", "
                             << int(want.g) << ", " << int(want.b) << ")";
}

Op HueSat(int hue, int sat, int light, UINT from, UINT to) {
    return [=](HDIB im) { return ColorHueSaturation(im, hue, sat, light, from, to, 0, nullptr); };
}
Op Levels(int c, int m, int y, int k) {
    return [=](HDIB im) { return ColorCMYKLevels(im, c, m, y, k, 0, nullptr); };
}
Op Replace(const BYTE *target, const BYTE *tolerance, int hue) {
    return [=](HDIB im) { return ReplaceColor(im, target, tolerance, hue, 0, 0, 0, nullptr); };
}
const Op kDesaturate = [](HDIB im) { return Desaturate(im, 0, nullptr); };

TEST(HueArithmetic, UnitsWrapInksAndFactors) {
    const int units[][2] = {{180, 127}, {-180, -127}, {120, 85}, {300, 212}, {60, 42}};
    for (auto &u : units) EXPECT_EQ(hueadjust::DegreesToHueUnits(u[0]), u[1]) << u[0];
    for (int d = -360; d <= 360; ++d) EXPECT_EQ(hueadjust::DegreesToHueUnits(d), Units(d)) << d;

    // One correction inside -255..510, whole turns beyond.
    EXPECT_EQ(hueadjust::WrapHue(255), 255);
    EXPECT_EQ(hueadjust::WrapHue(510), 255);
    for (long long h = -2000; h <= 2000; ++h) EXPECT_EQ(hueadjust::WrapHue(h), Wrap(h)) << h;
    for (int64_t h : {static_cast<int64_t>(INT32_MAX) + 200, static_cast<int64_t>(INT32_MIN) + 3}) {
        int w = hueadjust::WrapHue(h);
        EXPECT_TRUE(w >= 0 && w <= 255) << h;
        EXPECT_EQ((h - w) % 255, 0) << h;
    }

    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct { BYTE ink; double factor; int want; } inks[] = {
        {55, 2.0, 110}, {190, 0.0, 0}, {200, 1.5, 255}, {99, 0.5, 49},
        {10, -3.0, 0},  {10, 1e300, 255}, {10, -1e300, 0}, {10, nan, 0}};
    for (auto &i : inks) EXPECT_EQ(hueadjust::ScaleInk(i.ink, i.factor), i.want) << i.factor;
    for (int ink = 0; ink < 256; ++ink)
        for (double f : {0.0, 0.25, 0.5, 0.99, 1.0, 1.3, 1.75, 2.0})
            EXPECT_EQ(hueadjust::ScaleInk(BYTE(ink), f), Ink(BYTE(ink), f));

    const std::pair<int, double> factors[] = {{0, 1.0}, {100, 2.0}, {-100, 0.0}, {-50, 0.5},
                                              {30, 30 / 100.0 + 1.0}};
    for (auto [level, f] : factors) EXPECT_EQ(hueadjust::LevelFactor(level), f) << level;
}

TEST(DocumentedExamples, SinglePixels) {
    static const BYTE red[3] = {0, 0, 255}, none[3] = {0, 0, 0};
    static const BYTE box[3] = {10, 20, 30}, redOnly[3] = {5, 0, 0};
    const struct { const char *what; Op op; Rgb in, want; } rows[] = {
        {"hue-saturation, all 0", HueSat(0, 0, 0, 0, 0), {255, 0, 0}, {254, 0, 0}},
        {"hue-saturation, all 0", HueSat(0, 0, 0, 0, 0), {10, 200, 30}, {10, 199, 28}},
        {"hue 180", HueSat(180, 0, 0, 0, 0), {255, 0, 0}, {0, 254, 251}},
        {"range 300..60 takes red", HueSat(0, 0, 0, 300, 60), {255, 0, 0}, {254, 0, 0}},
        {"lightness 255", HueSat(0, 0, 255, 0, 0), {255, 0, 0}, {255, 255, 255}},
        {"desaturate", kDesaturate, {255, 0, 0}, {127, 127, 127}},
        {"desaturate", kDesaturate, {10, 200, 30}, {105, 105, 105}},
        {"desaturate", kDesaturate, {255, 255, 254}, {254, 254, 254}},
        {"desaturate", kDesaturate, {0, 0, 255}, {127, 127, 127}},
        {"desaturate", kDesaturate, {255, 255, 0}, {127, 127, 127}},
        {"replace, red to green", Replace(red, none, 120), {255, 0, 0}, {0, 254, 0}},
        {"replace, amounts 0", Replace(box, redOnly, 0), {30, 20, 10}, {29, 19, 10}},
        {"cyan -100", Levels(-100, 0, 0, 0), {10, 200, 30}, {200, 200, 30}},
        {"black 100", Levels(0, 0, 0, 100), {10, 200, 30}, {0, 145, 0}},
        {"black -100", Levels(0, 0, 0, -100), {10, 200, 30}, {65, 255, 85}},
    };
    for (auto &r : rows) ExpectRgb(Through(r.in, r.op), r.want, r.what);
    for (int v : {0, 1, 50, 77, 128, 200, 254, 255}) {
        Rgb g{BYTE(v), BYTE(v), BYTE(v)};
        ExpectRgb(Through(g, kDesaturate), g, "a grey stays");
        ExpectRgb(Through(g, Levels(0, 0, 0, -100)), {255, 255, 255}, "no black: white");
        ExpectRgb(Through(g, Levels(100, -100, 100, 0)), g, "only black changes a grey");
    }
}

// Single colours against the reference pixels, and the documented properties
// they show.
TEST(SinglePixels, MatchTheReferences) {
    static const BYTE box[3] = {10, 20, 30}, redOnly[3] = {5, 0, 0};
    const struct { const char *what; Op op; std::function<Rgb(Rgb)> ref; } rows[] = {
        {"range 300..60", HueSat(0, 0, 0, 300, 60),
         [](Rgb p) { return RefHueSaturationUnits(p, 0, 0, 0, 212, 42); }},
        {"saturation -255", HueSat(0, -255, 0, 0, 0), [](Rgb p) { return Move(Hsi(p), 0, -255, 0); }},
        {"lightness 255", HueSat(0, 0, 255, 0, 0), [](Rgb p) { return Move(Hsi(p), 0, 0, 255); }},
        {"range round red", HueSat(0, 200, 0, 340, 20),
         [](Rgb p) { return RefHueSaturationUnits(p, 0, 200, 0, Units(340), Units(20)); }},
        {"shift 120", HueSat(120, 200, 0, 0, 0),
         [](Rgb p) { return RefHueSaturationUnits(p, 85, 200, 0, 0, 255); }},
        {"range 100..200", HueSat(0, 200, 0, 100, 200),
         [](Rgb p) { return RefHueSaturation(p, 0, 200, 0, 100, 200); }},
    };
    const Rgb colours[] = {{255, 0, 255}, {255, 0, 0},   {255, 255, 0},  {255, 0, 128},
                           {0, 255, 0},   {0, 255, 255}, {0, 0, 255},    {10, 200, 30},
                           {90, 60, 250}, {30, 20, 10},  {100, 100, 100}};
    for (auto &row : rows)
        for (Rgb c : colours) ExpectRgb(Through(c, row.op), row.ref(c), row.what);

    // Greens, cyans and blues are outside 300..60 and keep their bytes.
    for (Rgb c : {Rgb{0, 255, 0}, Rgb{0, 255, 255}, Rgb{0, 0, 255}, Rgb{10, 200, 30}})
        ExpectRgb(Through(c, HueSat(0, 0, 0, 300, 60)), c, "outside the range");
    // Red 25..35 with green exactly 20 and blue exactly 10 is in the box.
    for (int r = 20; r <= 40; ++r) {
        Rgb c{BYTE(r), 20, 10};
        ExpectRgb(Through(c, Replace(box, redOnly, 0)), r >= 25 && r <= 35 ? Move(Hsi(c), 0, 0, 0) : c,
                  "tolerance bytes red, green, blue");
    }
    for (Rgb c : {Rgb{30, 21, 10}, Rgb{30, 19, 10}, Rgb{30, 20, 11}, Rgb{30, 20, 9}, Rgb{30, 20, 15}})
        ExpectRgb(Through(c, Replace(box, redOnly, 0)), c, "outside the box");
    for (Rgb c : {Rgb{255, 0, 0}, Rgb{10, 200, 30}, Rgb{90, 60, 250}}) {
        BYTE i = Hsi(c)[2];
        ExpectRgb(Through(c, HueSat(0, -255, 0, 0, 0)), {i, i, i}, "grey of its lightness");
        // Lightness 255 gives m2 = 1 + s - s, 1 only up to rounding: white, or
        // 254 in a channel.
        Rgb light = Through(c, HueSat(0, 0, 255, 0, 0));
        EXPECT_GE(std::min({light.r, light.g, light.b}), 254);
    }
    // A grey's hue byte is 0 (red): saturation colours it red in a range round red.
    Rgb grey{100, 100, 100}, reddish = Through(grey, HueSat(0, 200, 0, 340, 20));
    EXPECT_EQ(Hsi(grey)[0], 0);
    EXPECT_TRUE(reddish.r > reddish.g && reddish.g == reddish.b);
    ExpectRgb(Through(grey, HueSat(0, 200, 0, 100, 200)), grey, "grey outside 100..200");
}

TEST(WholeImages, SpecialCases) {
    HDIB im = Random(7, 5, 31);
    // Pure red among other colours: only it changes.
    HDIB mixed = paxtest::MakeDib24(4, 2, [](int x, int y) {
        return (x + y) % 2 ? Rgb{255, 0, 0} : Rgb{BYTE(250 - x), BYTE(3 * y), 0};
    });
    const BYTE red[3] = {0, 0, 255}, none[3] = {0, 0, 0};
    HDIB out = ReplaceColor(mixed, red, none, 120, 0, 0, 0, nullptr);
    ExpectImage(mixed, out, [](Rgb p) { return p == Rgb{255, 0, 0} ? Rgb{0, 254, 0} : p; });
    GlobalFree(out);
    GlobalFree(mixed);

    // Full tolerance acts like hue-saturation over every hue.
    const BYTE target[3] = {128, 7, 200}, all[3] = {255, 255, 255};
    HDIB a = ReplaceColor(im, target, all, -70, 33, -12, 0, nullptr);
    HDIB b = ColorHueSaturation(im, -70, 33, -12, 0, 0, 0, nullptr);
    ASSERT_TRUE(a && b);
    EXPECT_TRUE(paxtest::BlockBytes(a) == paxtest::BlockBytes(b));
    ExpectImage(im, a, [](Rgb p) { return RefHueSaturation(p, -70, 33, -12, 0, 0); });
    GlobalFree(a);
    GlobalFree(b);

    // Zero levels give the source exactly.
    out = ColorCMYKLevels(im, 0, 0, 0, 0, 0, nullptr);
    ASSERT_NE(out, nullptr);
    EXPECT_TRUE(paxtest::BlockBytes(out) == paxtest::BlockBytes(im));
    GlobalFree(out);
    GlobalFree(im);
}

// Odd widths (beyond the 16-pixel vector steps), padding bytes set, random parameters: every operation against
// its reference pixel.
TEST(WholeImages, MatchTheReferences) {
    paxtest::Rng rng(11);
    for (int w : {1, 2, 3, 5, 8, 9, 17, 31, 47}) {
        HDIB im = Random(w, 1 + w % 4, 100 + w);
        int hue = rng.Below(361) - 180, sat = rng.Below(511) - 255, light = rng.Below(511) - 255;
        UINT from = UINT(rng.Below(361)), to = UINT(rng.Below(361));
        if (from == to) from = to = 0;
        BYTE target[3] = {rng.Byte(), rng.Byte(), rng.Byte()};
        BYTE tolerance[3] = {BYTE(rng.Below(160)), BYTE(rng.Below(160)), BYTE(rng.Below(160))};
        int l[4];
        for (int &v : l) v = rng.Below(201) - 100;
        SCOPED_TRACE(testing::Message() << "width " << w << " hue " << hue << " range " << from
                                        << ".." << to);
        const std::pair<HDIB, std::function<Rgb(Rgb)>> runs[] = {
            {ColorHueSaturation(im, hue, sat, light, from, to, 0, nullptr),
             [&](Rgb p) { return RefHueSaturation(p, hue, sat, light, from, to); }},
            {Desaturate(im, 0, nullptr), RefDesaturate},
            {ReplaceColor(im, target, tolerance, hue, sat, light, 0, nullptr),
             [&](Rgb p) { return RefReplaceUnits(p, target, tolerance, Units(hue), sat, light); }},
            {ColorCMYKLevels(im, l[0], l[1], l[2], l[3], 0, nullptr),
             [&](Rgb p) { return RefCmyk(p, l[0], l[1], l[2], l[3]); }},
        };
        for (auto &[out, ref] : runs) {
            ExpectImage(im, out, ref);
            if (out) GlobalFree(out);
        }
        GlobalFree(im);
    }
}

} // namespace
