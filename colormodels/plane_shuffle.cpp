// Taking 3-byte pixels apart into planes and putting them back: byte
// shuffles of 16 pixels at a time where the processor has them (built with
// the AVX2 kernels), byte interleaves of SSE2 elsewhere, plain byte moves for
// the last pixels.
//
// With SSE2: 16 pixels are 48 bytes, byte 3 p + k holding component k of
// pixel p; the planes want it at 16 k + p. Interleaving the bytes of the
// first 24 with those of the last 24 (unpacklo_epi8 of 8-byte halves) sends
// byte i to 2 i mod 47 (47 stays); four such steps send it to 16 i mod 47,
// and 16 (3 p + k) = 48 p + 16 k = p + 16 k (mod 47). So four interleaves take
// the pixels apart. Putting them back is the inverse step four times: the even
// bytes of the 48, then the odd ones.
#include "plane_shuffle.h"

#include "simd_select.h"

#include <cstdint>
#include <cstring>

#include <emmintrin.h>
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

// One interleaving step: byte i of the 48 goes to 2 i mod 47.
PAX_INLINE void Interleave(__m128i v[3]) {
    const __m128i a = _mm_unpacklo_epi8(v[0], _mm_unpackhi_epi64(v[1], v[1]));
    const __m128i b = _mm_unpacklo_epi8(_mm_unpackhi_epi64(v[0], v[0]), v[2]);
    const __m128i c = _mm_unpacklo_epi8(v[1], _mm_unpackhi_epi64(v[2], v[2]));
    v[0] = a;
    v[1] = b;
    v[2] = c;
}
// Its inverse: the 24 even bytes of the 48, then the 24 odd ones.
PAX_INLINE void Deinterleave(__m128i v[3]) {
    const __m128i low = _mm_set1_epi16(0xFF);
    const __m128i even01 = _mm_packus_epi16(_mm_and_si128(v[0], low), _mm_and_si128(v[1], low));
    const __m128i odd01 = _mm_packus_epi16(_mm_srli_epi16(v[0], 8), _mm_srli_epi16(v[1], 8));
    const __m128i even2 = _mm_and_si128(v[2], low), odd2 = _mm_srli_epi16(v[2], 8);
    v[0] = even01;
    v[1] = _mm_unpacklo_epi64(_mm_packus_epi16(even2, even2), odd01);
    v[2] = _mm_unpackhi_epi64(odd01, _mm_packus_epi16(odd2, odd2));
}
PAX_INLINE void Load48(const BYTE *src, __m128i v[3]) {
    for (int j = 0; j < 3; ++j) v[j] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 16 * j));
}
PAX_INLINE void Store48(const __m128i v[3], BYTE *dst) {
    for (int j = 0; j < 3; ++j) _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 16 * j), v[j]);
}
// Planes (16 bytes each) to 48 bytes of pixels.
PAX_INLINE void JoinPlanes(__m128i c0, __m128i c1, __m128i c2, BYTE *dst) {
    __m128i v[3] = {c0, c1, c2};
    for (int step = 0; step < 4; ++step) Deinterleave(v);
    Store48(v, dst);
}

void SplitSse2(const BYTE *src, BYTE *c0, BYTE *c1, BYTE *c2, int n) {
    BYTE *out[3] = {c0, c1, c2};
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        __m128i v[3];
        Load48(src + 3 * p, v);
        for (int step = 0; step < 4; ++step) Interleave(v);
        for (int k = 0; k < 3; ++k) _mm_storeu_si128(reinterpret_cast<__m128i *>(out[k] + p), v[k]);
    }
    SplitPlain(src, c0, c1, c2, p, n);
}

void JoinSse2(const BYTE *c0, const BYTE *c1, const BYTE *c2, BYTE *dst, int n) {
    int p = 0;
    for (; p + 16 <= n; p += 16)
        JoinPlanes(_mm_loadu_si128(reinterpret_cast<const __m128i *>(c0 + p)),
                   _mm_loadu_si128(reinterpret_cast<const __m128i *>(c1 + p)),
                   _mm_loadu_si128(reinterpret_cast<const __m128i *>(c2 + p)), dst + 3 * p);
    JoinPlain(c0, c1, c2, dst, p, n);
}

