// Fast forms of the tone tables (see tone_tables.h).
#include "tone_tables.h"

#include <emmintrin.h>

#include <cstring>

namespace tonefast {

namespace {

constexpr unsigned kBy25 = 5243; // floor(p / 100) = ((p >> 2) x 5243) >> 17
constexpr bool HundredthsExact() {
    for (unsigned p = 0; p <= 255 * 200; ++p)
        if ((((p >> 2) * kBy25) >> 17) != p / 100) return false;
    return true;
}
static_assert(HundredthsExact(), "the division by 100 must be exact for every product");

} // namespace

BYTE ToneByIntegers(int i, int brightness, int contrast) {
    const int bo = brightness * 128 / 100, co = contrast * 128 / 100;
    int a = i + bo;
    a = a < 0 ? 0 : a > 255 ? 255 : a;
    const unsigned p = static_cast<unsigned>(a * (contrast + 100));
    const int v = static_cast<int>((((p >> 2) * kBy25) >> 17)) - co;
    return static_cast<BYTE>(v < 0 ? 0 : v > 255 ? 255 : v);
}

ToneRows::ToneRows(int brightness, int contrast, const BYTE table[256])
    : bo_(brightness * 128 / 100), co_(contrast * 128 / 100), scale_(contrast + 100),
      integer_(true) {
    std::memcpy(table_, table, 256);
    for (int i = 0; i < 256; ++i) integer_ = integer_ && ToneByIntegers(i, brightness, contrast) == table[i];
}

void ToneRows::Run(const BYTE *in, BYTE *out, int64_t bytes) const {
    int64_t i = 0;
    if (integer_) {
        const __m128i up = _mm_set1_epi8(static_cast<char>(bo_ > 0 ? bo_ : 0));
        const __m128i down = _mm_set1_epi8(static_cast<char>(bo_ < 0 ? -bo_ : 0));
        const __m128i scale = _mm_set1_epi16(static_cast<short>(scale_));
        const __m128i by25 = _mm_set1_epi16(static_cast<short>(kBy25));
        const __m128i co = _mm_set1_epi16(static_cast<short>(co_));
        const __m128i zero = _mm_setzero_si128();
        // bo is -128..128: saturating byte steps give a limited to 0..255.
        for (; i + 16 <= bytes; i += 16) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + i));
            v = _mm_subs_epu8(_mm_adds_epu8(v, up), down);
            __m128i lo = _mm_mullo_epi16(_mm_unpacklo_epi8(v, zero), scale);
            __m128i hi = _mm_mullo_epi16(_mm_unpackhi_epi8(v, zero), scale);
            lo = _mm_sub_epi16(_mm_srli_epi16(_mm_mulhi_epu16(_mm_srli_epi16(lo, 2), by25), 1), co);
            hi = _mm_sub_epi16(_mm_srli_epi16(_mm_mulhi_epu16(_mm_srli_epi16(hi, 2), by25), 1), co);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i), _mm_packus_epi16(lo, hi));
        }
    }
    for (; i < bytes; ++i) out[i] = table_[in[i]];
}

void GammaRun(const BYTE *in, BYTE *out, int64_t count, const BYTE *t0, const BYTE *t1,
              const BYTE *t2) {
    int64_t x = 0;
    for (; x + 4 <= count; x += 4, in += 12, out += 12) {
#pragma GCC unroll 4
        for (int k = 0; k < 4; ++k) {
            out[3 * k] = t0[in[3 * k]];
            out[3 * k + 1] = t1[in[3 * k + 1]];
            out[3 * k + 2] = t2[in[3 * k + 2]];
        }
    }
    for (; x < count; ++x, in += 3, out += 3) {
        out[0] = t0[in[0]];
        out[1] = t1[in[1]];
        out[2] = t2[in[2]];
    }
}

} // namespace tonefast
