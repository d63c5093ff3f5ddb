// Taking 3-byte pixels apart into planes and putting them back: byte
// shuffles of 16 pixels at a time where the processor has them (built with
// the AVX2 kernels), plain byte moves elsewhere and for the last pixels.
#include "plane_shuffle.h"

#include "simd_select.h"

#include <cstdint>
#include <cstring>

#if PAX_HAVE_AVX2_BUILD
#include <immintrin.h>
#endif

namespace pax {
namespace {

void SplitPlain(const BYTE *src, BYTE *c0, BYTE *c1, BYTE *c2, int from, int n) {
    for (int p = from; p < n; ++p) {
        c0[p] = src[3 * p];
        c1[p] = src[3 * p + 1];
        c2[p] = src[3 * p + 2];
    }
}
void JoinPlain(const BYTE *c0, const BYTE *c1, const BYTE *c2, BYTE *dst, int from, int n) {
    for (int p = from; p < n; ++p) {
        dst[3 * p] = c0[p];
        dst[3 * p + 1] = c1[p];
        dst[3 * p + 2] = c2[p];
    }
}

// Output k of a split: every byte of pixel p gets byte 2 - k of source pixel p.
void SpreadPlain(const BYTE *src, BYTE *o0, BYTE *o1, BYTE *o2, int from, int n) {
    for (int p = from; p < n; ++p) {
        const BYTE c0 = src[3 * p + 2], c1 = src[3 * p + 1], c2 = src[3 * p];
        o0[3 * p] = o0[3 * p + 1] = o0[3 * p + 2] = c0;
        o1[3 * p] = o1[3 * p + 1] = o1[3 * p + 2] = c1;
        o2[3 * p] = o2[3 * p + 1] = o2[3 * p + 2] = c2;
    }
}
void SpreadScalar(const BYTE *src, BYTE *o0, BYTE *o1, BYTE *o2, int n) { SpreadPlain(src, o0, o1, o2, 0, n); }

// Output k of a 4-byte split: every byte of pixel p gets byte (2, 1, 0, 3)[k]
// of source pixel p. Plain 32-bit shifts, which the compiler turns into
// vector shifts.
PAX_INLINE void Spread4Words(const BYTE *src, BYTE *const out[4], int n) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "x86 byte order");
    constexpr int kShift[4] = {16, 8, 0, 24};
    for (int k = 0; k < 4; ++k) {
        BYTE *o = out[k];
        for (int p = 0; p < n; ++p) {
            uint32_t w;
            std::memcpy(&w, src + 4 * p, 4);
            w = (w >> kShift[k]) & 0xFF;
            w |= w << 8;
            w |= w << 16;
            std::memcpy(o + 4 * p, &w, 4);
        }
    }
}
void Spread4Scalar(const BYTE *src, BYTE *const out[4], int n) { Spread4Words(src, out, n); }

void SplitScalar(const BYTE *src, BYTE *c0, BYTE *c1, BYTE *c2, int n) { SplitPlain(src, c0, c1, c2, 0, n); }
void JoinScalar(const BYTE *c0, const BYTE *c1, const BYTE *c2, BYTE *dst, int n) { JoinPlain(c0, c1, c2, dst, 0, n); }

#if PAX_HAVE_AVX2_BUILD
// Shuffle masks over 16 pixels (48 bytes, three vectors): byte 3 p + k of the
// pixels is byte (3 p + k) mod 16 of vector (3 p + k) div 16.
struct Masks {
    alignas(16) signed char split[3][3][16]; // [plane][vector][pixel]
    alignas(16) signed char join[3][3][16];  // [vector][plane][byte]
    alignas(16) signed char spread[3][3][3][16]; // [output][output vector][source vector][byte]
    Masks() {
        for (int k = 0; k < 3; ++k)
            for (int v = 0; v < 3; ++v)
                for (int w = 0; w < 3; ++w)
                    for (int i = 0; i < 16; ++i) {
                        const int at = 3 * ((16 * v + i) / 3) + 2 - k;
                        spread[k][v][w][i] = static_cast<signed char>(at / 16 == w ? at % 16 : -1);
                    }
        for (int k = 0; k < 3; ++k)
            for (int v = 0; v < 3; ++v)
                for (int i = 0; i < 16; ++i) {
                    const int at = 3 * i + k;
                    split[k][v][i] = static_cast<signed char>(at / 16 == v ? at % 16 : -1);
                    const int byte = 16 * v + i;
                    join[v][k][i] = static_cast<signed char>(byte % 3 == k ? byte / 3 : -1);
                }
    }
};
const Masks &ShuffleMasks() {
    static const Masks m;
    return m;
}