void TriplePlain(const BYTE *plane, BYTE *dst, int from, int n) {
    for (int p = from; p < n; ++p) dst[3 * p] = dst[3 * p + 1] = dst[3 * p + 2] = plane[p];
}
void TripleSse2(const BYTE *plane, BYTE *dst, int n) {
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(plane + p));
        JoinPlanes(c, c, c, dst + 3 * p);
    }
    TriplePlain(plane, dst, p, n);
}
// Each byte four times: bytes doubled, then 16-bit words doubled.
void Quadruple(const BYTE *plane, BYTE *dst, int n) {
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(plane + p));
        const __m128i twice[2] = {_mm_unpacklo_epi8(c, c), _mm_unpackhi_epi8(c, c)};
        for (int h = 0; h < 2; ++h) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 4 * p + 32 * h), _mm_unpacklo_epi16(twice[h], twice[h]));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 4 * p + 32 * h + 16), _mm_unpackhi_epi16(twice[h], twice[h]));
        }
    }
    for (; p < n; ++p) dst[4 * p] = dst[4 * p + 1] = dst[4 * p + 2] = dst[4 * p + 3] = plane[p];
}

// Output k gets plane 2 - k put back as the three components of each pixel.
void SpreadSse2(const BYTE *src, BYTE *o0, BYTE *o1, BYTE *o2, int n) {
    BYTE *out[3] = {o2, o1, o0};
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        __m128i v[3];
        Load48(src + 3 * p, v);
        for (int step = 0; step < 4; ++step) Interleave(v);
        for (int k = 0; k < 3; ++k) JoinPlanes(v[k], v[k], v[k], out[k] + 3 * p);
    }
    SpreadPlain(src, o0, o1, o2, p, n);
}

#if PAX_HAVE_AVX2_BUILD
// Shuffle masks over 16 pixels (48 bytes, three vectors): byte 3 p + k of the
// pixels is byte (3 p + k) mod 16 of vector (3 p + k) div 16.
struct Masks {
    alignas(16) signed char split[3][3][16]; // [plane][vector][pixel]
    alignas(16) signed char join[3][3][16];  // [vector][plane][byte]
    alignas(16) signed char triple[3][16];   // [output vector][byte]: byte p of a plane thrice
    Masks() {
        for (int v = 0; v < 3; ++v)
            for (int i = 0; i < 16; ++i) triple[v][i] = static_cast<signed char>((16 * v + i) / 3);
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

PAX_AVX2 void TripleShuffled(const BYTE *plane, BYTE *dst, int n) {
    const Masks &m = ShuffleMasks();
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(plane + p));
        for (int w = 0; w < 3; ++w)
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 3 * p + 16 * w),
                             _mm_shuffle_epi8(c, _mm_load_si128(reinterpret_cast<const __m128i *>(m.triple[w]))));
    }
    TriplePlain(plane, dst, p, n);
}

// Planes by the split's shuffles, then each plane's bytes three times over.
PAX_AVX2 void SpreadShuffled(const BYTE *src, BYTE *o0, BYTE *o1, BYTE *o2, int n) {
    const Masks &m = ShuffleMasks();
    BYTE *out[3] = {o2, o1, o0}; // output 2 - k gets plane k
    int p = 0;
    for (; p + 16 <= n; p += 16) {
        const __m128i v[3] = {_mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p + 16)),
                              _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 3 * p + 32))};
        for (int k = 0; k < 3; ++k) {
            __m128i r = _mm_shuffle_epi8(v[0], _mm_load_si128(reinterpret_cast<const __m128i *>(m.split[k][0])));
            r = _mm_or_si128(r, _mm_shuffle_epi8(v[1], _mm_load_si128(reinterpret_cast<const __m128i *>(m.split[k][1]))));
            r = _mm_or_si128(r, _mm_shuffle_epi8(v[2], _mm_load_si128(reinterpret_cast<const __m128i *>(m.split[k][2]))));
            for (int w = 0; w < 3; ++w)
                _mm_storeu_si128(reinterpret_cast<__m128i *>(out[k] + 3 * p + 16 * w),
                                 _mm_shuffle_epi8(r, _mm_load_si128(reinterpret_cast<const __m128i *>(m.triple[w]))));
        }
    }
    SpreadPlain(src, o0, o1, o2, p, n);
}
#endif

struct Picked {
    SplitFn split = SplitSse2;
    JoinFn join = JoinSse2;
    SpreadFn spread = SpreadSse2;
    Spread4Fn spread4 = Spread4Scalar;
    RepeatFn triple = TripleSse2;
    Picked() {
#if PAX_HAVE_AVX2_BUILD
        if (ProcessorHasAvx2()) {
            spread4 = Spread4Avx2;
            triple = TripleShuffled;
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
    static const PlaneShuffles s{picked.split, picked.join, picked.spread, picked.spread4, picked.triple, Quadruple};
    return s;
}

} // namespace pax
