// Which channel holds the largest of r, g and b, and the difference of the
// other two in hue order, on 16-bit lanes with SSE2: the first step of every
// vector form into HSV or HSI (colormodels/fast_hue.cpp) and of the hue
// adjustment's indices (adjust/hue_fast.cpp). Red wins a tie, then green.
#ifndef PAX_HUE_SECTOR_SSE2_H
#define PAX_HUE_SECTOR_SSE2_H

#include "simd_select.h"

#include <emmintrin.h>

namespace pax {

struct HueSectorSse2 {
    __m128i isR, isG, isB; // all ones in the lanes whose largest channel it is
    __m128i diff;          // g - b where red is largest, b - r for green, r - g for blue
};

PAX_INLINE HueSectorSse2 HueSectorOf(__m128i r, __m128i g, __m128i b, __m128i max) {
    HueSectorSse2 s;
    s.isR = _mm_cmpeq_epi16(r, max);
    s.isG = _mm_andnot_si128(s.isR, _mm_cmpeq_epi16(g, max));
    s.isB = _mm_andnot_si128(_mm_or_si128(s.isR, s.isG), _mm_set1_epi16(-1));
    s.diff = _mm_or_si128(_mm_and_si128(_mm_sub_epi16(g, b), s.isR),
                          _mm_or_si128(_mm_and_si128(_mm_sub_epi16(b, r), s.isG),
                                       _mm_and_si128(_mm_sub_epi16(r, g), s.isB)));
    return s;
}

} // namespace pax

#endif
