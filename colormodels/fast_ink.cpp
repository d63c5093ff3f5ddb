// CMY and CMYK kernels over planes: integer complements and minima, the same
// integer steps as the single-value conversions.
//
// Beside them, direct runs over interleaved pixels that need no planes: the
// complement of every byte (RGB and CMY both ways), and RGB to CMYK and back
// in the image layout (B, G, R to K, Y, M, C and back). Their vector loops
// take 16 pixels at a time as four 32-bit lanes of four pixels each and do,
// lane by lane, the integer steps of the per-pixel code below them:
// - into CMYK, with c, m, y the complements of R, G, B: K = min(c, m, y) in
//   byte 0 by two byte minima with the lane shifted down by 8 and 16 bits;
//   K spread over bytes 0..2 and subtracted bytewise (no byte goes below 0,
//   K being the least), the lane shifted up by 8 bits and K put in byte 0;
// - back to RGB: 255 - K spread over the lane, less each ink with unsigned
//   saturation, which is max(0, 255 - K - ink).
// Three pixel bytes become a lane and back by byte shuffles on processors
// with AVX2 (all have the shuffles) and by 64-bit shifts and masks with SSE2.
#include "conversion_runs.h"
#include "run_kernels.h"
#include "simd_select.h"

#include <emmintrin.h>
#if PAX_HAVE_AVX2_BUILD
#include <immintrin.h>
#endif

namespace pax {
namespace {

void Complement3(const BytePlanes &in, BytePlanes &out, int n) {
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; ++p) out.c[k][p] = static_cast<BYTE>(255 - in.c[k][p]);
}

// 255 - K - ink, limited below at 0.
void CmykToRgb(const BytePlanes &in, BytePlanes &out, int n) {
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; ++p) {
            const int v = 255 - in.c[3][p] - in.c[k][p];
            out.c[k][p] = static_cast<BYTE>(v < 0 ? 0 : v);
        }
}

// K = the smallest complement, subtracted from each.
void RgbToCmyk(const BytePlanes &in, BytePlanes &out, int n) {
    for (int p = 0; p < n; ++p) {
        const BYTE c = static_cast<BYTE>(255 - in.c[0][p]), m = static_cast<BYTE>(255 - in.c[1][p]),
                   y = static_cast<BYTE>(255 - in.c[2][p]);
        BYTE k = c < m ? c : m;
        k = y < k ? y : k;
        out.c[0][p] = static_cast<BYTE>(c - k);
        out.c[1][p] = static_cast<BYTE>(m - k);
        out.c[2][p] = static_cast<BYTE>(y - k);
        out.c[3][p] = k;
    }
}

// ---- Direct runs over interleaved pixels.

// One image pixel: B, G, R to K, Y, M, C.
PAX_INLINE void RgbToCmykPixel(const BYTE *s, BYTE *d) {
    const BYTE y = static_cast<BYTE>(255 - s[0]), m = static_cast<BYTE>(255 - s[1]),
               c = static_cast<BYTE>(255 - s[2]);
    BYTE k = c < m ? c : m;
    k = y < k ? y : k;
    d[0] = k;
    d[1] = static_cast<BYTE>(y - k);
    d[2] = static_cast<BYTE>(m - k);
    d[3] = static_cast<BYTE>(c - k);
}

// One image pixel: K, Y, M, C to B, G, R (all read before any is written).
PAX_INLINE void CmykToRgbPixel(const BYTE *s, BYTE *d) {
    const int white = 255 - s[0], b = white - s[1], g = white - s[2], r = white - s[3];
    d[0] = static_cast<BYTE>(b < 0 ? 0 : b);
    d[1] = static_cast<BYTE>(g < 0 ? 0 : g);
    d[2] = static_cast<BYTE>(r < 0 ? 0 : r);
}

