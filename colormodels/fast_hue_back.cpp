// HSV and HSI kernels over planes: from HSV and HSI back to RGB (bytes, or
// doubles limited to 0..1).
//
// Doubles limited to 0..1: the same double operations in the same order as
// the single-value conversions, with everything that depends on one byte
// alone (the sector, f and 1 - f of a hue byte, byte / 255, the places of
// the three HSI channels on the hue ramp) taken from tables filled by those
// operations, and the choice of sector made by index instead of by branches.
//
// Bytes: integers that decide the truncated byte, and the doubles where they
// cannot. Let the hue byte H lie in sector i = floor(6H / 255) at f = 6H -
// 255 i (in 255ths of the sector; H = 255 is sector 0 with f = 0, as the
// doubles have it). The doubles stand for exact rationals (the double h is
// 6H / 255 exactly where that is whole, and otherwise at least 1/255 from a
// whole number, so its sector is i; its fraction stands for f / 255):
//   HSV, c = V S:  v x 255 = V,  p x 255 = V - c / 255,
//                  q x 255 = V - c f / 65025,  t x 255 = V - c (255 - f) / 65025;
//   HSI, c = S min(I, 255 - I), both sides of I = 127.5:
//                  m2 x 255 = I + c / 255,  m1 x 255 = I - c / 255,
//                  ramp x 255 = I - c w / 65025,  w = 255 - 2g,
//   g = f where the channel rises (even sectors), 255 - f where it falls.
// Each double comes from these values through a handful of roundings of
// numbers below 512, each within 2^-52 of its size, so it lies within 1e-12
// of the rational times 255. A rational of denominator 65025 that is not a
// whole number lies at least 1/65025 from one: there the truncated double is
// the floor of the rational, which the lanes compute in 16-bit integers
// (hue_back_lanes.h: multiply-high division by 255, exact for every 16-bit
// number). Where the rational is whole the double may fall just below it and
// truncate one lower, except where the doubles are exact (c = 0 with V = 0,
// S = 0 or I = 0; p and the t equal to it with S = 255; m2 = 2l and m1 = 0
// with S = 255 and I <= 127); the lanes flag those pixels and their bytes
// come from the doubles (p from a table of S and V filled by them). And v x
// 255 truncates to V for every byte (the sweeps over all inputs show it, with
// S = 0 among them).
#include "hsi_back.h"
#include "hue.h"
#include "run_kernels.h"
#include "simd_select.h"

#include <emmintrin.h>
#if PAX_HAVE_AVX2_BUILD
#include <immintrin.h>
#endif
#include <cstdint>

namespace pax {
namespace {

// Sector i of HSV to (R, G, B), as places in {v, p, q, t}.
constexpr int kHsvPick[6][3] = {{0, 3, 1}, {2, 0, 1}, {1, 0, 3}, {1, 2, 0}, {3, 1, 0}, {0, 1, 2}};

struct HueTables {
    double unit[256];
    // HSV: sector 0..5 of a hue byte, f and 1 - f.
    int sector[256];
    double f[256], oneMinusF[256];
    double midFactor[256]; // q = (1 - f s) v in odd sectors, t = (1 - (1 - f) s) v in even ones
    BYTE p[256 * 256];     // p of S << 8 | V
    // HSI: per hue byte and channel (R, G, B), where the channel lies on the
    // ramp (from hsi_back.h): 0 rising or falling with argument arg, 1 at m2,
    // 2 at m1.
    int rampKind[256][3];
    double rampArg[256][3], atM2[256][3], atM1[256][3]; // 1.0 where the kind is 1 or 2

