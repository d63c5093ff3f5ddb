// ColorCMYKLevels on 32 pixels at a time with AVX2 (16 in each 128-bit lane) (this file is compiled
// with -mavx2): the three bytes of each pixel gathered into planes, the inks
// and K worked out on bytes, each scaled ink as min(255, ink x M >> s) on
// 16-bit lanes, and the channels 255 - K' - ink' limited at 0 by the pack.
// hue_fast.cpp finds M and s for each ink and checks them over all 256 inks.
#include "hue_fast.h"

#include <immintrin.h>

namespace hueadjust {

namespace {

inline __m256i Scale(__m256i ink16, __m256i m, __m128i s, __m128i rest) {
    // ink x M is at most 24 bits: its high half shifted up by 16 - s, its low
    // half shifted down by s; s is 8..16, so the result fits 16 bits.
    __m256i hi = _mm256_sll_epi16(_mm256_mulhi_epu16(ink16, m), rest);
    __m256i lo = _mm256_srl_epi16(_mm256_mullo_epi16(ink16, m), s);
    return _mm256_min_epu16(_mm256_or_si256(hi, lo), _mm256_set1_epi16(255));
}

// 48 bytes at p into the low lane and 48 bytes at p + 48 into the high lane.
inline void Load2(const BYTE *p, __m256i v[3]) {
    for (int k = 0; k < 3; ++k)
        v[k] = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16 * k))),
            _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 48 + 16 * k)), 1);
}
inline void Store2(BYTE *p, const __m256i v[3]) {
    for (int k = 0; k < 3; ++k) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p + 16 * k), _mm256_castsi256_si128(v[k]));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p + 48 + 16 * k), _mm256_extracti128_si256(v[k], 1));
    }
}
inline __m256i Both(__m128i m) { return _mm256_broadcastsi128_si256(m); }
inline __m256i Pick3(const __m256i v[3], __m128i ma, __m128i mb, __m128i mc) {
    return _mm256_or_si256(_mm256_or_si256(_mm256_shuffle_epi8(v[0], Both(ma)), _mm256_shuffle_epi8(v[1], Both(mb))),
                           _mm256_shuffle_epi8(v[2], Both(mc)));
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
    const __m256i zero = _mm256_setzero_si256(), full = _mm256_set1_epi8(-1);
    // Stored byte 0 is blue (yellow ink), 1 green (magenta), 2 red (cyan).
    const int order[3] = {2, 1, 0};
    __m256i m[4];
    __m128i s[4], rest[4];
    for (int k = 0; k < 4; ++k) {
        m[k] = _mm256_set1_epi16(static_cast<short>(form.multiplier[k]));
        s[k] = _mm_cvtsi32_si128(form.shift[k]);
        rest[k] = _mm_cvtsi32_si128(16 - form.shift[k]);
    }
    int64_t x = 0;
    for (; x + 32 <= count; x += 32, in += 96, out += 96) {
        __m256i v[3];
        Load2(in, v);
        __m256i plane[3] = {Pick3(v, g0a, g0b, g0c), Pick3(v, g1a, g1b, g1c), Pick3(v, g2a, g2b, g2c)};
        const __m256i max = _mm256_max_epu8(plane[0], _mm256_max_epu8(plane[1], plane[2]));
        const __m256i black = _mm256_sub_epi8(full, max); // K = 255 - max
        __m256i white[2];
        for (int half = 0; half < 2; ++half) {
            __m256i k16 = half ? _mm256_unpackhi_epi8(black, zero) : _mm256_unpacklo_epi8(black, zero);
            white[half] = _mm256_sub_epi16(_mm256_set1_epi16(255), Scale(k16, m[3], s[3], rest[3]));
        }
        for (int p = 0; p < 3; ++p) {
            const int ink = order[p];
            const __m256i amount = _mm256_sub_epi8(max, plane[p]);
            __m256i lo = _mm256_sub_epi16(white[0], Scale(_mm256_unpacklo_epi8(amount, zero), m[ink], s[ink], rest[ink]));
            __m256i hi = _mm256_sub_epi16(white[1], Scale(_mm256_unpackhi_epi8(amount, zero), m[ink], s[ink], rest[ink]));
            plane[p] = _mm256_packus_epi16(lo, hi);
        }
        const __m256i o[3] = {Pick3(plane, s0a, s1a, s2a), Pick3(plane, s0b, s1b, s2b), Pick3(plane, s0c, s1c, s2c)};
        Store2(out, o);
    }
    return x;
}

} // namespace hueadjust
