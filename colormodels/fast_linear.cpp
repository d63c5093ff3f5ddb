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
// output is, as a real number, v = a + c0 x0 + c1 x1 + c2 x2 of the three
// input bytes x (the offsets of 0.5 and 127.5 fold into a). With 2^S c and
// 2^S a rounded to integers C and A, V = A + sum C x differs from 2^S v by at
// most E = |A - 2^S a| + 255 sum |C - 2^S c| (at most 383 units; computed for
// each output at compile time, 26 to 254). The single-value code's double d
// lies within 1e-11 of v (a few roundings of values below 3000), under one
// unit of 2^-S, so with M = floor(E) + 2, 2^S d lies in [V - M, V + M].
// ClampToByte is floor limited to 0..255, non-decreasing: where (V - M) >> S
// and (V + M) >> S limit to the same byte, that byte is the single-value
// result. Elsewhere (within M units of a whole number: one output in 900 to
// 47,000 depending on the row for values spread evenly, more where v is a
// whole number, as U is wherever R = G and B - R is odd) the pixel goes
// through the single-value conversion: over all 2^24 inputs, one pixel in 204
// into YUV, 335 into YIQ, 249 into XYZ, 4681 from YUV, 3855 from YIQ, 505
// from XYZ.
//
// The sums run in 32-bit lanes, eight or four pixels a vector, by pmaddwd
// (SSE2; vpdpwssd, which adds the same products to an accumulator, where the
// processor has AVX-VNNI) on the words (x, x << 7) of each byte: C = c0 + 128 c1 with c0 in
// -64..63 and c1 a signed word, so |C| < 2^22. S is the largest shift up to
// 22 for which every C fits and every partial sum, and V +- M, stay within
// 32 bits (checked at compile time): 22 into the models, 21 back from YIQ and
// YUV, 20 back from XYZ (18 for the row of B, whose Z coefficient is 8.77).
// (V - M) >> S is packed to bytes with signed and unsigned saturation, which
// is the limit to 0..255; the two ends give the same whole number unless the
// fraction (V - M) & (2^S - 1) is at least 2^S - 2M, tested by the sign of
// that fraction + 2M - 2^S (a pixel is sent to the single-value conversion
// then even where both ends would limit to the same byte).
#include "color_math.h"
#include "conversion_table.h"
#include "run_kernels.h"
#include "simd_select.h"

#include <cstdint>
#include <immintrin.h>

// AVX-VNNI kernels beside the AVX2 ones, unless PAX_NO_AVX_VNNI (to test the
// AVX2 ones on a processor that has AVX-VNNI).
#if PAX_HAVE_AVX2_BUILD && !defined(PAX_NO_AVX_VNNI)
#define PAX_HAVE_AVX_VNNI_BUILD 1
#include <cpuid.h>
#else
#define PAX_HAVE_AVX_VNNI_BUILD 0
#endif

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

// Real coefficients of each output: x0, x1, x2 and a constant. For YIQ and
// YUV from RGB, v = sum c x + 127.5 (1 - sum c); from YIQ and YUV, the same
// with the luma coefficient 1.
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

// One output in fixed point: V = sum C x, the byte interval's ends
// (V + A - M) >> shift and (V + A + M) >> shift. Each C is c0 + 128 c1 with c0
// in -64..63 and c1 a 16-bit word; pair holds c0 in its low word, c1 in its
// high word, for pmaddwd on the words (x, x << 7). Each value is repeated
// over a 256-bit vector, ready to be loaded.
struct RowPlan {
    int shift;
    alignas(32) int32_t pair[3][8];
    alignas(32) int32_t low[8];      // A - M
    alignas(32) int32_t fraction[8]; // 2^S - 1
    alignas(32) int32_t width[8];    // 2M - 2^S
};

constexpr double Magnitude(double v) { return v < 0 ? -v : v; }
constexpr int64_t Nearest(double v) {
    return v < 0 ? -static_cast<int64_t>(-v + 0.5) : static_cast<int64_t>(v + 0.5);
}
constexpr int64_t FloorDiv128(int64_t v) { return v >= 0 ? v / 128 : -((-v + 127) / 128); }