    HueTables() {
        const HsiBackTables &back = HsiBackTablesOnce();
        for (int v = 0; v < 256; ++v) {
            unit[v] = v / 255.0;
            double h = v * 360.0 / 255.0 / 60.0;
            if (h == 6.0) h = 0;
            sector[v] = static_cast<int>(h);
            f[v] = h - sector[v];
            oneMinusF[v] = 1 - f[v];
            midFactor[v] = sector[v] % 2 ? f[v] : oneMinusF[v];
            for (int s = 0; s < 256; ++s) p[s << 8 | v] = ClampToByte((1 - s / 255.0) * unit[v] * 255);
            for (int k = 0; k < 3; ++k) {
                const HsiBackTables::Region region = back.region[v][k];
                rampKind[v][k] = region == HsiBackTables::High ? 1 : region == HsiBackTables::Low ? 2 : 0;
                rampArg[v][k] = back.ramp[v][k];
                atM2[v][k] = rampKind[v][k] == 1 ? 1.0 : 0.0;
                atM1[v][k] = rampKind[v][k] == 2 ? 1.0 : 0.0;
            }
        }
    }
};

const HueTables &Tables() {
    static const HueTables tables;
    return tables;
}

PAX_INLINE void LimitPlane(double *v, int n) {
    for (int p = 0; p < n; ++p) {
        double c = v[p];
        c = c < 0 ? 0.0 : c;
        v[p] = c > 1 ? 1.0 : c;
    }
}

// v, p, q and t of every pixel in vector-friendly passes, then each channel
// picked by the sector.
PAX_INLINE void HsvToUnit(const BytePlanes &in, UnitPlanes &unit, int n) {
    const HueTables &t = Tables();
    alignas(32) double s[kRunBlock], f[kRunBlock], g[kRunBlock], vals[4][kRunBlock];
    for (int px = 0; px < n; ++px) {
        const int h = in.c[0][px];
        s[px] = t.unit[in.c[1][px]];
        vals[0][px] = t.unit[in.c[2][px]];
        f[px] = t.f[h];
        g[px] = t.oneMinusF[h];
    }
    for (int px = 0; px < n; ++px) {
        const double v = vals[0][px];
        vals[1][px] = (1 - s[px]) * v;
        vals[2][px] = (1 - f[px] * s[px]) * v;
        vals[3][px] = (1 - g[px] * s[px]) * v;
    }
    for (int k = 0; k < 4; ++k) LimitPlane(vals[k], n);
    for (int px = 0; px < n; ++px) {
        const int *pick = kHsvPick[t.sector[in.c[0][px]]];
        for (int k = 0; k < 3; ++k) unit.c[k][px] = vals[pick[k]][px];
    }
}

// m1 and m2, then each channel's place on the ramp, in vector-friendly passes.
PAX_INLINE void HsiToUnit(const BytePlanes &in, UnitPlanes &unit, int n) {
    const HueTables &t = Tables();
    alignas(32) double l[kRunBlock], s[kRunBlock], m1[kRunBlock], m2[kRunBlock];
    alignas(32) double arg[3][kRunBlock], atM2[3][kRunBlock], atM1[3][kRunBlock], out[3][kRunBlock];
    for (int px = 0; px < n; ++px) {
        const int h = in.c[0][px];
        l[px] = t.unit[in.c[2][px]];
        s[px] = t.unit[in.c[1][px]];
        for (int k = 0; k < 3; ++k) {
            arg[k][px] = t.rampArg[h][k];
            atM2[k][px] = t.atM2[h][k];
            atM1[k][px] = t.atM1[h][k];
        }
    }
    for (int px = 0; px < n; ++px) {
        const double lo = (s[px] + 1) * l[px], hi = l[px] + s[px] - l[px] * s[px];
        m2[px] = l[px] <= 0.5 ? lo : hi;
        m1[px] = l[px] + l[px] - m2[px];
    }
    for (int k = 0; k < 3; ++k)
        for (int px = 0; px < n; ++px) {
            const double ramp = (m2[px] - m1[px]) * arg[k][px] / 60 + m1[px];
            double c = atM2[k][px] != 0 ? m2[px] : ramp;
            c = atM1[k][px] != 0 ? m1[px] : c;
            out[k][px] = l[px] == 0 ? l[px] : c;
        }
    for (int k = 0; k < 3; ++k) {
        LimitPlane(out[k], n);
        for (int px = 0; px < n; ++px) unit.c[k][px] = out[k][px];
    }
}

// The lane operations of the byte kernels (hue_back_lanes.h), per instruction
// set: 16-bit lanes, bytes at the loads and stores.
namespace sse2 {
using V = __m128i;
constexpr int kBytes = 16;
#define PAX_LANES_ATTR
PAX_INLINE V Load(const BYTE *p) { return _mm_load_si128(reinterpret_cast<const V *>(p)); }
PAX_INLINE void Store(BYTE *p, V v) { _mm_store_si128(reinterpret_cast<V *>(p), v); }
PAX_INLINE V Zero() { return _mm_setzero_si128(); }
PAX_INLINE V Widen(V bytes, int half) {
    return half ? _mm_unpackhi_epi8(bytes, Zero()) : _mm_unpacklo_epi8(bytes, Zero());
}
PAX_INLINE V Narrow(V lo, V hi) { return _mm_packus_epi16(lo, hi); }
PAX_INLINE uint32_t Bits(V lo, V hi) { return static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(lo, hi))); }
PAX_INLINE V Set(int k) { return _mm_set1_epi16(static_cast<short>(k)); }
PAX_INLINE V Set8(int k) { return _mm_set1_epi8(static_cast<char>(k)); }
PAX_INLINE V Add(V a, V b) { return _mm_add_epi16(a, b); }
PAX_INLINE V Sub(V a, V b) { return _mm_sub_epi16(a, b); }
PAX_INLINE V Mul(V a, V b) { return _mm_mullo_epi16(a, b); }
PAX_INLINE V MulHi(V a, V b) { return _mm_mulhi_epu16(a, b); }
PAX_INLINE V Shr7(V a) { return _mm_srli_epi16(a, 7); }
PAX_INLINE V And(V a, V b) { return _mm_and_si128(a, b); }
PAX_INLINE V Or(V a, V b) { return _mm_or_si128(a, b); }
PAX_INLINE V AndNot(V a, V b) { return _mm_andnot_si128(a, b); } // ~a & b
PAX_INLINE V Eq(V a, V b) { return _mm_cmpeq_epi16(a, b); }
PAX_INLINE V Eq8(V a, V b) { return _mm_cmpeq_epi8(a, b); }
PAX_INLINE V Gt(V a, V b) { return _mm_cmpgt_epi16(a, b); }
PAX_INLINE V Min(V a, V b) { return _mm_min_epi16(a, b); }
PAX_INLINE V Abs(V a) { return _mm_max_epi16(a, Sub(Zero(), a)); }
PAX_INLINE V Select(V mask, V a, V b) { return Or(And(mask, a), AndNot(mask, b)); }
PAX_INLINE V In(V sector, int a, int b) {
    const V m = Or(Eq8(sector, Set8(a)), Eq8(sector, Set8(b)));
    return a == 0 ? Or(m, Eq8(sector, Set8(6))) : m;
}
#include "hue_back_lanes.h"
#undef PAX_LANES_ATTR
} // namespace sse2

