// YIQ, YUV and XYZ kernels over planes.
//
// Between RGB doubles and the model (the conversions that carry RGB as
// doubles): the single-value conversions' double operations, in their order,
// on whole planes at a time, so the compiler can run them in vector registers
// (SSE2, or AVX2 where the processor has it). Vector IEEE arithmetic without
// fused multiply-add gives each lane the same double as the scalar code, so
// every byte equals the single-value result. Byte / 255 and byte / 255 - 0.5
// come from tables of the same expressions.
//
// Between RGB bytes and the model: fixed point that decides the byte. Each
// output is, as a real number, a + b0 x0 + b1 x1 + b2 x2 of the three input
// bytes x (the offsets of 0.5 and 127.5 fold into a). With every coefficient
// and a rounded to a multiple of 2^-S, the integer sum V is within
// 3 * 255 / 2 + 1 / 2 = 383 units of 2^-S of 2^S times the real value, and
// the single-value code's double lies within 1e-11 of the real value (a few
// roundings of values below 3000), far below one unit. So the double lies
// within M = 400 units of V / 2^S. ClampToByte is floor limited to 0..255,
// non-decreasing; where (V - M) >> S and (V + M) >> S limit to the same byte,
// that is the single-value result. Elsewhere (within 400 units of a whole
// number: about one value in 1300 at S = 21, one in 330 at S = 19) the pixel
// goes through the single-value conversion.
#include "color_math.h"
#include "conversion_table.h"
#include "run_kernels.h"
#include "simd_select.h"

#include <cstdint>

