// HSV and HSI kernels over planes: into HSV and HSI (the way back is in
// fast_hue_back.cpp). Eight pixels at a time in vector registers (SSE2, or
// AVX2 where the processor has it), without tables for the hue or the
// saturation: each byte is the floor of an exact fraction, found by one
// single-precision division, and corrected where the single-value
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
// single-value function (the kernels are used only if it holds).
//
// Hue. HueOfSector gives trunc of ((diff / d + 2 sector) * 60, + 360 when
// negative) * 255 / 360 in doubles, which is x = num / (2 d) with
// num = 85 diff + off d, off = 170 sector, or 510 for sector 0 with a
// negative diff (0 <= x < 255; num < 2^24 and exact in a float). Where x is
// not whole it lies at least 1 / (2 d) >= 1 / 510 from every whole number,
// and the doubles (five roundings of values below 92,000: error under 1e-10)
// and the float quotient (error under 255 * 2^-24) both truncate to floor(x).
// Where x = k is whole, the float quotient is exactly k (and it is whole only
// then), while the doubles give k or k - 1. Their result depends only on the
// fraction diff / d and the sector (fl(diff / d) is the rounded fraction),
// and k determines both: the sector by the range k lies in (0..42 and
// 213..254: red, 43..127: green, 128..212: blue), and
// diff / d = (2 k - 170 sector) / 85 (2 k - 510 / 85 above 212). So one
// single-value call per k, at d = 85, gives the drop for every pixel whose
// hue is k exactly: 35 of the 255 values of k drop by one.
//
// A grey (d = 0) has diff = 0 and num = 0: hue 0, the grey hue, and
// saturation 0 (the denominators are kept at least 1).
#include "hue.h"
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

constexpr int kStep = 8;

struct HueDrops {
    // Bit k: the single-value hue is k - 1 where the exact hue is k.
    alignas(32) uint32_t bits[8];
    BYTE drop[256];
    bool saturationExact; // fl(fl(k / 255) * 255) truncates to k for every k
    HueDrops() : bits(), drop(), saturationExact(true) {
        for (int k = 0; k < 255; ++k) {
            const int sector = k <= 42 ? 0 : k <= 127 ? 1 : k <= 212 ? 2 : 0;
            const int diff = k > 212 ? 2 * k - 510 : 2 * k - 170 * sector;
            drop[k] = static_cast<BYTE>(k - HueOfSector(sector, diff, 85));
            bits[k >> 5] |= uint32_t{drop[k]} << (k & 31);
        }
        for (int k = 0; k < 256; ++k) saturationExact = saturationExact && HsvSaturation(255, k) == k;
    }
};

const HueDrops &Drops() {
    static const HueDrops drops;
    return drops;
}

// ---- SSE2: 16-bit lanes for max, min, d and the sector; floats for the
// quotients, four lanes a half.

inline __m128 Float(__m128i v) { return _mm_cvtepi32_ps(v); }

