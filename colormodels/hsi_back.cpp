// HSItoRGB by hue-byte tables, one pixel at a time and in vector registers.
#include "hsi_back.h"
#include "simd_select.h"

#include <emmintrin.h>
#if PAX_HAVE_AVX2_BUILD
#include <immintrin.h>
#endif


namespace pax {

// HueRamp's correction and regions for x = h + 120, h and h - 120, with
// h = H x 360 / 255, as HSItoUnitRGB and HueRamp compute them.
HsiBackTables::HsiBackTables() : unit(), region(), ramp(), take(), hueRamp(), shift(), pick() {
    for (int v = 0; v < 256; ++v) unit[v] = v / 255.0;
    for (int hb = 0; hb < 256; ++hb) {
        const double h = hb * 360.0 / 255.0;
        const double xs[3] = {h + 120, h, h - 120};
        for (int ch = 0; ch < 3; ++ch) {
            double x = xs[ch];
            if (x > 360)
                x = x - 360;
            else if (x < 0)
                x = x + 360;
            if (x < 60) {
                region[hb][ch] = Rising;
                ramp[hb][ch] = x;
            } else if (x < 180) {
                region[hb][ch] = High;
            } else if (x < 240) {
                region[hb][ch] = Falling;
                ramp[hb][ch] = 240 - x;
            } else {
                region[hb][ch] = Low;
            }
            if (region[hb][ch] == High) {
                take[hb][ch] = TakeM2;
            } else if (ramp[hb][ch] != 0) {
                take[hb][ch] = TakeRamp;
                hueRamp[hb] = ramp[hb][ch];
            } else {
                take[hb][ch] = TakeM1;
            }
            shift[hb][ch] = static_cast<BYTE>(8 * take[hb][ch]);
        }
        pick[hb] = static_cast<uint32_t>(take[hb][2]) | static_cast<uint32_t>(take[hb][1]) << 8 |
                   static_cast<uint32_t>(take[hb][0]) << 16 | 0x80u << 24;
    }
}

const HsiBackTables &HsiBackTablesOnce() {
    static const HsiBackTables tables;
    return tables;
}

namespace {

// The bytes of B, G and R among m2, m1 and the ramp's byte.
inline uint32_t Gather(const HsiBackTables &t, int hb, const BYTE *value) {
    const HsiBackTables::Take *take = t.take[hb];
    return value[take[2]] | value[take[1]] << 8 | value[take[0]] << 16;
}

// Two pixels a step.
void HsiToBgrTwo(const BYTE *h, const BYTE *s, const BYTE *i, uint32_t *bgr, int n) {
    const HsiBackTables &t = HsiBackTablesOnce();
    const __m128d half = _mm_set1_pd(0.5), one = _mm_set1_pd(1), sixty = _mm_set1_pd(60),
                  scale = _mm_set1_pd(255);
    for (int k = 0; k < n; k += 2) {
        const __m128d l = _mm_setr_pd(t.unit[i[k]], t.unit[i[k + 1]]);
        const __m128d sat = _mm_setr_pd(t.unit[s[k]], t.unit[s[k + 1]]);
        const __m128d arg = _mm_setr_pd(t.hueRamp[h[k]], t.hueRamp[h[k + 1]]);
        const __m128d dark = _mm_mul_pd(_mm_add_pd(sat, one), l);
        const __m128d light = _mm_sub_pd(_mm_add_pd(l, sat), _mm_mul_pd(l, sat));
        const __m128d isDark = _mm_cmple_pd(l, half);
        const __m128d m2 = _mm_or_pd(_mm_and_pd(isDark, dark), _mm_andnot_pd(isDark, light));
        const __m128d m1 = _mm_sub_pd(_mm_add_pd(l, l), m2);
        const __m128d rampValue =
            _mm_add_pd(_mm_div_pd(_mm_mul_pd(_mm_sub_pd(m2, m1), arg), sixty), m1);
        const __m128i v2 = _mm_cvttpd_epi32(_mm_mul_pd(m2, scale));
        const __m128i v1 = _mm_cvttpd_epi32(_mm_mul_pd(m1, scale));
        const __m128i vr = _mm_cvttpd_epi32(_mm_mul_pd(rampValue, scale));
        const __m128i packed = _mm_or_si128(v2, _mm_or_si128(_mm_slli_epi32(v1, 8), _mm_slli_epi32(vr, 16)));
        alignas(16) BYTE value[16];
        _mm_store_si128(reinterpret_cast<__m128i *>(value), packed);
        bgr[k] = Gather(t, h[k], value);
        bgr[k + 1] = Gather(t, h[k + 1], value + 4);
    }
}

#if PAX_HAVE_AVX2_BUILD
// Table values of four bytes: loads are quicker than the gather instructions.
PAX_AVX2 inline __m256d Four(const double *table, const BYTE *p) {
    return _mm256_setr_pd(table[p[0]], table[p[1]], table[p[2]], table[p[3]]);
}

// Four pixels a step; the byte shuffle of each pixel's hue picks its channels.
PAX_AVX2 void HsiToBgrFour(const BYTE *h, const BYTE *s, const BYTE *i, uint32_t *bgr, int n) {
    const HsiBackTables &t = HsiBackTablesOnce();
    const __m256d half = _mm256_set1_pd(0.5), one = _mm256_set1_pd(1), sixty = _mm256_set1_pd(60),
                  scale = _mm256_set1_pd(255);
    const __m128i lanes = _mm_setr_epi32(0, 0x04040404, 0x08080808, 0x0C0C0C0C);
    const int *pick = reinterpret_cast<const int *>(t.pick);
    for (int k = 0; k < n; k += 4) {
        const __m256d l = Four(t.unit, i + k);
        const __m256d sat = Four(t.unit, s + k);
        const __m256d arg = Four(t.hueRamp, h + k);
        const __m256d dark = _mm256_mul_pd(_mm256_add_pd(sat, one), l);
        const __m256d light = _mm256_sub_pd(_mm256_add_pd(l, sat), _mm256_mul_pd(l, sat));
        const __m256d m2 = _mm256_blendv_pd(light, dark, _mm256_cmp_pd(l, half, _CMP_LE_OQ));
        const __m256d m1 = _mm256_sub_pd(_mm256_add_pd(l, l), m2);
        const __m256d rampValue =
            _mm256_add_pd(_mm256_div_pd(_mm256_mul_pd(_mm256_sub_pd(m2, m1), arg), sixty), m1);
        const __m128i v2 = _mm256_cvttpd_epi32(_mm256_mul_pd(m2, scale));
        const __m128i v1 = _mm256_cvttpd_epi32(_mm256_mul_pd(m1, scale));
        const __m128i vr = _mm256_cvttpd_epi32(_mm256_mul_pd(rampValue, scale));
        const __m128i packed = _mm_or_si128(v2, _mm_or_si128(_mm_slli_epi32(v1, 8), _mm_slli_epi32(vr, 16)));
        const __m128i order =
            _mm_add_epi32(_mm_setr_epi32(pick[h[k]], pick[h[k + 1]], pick[h[k + 2]], pick[h[k + 3]]), lanes);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(bgr + k), _mm_shuffle_epi8(packed, order));
    }
}
#endif

} // namespace

HsiToBgrKernel HsiToBgrSse2() { return HsiToBgrTwo; }

HsiToBgrKernel HsiToBgrAvx2() {
#if PAX_HAVE_AVX2_BUILD
    if (ProcessorHasAvx2()) return HsiToBgrFour;
#endif
    return nullptr;
}

} // namespace pax
