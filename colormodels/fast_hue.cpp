// HSV and HSI kernels over planes: into HSV and HSI (the way back is in
// fast_hue_back.cpp). Many pixels at a time in vector registers (SSE2, or
// AVX2 where the processor has it), without tables for the hue or the
// saturation: each byte is the floor of an exact fraction, found by one
// single-precision division, and lowered by one where the single-value
// conversion's doubles land just below a whole number.
//
// With max, min and d = max - min of the pixel's bytes:
//
// Saturation. Both models take S = trunc(fl(fl(d / m) * 255)) in doubles,
// with m = max (HSV) or m = min(max + min, 510 - max - min) (HSI: the
// lightness test l <= 127.5 is max + min <= 255; d <= m <= 255 either way;
// the double subtraction and sum are exact). Write x = 255 d / m. Where x is
// not whole, it lies at least 1 / m >= 1 / 255 from every whole number; the
// two roundings of the doubles move it by under 255 * 2^-52, and the single
// rounding of the float quotient fl32(255 d / m) (both operands exact, below
// 2^24) by under 255 * 2^-24 = 1.6e-5: all three truncate to floor(x). Where
// x = k is whole, the float quotient is exactly k, and the doubles give
// fl(fl(k / 255) * 255) (fl(d / m) depends only on the fraction d / m =
// k / 255): k for every k in 0..255, checked once at start against the
// single-value function (the kernels are used only if it holds, as for the
// hue's drops below being 0 or 1).
//
// Hue. HueOfSector gives trunc of ((diff / d + 2 sector) * 60, + 360 when
// negative) * 255 / 360 in doubles, which is x = 85 u / (2 d) with
// u = diff + j 2 d, j = the sector, or 3 for sector 0 with a negative diff
// (0 <= u <= 7 d and 0 <= x < 255; 85 u < 2^24 is exact in a float, as is
// 2 d). Where x is not whole it lies at least 1 / (2 d) >= 1 / 510 from every
// whole number, and the doubles (five roundings of values below 92,000: error
// under 1e-10) and the float quotient (error under 255 * 2^-24) both truncate
// to floor(x). Where x = k is whole, the float quotient is exactly k (and it
// is whole only then), while the doubles give k or k - 1. Their result
// depends only on the fraction diff / d and the sector (fl(diff / d) is the
// rounded fraction), and k determines both: the sector by the range k lies in
// (0..42 and 213..254: red, 43..127: green, 128..212: blue), and
// diff / d = (2 k - 170 sector) / 85 ((2 k - 510) / 85 above 212). So one
// single-value call per k, at d = 85, gives the drop for every pixel whose
// hue is k exactly: 35 of the 255 values of k drop by one.
//
// A grey (d = 0) has diff = 0 and u = 0: hue 0, the grey hue, and
// saturation 0. The denominators are kept at least 1, so no division ever
// meets 0 / 0 (a host may unmask floating-point exceptions).
#include "hue.h"
#include "hue_sector_sse2.h"
#include "run_kernels.h"
#include "simd_select.h"

#include <emmintrin.h>
#if PAX_HAVE_AVX2_BUILD
#include <immintrin.h>
#endif

#include <cstdint>
#include <cstring>