// Lane steps with SSE2 alone. "Packed": 12 pixel bytes in bytes 0..11.
struct Sse2Lanes {
    // Packed pixels (bytes 12..15 ignored) to lanes, byte 3 of each zero.
    static PAX_INLINE __m128i Widen(__m128i g) {
        const __m128i x = _mm_unpacklo_epi64(g, _mm_srli_si128(g, 6)); // two pixels a half
        return _mm_or_si128(_mm_and_si128(x, _mm_set1_epi64x(0xFFFFFF)),
                            _mm_and_si128(_mm_slli_epi64(x, 8), _mm_set1_epi64x(0xFFFFFF00000000)));
    }
    // Lanes to packed pixels, bytes 12..15 zero.
    static PAX_INLINE __m128i Pack(__m128i v) {
        const __m128i x = _mm_or_si128(_mm_and_si128(v, _mm_set1_epi64x(0xFFFFFF)),
                                       _mm_and_si128(_mm_srli_epi64(v, 8), _mm_set1_epi64x(0xFFFFFF000000)));
        return _mm_or_si128(_mm_move_epi64(x), _mm_slli_si128(_mm_srli_si128(x, 8), 6));
    }
    // Byte 0 of each lane in bytes 0..2 (byte 3: 0).
    static PAX_INLINE __m128i SpreadLow(__m128i v) {
        const __m128i k = _mm_and_si128(v, _mm_set1_epi32(0xFF));
        return _mm_or_si128(_mm_or_si128(k, _mm_slli_epi32(k, 8)), _mm_slli_epi32(k, 16));
    }
    // 48 bytes in three vectors to four packed groups of four pixels and back.
    static PAX_INLINE void Ungroup(const __m128i v[3], __m128i g[4]) {
        g[0] = v[0];
        g[1] = _mm_or_si128(_mm_srli_si128(v[0], 12), _mm_slli_si128(v[1], 4));
        g[2] = _mm_or_si128(_mm_srli_si128(v[1], 8), _mm_slli_si128(v[2], 8));
        g[3] = _mm_srli_si128(v[2], 4);
    }
    // From lanes (byte 3 ignored).
    static PAX_INLINE void Group(const __m128i l[4], __m128i v[3]) {
        const __m128i g[4] = {Pack(l[0]), Pack(l[1]), Pack(l[2]), Pack(l[3])};
        v[0] = _mm_or_si128(g[0], _mm_slli_si128(g[1], 12));
        v[1] = _mm_or_si128(_mm_srli_si128(g[1], 4), _mm_slli_si128(g[2], 8));
        v[2] = _mm_or_si128(_mm_srli_si128(g[2], 8), _mm_slli_si128(g[3], 4));
    }
    static PAX_INLINE void ToLanes(const __m128i v[3], __m128i l[4]) {
        __m128i g[4];
        Ungroup(v, g);
        for (int j = 0; j < 4; ++j) l[j] = Widen(g[j]);
    }
};

// The same with byte shuffles (generic shuffles with constant indices, which
// become pshufb in the AVX2 functions that inline them). Bytes marked 0 below
// are ignored.
using U8x16 = unsigned char __attribute__((vector_size(16)));
#define PAX_PICK(a, b, ...)                                                                        \
    reinterpret_cast<__m128i>(__builtin_shufflevector(reinterpret_cast<U8x16>(a), reinterpret_cast<U8x16>(b), __VA_ARGS__))