template <bool Hsi>
void FromRgbSse2Step(const BYTE *r8, const BYTE *g8, const BYTE *b8, BYTE *h8, BYTE *s8, BYTE *v8,
                     const BYTE *drop) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i r = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(r8)), zero);
    const __m128i g = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(g8)), zero);
    const __m128i b = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(b8)), zero);
    const __m128i max = _mm_max_epi16(_mm_max_epi16(r, g), b);
    const __m128i min = _mm_min_epi16(_mm_min_epi16(r, g), b);
    const __m128i d = _mm_sub_epi16(max, min);
    const __m128i isR = _mm_cmpeq_epi16(r, max);
    const __m128i isG = _mm_andnot_si128(isR, _mm_cmpeq_epi16(g, max));
    const __m128i isB = _mm_andnot_si128(_mm_or_si128(isR, isG), _mm_set1_epi16(-1));
    const __m128i diff = _mm_or_si128(
        _mm_and_si128(_mm_sub_epi16(g, b), isR),
        _mm_or_si128(_mm_and_si128(_mm_sub_epi16(b, r), isG), _mm_and_si128(_mm_sub_epi16(r, g), isB)));
    const __m128i wrap = _mm_and_si128(isR, _mm_cmpgt_epi16(zero, diff));
    const __m128i off = _mm_or_si128(_mm_or_si128(_mm_and_si128(isG, _mm_set1_epi16(170)),
                                                  _mm_and_si128(isB, _mm_set1_epi16(340))),
                                     _mm_and_si128(wrap, _mm_set1_epi16(510)));
    const __m128i sum = _mm_add_epi16(max, min);
    const __m128i m = Hsi ? _mm_min_epi16(sum, _mm_sub_epi16(_mm_set1_epi16(510), sum)) : max;
    const __m128i one = _mm_set1_epi16(1);
    const __m128i satDen = _mm_max_epi16(m, one), hueDen = _mm_max_epi16(_mm_add_epi16(d, d), one);
    const __m128i d255 = _mm_mullo_epi16(d, _mm_set1_epi16(255)); // below 2^16: unsigned
    const __m128i nonzero = _mm_andnot_si128(_mm_cmpeq_epi16(diff, zero), _mm_set1_epi16(-1));
    __m128i hue[2], sat[2];
    int exact = 0;
    for (int half = 0; half < 2; ++half) {
        const auto lo = [half](__m128i v, __m128i with) {
            return half == 0 ? _mm_unpacklo_epi16(v, with) : _mm_unpackhi_epi16(v, with);
        };
        const __m128i diff32 = _mm_srai_epi32(lo(diff, diff), 16);
        const __m128 num = _mm_add_ps(_mm_mul_ps(Float(diff32), _mm_set1_ps(85)),
                                      _mm_mul_ps(Float(lo(off, zero)), Float(lo(d, zero))));
        const __m128 q = _mm_div_ps(num, Float(lo(hueDen, zero)));
        hue[half] = _mm_cvttps_epi32(q);
        const __m128 whole = _mm_cmpeq_ps(Float(hue[half]), q);
        exact |= _mm_movemask_ps(_mm_and_ps(whole, _mm_castsi128_ps(lo(nonzero, nonzero)))) << (4 * half);
        sat[half] = _mm_cvttps_epi32(_mm_div_ps(Float(lo(d255, zero)), Float(lo(satDen, zero))));
    }
    const __m128i value = Hsi ? _mm_srli_epi16(sum, 1) : max;
    _mm_storel_epi64(reinterpret_cast<__m128i *>(h8), _mm_packus_epi16(_mm_packs_epi32(hue[0], hue[1]), zero));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(s8), _mm_packus_epi16(_mm_packs_epi32(sat[0], sat[1]), zero));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(v8), _mm_packus_epi16(value, zero));
    // About one pixel in 80 of random colours has a whole hue with diff != 0.
    for (; exact; exact &= exact - 1) {
        const int i = __builtin_ctz(static_cast<unsigned>(exact));
        h8[i] = static_cast<BYTE>(h8[i] - drop[h8[i]]);
    }
}

// The last pixels of a block (fewer than 8) go through zero-filled copies.
struct Tail {
    BYTE src[3][kStep] = {}, dst[3][kStep];
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
    for (; p + kStep <= n; p += kStep)
        FromRgbSse2Step<Hsi>(in.c[0] + p, in.c[1] + p, in.c[2] + p, out.c[0] + p, out.c[1] + p,
                             out.c[2] + p, drop);
    if (p < n) {
        Tail t(in, p, n);
        FromRgbSse2Step<Hsi>(t.src[0], t.src[1], t.src[2], t.dst[0], t.dst[1], t.dst[2], drop);
        t.Put(out, p, n);
    }
}

#if PAX_HAVE_AVX2_BUILD
// ---- AVX2: 32-bit lanes throughout; the drop by a bit lookup in registers.