// The largest shift up to 22 at which every C fits its two words and every
// sum on the way to V + A +- M fits 32 bits, with M = floor(E) + 2
// from the rounding error E of the coefficients.
constexpr RowPlan PlanRow(const double (&c)[4]) {
    for (int s = 22; s > 0; --s) {
        double scale = 1;
        for (int i = 0; i < s; ++i) scale *= 2;
        RowPlan r{};
        r.shift = s;
        double error = 0, most = 0, least = 0; // bounds of the partial sums of C x
        bool fits = true;
        for (int j = 0; j < 3; ++j) {
            const int64_t whole = Nearest(c[j] * scale), c1 = FloorDiv128(whole + 64), c0 = whole - 128 * c1;
            fits = fits && c1 >= -32767 && c1 <= 32767;
            for (int32_t &v : r.pair[j])
                v = static_cast<int32_t>(static_cast<uint32_t>(c0 & 0xFFFF) | static_cast<uint32_t>(c1 & 0xFFFF) << 16);
            error += Magnitude(static_cast<double>(whole) - c[j] * scale) * 255;
            (whole > 0 ? most : least) += static_cast<double>(whole) * 255;
        }
        const int64_t a = Nearest(c[3] * scale);
        error += Magnitude(static_cast<double>(a) - c[3] * scale);
        const int64_t margin = static_cast<int64_t>(error) + 2;
        const double top = 2147483647.0, low = static_cast<double>(a - margin), high = static_cast<double>(a + margin);
        fits = fits && most < top && -least < top && most + high < top && -(least + low) < top;
        if (!fits) continue;
        for (int i = 0; i < 8; ++i) {
            r.low[i] = static_cast<int32_t>(a - margin);
            r.fraction[i] = static_cast<int32_t>((int64_t{1} << s) - 1);
            r.width[i] = static_cast<int32_t>(2 * margin - (int64_t{1} << s));
        }
        return r;
    }
    return RowPlan{};
}

#define PAX_PLAN(NAME, TABLE)                                                                      \
    constexpr RowPlan NAME[3] = {PlanRow(TABLE[0]), PlanRow(TABLE[1]), PlanRow(TABLE[2])};       \
    static_assert(NAME[0].shift >= 18 && NAME[1].shift >= 18 && NAME[2].shift >= 18, "a fine enough fixed point");
PAX_PLAN(kYiqOfRgbPlan, kYiqOfRgb)
PAX_PLAN(kYuvOfRgbPlan, kYuvOfRgb)
PAX_PLAN(kXyzOfRgbPlan, kXyzOfRgb)
PAX_PLAN(kRgbOfYiqPlan, kRgbOfYiq)
PAX_PLAN(kRgbOfYuvPlan, kRgbOfYuv)
PAX_PLAN(kRgbOfXyzPlan, kRgbOfXyz)
#undef PAX_PLAN

// The six byte kernels over a set of vector operations.
#define PAX_FIXED_KERNELS                                                                          \
    void YiqFromRgb(const BytePlanes &in, BytePlanes &out, int n) { FixedBlock<kYiqOfRgbPlan>(in, out, RGBtoYIQ, n); } \
    void YuvFromRgb(const BytePlanes &in, BytePlanes &out, int n) { FixedBlock<kYuvOfRgbPlan>(in, out, RGBtoYUV, n); } \
    void XyzFromRgb(const BytePlanes &in, BytePlanes &out, int n) { FixedBlock<kXyzOfRgbPlan>(in, out, RGBtoXYZ, n); } \
    void YiqToRgb(const BytePlanes &in, BytePlanes &out, int n) { FixedBlock<kRgbOfYiqPlan>(in, out, YIQtoRGB, n); }   \
    void YuvToRgb(const BytePlanes &in, BytePlanes &out, int n) { FixedBlock<kRgbOfYuvPlan>(in, out, YUVtoRGB, n); }   \
    void XyzToRgb(const BytePlanes &in, BytePlanes &out, int n) { FixedBlock<kRgbOfXyzPlan>(in, out, XYZtoRGB, n); }