struct ShuffleLanes {
    static PAX_INLINE __m128i SpreadLow(__m128i v) {
        return PAX_PICK(v, v, 0, 0, 0, 3, 4, 4, 4, 7, 8, 8, 8, 11, 12, 12, 12, 15);
    }
    static PAX_INLINE void ToLanes(const __m128i v[3], __m128i l[4]) {
        l[0] = PAX_PICK(v[0], v[0], 0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0);
        l[1] = PAX_PICK(v[0], v[1], 12, 13, 14, 0, 15, 16, 17, 0, 18, 19, 20, 0, 21, 22, 23, 0);
        l[2] = PAX_PICK(v[1], v[2], 8, 9, 10, 0, 11, 12, 13, 0, 14, 15, 16, 0, 17, 18, 19, 0);
        l[3] = PAX_PICK(v[2], v[2], 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 0, 13, 14, 15, 0);
    }
    static PAX_INLINE void Group(const __m128i l[4], __m128i v[3]) {
        v[0] = PAX_PICK(l[0], l[1], 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20);
        v[1] = PAX_PICK(l[1], l[2], 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20, 21, 22, 24, 25);
        v[2] = PAX_PICK(l[2], l[3], 10, 12, 13, 14, 16, 17, 18, 20, 21, 22, 24, 25, 26, 28, 29, 30);
    }
};

// B, G, R lanes (byte 3 ignored) to K, Y, M, C lanes.
template <class L>
PAX_INLINE __m128i RgbToCmykLane(__m128i bgr) {
    const __m128i ink = _mm_xor_si128(bgr, _mm_set1_epi32(-1)); // y, m, c
    const __m128i k = _mm_min_epu8(_mm_min_epu8(ink, _mm_srli_epi32(ink, 8)), _mm_srli_epi32(ink, 16));
    const __m128i less = _mm_sub_epi8(ink, L::SpreadLow(k));
    return _mm_or_si128(_mm_slli_epi32(less, 8), _mm_and_si128(k, _mm_set1_epi32(0xFF)));
}

// K, Y, M, C lanes to B, G, R lanes (byte 3 of no use).
template <class L>
PAX_INLINE __m128i CmykToRgbLane(__m128i kymc) {
    const __m128i white = _mm_xor_si128(L::SpreadLow(kymc), _mm_set1_epi32(-1));
    return _mm_subs_epu8(white, _mm_srli_epi32(kymc, 8));
}

template <class L>
PAX_INLINE void RgbToCmykImageRun(const BYTE *src, BYTE *dst, int64_t count) {
    int64_t p = 0;
    for (; p + 16 <= count; p += 16) {
        const __m128i v[3] = {_mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p + 16)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p + 32))};
        __m128i l[4];
        L::ToLanes(v, l);
        for (int j = 0; j < 4; ++j)
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 4 * p + 16 * j), RgbToCmykLane<L>(l[j]));
    }
    for (; p < count; ++p) RgbToCmykPixel(src + 3 * p, dst + 4 * p);
}

template <class L>
PAX_INLINE void CmykToRgbImageRun(const BYTE *src, BYTE *dst, int64_t count) {
    int64_t p = 0;
    for (; p + 16 <= count; p += 16) {
        __m128i l[4];
        for (int j = 0; j < 4; ++j)
            l[j] = CmykToRgbLane<L>(_mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 4 * p + 16 * j)));
        __m128i v[3];
        L::Group(l, v);
        for (int j = 0; j < 3; ++j) _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 3 * p + 16 * j), v[j]);
    }
    for (; p < count; ++p) CmykToRgbPixel(src + 4 * p, dst + 3 * p);
}

PAX_INLINE void ComplementBytes(const BYTE *src, BYTE *dst, int64_t bytes) {
    int64_t i = 0;
    for (; i + 64 <= bytes; i += 64)
        for (int j = 0; j < 64; j += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i + j));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i + j), _mm_xor_si128(v, _mm_set1_epi32(-1)));
        }
    for (; i < bytes; ++i) dst[i] = static_cast<BYTE>(~src[i]);
}

void ComplementSse2(const BYTE *src, BYTE *dst, int64_t bytes) { ComplementBytes(src, dst, bytes); }
void RgbToCmykImageSse2(const BYTE *src, BYTE *dst, int64_t count) { RgbToCmykImageRun<Sse2Lanes>(src, dst, count); }
void CmykToRgbImageSse2(const BYTE *src, BYTE *dst, int64_t count) { CmykToRgbImageRun<Sse2Lanes>(src, dst, count); }

