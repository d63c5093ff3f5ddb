// Worked values of the single-value conversions, and the byte rule.
#include "color_math.h"
#include "conversion_table.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

using Bytes3 = std::array<int, 3>;
using Bytes4 = std::array<int, 4>;

Bytes3 Apply(BYTE *(PAXCALL *fn)(BYTE *, const BYTE *), Bytes3 in) {
    BYTE src[3] = {BYTE(in[0]), BYTE(in[1]), BYTE(in[2])};
    BYTE dst[3] = {0xEE, 0xEE, 0xEE};
    EXPECT_EQ(fn(dst, src), dst);
    return {dst[0], dst[1], dst[2]};
}

Bytes3 Apply4(BYTE *(PAXCALL *fn)(BYTE *, const BYTE *), Bytes4 in) {
    BYTE src[4] = {BYTE(in[0]), BYTE(in[1]), BYTE(in[2]), BYTE(in[3])};
    BYTE dst[3] = {0xEE, 0xEE, 0xEE};
    EXPECT_EQ(fn(dst, src), dst);
    return {dst[0], dst[1], dst[2]};
}

Bytes4 ApplyQuad(CMYKQUAD(PAXCALL *fn)(const BYTE *), Bytes3 in) {
    BYTE src[3] = {BYTE(in[0]), BYTE(in[1]), BYTE(in[2])};
    const CMYKQUAD q = fn(src);
    return {q.c, q.m, q.y, q.k};
}

TEST(ClampToByte, ClampsAndTruncatesTowardZero) {
    EXPECT_EQ(pax::ClampToByte(254.0), 254);
    EXPECT_EQ(pax::ClampToByte(254.5), 254);
    EXPECT_EQ(pax::ClampToByte(254.99999999999997), 254);
    EXPECT_EQ(pax::ClampToByte(255.0), 255);
    EXPECT_EQ(pax::ClampToByte(255.0000001), 255);
    EXPECT_EQ(pax::ClampToByte(1e300), 255);
    EXPECT_EQ(pax::ClampToByte(0.999), 0);
    EXPECT_EQ(pax::ClampToByte(-0.5), 0);
    EXPECT_EQ(pax::ClampToByte(-1e300), 0);
}

TEST(HueRamp, CorrectsOnceAndFollowsTheFourSegments) {
    EXPECT_DOUBLE_EQ(pax::HueRamp(0.2, 0.8, 30), 0.5);
    EXPECT_DOUBLE_EQ(pax::HueRamp(0.2, 0.8, 390), 0.5); // 390 - 360
    EXPECT_DOUBLE_EQ(pax::HueRamp(0.2, 0.8, -330), 0.5); // -330 + 360
    EXPECT_DOUBLE_EQ(pax::HueRamp(0.2, 0.8, 100), 0.8);
    EXPECT_DOUBLE_EQ(pax::HueRamp(0.2, 0.8, 210), 0.5);
    EXPECT_DOUBLE_EQ(pax::HueRamp(0.2, 0.8, 300), 0.2);
    EXPECT_DOUBLE_EQ(pax::HueRamp(0.2, 0.8, 360), 0.2); // not above 360: no correction
}

TEST(LabF, LinearBelowTheThreshold) {
    EXPECT_EQ(pax::LabF(0), 0.13793103448275862);
    EXPECT_EQ(pax::LabF(0.008856), 0.008856 * 7.787 + 0.13793103448275862);
    EXPECT_EQ(pax::LabF(1), 1.0);
    EXPECT_NEAR(pax::LabF(0.125), 0.5, 1e-15);
}

TEST(RgbConversions, HSV) {
    EXPECT_EQ(Apply(RGBtoHSV, {255, 0, 0}), (Bytes3{0, 255, 255}));
    EXPECT_EQ(Apply(RGBtoHSV, {0, 255, 0}), (Bytes3{85, 255, 255}));
    EXPECT_EQ(Apply(RGBtoHSV, {0, 0, 255}), (Bytes3{170, 255, 255}));
    EXPECT_EQ(Apply(RGBtoHSV, {10, 200, 30}), (Bytes3{89, 242, 200}));
    EXPECT_EQ(Apply(RGBtoHSV, {255, 0, 1}), (Bytes3{254, 255, 255}));
    EXPECT_EQ(Apply(HSVtoRGB, {0, 255, 255}), (Bytes3{255, 0, 0}));
    EXPECT_EQ(Apply(HSVtoRGB, {255, 255, 255}), (Bytes3{255, 0, 0}));
    EXPECT_EQ(Apply(HSVtoRGB, {89, 242, 200}), (Bytes3{10, 200, 28}));
}

