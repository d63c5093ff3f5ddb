// The conversions between two non-RGB models, generated from one table that
// names, cell by cell, how the RGB intermediate is carried:
//   BASE  conversion to or from RGB, written out in its model's file
//   B     through RGB bytes: the two exports called one after the other
//   D     through RGB doubles limited to 0..1; only the target rounds
//   I     CMY or CMYK source: integer RGB, then the target's from-RGB
// A conversion into CMYK always takes the RGB bytes and does what RGBtoCMYK
// does; CMYtoCMYK and CMYKtoCMY come out the same as their direct formulas.
#include "conversion_table.h"

#include "color_math.h"

#include <array>

// X(from, to, path), rows by source model, columns by target model.
#define PAX_CONVERSIONS(X)                                                                    \
    X(RGB, CMY, BASE) X(RGB, CMYK, BASE) X(RGB, HSV, BASE) X(RGB, HSI, BASE)                \
    X(RGB, YIQ, BASE) X(RGB, YUV, BASE) X(RGB, XYZ, BASE) X(RGB, LAB, BASE)                 \
    X(CMY, RGB, BASE) X(CMY, CMYK, I) X(CMY, HSV, I) X(CMY, HSI, I)                         \
    X(CMY, YIQ, I) X(CMY, YUV, I) X(CMY, XYZ, I) X(CMY, LAB, I)                             \
    X(CMYK, RGB, BASE) X(CMYK, CMY, I) X(CMYK, HSV, I) X(CMYK, HSI, I)                      \
    X(CMYK, YIQ, I) X(CMYK, YUV, I) X(CMYK, XYZ, I) X(CMYK, LAB, I)                         \
    X(HSV, RGB, BASE) X(HSV, CMY, B) X(HSV, CMYK, B) X(HSV, HSI, B)                         \
    X(HSV, YIQ, B) X(HSV, YUV, B) X(HSV, XYZ, B) X(HSV, LAB, D)                             \
    X(HSI, RGB, BASE) X(HSI, CMY, B) X(HSI, CMYK, B) X(HSI, HSV, B)                         \
    X(HSI, YIQ, D) X(HSI, YUV, D) X(HSI, XYZ, D) X(HSI, LAB, D)                             \
    X(YIQ, RGB, BASE) X(YIQ, CMY, B) X(YIQ, CMYK, B) X(YIQ, HSV, B)                         \
    X(YIQ, HSI, B) X(YIQ, YUV, B) X(YIQ, XYZ, B) X(YIQ, LAB, D)                             \
    X(YUV, RGB, BASE) X(YUV, CMY, B) X(YUV, CMYK, B) X(YUV, HSV, B)                         \
    X(YUV, HSI, B) X(YUV, YIQ, B) X(YUV, XYZ, B) X(YUV, LAB, D)                             \
    X(XYZ, RGB, BASE) X(XYZ, CMY, B) X(XYZ, CMYK, B) X(XYZ, HSV, B)                         \
    X(XYZ, HSI, B) X(XYZ, YIQ, B) X(XYZ, YUV, B) X(XYZ, LAB, D)                             \
    X(LAB, RGB, BASE) X(LAB, CMY, B) X(LAB, CMYK, B) X(LAB, HSV, B)                         \
    X(LAB, HSI, B) X(LAB, YIQ, B) X(LAB, YUV, B) X(LAB, XYZ, B)

#define PAX_COUNT_ALL(F, T, P) +1
static_assert(0 PAX_CONVERSIONS(PAX_COUNT_ALL) == pax::kConversionCount, "one cell per ordered pair");

namespace pax {
namespace {

constexpr int CountPath(char path) {
    int n = 0;
#define PAX_COUNT_ONE(F, T, P) n += (#P[0] == path && #P[1] == '\0') ? 1 : 0;
    PAX_CONVERSIONS(PAX_COUNT_ONE)
#undef PAX_COUNT_ONE
    return n;
}
static_assert(CountPath('B') == 34 && CountPath('D') == 8 && CountPath('I') == 14,
              "16 conversions with RGB, 56 composed");

// B and I: both halves as exports, RGB as bytes in between.
template <ToThree ToRgb, ToThree FromRgb>
BYTE *ViaBytes(BYTE *dst, const BYTE *src) {
    BYTE rgb[3];
    ToRgb(rgb, src);
    return FromRgb(dst, rgb);
}

template <ToThree ToRgb>
CMYKQUAD ViaBytesToCMYK(const BYTE *src) {
    BYTE rgb[3];
    ToRgb(rgb, src);
    return RGBtoCMYK(rgb);
}

// D: the source's half stops before * 255; each channel is limited to 0..1.
template <UnitRGB (*ToUnit)(const BYTE *), BYTE *(*FromUnit)(BYTE *, UnitRGB)>
BYTE *ViaDoubles(BYTE *dst, const BYTE *src) {
    return FromUnit(dst, ClampUnit(ToUnit(src)));
}

} // namespace
} // namespace pax