namespace sse2 {
using Vec = __m128i;
constexpr int kWidth = 16;
constexpr uint32_t kLaneMask = 0xF;
PAX_INLINE Vec Load(const BYTE *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
PAX_INLINE void Store(BYTE *p, Vec v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v); }
PAX_INLINE Vec Zero() { return _mm_setzero_si128(); }
PAX_INLINE Vec Ones() { return _mm_set1_epi32(-1); }
PAX_INLINE Vec Broadcast(const int32_t *v) { return _mm_load_si128(reinterpret_cast<const __m128i *>(v)); }
PAX_INLINE Vec Add(Vec a, Vec b) { return _mm_add_epi32(a, b); }
PAX_INLINE Vec And(Vec a, Vec b) { return _mm_and_si128(a, b); }
PAX_INLINE Vec MaddAdd(Vec acc, Vec a, Vec b) { return _mm_add_epi32(acc, _mm_madd_epi16(a, b)); }
PAX_INLINE Vec ShiftWordsLeft7(Vec a) { return _mm_slli_epi16(a, 7); }
template <int S>
PAX_INLINE Vec SraBy(Vec a) { return _mm_srai_epi32(a, S); }
PAX_INLINE Vec InterleaveLo8(Vec a, Vec b) { return _mm_unpacklo_epi8(a, b); }
PAX_INLINE Vec InterleaveHi8(Vec a, Vec b) { return _mm_unpackhi_epi8(a, b); }
PAX_INLINE Vec Lo16(Vec a, Vec b) { return _mm_unpacklo_epi16(a, b); }
PAX_INLINE Vec Hi16(Vec a, Vec b) { return _mm_unpackhi_epi16(a, b); }
PAX_INLINE Vec PackSigned32(Vec a, Vec b) { return _mm_packs_epi32(a, b); }
PAX_INLINE Vec PackUnsigned16(Vec a, Vec b) { return _mm_packus_epi16(a, b); }
PAX_INLINE uint32_t SignMask(Vec a) { return static_cast<uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(a))); }
#include "fast_linear_block.inc"
PAX_FIXED_KERNELS
} // namespace sse2

#if PAX_HAVE_AVX2_BUILD
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif
namespace avx2 {
using Vec = __m256i;
constexpr int kWidth = 32;
constexpr uint32_t kLaneMask = 0xFF;
PAX_INLINE Vec Load(const BYTE *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
PAX_INLINE void Store(BYTE *p, Vec v) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v); }
PAX_INLINE Vec Zero() { return _mm256_setzero_si256(); }
PAX_INLINE Vec Ones() { return _mm256_set1_epi32(-1); }
PAX_INLINE Vec Broadcast(const int32_t *v) { return _mm256_load_si256(reinterpret_cast<const __m256i *>(v)); }
PAX_INLINE Vec Add(Vec a, Vec b) { return _mm256_add_epi32(a, b); }
PAX_INLINE Vec And(Vec a, Vec b) { return _mm256_and_si256(a, b); }
PAX_INLINE Vec MaddAdd(Vec acc, Vec a, Vec b) { return _mm256_add_epi32(acc, _mm256_madd_epi16(a, b)); }
PAX_INLINE Vec ShiftWordsLeft7(Vec a) { return _mm256_slli_epi16(a, 7); }
template <int S>
PAX_INLINE Vec SraBy(Vec a) { return _mm256_srai_epi32(a, S); }
PAX_INLINE Vec InterleaveLo8(Vec a, Vec b) { return _mm256_unpacklo_epi8(a, b); }
PAX_INLINE Vec InterleaveHi8(Vec a, Vec b) { return _mm256_unpackhi_epi8(a, b); }
PAX_INLINE Vec Lo16(Vec a, Vec b) { return _mm256_unpacklo_epi16(a, b); }
PAX_INLINE Vec Hi16(Vec a, Vec b) { return _mm256_unpackhi_epi16(a, b); }
PAX_INLINE Vec PackSigned32(Vec a, Vec b) { return _mm256_packs_epi32(a, b); }
PAX_INLINE Vec PackUnsigned16(Vec a, Vec b) { return _mm256_packus_epi16(a, b); }
PAX_INLINE uint32_t SignMask(Vec a) { return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(a))); }
#include "fast_linear_block.inc"
PAX_FIXED_KERNELS
} // namespace avx2
#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#if PAX_HAVE_AVX_VNNI_BUILD
// The AVX2 kernels with each pmaddwd and the add after it done by one
// vpdpwssd (AVX-VNNI): the same 32-bit sums, none of which wraps.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2,avxvnni"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,avxvnni")
#endif
namespace vnni {
using avx2::Vec;
using avx2::kWidth;
using avx2::kLaneMask;
using avx2::Load;
using avx2::Store;
using avx2::Zero;
using avx2::Ones;
using avx2::Broadcast;
using avx2::Add;
using avx2::And;
using avx2::ShiftWordsLeft7;
using avx2::SraBy;
using avx2::InterleaveLo8;
using avx2::InterleaveHi8;
using avx2::Lo16;
using avx2::Hi16;
using avx2::PackSigned32;
using avx2::PackUnsigned16;
using avx2::SignMask;
PAX_INLINE Vec MaddAdd(Vec acc, Vec a, Vec b) { return _mm256_dpwssd_avx_epi32(acc, a, b); }
#include "fast_linear_block.inc"
PAX_FIXED_KERNELS
} // namespace vnni
#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