namespace pax {
namespace {

static_assert(kGreyHue == 0, "a grey's hue comes out as 0");

struct HueDrops {
    // Bit k >> 3 of word k & 7: the single-value hue is k - 1 where the exact
    // hue is k.
    alignas(32) uint32_t bits[8];
    BYTE drop[256];
    // Every drop is 0 or 1, and fl(fl(k / 255) * 255) truncates to k for
    // every k.
    bool hold;
    HueDrops() : bits(), drop(), hold(true) {
        for (int k = 0; k < 255; ++k) {
            const int sector = k <= 42 ? 0 : k <= 127 ? 1 : k <= 212 ? 2 : 0;
            const int diff = k > 212 ? 2 * k - 510 : 2 * k - 170 * sector;
            const int lower = k - HueOfSector(sector, diff, 85);
            hold = hold && (lower == 0 || lower == 1);
            drop[k] = static_cast<BYTE>(lower & 1);
            bits[k & 7] |= uint32_t{drop[k]} << (k >> 3);
        }
        for (int k = 0; k < 256; ++k) hold = hold && HsvSaturation(255, k) == k;
    }
};

const HueDrops &Drops() {
    static const HueDrops drops;
    return drops;
}

// ---- SSE2: 8 pixels a step; 16-bit lanes for max, min, d and the sector,
// floats for the quotients, four lanes a half.

constexpr int kSse2Step = 8;

template <bool Hsi>
PAX_INLINE void FromRgbSse2Step(const BYTE *r8, const BYTE *g8, const BYTE *b8, BYTE *h8, BYTE *s8,
                                BYTE *v8, const BYTE *drop) {
    const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi16(1);
    const __m128i r = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(r8)), zero);
    const __m128i g = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(g8)), zero);
    const __m128i b = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(b8)), zero);
    const __m128i max = _mm_max_epi16(_mm_max_epi16(r, g), b);
    const __m128i min = _mm_min_epi16(_mm_min_epi16(r, g), b);
    const __m128i d = _mm_sub_epi16(max, min), d2 = _mm_add_epi16(d, d), d4 = _mm_add_epi16(d2, d2);
    const HueSectorSse2 hs = HueSectorOf(r, g, b, max);
    const __m128i isR = hs.isR, isG = hs.isG, isB = hs.isB, diff = hs.diff;
    const __m128i wrap = _mm_and_si128(isR, _mm_srai_epi16(diff, 15));
    const __m128i u = _mm_add_epi16(
        diff, _mm_or_si128(_mm_or_si128(_mm_and_si128(isG, d2), _mm_and_si128(isB, d4)),
                           _mm_and_si128(wrap, _mm_add_epi16(d4, d2))));
    const __m128i sum = _mm_add_epi16(max, min);
    const __m128i m = Hsi ? _mm_min_epi16(sum, _mm_sub_epi16(_mm_set1_epi16(510), sum)) : max;
    const __m128i satDen = _mm_max_epi16(m, one), hueDen = _mm_max_epi16(d2, one);
    const __m128i d255 = _mm_mullo_epi16(d, _mm_set1_epi16(255)); // below 2^16, read unsigned
    __m128i hue[2], sat[2];
    int whole = 0;
    for (int half = 0; half < 2; ++half) {
        const auto widen = [half, zero](__m128i v) {
            return _mm_cvtepi32_ps(half == 0 ? _mm_unpacklo_epi16(v, zero) : _mm_unpackhi_epi16(v, zero));
        };
        const __m128 q = _mm_div_ps(_mm_mul_ps(widen(u), _mm_set1_ps(85)), widen(hueDen));
        hue[half] = _mm_cvttps_epi32(q);
        whole |= _mm_movemask_ps(_mm_cmpeq_ps(_mm_cvtepi32_ps(hue[half]), q)) << (4 * half);
        sat[half] = _mm_cvttps_epi32(_mm_div_ps(widen(d255), widen(satDen)));
    }
    const __m128i value = Hsi ? _mm_srli_epi16(sum, 1) : max;
    _mm_storel_epi64(reinterpret_cast<__m128i *>(h8), _mm_packus_epi16(_mm_packs_epi32(hue[0], hue[1]), zero));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(s8), _mm_packus_epi16(_mm_packs_epi32(sat[0], sat[1]), zero));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(v8), _mm_packus_epi16(value, zero));
    // A whole hue with diff = 0 (0, 85 or 170) never drops; about one pixel
    // in 80 of random colours has a whole hue with diff != 0.
    whole &= ~_mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(diff, zero), zero));
    for (; whole; whole &= whole - 1) {
        const int i = __builtin_ctz(static_cast<unsigned>(whole));
        h8[i] = static_cast<BYTE>(h8[i] - drop[h8[i]]);
    }
}

// The last pixels of a block (fewer than a step) go through zero-filled
// copies.
template <int Step>
struct Tail {
    alignas(16) BYTE src[3][Step] = {};
    alignas(16) BYTE dst[3][Step];
    Tail(const BytePlanes &in, int p, int n) {
        for (int k = 0; k < 3; ++k) std::memcpy(src[k], in.c[k] + p, n - p);
    }
    void Put(BytePlanes &out, int p, int n) const {
        for (int k = 0; k < 3; ++k) std::memcpy(out.c[k] + p, dst[k], n - p);
    }
};

template <bool Hsi>
void FromRgbSse2(const BytePlanes &in, BytePlanes &out, int n) {
    const BYTE *drop = Drops().drop;
    int p = 0;
    for (; p + kSse2Step <= n; p += kSse2Step)
        FromRgbSse2Step<Hsi>(in.c[0] + p, in.c[1] + p, in.c[2] + p, out.c[0] + p, out.c[1] + p,
                             out.c[2] + p, drop);
    if (p < n) {
        Tail<kSse2Step> t(in, p, n);
        FromRgbSse2Step<Hsi>(t.src[0], t.src[1], t.src[2], t.dst[0], t.dst[1], t.dst[2], drop);
        t.Put(out, p, n);
    }
}

#if PAX_HAVE_AVX2_BUILD
// ---- AVX2: 16 pixels a step; 16-bit lanes for max, min, d and the sector,
// floats for the quotients in two halves of 8 (lanes 0..3, 8..11 and 4..7,
// 12..15: the in-lane unpacks, undone by the in-lane packs); the drop by a
// bit lookup in registers.

constexpr int kAvx2Step = 16;