// The exports. Each shape macro is picked by the target model's token.
#define PAX_HALVES_B(F, T) F##toRGB, RGBto##T
#define PAX_HALVES_I(F, T) F##toRGB, RGBto##T
#define PAX_HALVES_D(F, T) pax::F##toUnitRGB, pax::UnitRGBto##T
#define PAX_VIA_B ViaBytes
#define PAX_VIA_I ViaBytes
#define PAX_VIA_D ViaDoubles

#define PAX_THREE(F, T, P)                                                                    \
    BYTE *PAXCALL F##to##T(BYTE *dst, const BYTE *src) {                                      \
        return pax::PAX_VIA_##P<PAX_HALVES_##P(F, T)>(dst, src);                              \
    }
#define PAX_QUAD(F, T, P)                                                                     \
    CMYKQUAD PAXCALL F##to##T(const BYTE *src) { return pax::ViaBytesToCMYK<F##toRGB>(src); }
#define PAX_SHAPE_RGB PAX_THREE
#define PAX_SHAPE_CMY PAX_THREE
#define PAX_SHAPE_CMYK PAX_QUAD
#define PAX_SHAPE_HSV PAX_THREE
#define PAX_SHAPE_HSI PAX_THREE
#define PAX_SHAPE_YIQ PAX_THREE
#define PAX_SHAPE_YUV PAX_THREE
#define PAX_SHAPE_XYZ PAX_THREE
#define PAX_SHAPE_LAB PAX_THREE

#define PAX_DEFINE_BASE(F, T)
#define PAX_DEFINE_B(F, T) PAX_SHAPE_##T(F, T, B)
#define PAX_DEFINE_D(F, T) PAX_SHAPE_##T(F, T, D)
#define PAX_DEFINE_I(F, T) PAX_SHAPE_##T(F, T, I)
#define PAX_DEFINE(F, T, P) PAX_DEFINE_##P(F, T)
PAX_CONVERSIONS(PAX_DEFINE)

namespace pax {

#define PAX_FN_RGB(fn) Conversion{fn, nullptr}
#define PAX_FN_CMY(fn) Conversion{fn, nullptr}
#define PAX_FN_CMYK(fn) Conversion{nullptr, fn}
#define PAX_FN_HSV(fn) Conversion{fn, nullptr}
#define PAX_FN_HSI(fn) Conversion{fn, nullptr}
#define PAX_FN_YIQ(fn) Conversion{fn, nullptr}
#define PAX_FN_YUV(fn) Conversion{fn, nullptr}
#define PAX_FN_XYZ(fn) Conversion{fn, nullptr}
#define PAX_FN_LAB(fn) Conversion{fn, nullptr}
#define PAX_PATH_BASE Path::Base
#define PAX_PATH_B Path::Bytes
#define PAX_PATH_D Path::Doubles
#define PAX_PATH_I Path::Integer
#define PAX_ENTRY(F, T, P) {MODEL_##F, MODEL_##T, PAX_PATH_##P, #F "to" #T, PAX_FN_##T(::F##to##T)},
const ConversionEntry kConversions[kConversionCount] = {PAX_CONVERSIONS(PAX_ENTRY)};

namespace {
// [from][to] over codes 0..9; row and column 0 and the diagonal stay empty.
using Grid = std::array<std::array<Conversion, 10>, 10>;
constexpr Grid MakeGrid() {
    Grid grid{};
    constexpr ConversionEntry entries[] = {PAX_CONVERSIONS(PAX_ENTRY)};
    for (const ConversionEntry &e : entries) grid[e.fromModel][e.toModel] = e.fn;
    return grid;
}
constexpr Grid kGrid = MakeGrid();
} // namespace

Conversion FindConversion(int fromModel, int toModel) {
    if (fromModel < MODEL_RGB || fromModel > MODEL_LAB || toModel < MODEL_RGB || toModel > MODEL_LAB)
        return {nullptr, nullptr};
    return kGrid[fromModel][toModel];
}

} // namespace pax
