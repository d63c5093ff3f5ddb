// YIQ, YUV and XYZ kernels over planes: the single-value conversions' double
// operations, in their order, on whole planes at a time, so the compiler can
// run them in vector registers (SSE2, or AVX2 where the processor has it).
// Vector IEEE arithmetic without fused multiply-add gives each lane the same
// double as the scalar code, so every byte equals the single-value result.
// Byte / 255 and byte / 255 - 0.5 come from tables of the same expressions.
#include "color_math.h"
#include "run_kernels.h"
#include "simd_select.h"

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

// The kernels, built once per instruction set.
#define PAX_LINEAR_MODEL(Model, Of, RgbOf, InTable, ATTR, SUFFIX)                                  \
    ATTR void Model##FromUnit##SUFFIX(UnitPlanes &u, BytePlanes &out, int n) {                   \
        Of(u, n);                                                                                \
        NarrowAll(u, out, n);                                                                    \
    }                                                                                            \
    ATTR void Model##FromRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {             \
        UnitPlanes u;                                                                            \
        Widen(in, u, n, Doubles().unit);                                                         \
        Of(u, n);                                                                                \
        NarrowAll(u, out, n);                                                                    \
    }                                                                                            \
    ATTR void Model##ToRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {               \
        UnitPlanes u;                                                                            \
        Widen(in, u, n, Doubles().InTable);                                                      \
        RgbOf(u, n);                                                                             \
        NarrowAll(u, out, n);                                                                    \
    }                                                                                            \
    ATTR void Model##ToUnit##SUFFIX(const BytePlanes &in, UnitPlanes &u, int n) {                \
        Widen(in, u, n, Doubles().InTable);                                                      \
        RgbOf(u, n);                                                                             \
        for (int k = 0; k < 3; ++k) Limit(u.c[k], n);                                            \
    }

#define PAX_LINEAR_ALL(ATTR, SUFFIX)                                                               \
    PAX_LINEAR_MODEL(Yiq, YiqOf, RgbOfYiq, centred, ATTR, SUFFIX)                                \
    PAX_LINEAR_MODEL(Yuv, YuvOf, RgbOfYuv, centred, ATTR, SUFFIX)                                \
    PAX_LINEAR_MODEL(Xyz, XyzOf, RgbOfXyz, unit, ATTR, SUFFIX)

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