#if PAX_HAVE_AVX2_BUILD
PAX_AVX2 void ComplementAvx2(const BYTE *src, BYTE *dst, int64_t bytes) { ComplementBytes(src, dst, bytes); }

// The same lane steps on eight pixels a vector: 24 bytes loaded as 32, their
// 32-bit words 0..2 and 3..5 moved into the two halves and widened there; and
// back, each half's 12 bytes stored by 16-byte stores whose last 4 bytes the
// next store (or the rest of the run) writes again. Both loops stop where the
// wider loads and stores would pass the run's ends.
PAX_AVX2 void RgbToCmykImageAvx2(const BYTE *src, BYTE *dst, int64_t count) {
    const __m256i words = _mm256_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0);
    const __m256i widen = _mm256_setr_epi8(0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0, 0, 1, 2, 0, 3, 4, 5, 0,
                                           6, 7, 8, 0, 9, 10, 11, 0);
    const __m256i spread = _mm256_setr_epi8(0, 0, 0, 3, 4, 4, 4, 7, 8, 8, 8, 11, 12, 12, 12, 15, 0, 0, 0, 3, 4, 4,
                                            4, 7, 8, 8, 8, 11, 12, 12, 12, 15);
    int64_t p = 0;
    for (; p + 8 + 3 <= count; p += 8) { // 32 bytes read of the 24
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + 3 * p));
        const __m256i ink =
            _mm256_xor_si256(_mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(v, words), widen), _mm256_set1_epi32(-1));
        const __m256i k =
            _mm256_min_epu8(_mm256_min_epu8(ink, _mm256_srli_epi32(ink, 8)), _mm256_srli_epi32(ink, 16));
        const __m256i less = _mm256_sub_epi8(ink, _mm256_shuffle_epi8(k, spread));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 4 * p),
                            _mm256_or_si256(_mm256_slli_epi32(less, 8), _mm256_and_si256(k, _mm256_set1_epi32(0xFF))));
    }
    RgbToCmykImageRun<ShuffleLanes>(src + 3 * p, dst + 4 * p, count - p);
}
PAX_AVX2 void CmykToRgbImageAvx2(const BYTE *src, BYTE *dst, int64_t count) {
    const __m256i spread = _mm256_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12, 0, 0, 0, 0, 4, 4, 4,
                                            4, 8, 8, 8, 8, 12, 12, 12, 12);
    const __m256i pack = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1, 2, 4, 5, 6,
                                          8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    int64_t p = 0;
    for (; p + 8 + 2 <= count; p += 8) { // 16 bytes written for the last 12
        const __m256i kymc = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + 4 * p));
        const __m256i white = _mm256_xor_si256(_mm256_shuffle_epi8(kymc, spread), _mm256_set1_epi32(-1));
        const __m256i bgr = _mm256_shuffle_epi8(_mm256_subs_epu8(white, _mm256_srli_epi32(kymc, 8)), pack);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 3 * p), _mm256_castsi256_si128(bgr));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 3 * p + 12), _mm256_extracti128_si256(bgr, 1));
    }
    CmykToRgbImageRun<ShuffleLanes>(src + 4 * p, dst + 3 * p, count - p);
}
#endif

} // namespace

void FastInkKernels(ModelKernels *cmy, ModelKernels *cmyk) {
    cmy->toRgb = Complement3;
    cmy->fromRgb = Complement3;
    cmyk->toRgb = CmykToRgb;
    cmyk->fromRgb = RgbToCmyk;
}

const InkRuns &DirectInkRuns() {
    static const InkRuns runs = [] {
        InkRuns r{ComplementSse2, RgbToCmykImageSse2, CmykToRgbImageSse2};
#if PAX_HAVE_AVX2_BUILD
        if (ProcessorHasAvx2()) r = {ComplementAvx2, RgbToCmykImageAvx2, CmykToRgbImageAvx2};
#endif
        return r;
    }();
    return runs;
}

} // namespace pax