template <bool Hsi>
PAX_AVX2 PAX_INLINE void FromRgbAvx2Step(const BYTE *r16, const BYTE *g16, const BYTE *b16, BYTE *h16,
                                         BYTE *s16, BYTE *v16, __m256i dropBits) {
    const __m256i r = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(r16)));
    const __m256i g = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(g16)));
    const __m256i b = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(b16)));
    const __m256i zero = _mm256_setzero_si256(), one = _mm256_set1_epi16(1);
    const __m256i max = _mm256_max_epi16(_mm256_max_epi16(r, g), b);
    const __m256i min = _mm256_min_epi16(_mm256_min_epi16(r, g), b);
    const __m256i d = _mm256_sub_epi16(max, min), d2 = _mm256_add_epi16(d, d);
    const __m256i d4 = _mm256_add_epi16(d2, d2);
    // Red first, then green, else blue: the blends pick the later test.
    const __m256i isR = _mm256_cmpeq_epi16(r, max), isG = _mm256_cmpeq_epi16(g, max);
    const __m256i diff = _mm256_blendv_epi8(
        _mm256_blendv_epi8(_mm256_sub_epi16(r, g), _mm256_sub_epi16(b, r), isG), _mm256_sub_epi16(g, b), isR);
    const __m256i wrap = _mm256_and_si256(_mm256_srai_epi16(diff, 15), _mm256_add_epi16(d4, d2));
    const __m256i u = _mm256_add_epi16(diff, _mm256_blendv_epi8(_mm256_blendv_epi8(d4, d2, isG), wrap, isR));
    const __m256i sum = _mm256_add_epi16(max, min);
    const __m256i m = Hsi ? _mm256_min_epi16(sum, _mm256_sub_epi16(_mm256_set1_epi16(510), sum)) : max;
    const __m256i satDen = _mm256_max_epi16(m, one), hueDen = _mm256_max_epi16(d2, one);
    const __m256i d255 = _mm256_mullo_epi16(d, _mm256_set1_epi16(255)); // below 2^16, read unsigned
    __m256i hue[2], sat[2];
    for (int half = 0; half < 2; ++half) {
        const auto widen = [half, zero](__m256i v) PAX_AVX2 {
            return _mm256_cvtepi32_ps(half == 0 ? _mm256_unpacklo_epi16(v, zero) : _mm256_unpackhi_epi16(v, zero));
        };
        const __m256 q = _mm256_div_ps(_mm256_mul_ps(widen(u), _mm256_set1_ps(85)), widen(hueDen));
        const __m256i k = _mm256_cvttps_epi32(q);
        const __m256i whole = _mm256_castps_si256(_mm256_cmp_ps(_mm256_cvtepi32_ps(k), q, _CMP_EQ_OQ));
        const __m256i bit = _mm256_srlv_epi32(_mm256_permutevar8x32_epi32(dropBits, k), _mm256_srli_epi32(k, 3));
        hue[half] = _mm256_sub_epi32(k, _mm256_and_si256(_mm256_and_si256(bit, whole), _mm256_set1_epi32(1)));
        sat[half] = _mm256_cvttps_epi32(_mm256_div_ps(widen(d255), widen(satDen)));
    }
    const __m256i value = Hsi ? _mm256_srli_epi16(sum, 1) : max;
    // Bytes (h0..7 s0..7 | h8..15 s8..15), then quarters reordered.
    const __m256i hs = _mm256_permute4x64_epi64(
        _mm256_packus_epi16(_mm256_packus_epi32(hue[0], hue[1]), _mm256_packus_epi32(sat[0], sat[1])),
        _MM_SHUFFLE(3, 1, 2, 0));
    const __m256i vv = _mm256_permute4x64_epi64(_mm256_packus_epi16(value, value), _MM_SHUFFLE(3, 1, 2, 0));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(h16), _mm256_castsi256_si128(hs));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(s16), _mm256_extracti128_si256(hs, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(v16), _mm256_castsi256_si128(vv));
}

template <bool Hsi>
PAX_AVX2 void FromRgbAvx2(const BytePlanes &in, BytePlanes &out, int n) {
    const __m256i dropBits = _mm256_load_si256(reinterpret_cast<const __m256i *>(Drops().bits));
    int p = 0;
    for (; p + kAvx2Step <= n; p += kAvx2Step)
        FromRgbAvx2Step<Hsi>(in.c[0] + p, in.c[1] + p, in.c[2] + p, out.c[0] + p, out.c[1] + p,
                             out.c[2] + p, dropBits);
    if (p < n) {
        Tail<kAvx2Step> t(in, p, n);
        FromRgbAvx2Step<Hsi>(t.src[0], t.src[1], t.src[2], t.dst[0], t.dst[1], t.dst[2], dropBits);
        t.Put(out, p, n);
    }
}
#endif

} // namespace

void FastHueKernels(ModelKernels *hsv, ModelKernels *hsi) {
    if (!Drops().hold) return; // the per-pixel kernels stay
#if PAX_HAVE_AVX2_BUILD
    if (ProcessorHasAvx2()) {
        hsv->fromRgb = FromRgbAvx2<false>;
        hsi->fromRgb = FromRgbAvx2<true>;
        return;
    }
#endif
    hsv->fromRgb = FromRgbSse2<false>;
    hsi->fromRgb = FromRgbSse2<true>;
}

} // namespace pax