TEST(RgbConversions, HSI) {
    EXPECT_EQ(Apply(RGBtoHSI, {255, 0, 0}), (Bytes3{0, 255, 127}));
    EXPECT_EQ(Apply(HSItoRGB, {0, 255, 127}), (Bytes3{254, 0, 0}));
    EXPECT_EQ(Apply(RGBtoHSI, {255, 255, 254}), (Bytes3{42, 255, 254}));
}

TEST(RgbConversions, GreysGetTheChosenHueAndNoSaturation) {
    for (int v : {0, 1, 127, 128, 254, 255}) {
        EXPECT_EQ(Apply(RGBtoHSV, {v, v, v}), (Bytes3{pax::kGreyHue, 0, v}));
        EXPECT_EQ(Apply(RGBtoHSI, {v, v, v}), (Bytes3{pax::kGreyHue, 0, v}));
    }
    EXPECT_EQ(pax::kGreyHue, 0);
}

TEST(RgbConversions, CMYAndCMYK) {
    EXPECT_EQ(Apply(RGBtoCMY, {10, 200, 30}), (Bytes3{245, 55, 225}));
    EXPECT_EQ(Apply(CMYtoRGB, {245, 55, 225}), (Bytes3{10, 200, 30}));
    EXPECT_EQ(ApplyQuad(RGBtoCMYK, {10, 200, 30}), (Bytes4{190, 0, 170, 55}));
    EXPECT_EQ(ApplyQuad(RGBtoCMYK, {255, 255, 255}), (Bytes4{0, 0, 0, 0}));
    EXPECT_EQ(ApplyQuad(RGBtoCMYK, {0, 0, 0}), (Bytes4{0, 0, 0, 255}));
    EXPECT_EQ(Apply4(CMYKtoRGB, {190, 0, 170, 55}), (Bytes3{10, 200, 30}));
    EXPECT_EQ(Apply4(CMYKtoRGB, {200, 0, 100, 100}), (Bytes3{0, 155, 55})); // limited at 0
}

TEST(RgbConversions, CMYKQuadLayout) {
    BYTE src[3] = {10, 200, 30};
    const CMYKQUAD q = RGBtoCMYK(src);
    static_assert(sizeof(CMYKQUAD) == 4, "four bytes by value");
    uint32_t bits;
    std::memcpy(&bits, &q, 4);
    EXPECT_EQ(bits, 190u | 0u << 8 | 170u << 16 | 55u << 24);
}

TEST(RgbConversions, YIQAndYUV) {
    EXPECT_EQ(Apply(RGBtoYIQ, {0, 0, 0}), (Bytes3{0, 127, 127}));
    EXPECT_EQ(Apply(RGBtoYUV, {0, 0, 0}), (Bytes3{0, 127, 127}));
    EXPECT_EQ(Apply(RGBtoYIQ, {255, 255, 255}), (Bytes3{255, 127, 127}));
    EXPECT_EQ(Apply(RGBtoYUV, {255, 255, 255}), (Bytes3{255, 127, 127}));
    EXPECT_EQ(Apply(YIQtoRGB, {255, 127, 127}), (Bytes3{254, 255, 254}));
    EXPECT_EQ(Apply(YUVtoRGB, {255, 127, 127}), (Bytes3{254, 255, 254}));
    EXPECT_EQ(Apply(RGBtoYUV, {255, 0, 0}), (Bytes3{76, 84, 255}));
    EXPECT_EQ(Apply(RGBtoYIQ, {255, 0, 0}), (Bytes3{76, 255, 181}));
}

TEST(RgbConversions, XYZ) {
    EXPECT_EQ(Apply(RGBtoXYZ, {255, 255, 255}), (Bytes3{250, 254, 46}));
    EXPECT_EQ(Apply(RGBtoXYZ, {255, 0, 0}), (Bytes3{154, 76, 0}));
}

TEST(RgbConversions, LAB) {
    EXPECT_EQ(Apply(RGBtoLAB, {0, 0, 0}), (Bytes3{0, 150, 153}));
    EXPECT_EQ(Apply(RGBtoLAB, {255, 255, 255}), (Bytes3{255, 150, 153}));
    EXPECT_EQ(Apply(RGBtoLAB, {255, 0, 0}), (Bytes3{156, 250, 255}));
    EXPECT_EQ(Apply(RGBtoLAB, {0, 255, 0}), (Bytes3{206, 0, 204}));
    EXPECT_EQ(Apply(RGBtoLAB, {0, 0, 255}), (Bytes3{102, 206, 0}));
    EXPECT_EQ(Apply(RGBtoLAB, {128, 128, 128}), (Bytes3{194, 150, 153}));
    EXPECT_EQ(Apply(LABtoRGB, {255, 150, 153}), (Bytes3{253, 254, 255}));
    EXPECT_EQ(Apply(LABtoRGB, {0, 150, 153}), (Bytes3{0, 0, 0}));
}