namespace pax {
namespace {

struct ByteDoubles {
    double unit[256], centred[256];
    ByteDoubles() {
        for (int v = 0; v < 256; ++v) {
            unit[v] = v / 255.0;
            centred[v] = v / 255.0 - 0.5;
        }
    }
};
const ByteDoubles &Doubles() {
    static const ByteDoubles d;
    return d;
}

PAX_INLINE void Widen(const BytePlanes &in, UnitPlanes &out, int n, const double *table) {
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; ++p) out.c[k][p] = table[in.c[k][p]];
}

// ClampToByte of v * 255 into bytes; v is overwritten.
PAX_INLINE void Narrow(double *v, BYTE *out, int n) {
    for (int p = 0; p < n; ++p) {
        double c = v[p] * 255;
        c = c > 255 ? 255.0 : c;
        c = c < 0 ? 0.0 : c;
        out[p] = static_cast<BYTE>(static_cast<int>(c));
    }
}
PAX_INLINE void Limit(double *v, int n) {
    for (int p = 0; p < n; ++p) {
        double c = v[p];
        c = c < 0 ? 0.0 : c;
        v[p] = c > 1 ? 1.0 : c;
    }
}

// ---- From RGB doubles r, g, b (0..1); results in place of r, g, b before
// the * 255. The temporaries keep each expression's order.
PAX_INLINE void YiqOf(UnitPlanes &u, int n) {
    for (int p = 0; p < n; ++p) {
        const double r = u.c[0][p] - 0.5, g = u.c[1][p] - 0.5, b = u.c[2][p] - 0.5;
        u.c[0][p] = g * 0.587 + r * 0.299 + b * 0.114 + 0.5;
        u.c[1][p] = r * 0.596 - g * 0.275 - b * 0.321 + 0.5;
        u.c[2][p] = r * 0.212 - g * 0.523 + b * 0.311 + 0.5;
    }
}
PAX_INLINE void YuvOf(UnitPlanes &u, int n) {
    for (int p = 0; p < n; ++p) {
        const double r = u.c[0][p] - 0.5, g = u.c[1][p] - 0.5, b = u.c[2][p] - 0.5;
        u.c[0][p] = g * 0.587 + r * 0.299 + b * 0.114 + 0.5;
        u.c[1][p] = b * 0.5 - (g * 0.3313 + r * 0.1687) + 0.5;
        u.c[2][p] = r * 0.5 - g * 0.4187 - b * 0.0813 + 0.5;
    }
}
PAX_INLINE void XyzOf(UnitPlanes &u, int n) {
    for (int p = 0; p < n; ++p) {
        const double r = u.c[0][p], g = u.c[1][p], b = u.c[2][p];
        u.c[0][p] = g * 0.174 + r * 0.607 + b * 0.2;
        u.c[1][p] = g * 0.587 + r * 0.299 + b * 0.114;
        u.c[2][p] = g * 0.066 + b * 0.116;
    }
}

// ---- To RGB doubles, from the model's bytes widened (centred for YIQ and
// YUV, unit for XYZ); results in place, before the * 255 or the limit.
PAX_INLINE void RgbOfYiq(UnitPlanes &u, int n) {
    for (int p = 0; p < n; ++p) {
        const double y = u.c[0][p], i = u.c[1][p], q = u.c[2][p];
        u.c[0][p] = i * 0.9557 + y + q * 0.6199 + 0.5;
        u.c[1][p] = y - i * 0.2716 - q * 0.6469 + 0.5;
        u.c[2][p] = y - i * 1.1082 + q * 1.7051 + 0.5;
    }
}
PAX_INLINE void RgbOfYuv(UnitPlanes &u, int n) {
    for (int p = 0; p < n; ++p) {
        const double y = u.c[0][p], cu = u.c[1][p], v = u.c[2][p];
        u.c[0][p] = v * 1.402 + y + 0.5;
        u.c[1][p] = y - cu * 0.3441 - v * 0.7141 + 0.5;
        u.c[2][p] = cu * 1.772 + y - v * 0.0001 + 0.5;
    }
}
PAX_INLINE void RgbOfXyz(UnitPlanes &u, int n) {
    for (int p = 0; p < n; ++p) {
        const double x = u.c[0][p], y = u.c[1][p], z = u.c[2][p];
        u.c[0][p] = x * 1.7467 - y * 0.2014 - z * 2.8135;
        u.c[1][p] = y * 2.0305 - x * 1.0002 - z * 0.271;
        u.c[2][p] = x * 0.5691 - y * 1.1553 + z * 8.7749;
    }
}

PAX_INLINE void NarrowAll(UnitPlanes &u, BytePlanes &out, int n) {
    for (int k = 0; k < 3; ++k) Narrow(u.c[k], out.c[k], n);
}

constexpr int kFixedMargin = 400;

// Coefficients of one output: x0, x1, x2, constant, in units of 2^-S.
struct FixedRows {
    int32_t row[3][4];
};
FixedRows MakeRows(const double (&c)[3][4], int shift) {
    FixedRows f{};
    const double scale = static_cast<double>(int64_t{1} << shift);
    for (int k = 0; k < 3; ++k)
        for (int j = 0; j < 4; ++j) {
            const double v = c[k][j] * scale;
            f.row[k][j] = static_cast<int32_t>(v < 0 ? v - 0.5 : v + 0.5);
        }
    return f;
}

// Real coefficients: for YIQ and YUV from RGB, v = sum c x + 127.5 (1 - sum c);
// from YIQ and YUV, the same with the luma coefficient 1.
constexpr double kYiqOfRgb[3][4] = {{0.299, 0.587, 0.114, 0.0}, {0.596, -0.275, -0.321, 127.5},
                                    {0.212, -0.523, 0.311, 127.5}};
constexpr double kYuvOfRgb[3][4] = {{0.299, 0.587, 0.114, 0.0}, {-0.1687, -0.3313, 0.5, 127.5},
                                    {0.5, -0.4187, -0.0813, 127.5}};
constexpr double kXyzOfRgb[3][4] = {{0.607, 0.174, 0.2, 0.0}, {0.299, 0.587, 0.114, 0.0},
                                    {0.0, 0.066, 0.116, 0.0}};
constexpr double kRgbOfYiq[3][4] = {{1, 0.9557, 0.6199, -127.5 * (0.9557 + 0.6199)},
                                    {1, -0.2716, -0.6469, 127.5 * (0.2716 + 0.6469)},
                                    {1, -1.1082, 1.7051, -127.5 * (1.7051 - 1.1082)}};
constexpr double kRgbOfYuv[3][4] = {{1, 0, 1.402, -127.5 * 1.402},
                                    {1, -0.3441, -0.7141, 127.5 * (0.3441 + 0.7141)},
                                    {1, 1.772, -0.0001, -127.5 * (1.772 - 0.0001)}};
constexpr double kRgbOfXyz[3][4] = {{1.7467, -0.2014, -2.8135, 0.0},
                                    {-1.0002, 2.0305, -0.271, 0.0},
                                    {0.5691, -1.1553, 8.7749, 0.0}};
// 2^S times the largest sum of |c| x + |a| stays below 2^31.
constexpr int kShiftOf = 21, kShiftBack = 19;

struct AllRows {
    FixedRows yiqOf = MakeRows(kYiqOfRgb, kShiftOf), yuvOf = MakeRows(kYuvOfRgb, kShiftOf),
              xyzOf = MakeRows(kXyzOfRgb, kShiftOf);
    FixedRows ofYiq = MakeRows(kRgbOfYiq, kShiftBack), ofYuv = MakeRows(kRgbOfYuv, kShiftBack),
              ofXyz = MakeRows(kRgbOfXyz, kShiftBack);
};
const AllRows &Rows() {
    static const AllRows rows;
    return rows;
}

// One output plane; `undecided` is set for the first plane and added to for
// the others.
template <int S, bool First>
PAX_INLINE void FixedPlane(const BytePlanes &in, BYTE *out, const int32_t (&c)[4], int *undecided, int n) {
    const int32_t c0 = c[0], c1 = c[1], c2 = c[2], a = c[3];
    for (int p = 0; p < n; ++p) {
        const int32_t v = c0 * in.c[0][p] + c1 * in.c[1][p] + c2 * in.c[2][p] + a;
        int32_t lo = (v - kFixedMargin) >> S, hi = (v + kFixedMargin) >> S;
        lo = lo < 0 ? 0 : (lo > 255 ? 255 : lo);
        hi = hi < 0 ? 0 : (hi > 255 ? 255 : hi);
        out[p] = static_cast<BYTE>(lo);
        if (First)
            undecided[p] = lo != hi;
        else
            undecided[p] |= lo != hi;
    }
}

template <int S>
PAX_INLINE void FixedLinear(const BytePlanes &in, BytePlanes &out, const FixedRows &f, ToThree exact,
                            int n) {
    alignas(32) int undecided[kRunBlock];
    FixedPlane<S, true>(in, out.c[0], f.row[0], undecided, n);
    FixedPlane<S, false>(in, out.c[1], f.row[1], undecided, n);
    FixedPlane<S, false>(in, out.c[2], f.row[2], undecided, n);
    int any = 0;
    for (int p = 0; p < n; ++p) any |= undecided[p];
    if (!any) return;
    for (int p = 0; p < n; ++p)
        if (undecided[p]) {
            const BYTE x[3] = {in.c[0][p], in.c[1][p], in.c[2][p]};
            BYTE v[3];
            exact(v, x);
            for (int k = 0; k < 3; ++k) out.c[k][p] = v[k];
        }
}

// The kernels, built once per instruction set.
#define PAX_LINEAR_MODEL(Model, NAME, Of, RgbOf, InTable, OfRows, BackRows, ATTR, SUFFIX)                                  \
    ATTR void Model##FromUnit##SUFFIX(UnitPlanes &u, BytePlanes &out, int n) {                   \
        Of(u, n);                                                                                \
        NarrowAll(u, out, n);                                                                    \
    }                                                                                            \
    ATTR void Model##FromRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {             \
        FixedLinear<kShiftOf>(in, out, Rows().OfRows, RGBto##NAME, n);                           \
    }                                                                                            \
    ATTR void Model##ToRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {               \
        FixedLinear<kShiftBack>(in, out, Rows().BackRows, NAME##toRGB, n);                       \
    }                                                                                            \
    ATTR void Model##ToUnit##SUFFIX(const BytePlanes &in, UnitPlanes &u, int n) {                \
        Widen(in, u, n, Doubles().InTable);                                                      \
        RgbOf(u, n);                                                                             \
        for (int k = 0; k < 3; ++k) Limit(u.c[k], n);                                            \
    }