#if PAX_HAVE_AVX2_BUILD
namespace avx2 {
using V = __m256i;
constexpr int kBytes = 32;
#define PAX_LANES_ATTR PAX_AVX2
PAX_AVX2 PAX_INLINE V Load(const BYTE *p) { return _mm256_load_si256(reinterpret_cast<const V *>(p)); }
PAX_AVX2 PAX_INLINE void Store(BYTE *p, V v) { _mm256_store_si256(reinterpret_cast<V *>(p), v); }
PAX_AVX2 PAX_INLINE V Zero() { return _mm256_setzero_si256(); }
PAX_AVX2 PAX_INLINE V Widen(V bytes, int half) {
    return half ? _mm256_unpackhi_epi8(bytes, Zero()) : _mm256_unpacklo_epi8(bytes, Zero());
}
PAX_AVX2 PAX_INLINE V Narrow(V lo, V hi) { return _mm256_packus_epi16(lo, hi); }
PAX_AVX2 PAX_INLINE uint32_t Bits(V lo, V hi) {
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_packs_epi16(lo, hi)));
}
PAX_AVX2 PAX_INLINE V Set(int k) { return _mm256_set1_epi16(static_cast<short>(k)); }
PAX_AVX2 PAX_INLINE V Set8(int k) { return _mm256_set1_epi8(static_cast<char>(k)); }
PAX_AVX2 PAX_INLINE V Add(V a, V b) { return _mm256_add_epi16(a, b); }
PAX_AVX2 PAX_INLINE V Sub(V a, V b) { return _mm256_sub_epi16(a, b); }
PAX_AVX2 PAX_INLINE V Mul(V a, V b) { return _mm256_mullo_epi16(a, b); }
PAX_AVX2 PAX_INLINE V MulHi(V a, V b) { return _mm256_mulhi_epu16(a, b); }
PAX_AVX2 PAX_INLINE V Shr7(V a) { return _mm256_srli_epi16(a, 7); }
PAX_AVX2 PAX_INLINE V And(V a, V b) { return _mm256_and_si256(a, b); }
PAX_AVX2 PAX_INLINE V Or(V a, V b) { return _mm256_or_si256(a, b); }
PAX_AVX2 PAX_INLINE V AndNot(V a, V b) { return _mm256_andnot_si256(a, b); }
PAX_AVX2 PAX_INLINE V Eq(V a, V b) { return _mm256_cmpeq_epi16(a, b); }
PAX_AVX2 PAX_INLINE V Gt(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
PAX_AVX2 PAX_INLINE V Min(V a, V b) { return _mm256_min_epi16(a, b); }
PAX_AVX2 PAX_INLINE V Abs(V a) { return _mm256_abs_epi16(a); }
PAX_AVX2 PAX_INLINE V Select(V mask, V a, V b) { return _mm256_blendv_epi8(b, a, mask); }
// A byte shuffle of the sectors through the table of the set.
PAX_AVX2 PAX_INLINE V In(V sector, int a, int b) {
    char m[7];
    for (int k = 0; k < 7; ++k) m[k] = k == a || k == b || (k == 6 && a == 0) ? -1 : 0;
    return _mm256_shuffle_epi8(
        _mm256_broadcastsi128_si256(_mm_setr_epi8(m[0], m[1], m[2], m[3], m[4], m[5], m[6], 0, 0, 0, 0, 0, 0, 0, 0, 0)),
        sector);
}
#include "hue_back_lanes.h"
#undef PAX_LANES_ATTR
} // namespace avx2
#endif