PAX_AVX2 void SplitShuffled(const BYTE *src, BYTE *c0, BYTE *c1, BYTE *c2, int n) {
    const Masks &m = ShuffleMasks();
    BYTE *out[3] = {c0, c1, c2};
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        const __m128i v[3] = {_mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p + 16)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p + 32))};
        for (int k = 0; k < 3; ++k) {
            __m128i r = _mm_shuffle_epi8(v[0], _mm_load_si128(reinterpret_cast<const __m128i *>(m.split[k][0])));
            r = _mm_or_si128(r, _mm_shuffle_epi8(v[1], _mm_load_si128(reinterpret_cast<const __m128i *>(m.split[k][1]))));
            r = _mm_or_si128(r, _mm_shuffle_epi8(v[2], _mm_load_si128(reinterpret_cast<const __m128i *>(m.split[k][2]))));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out[k] + p), r);
        }
    }
    SplitPlain(src, c0, c1, c2, p, n);
}

PAX_AVX2 void JoinShuffled(const BYTE *c0, const BYTE *c1, const BYTE *c2, BYTE *dst, int n) {
    const Masks &m = ShuffleMasks();
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        const __m128i c[3] = {_mm_loadu_si128(reinterpret_cast<const __m128i *>(c0 + p)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(c1 + p)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(c2 + p))};
        for (int v = 0; v < 3; ++v) {
            __m128i r = _mm_shuffle_epi8(c[0], _mm_load_si128(reinterpret_cast<const __m128i *>(m.join[v][0])));
            r = _mm_or_si128(r, _mm_shuffle_epi8(c[1], _mm_load_si128(reinterpret_cast<const __m128i *>(m.join[v][1]))));
            r = _mm_or_si128(r, _mm_shuffle_epi8(c[2], _mm_load_si128(reinterpret_cast<const __m128i *>(m.join[v][2]))));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 3 * p + 16 * v), r);
        }
    }
    JoinPlain(c0, c1, c2, dst, p, n);
}

PAX_AVX2 void Spread4Avx2(const BYTE *src, BYTE *const out[4], int n) { Spread4Words(src, out, n); }

PAX_AVX2 void SpreadShuffled(const BYTE *src, BYTE *o0, BYTE *o1, BYTE *o2, int n) {
    const Masks &m = ShuffleMasks();
    BYTE *out[3] = {o0, o1, o2};
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        const __m128i v[3] = {_mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p + 16)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p + 32))};
        for (int k = 0; k < 3; ++k)
            for (int w = 0; w < 3; ++w) {
                __m128i r = _mm_setzero_si128();
                for (int x = 0; x < 3; ++x)
                    r = _mm_or_si128(r, _mm_shuffle_epi8(v[x], _mm_load_si128(reinterpret_cast<const __m128i *>(m.spread[k][w][x]))));
                _mm_storeu_si128(reinterpret_cast<__m128i *>(out[k] + 3 * p + 16 * w), r);
            }
    }
    SpreadPlain(src, o0, o1, o2, p, n);
}
#endif

struct Picked {
    SplitFn split = SplitScalar;
    JoinFn join = JoinScalar;
    SpreadFn spread = SpreadScalar;
    Spread4Fn spread4 = Spread4Scalar;
    Picked() {
#if PAX_HAVE_AVX2_BUILD
        if (ProcessorHasAvx2()) {
            spread4 = Spread4Avx2;
            spread = SpreadShuffled;
            split = SplitShuffled;
            join = JoinShuffled;
        }
#endif
    }
};

} // namespace

const PlaneShuffles &Shuffles() {
    static const Picked picked;
    static const PlaneShuffles s{picked.split, picked.join, picked.spread, picked.spread4};
    return s;
}

} // namespace pax