bool ProcessorHasAvxVnni() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid_count(7, 1, &a, &b, &c, &d) && (a >> 4 & 1);
}
#endif
#endif
#undef PAX_FIXED_KERNELS

// The kernels through doubles, built once per instruction set.
#define PAX_LINEAR_MODEL(Model, Of, RgbOf, InTable, ATTR, SUFFIX)                                \
    ATTR void Model##FromUnit##SUFFIX(UnitPlanes &u, BytePlanes &out, int n) {                   \
        Of(u, n);                                                                                \
        NarrowAll(u, out, n);                                                                    \
    }                                                                                            \
    ATTR void Model##ToUnit##SUFFIX(const BytePlanes &in, UnitPlanes &u, int n) {                \
        Widen(in, u, n, Doubles().InTable);                                                      \
        RgbOf(u, n);                                                                             \
        for (int k = 0; k < 3; ++k) Limit(u.c[k], n);                                            \
    }

#define PAX_LINEAR_ALL(ATTR, SUFFIX)                                                               \
    PAX_LINEAR_MODEL(Yiq, YiqOf, RgbOfYiq, centred, ATTR, SUFFIX)                                 \
    PAX_LINEAR_MODEL(Yuv, YuvOf, RgbOfYuv, centred, ATTR, SUFFIX)                                 \
    PAX_LINEAR_MODEL(Xyz, XyzOf, RgbOfXyz, unit, ATTR, SUFFIX)

PAX_LINEAR_ALL(, Sse2)
#if PAX_HAVE_AVX2_BUILD
PAX_LINEAR_ALL(PAX_AVX2, Avx2)
#endif

} // namespace

void FastLinearKernels(ModelKernels *yiq, ModelKernels *yuv, ModelKernels *xyz) {
#if PAX_HAVE_AVX2_BUILD
#if PAX_HAVE_AVX_VNNI_BUILD
    if (ProcessorHasAvx2() && ProcessorHasAvxVnni()) {
        *yiq = {vnni::YiqToRgb, vnni::YiqFromRgb, YiqToUnitAvx2, YiqFromUnitAvx2};
        *yuv = {vnni::YuvToRgb, vnni::YuvFromRgb, YuvToUnitAvx2, YuvFromUnitAvx2};
        *xyz = {vnni::XyzToRgb, vnni::XyzFromRgb, XyzToUnitAvx2, XyzFromUnitAvx2};
        return;
    }
#endif
    if (ProcessorHasAvx2()) {
        *yiq = {avx2::YiqToRgb, avx2::YiqFromRgb, YiqToUnitAvx2, YiqFromUnitAvx2};
        *yuv = {avx2::YuvToRgb, avx2::YuvFromRgb, YuvToUnitAvx2, YuvFromUnitAvx2};
        *xyz = {avx2::XyzToRgb, avx2::XyzFromRgb, XyzToUnitAvx2, XyzFromUnitAvx2};
        return;
    }
#endif
    *yiq = {sse2::YiqToRgb, sse2::YiqFromRgb, YiqToUnitSse2, YiqFromUnitSse2};
    *yuv = {sse2::YuvToRgb, sse2::YuvFromRgb, YuvToUnitSse2, YuvFromUnitSse2};
    *xyz = {sse2::XyzToRgb, sse2::XyzFromRgb, XyzToUnitSse2, XyzFromUnitSse2};
}

} // namespace pax