// The pixels the lanes flag, from the doubles, for the first n pixels.
PAX_INLINE uint64_t Within(uint64_t flags, int n) { return n < 64 ? flags & ((uint64_t{1} << n) - 1) : flags; }

// Calls rewrite(px) for every pixel of `pixels`: four times without a branch
// (an empty mask gives pixel 63, whose rewrite writes the bytes it has), then
// in a loop for any more.
template <class Rewrite>
PAX_INLINE void ForEachPixel(uint64_t pixels, Rewrite rewrite) {
    for (int k = 0; k < 4; ++k) {
        rewrite(__builtin_ctzll(pixels | uint64_t{1} << 63));
        pixels &= pixels - 1;
    }
    for (; pixels; pixels &= pixels - 1) rewrite(__builtin_ctzll(pixels));
}

// The byte kernels: the smallest byte (HSV) or the largest and smallest (HSI)
// in lanes, those the lanes flag from the doubles (p from its table), then
// the sector and middle byte in lanes (the work between keeps the single byte
// stores away from the wide loads that place them) and the flagged middle
// bytes from the doubles, then the channels placed.
template <class LowLanes, class Lanes, class PlaceAll>
PAX_INLINE void HsvBytes(LowLanes lowLanes, Lanes lanes, PlaceAll placeAll, const BytePlanes &in, BytePlanes &out,
                         int n) {
    BytePlanes parts;
    const HueTables &t = Tables();
    ForEachPixel(Within(lowLanes(in, parts), n), [&](int px) { parts.c[3][px] = t.p[in.c[1][px] << 8 | in.c[2][px]]; });
    for (uint64_t mid = Within(lanes(in, parts), n); mid; mid &= mid - 1) {
        const int px = __builtin_ctzll(mid);
        const double s = t.unit[in.c[1][px]], v = t.unit[in.c[2][px]];
        parts.c[2][px] = ClampToByte((1 - t.midFactor[in.c[0][px]] * s) * v * 255);
    }
    placeAll(parts, out);
}