template <bool Hsi>
PAX_AVX2 PAX_INLINE void FromRgbAvx2Step(const BYTE *r8, const BYTE *g8, const BYTE *b8, BYTE *h8,
                                         BYTE *s8, BYTE *v8, __m256i dropBits) {
    const __m256i r = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(r8)));
    const __m256i g = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(g8)));
    const __m256i b = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(b8)));
    const __m256i zero = _mm256_setzero_si256(), one = _mm256_set1_epi32(1);
    const __m256i max = _mm256_max_epi32(_mm256_max_epi32(r, g), b);
    const __m256i min = _mm256_min_epi32(_mm256_min_epi32(r, g), b);
    const __m256i d = _mm256_sub_epi32(max, min);
    const __m256i isR = _mm256_cmpeq_epi32(r, max);
    const __m256i isG = _mm256_andnot_si256(isR, _mm256_cmpeq_epi32(g, max));
    const __m256i isB = _mm256_andnot_si256(_mm256_or_si256(isR, isG), _mm256_set1_epi32(-1));
    const __m256i diff = _mm256_or_si256(
        _mm256_and_si256(_mm256_sub_epi32(g, b), isR),
        _mm256_or_si256(_mm256_and_si256(_mm256_sub_epi32(b, r), isG),
                        _mm256_and_si256(_mm256_sub_epi32(r, g), isB)));
    const __m256i wrap = _mm256_and_si256(isR, _mm256_cmpgt_epi32(zero, diff));
    const __m256i off = _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(isG, _mm256_set1_epi32(170)),
                                                        _mm256_and_si256(isB, _mm256_set1_epi32(340))),
                                        _mm256_and_si256(wrap, _mm256_set1_epi32(510)));
    const __m256i num = _mm256_add_epi32(_mm256_mullo_epi32(diff, _mm256_set1_epi32(85)),
                                         _mm256_mullo_epi32(off, d));
    const __m256 q = _mm256_div_ps(_mm256_cvtepi32_ps(num),
                                   _mm256_cvtepi32_ps(_mm256_max_epi32(_mm256_add_epi32(d, d), one)));
    const __m256i k = _mm256_cvttps_epi32(q);
    const __m256i whole = _mm256_castps_si256(_mm256_cmp_ps(_mm256_cvtepi32_ps(k), q, _CMP_EQ_OQ));
    const __m256i bit = _mm256_srlv_epi32(_mm256_permutevar8x32_epi32(dropBits, _mm256_srli_epi32(k, 5)),
                                          _mm256_and_si256(k, _mm256_set1_epi32(31)));
    const __m256i hue = _mm256_sub_epi32(k, _mm256_and_si256(_mm256_and_si256(whole, bit), one));
    const __m256i sum = _mm256_add_epi32(max, min);
    const __m256i m = Hsi ? _mm256_min_epi32(sum, _mm256_sub_epi32(_mm256_set1_epi32(510), sum)) : max;
    const __m256i sat = _mm256_cvttps_epi32(
        _mm256_div_ps(_mm256_cvtepi32_ps(_mm256_mullo_epi32(d, _mm256_set1_epi32(255))),
                      _mm256_cvtepi32_ps(_mm256_max_epi32(m, one))));
    const __m256i value = Hsi ? _mm256_srli_epi32(sum, 1) : max;
    // Lanes (h0..3 s0..3 | h4..7 s4..7), then (h0..3 s0..3 v0..3 v0..3 | ...).
    const __m256i hs = _mm256_packus_epi32(hue, sat);
    const __m256i hsv = _mm256_packus_epi16(hs, _mm256_packus_epi32(value, value));
    const __m256i ordered = _mm256_permutevar8x32_epi32(hsv, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 0, 0));
    const __m128i lo = _mm256_castsi256_si128(ordered);
    _mm_storel_epi64(reinterpret_cast<__m128i *>(h8), lo);
    _mm_storel_epi64(reinterpret_cast<__m128i *>(s8), _mm_unpackhi_epi64(lo, lo));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(v8), _mm256_extracti128_si256(ordered, 1));
}

template <bool Hsi>
PAX_AVX2 void FromRgbAvx2(const BytePlanes &in, BytePlanes &out, int n) {
    const __m256i dropBits = _mm256_load_si256(reinterpret_cast<const __m256i *>(Drops().bits));
    int p = 0;
    for (; p + kStep <= n; p += kStep)
        FromRgbAvx2Step<Hsi>(in.c[0] + p, in.c[1] + p, in.c[2] + p, out.c[0] + p, out.c[1] + p,
                             out.c[2] + p, dropBits);
    if (p < n) {
        Tail t(in, p, n);
        FromRgbAvx2Step<Hsi>(t.src[0], t.src[1], t.src[2], t.dst[0], t.dst[1], t.dst[2], dropBits);
        t.Put(out, p, n);
    }
}
#endif

} // namespace

void FastHueKernels(ModelKernels *hsv, ModelKernels *hsi) {
    if (!Drops().saturationExact) return; // the per-pixel kernels stay
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
