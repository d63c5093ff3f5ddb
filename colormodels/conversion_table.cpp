// The conversions between two non-RGB models, generated from the table of
// conversion_list.h. A conversion into CMYK always takes the RGB bytes and
// does what RGBtoCMYK does; CMYtoCMYK and CMYKtoCMY come out the same as their
// direct formulas (K = min(C, M, Y) subtracted; ink + K limited at 255).
#include "conversion_table.h"

#include "color_math.h"
#include "conversion_list.h"

#include <array>

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

#define PAX_PATH_BASE Path::Base
#define PAX_PATH_B Path::Bytes
#define PAX_PATH_D Path::Doubles
#define PAX_PATH_I Path::Integer
#define PAX_ENTRY(F, T, P) {MODEL_##F, MODEL_##T, PAX_PATH_##P, #F "to" #T, PAX_CONVERSION_FN(T, ::F##to##T)},
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