TEST(ComposedConversions, CMYK) {
    EXPECT_EQ(Apply4(CMYKtoCMY, {0, 0, 0, 255}), (Bytes3{255, 255, 255}));
    EXPECT_EQ(Apply4(CMYKtoCMY, {10, 20, 30, 40}), (Bytes3{50, 60, 70}));
    EXPECT_EQ(Apply4(CMYKtoCMY, {200, 100, 0, 100}), (Bytes3{255, 200, 100})); // limited at 255
    EXPECT_EQ(Apply4(CMYKtoHSV, {0, 255, 255, 0}), (Bytes3{0, 255, 255}));
    EXPECT_EQ(ApplyQuad(CMYtoCMYK, {0, 255, 255}), (Bytes4{0, 255, 255, 0}));
    EXPECT_EQ(ApplyQuad(CMYtoCMYK, {50, 60, 70}), (Bytes4{0, 10, 20, 50}));
}

TEST(ComposedConversions, DoublesDifferFromBytes) {
    EXPECT_EQ(Apply(HSItoXYZ, {130, 183, 14}), (Bytes3{11, 17, 4}));
    EXPECT_EQ(Apply(RGBtoXYZ, Apply(HSItoRGB, {130, 183, 14})), (Bytes3{10, 16, 4}));
    EXPECT_EQ(Apply(HSVtoLAB, {80, 57, 190}), (Bytes3{219, 135, 161}));
    EXPECT_EQ(Apply(RGBtoLAB, Apply(HSVtoRGB, {80, 57, 190})), (Bytes3{219, 134, 161}));
    EXPECT_EQ(Apply(XYZtoLAB, {52, 127, 6}), (Bytes3{198, 57, 213}));
    EXPECT_EQ(Apply(RGBtoLAB, Apply(XYZtoRGB, {52, 127, 6})), (Bytes3{197, 57, 213}));
    EXPECT_EQ(Apply(YIQtoLAB, {93, 199, 81}), (Bytes3{176, 150, 237}));
    EXPECT_EQ(Apply(RGBtoLAB, Apply(YIQtoRGB, {93, 199, 81})), (Bytes3{175, 150, 237}));
    EXPECT_EQ(Apply(XYZtoLAB, {250, 254, 46}), (Bytes3{254, 150, 154}));
}

TEST(ComposedConversions, ThroughRgbBytes) {
    EXPECT_EQ(Apply(LABtoXYZ, {255, 150, 153}), (Bytes3{248, 253, 46}));
    EXPECT_EQ(Apply(YIQtoYUV, {255, 127, 127}), (Bytes3{254, 127, 127}));
    EXPECT_EQ(Apply(YIQtoYUV, {0, 127, 127}), (Bytes3{0, 127, 127}));
    EXPECT_EQ(Apply(YUVtoYIQ, {255, 127, 127}), (Bytes3{254, 127, 126}));
}

TEST(ComposedConversions, NominalGreysOfOtherModels) {
    EXPECT_EQ(Apply(LABtoRGB, {128, 150, 153}), (Bytes3{46, 46, 47}));
    EXPECT_EQ(Apply(LABtoHSV, {128, 150, 153}), (Bytes3{170, 5, 47}));
    EXPECT_EQ(Apply(YIQtoRGB, {128, 127, 127}), (Bytes3{127, 128, 127}));
    EXPECT_EQ(Apply(YIQtoHSV, {128, 127, 127}), (Bytes3{85, 1, 128}));
}

TEST(ConversionTable, FindsEveryPairAndNothingElse) {
    int found = 0;
    for (int from = -1; from <= 11; ++from)
        for (int to = -1; to <= 11; ++to) {
            const pax::Conversion c = pax::FindConversion(from, to);
            const bool valid = from >= MODEL_RGB && from <= MODEL_LAB && to >= MODEL_RGB &&
                               to <= MODEL_LAB && from != to;
            if (!valid) {
                EXPECT_TRUE(!c.toThree && !c.toCmyk) << from << " " << to;
                continue;
            }
            ++found;
            EXPECT_NE(!c.toThree, !c.toCmyk) << from << " " << to;
            EXPECT_EQ(c.toCmyk != nullptr, to == MODEL_CMYK);
        }
    EXPECT_EQ(found, 72);
    EXPECT_EQ(pax::FindConversion(MODEL_RGB, MODEL_HSV).toThree, &RGBtoHSV);
    EXPECT_EQ(pax::FindConversion(MODEL_YUV, MODEL_CMYK).toCmyk, &YUVtoCMYK);
    EXPECT_EQ(pax::FindConversion(MODEL_LAB, MODEL_HSI).toThree, &LABtoHSI);
}

