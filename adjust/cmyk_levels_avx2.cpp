// ColorCMYKLevels on 16 pixels at a time with AVX2 (this file is compiled
// with -mavx2): the three bytes of each pixel gathered into planes, the inks
// and K worked out on bytes, each scaled ink as min(255, ink x M >> s) on
// 16-bit lanes, and the channels 255 - K' - ink' limited at 0 by the pack.
// hue_fast.cpp finds M and s for each ink and checks them over all 256 inks.
#include "hue_fast.h"

#include <immintrin.h>

namespace hueadjust {

namespace {

inline __m128i Scale(__m128i ink16, __m128i m, __m128i s, __m128i rest) {
    // ink x M is at most 24 bits: its high half shifted up by 16 - s, its low
    // half shifted down by s; s is 8..16, so the result fits 16 bits.
    __m128i hi = _mm_sll_epi16(_mm_mulhi_epu16(ink16, m), rest);
    __m128i lo = _mm_srl_epi16(_mm_mullo_epi16(ink16, m), s);
    return _mm_min_epu16(_mm_or_si128(hi, lo), _mm_set1_epi16(255));
}

} // namespace

int64_t CmykLevelsAvx2(const BYTE *in, BYTE *out, int64_t count, const CmykIntegerForm &form) {
    const __m128i g0a = _mm_setr_epi8(0, 3, 6, 9, 12, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i g0b = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, 2, 5, 8, 11, 14, -1, -1, -1, -1, -1);
    const __m128i g0c = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 1, 4, 7, 10, 13);
    const __m128i g1a = _mm_setr_epi8(1, 4, 7, 10, 13, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i g1b = _mm_setr_epi8(-1, -1, -1, -1, -1, 0, 3, 6, 9, 12, 15, -1, -1, -1, -1, -1);
    const __m128i g1c = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 2, 5, 8, 11, 14);
    const __m128i g2a = _mm_setr_epi8(2, 5, 8, 11, 14, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i g2b = _mm_setr_epi8(-1, -1, -1, -1, -1, 1, 4, 7, 10, 13, -1, -1, -1, -1, -1, -1);
    const __m128i g2c = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 3, 6, 9, 12, 15);
    // Back: output register a takes plane bytes so that byte 3p + k is plane k's byte p.
    const __m128i s0a = _mm_setr_epi8(0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1, -1, 5);
    const __m128i s1a = _mm_setr_epi8(-1, 0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1, -1);
    const __m128i s2a = _mm_setr_epi8(-1, -1, 0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1);
    const __m128i s0b = _mm_setr_epi8(-1, -1, 6, -1, -1, 7, -1, -1, 8, -1, -1, 9, -1, -1, 10, -1);
    const __m128i s1b = _mm_setr_epi8(5, -1, -1, 6, -1, -1, 7, -1, -1, 8, -1, -1, 9, -1, -1, 10);
    const __m128i s2b = _mm_setr_epi8(-1, 5, -1, -1, 6, -1, -1, 7, -1, -1, 8, -1, -1, 9, -1, -1);
    const __m128i s0c = _mm_setr_epi8(-1, 11, -1, -1, 12, -1, -1, 13, -1, -1, 14, -1, -1, 15, -1, -1);
    const __m128i s1c = _mm_setr_epi8(-1, -1, 11, -1, -1, 12, -1, -1, 13, -1, -1, 14, -1, -1, 15, -1);
    const __m128i s2c = _mm_setr_epi8(10, -1, -1, 11, -1, -1, 12, -1, -1, 13, -1, -1, 14, -1, -1, 15);
    const __m128i zero = _mm_setzero_si128(), full = _mm_set1_epi8(-1);
    // Stored byte 0 is blue (yellow ink), 1 green (magenta), 2 red (cyan).
    const int order[3] = {2, 1, 0};
    __m128i m[4], s[4], rest[4];
    for (int k = 0; k < 4; ++k) {
        m[k] = _mm_set1_epi16(static_cast<short>(form.multiplier[k]));
        s[k] = _mm_cvtsi32_si128(form.shift[k]);
        rest[k] = _mm_cvtsi32_si128(16 - form.shift[k]);
    }
    int64_t x = 0;
    for (; x + 16 <= count; x += 16, in += 48, out += 48) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 16));
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 32));
        __m128i plane[3] = {
            _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(a, g0a), _mm_shuffle_epi8(b, g0b)), _mm_shuffle_epi8(c, g0c)),
            _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(a, g1a), _mm_shuffle_epi8(b, g1b)), _mm_shuffle_epi8(c, g1c)),
            _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(a, g2a), _mm_shuffle_epi8(b, g2b)), _mm_shuffle_epi8(c, g2c))};
        const __m128i max = _mm_max_epu8(plane[0], _mm_max_epu8(plane[1], plane[2]));
        const __m128i black = _mm_sub_epi8(full, max); // K = 255 - max
        __m128i white[2];
        for (int half = 0; half < 2; ++half) {
            __m128i k16 = half ? _mm_unpackhi_epi8(black, zero) : _mm_unpacklo_epi8(black, zero);
            white[half] = _mm_sub_epi16(_mm_set1_epi16(255), Scale(k16, m[3], s[3], rest[3]));
        }
        for (int p = 0; p < 3; ++p) {
            const int ink = order[p];
            const __m128i amount = _mm_sub_epi8(max, plane[p]);
            __m128i lo = _mm_sub_epi16(white[0], Scale(_mm_unpacklo_epi8(amount, zero), m[ink], s[ink], rest[ink]));
            __m128i hi = _mm_sub_epi16(white[1], Scale(_mm_unpackhi_epi8(amount, zero), m[ink], s[ink], rest[ink]));
            plane[p] = _mm_packus_epi16(lo, hi);
        }
        const __m128i oa = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(plane[0], s0a), _mm_shuffle_epi8(plane[1], s1a)),
                                        _mm_shuffle_epi8(plane[2], s2a));
        const __m128i ob = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(plane[0], s0b), _mm_shuffle_epi8(plane[1], s1b)),
                                        _mm_shuffle_epi8(plane[2], s2b));
        const __m128i oc = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(plane[0], s0c), _mm_shuffle_epi8(plane[1], s1c)),
                                        _mm_shuffle_epi8(plane[2], s2c));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), oa);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 16), ob);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 32), oc);
    }
    return x;
}

} // namespace hueadjust