template <class OuterLanes, class Lanes, class PlaceAll>
PAX_INLINE void HsiBytes(OuterLanes outerLanes, Lanes lanes, PlaceAll placeAll, const BytePlanes &in,
                         BytePlanes &out, int n) {
    BytePlanes parts;
    const HueTables &t = Tables();
    ForEachPixel(Within(outerLanes(in, parts), n), [&](int px) {
        const double l = t.unit[in.c[2][px]], s = t.unit[in.c[1][px]];
        const double m2 = l <= 0.5 ? (s + 1) * l : l + s - l * s;
        const double m1 = l + l - m2;
        parts.c[1][px] = ClampToByte(m2 * 255);
        parts.c[3][px] = ClampToByte(m1 * 255);
    });
    const HsiBackTables &back = HsiBackTablesOnce();
    for (uint64_t mid = Within(lanes(in, parts), n); mid; mid &= mid - 1) {
        const int px = __builtin_ctzll(mid);
        const double l = t.unit[in.c[2][px]], s = t.unit[in.c[1][px]];
        const double m2 = l <= 0.5 ? (s + 1) * l : l + s - l * s;
        const double m1 = l + l - m2;
        parts.c[2][px] = ClampToByte(((m2 - m1) * back.hueRamp[in.c[0][px]] / 60 + m1) * 255);
    }
    placeAll(parts, out);
}

#define PAX_HUE_BACK(ATTR, SUFFIX, LANES)                                                               \
    ATTR void HsvToRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {                        \
        HsvBytes(LANES::HsvLowLanes, LANES::HsvLanes, LANES::PlaceAll, in, out, n);                   \
    }                                                                                                 \
    ATTR void HsvToUnit##SUFFIX(const BytePlanes &in, UnitPlanes &out, int n) { HsvToUnit(in, out, n); } \
    ATTR void HsiToRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {                        \
        HsiBytes(LANES::HsiOuterLanes, LANES::HsiLanes, LANES::PlaceAll, in, out, n);                 \
    }                                                                                                 \
    ATTR void HsiToUnit##SUFFIX(const BytePlanes &in, UnitPlanes &out, int n) { HsiToUnit(in, out, n); }

PAX_HUE_BACK(, Sse2, sse2)
#if PAX_HAVE_AVX2_BUILD
PAX_HUE_BACK(PAX_AVX2, Avx2, avx2)
#endif

} // namespace

void FastHueBackKernels(ModelKernels *hsv, ModelKernels *hsi) {
#if PAX_HAVE_AVX2_BUILD
    if (ProcessorHasAvx2()) {
        hsv->toRgb = HsvToRgbAvx2;
        hsv->toUnit = HsvToUnitAvx2;
        hsi->toRgb = HsiToRgbAvx2;
        hsi->toUnit = HsiToUnitAvx2;
        return;
    }
#endif
    hsv->toRgb = HsvToRgbSse2;
    hsv->toUnit = HsvToUnitSse2;
    hsi->toRgb = HsiToRgbSse2;
    hsi->toUnit = HsiToUnitSse2;
}

} // namespace pax