TEST(ConversionTable, EntriesMatchTheirNames) {
    const char *names[10] = {"", "RGB", "YUV", "CMY", "CMYK", "YIQ", "HSV", "HSI", "XYZ", "LAB"};
    for (const pax::ConversionEntry &e : pax::kConversions) {
        EXPECT_EQ(std::string(names[e.fromModel]) + "to" + names[e.toModel], e.name);
        const pax::Conversion c = pax::FindConversion(e.fromModel, e.toModel);
        EXPECT_EQ(c.toThree, e.fn.toThree);
        EXPECT_EQ(c.toCmyk, e.fn.toCmyk);
        EXPECT_EQ(e.path == pax::Path::Base, e.fromModel == MODEL_RGB || e.toModel == MODEL_RGB);
    }
}

} // namespace

namespace {

// HSI to XYZ carrying RGB as doubles, written out from the formulas: the
// reference for the conversion through doubles.
Bytes3 ReferenceHSItoXYZ(Bytes3 hsi) {
    const double h = hsi[0] * 360.0 / 255.0, l = hsi[2] / 255.0, s = hsi[1] / 255.0;
    const double m2 = l <= 0.5 ? (s + 1) * l : l + s - l * s;
    const double m1 = l + l - m2;
    double rgb[3] = {l, l, l};
    if (l != 0) {
        const double at[3] = {h + 120, h, h - 120};
        for (int c = 0; c < 3; ++c) {
            double x = at[c];
            if (x > 360)
                x -= 360;
            else if (x < 0)
                x += 360;
            rgb[c] = x < 60 ? (m2 - m1) * x / 60 + m1
                            : x < 180 ? m2 : x < 240 ? (m2 - m1) * (240 - x) / 60 + m1 : m1;
        }
    }
    for (double &v : rgb) v = v < 0 ? 0 : v > 1 ? 1 : v;
    const double r = rgb[0], g = rgb[1], b = rgb[2];
    return {pax::ClampToByte((g * 0.174 + r * 0.607 + b * 0.2) * 255),
            pax::ClampToByte((g * 0.587 + r * 0.299 + b * 0.114) * 255),
            pax::ClampToByte((g * 0.066 + b * 0.116) * 255)};
}

TEST(ComposedConversions, HSItoXYZMatchesTheFormulasThroughDoubles) {
    int differsFromBytes = 0;
    for (uint32_t i = 0; i < (1u << 24); i += 251) {
        const Bytes3 hsi{int(i & 255), int(i >> 8 & 255), int(i >> 16)};
        const Bytes3 got = Apply(HSItoXYZ, hsi);
        ASSERT_EQ(got, ReferenceHSItoXYZ(hsi)) << hsi[0] << " " << hsi[1] << " " << hsi[2];
        if (got != Apply(RGBtoXYZ, Apply(HSItoRGB, hsi))) ++differsFromBytes;
    }
    EXPECT_GT(differsFromBytes, 0);
}

// Each conversion the table marks as carried through doubles differs somewhere
// from the two exports called in turn; those marked bytes never do (checked
// on every value by the exhaustive sweeps).
TEST(ConversionTable, DoublesCellsDifferFromBytes) {
    for (const pax::ConversionEntry &e : pax::kConversions) {
        if (e.path != pax::Path::Doubles) continue;
        const pax::Conversion toRgb = pax::FindConversion(e.fromModel, MODEL_RGB);
        const pax::Conversion fromRgb = pax::FindConversion(MODEL_RGB, e.toModel);
        int differs = 0;
        for (uint32_t i = 0; i < (1u << 24); i += 97) {
            const BYTE src[3] = {BYTE(i), BYTE(i >> 8), BYTE(i >> 16)};
            BYTE direct[3], rgb[3], composed[3];
            e.fn.toThree(direct, src);
            toRgb.toThree(rgb, src);
            fromRgb.toThree(composed, rgb);
            if (std::memcmp(direct, composed, 3) != 0) ++differs;
        }
        EXPECT_GT(differs, 0) << e.name;
    }
}

} // namespace