#define PAX_LINEAR_ALL(ATTR, SUFFIX)                                                               \
    PAX_LINEAR_MODEL(Yiq, YIQ, YiqOf, RgbOfYiq, centred, yiqOf, ofYiq, ATTR, SUFFIX)             \
    PAX_LINEAR_MODEL(Yuv, YUV, YuvOf, RgbOfYuv, centred, yuvOf, ofYuv, ATTR, SUFFIX)             \
    PAX_LINEAR_MODEL(Xyz, XYZ, XyzOf, RgbOfXyz, unit, xyzOf, ofXyz, ATTR, SUFFIX)

PAX_LINEAR_ALL(, Sse2)
#if PAX_HAVE_AVX2_BUILD
PAX_LINEAR_ALL(PAX_AVX2, Avx2)
#endif

} // namespace

void FastLinearKernels(ModelKernels *yiq, ModelKernels *yuv, ModelKernels *xyz) {
#if PAX_HAVE_AVX2_BUILD
    if (ProcessorHasAvx2()) {
        *yiq = {YiqToRgbAvx2, YiqFromRgbAvx2, YiqToUnitAvx2, YiqFromUnitAvx2};
        *yuv = {YuvToRgbAvx2, YuvFromRgbAvx2, YuvToUnitAvx2, YuvFromUnitAvx2};
        *xyz = {XyzToRgbAvx2, XyzFromRgbAvx2, XyzToUnitAvx2, XyzFromUnitAvx2};
        return;
    }
#endif
    *yiq = {YiqToRgbSse2, YiqFromRgbSse2, YiqToUnitSse2, YiqFromUnitSse2};
    *yuv = {YuvToRgbSse2, YuvFromRgbSse2, YuvToUnitSse2, YuvFromUnitSse2};
    *xyz = {XyzToRgbSse2, XyzFromRgbSse2, XyzToUnitSse2, XyzFromUnitSse2};
}

} // namespace pax
