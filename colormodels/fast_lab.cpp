// LAB kernels over planes: decide each byte with fast powers and a proven
// error bound, and take the single-value code for the few pixels where the
// bound cannot decide. The loops work on two doubles at a time (SSE2) or four
// (AVX2), with the same operations in every lane.
//
// Into LAB (from RGB bytes, and from RGB doubles on the conversions that carry
// them): the tristimulus values are the same doubles as in the single-value
// code (same operations, same order).
// The correctly rounded powers t^0.3333333333333333 are replaced by cube roots
// c = t r r, r an approximation of t^(-1/3):
//   r0: from the high word h of the bits of t, the word K - h / 3 (K =
//       0x553EF0FF; h / 3 formed in doubles and the difference rounded to a
//       whole number) as the high word of r0, the low word zero. Over every
//       high word of an argument in (0.008856, 1], with either end of its low
//       word, r0 t^(1/3) = 1 + e0 with |e0| < 0.03425.
//   two steps r <- r + r (e / 3 + 2 e^2 / 9), e = 1 - t r^3: the first three
//       terms of r (1 - e)^(-1/3), which is t^(-1/3) itself. With
//       r = t^(-1/3) (1 + eps), e = 1 - (1 + eps)^3, and
//       1 + eps' = (1 + eps) (1 + e / 3 + 2 e^2 / 9), a polynomial in eps:
//       its largest size over |eps| < 0.03425 (at an end) is 1.98e-4 after
//       the first step and 3.6e-11 after the second.
// Rounding: t r^3 lies within 6e-4 of 1 before the last step, and is formed
// with three roundings, so e is off by under 3.4e-16 (1 - t r^3 itself is
// exact); the correction is below 2e-4 of r and its own roundings are
// negligible; the last addition rounds once: r = t^(-1/3) (1 + eps),
// |eps| < 3.6e-11 + 2.5e-16. Then t r r rounds twice more, so
// |c - t^(1/3)| < (7.2e-11 + 8e-16) t^(1/3), under 7.3e-11 (t <= 1). The
// argument t of a white-point quotient is X times the rounded reciprocal of
// the white point, within two units in the last place of the quotient of the
// single-value code, which moves the root by under 2e-16 (relative); and the
// correctly rounded power differs from t^(1/3) by less than
// |ln t| * 2^-54 / 3 * t^(1/3) < 3e-16. So every approximated root lies
// within delta = 7.4e-11 of the one the single-value code uses. Where a
// white-point quotient lies within 1e-12 (relative) of the threshold, the
// side it falls on could differ from the exact one's, and the pixel is left
// to the single-value code. Below the threshold the linear segment is the
// same expression; Y is the very same double, so its side is always right.
//
// Each byte is ClampToByte(v) of a value v computed from the roots by the same
// operations as there, except that the divisions by constants (100 and 255 of
// L, the a and b divisors) and the two multiplications of a and of b are
// folded into one multiplication by a rounded constant: each such change moves
// v by a few units in its last place (under 1e-10 here). A change of delta in
// a root moves v by at most
//   L: 116 / 100 * 255 * delta                 < 296 delta,
//   a: 2 delta * 500 * 255 / 233.86238849999802 < 1091 delta,
//   b: 2 delta * 200 * 255 / 124.610613285093   < 819 delta,
// plus the differences that the roundings of those operations can make on
// values below 1.6e5 before the final division (a few units of 2^-36, under
// 1e-10 after it). All together stay below 8.2e-8, inside the margin
// E = 1e-6 used here. ClampToByte is non-decreasing, so when
// ClampToByte(v - E) equals ClampToByte(v + E), every value within E of v,
// the exact one included, gives that byte. Otherwise (v within E of a whole
// number, or of the ends of the byte range: a few pixels in a million, plus
// values that land on a whole number exactly) the byte is found again: an
// undecided a or b byte converts the pixel by the single-value code; an
// undecided L byte alone (white, for one: L lands on 255 exactly) is looked
// up among the least Y giving each L byte. Those 255 thresholds are found
// once by bisection over the doubles with the single-value expression of L,
// which is non-decreasing in Y: every step of it is a correctly rounded
// monotone operation, and on both sides of the threshold 0.008856 L is the
// byte 20.
//
// From LAB: the per-byte terms come from tables filled by the expressions of
// the single-value code; the correctly rounded cubes of fy + a term and of
// fy - b term are replaced by two multiplications, which lie within
// 3 * 2^-53 relative (under 1e-15 absolute, the cubes being below 2.7) of
// them. Through the matrix and * 255 that moves R, G, B by under 1e-11, and
// a margin of 1e-7 decides the bytes as above.
#include "lab_terms.h"
#include "run_kernels.h"
#include "simd_select.h"

#include <cstdint>
#include <cstring>

// The four-lane helpers are always inlined into the AVX2 kernels: no vector
// ever crosses a call, so the note on the calling convention does not apply.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace pax {
namespace {

constexpr double kRootMargin = 1e-6, kCubeMargin = 1e-7;
constexpr double kLinearOffset = 0.13793103448275862;
// Divisions by constants become multiplications by their rounded reciprocals.
constexpr double kInverseWhiteX = 1 / kLabWhiteX, kInverseWhiteZ = 1 / kLabWhiteZ;
// The bytes before truncation as one multiplication and one addition.
constexpr double kLScale = 116 * 2.55, kLOffset = 16 * 2.55, kLLinear = 903.3 * 2.55;
constexpr double kAScale = 500.0 * 255 / kLabADivisor, kAOffset = kLabAOffset / kLabADivisor;
constexpr double kBScale = 200.0 * 255 / kLabBDivisor, kBOffset = kLabBOffset / kLabBDivisor;
constexpr double kBelowThreshold = kLabThreshold * (1 - 1e-12), kAboveThreshold = kLabThreshold * (1 + 1e-12);

// The L byte of Y, by the operations of the single-value conversion.
BYTE LightnessByte(double y) {
    const double lstar = y > kLabThreshold ? PowOneThird(y) * 116 - 16 : y * 903.3;
    return ClampToByte(lstar / 100 * 255);
}

uint64_t BitsOf(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}
double DoubleOf(uint64_t bits) {
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

struct LabTables {
    double unit[256];
    double fy[256], fyCube[256], aTerm[256], bTerm[256];
    double lightnessFrom[256]; // [k]: the least Y whose L byte is k or more (k >= 1)
    LabTables() {
        for (int v = 0; v < 256; ++v) {
            const BYTE b = static_cast<BYTE>(v);
            unit[v] = v / 255.0;
            fy[v] = LabFy(b);
            fyCube[v] = PowCube(fy[v]);
            aTerm[v] = LabATerm(b);
            bTerm[v] = LabBTerm(b);
        }
        // Non-negative doubles are ordered as their bits: bisect the bits.
        lightnessFrom[0] = 0;
        for (int k = 1; k < 256; ++k) {
            uint64_t below = 0, atLeast = BitsOf(2.0); // L(0) = 0 < k <= L(2)
            while (atLeast - below > 1) {
                const uint64_t mid = below + (atLeast - below) / 2;
                if (LightnessByte(DoubleOf(mid)) >= k)
                    atLeast = mid;
                else
                    below = mid;
            }
            lightnessFrom[k] = DoubleOf(atLeast);
        }
    }
    BYTE Lightness(double y) const {
        int k = 0; // the largest k with lightnessFrom[k] <= y
        for (int step = 128; step > 0; step /= 2)
            if (lightnessFrom[k + step] <= y) k += step;
        return static_cast<BYTE>(k);
    }
};
const LabTables &Tables() {
    static const LabTables t;
    return t;
}

// ---- Lanes: two doubles (SSE2) or four (AVX2), with the same code in
// plain vector types, so that each build picks its own instructions.

typedef double D2 __attribute__((vector_size(16)));
typedef double D4 __attribute__((vector_size(32)));
typedef unsigned long long U2 __attribute__((vector_size(16)));
typedef unsigned long long U4 __attribute__((vector_size(32)));
typedef int32_t I2 __attribute__((vector_size(8)));
typedef int32_t I4 __attribute__((vector_size(16)));
template <class D> struct Lanes;
template <> struct Lanes<D2> {
    using U = U2;
    using I = I2;
};
template <> struct Lanes<D4> {
    using U = U4;
    using I = I4;
};
template <class D> constexpr int kLanes = sizeof(D) / sizeof(double);
template <class D> using IntLanes = typename Lanes<D>::I;

template <class D> PAX_INLINE D Splat(double x) { return x - D{}; }
template <class D> PAX_INLINE D Load(const double *p) {
    D v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class D> PAX_INLINE D FromTable(const double *table, const BYTE *p) {
    if constexpr (kLanes<D> == 2)
        return D{table[p[0]], table[p[1]]};
    else
        return D{table[p[0]], table[p[1]], table[p[2]], table[p[3]]};
}
template <class I> PAX_INLINE void Store(int32_t *dst, I v) { std::memcpy(dst, &v, sizeof v); }
template <class I> PAX_INLINE bool AnySet(I v) {
    int32_t any = 0;
    for (unsigned k = 0; k < sizeof v / sizeof any; ++k) any |= v[k];
    return any != 0;
}

// t^(1/3) within 7.3e-11 for t in (0.008856, 1] (see the top of the file).
template <class D> PAX_INLINE D CubeRoot(D t) {
    using U = typename Lanes<D>::U;
    constexpr double kTwo52 = 4503599627370496.0;
    const D high = reinterpret_cast<D>((reinterpret_cast<U>(t) >> 32) | 0x4330000000000000ull) - kTwo52;
    const D word = (0x553EF0FF + kTwo52) - high * (1.0 / 3);
    const D r0 = reinterpret_cast<D>(reinterpret_cast<U>(word) << 32);
    const D e0 = 1.0 - t * (r0 * r0 * r0);
    const D r1 = r0 + r0 * (e0 * ((1.0 / 3) + e0 * (2.0 / 9)));
    const D q = t * (r1 * r1);
    const D e1 = 1.0 - q * r1;
    return q + q * (e1 * ((2.0 / 3) + e1 * (5.0 / 9)));
}

template <class D> PAX_INLINE D Clamp(D v) {
    v = v > 255.0 ? Splat<D>(255) : v;
    return v < 0.0 ? Splat<D>(0) : v;
}

// ClampToByte of v - margin, stored, and where it differs from that of
// v + margin (nonzero lanes).
template <class D> PAX_INLINE IntLanes<D> Decide(D v, double margin, int32_t *dst) {
    using I = IntLanes<D>;
    const I lo = __builtin_convertvector(Clamp(v - margin), I);
    const I hi = __builtin_convertvector(Clamp(v + margin), I);
    Store(dst, lo);
    return lo ^ hi;
}

struct Decided {
    alignas(32) double t[3][kRunBlock];    // X / white X, Y, Z / white Z
    alignas(32) double root[3][kRunBlock]; // their cube roots where above the threshold
    alignas(32) int32_t value[3][kRunBlock];
    alignas(32) int32_t lightness[kRunBlock], pixel[kRunBlock]; // nonzero: undecided
};

// The pixels are taken in three passes over the block, each a loop of
// independent groups, so that the long chains of the roots overlap.
// First the arguments of the roots of a group: X / white X, Y, Z / white Z.
template <class D> PAX_INLINE void LabArguments(D tx, D y, D tz, Decided &d, int p) {
    const D t[3] = {tx, y, tz};
    // Roots only above the threshold; 1 elsewhere keeps the steps finite.
    for (int k = 0; k < 3; ++k) {
        std::memcpy(d.t[k] + p, &t[k], sizeof t[k]);
        const D arg = t[k] > kLabThreshold ? t[k] : Splat<D>(1);
        std::memcpy(d.root[k] + p, &arg, sizeof arg);
    }
}

// From RGB doubles: the very tristimulus values of the single-value code.
template <class D> PAX_INLINE void LabArgumentsOfUnit(D r, D g, D b, Decided &d, int p) {
    const D x = g * 0.174 + r * 0.607 + b * 0.2;
    const D y = g * 0.587 + r * 0.299 + b * 0.114;
    const D z = g * 0.066 + b * 0.116;
    LabArguments(x * kInverseWhiteX, y, z * kInverseWhiteZ, d, p);
}

// From RGB bytes: the bytes times the coefficients over 255 (and over the
// white point), all terms positive: within 1.4e-15 (relative) of the values
// of the single-value code (see the top of the file).
template <class D> PAX_INLINE D FromBytes(const BYTE *p) {
    using I = IntLanes<D>;
    if constexpr (kLanes<D> == 2)
        return __builtin_convertvector((I{p[0], p[1]}), D);
    else
        return __builtin_convertvector((I{p[0], p[1], p[2], p[3]}), D);
}
template <class D> PAX_INLINE void LabArgumentsOfBytes(const BYTE *const rgb[3], Decided &d, int p) {
    constexpr double kX[3] = {0.607 / 255 / kLabWhiteX, 0.174 / 255 / kLabWhiteX, 0.2 / 255 / kLabWhiteX};
    constexpr double kY[3] = {0.299 / 255, 0.587 / 255, 0.114 / 255};
    constexpr double kZ[2] = {0.066 / 255 / kLabWhiteZ, 0.116 / 255 / kLabWhiteZ};
    const D r = FromBytes<D>(rgb[0] + p), g = FromBytes<D>(rgb[1] + p), b = FromBytes<D>(rgb[2] + p);
    LabArguments(g * kX[1] + r * kX[0] + b * kX[2], g * kY[1] + r * kY[0] + b * kY[2], g * kZ[0] + b * kZ[1], d, p);
}

template <class D> PAX_INLINE void LabRoots(Decided &d, int n) {
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; p += kLanes<D>) {
            const D c = CubeRoot(Load<D>(d.root[k] + p));
            std::memcpy(d.root[k] + p, &c, sizeof c);
        }
}

template <class D> PAX_INLINE void LabValues(Decided &d, int p, IntLanes<D> &undecided) {
    const D tx = Load<D>(d.t[0] + p), y = Load<D>(d.t[1] + p), tz = Load<D>(d.t[2] + p);
    const D fy0 = Load<D>(d.root[1] + p);
    const auto aboveY = y > kLabThreshold;
    const D fx = tx > kLabThreshold ? Load<D>(d.root[0] + p) : tx * 7.787 + kLinearOffset;
    const D fy = aboveY ? fy0 : y * 7.787 + kLinearOffset;
    const D fz = tz > kLabThreshold ? Load<D>(d.root[2] + p) : tz * 7.787 + kLinearOffset;
    const D vl = aboveY ? fy0 * kLScale - kLOffset : y * kLLinear;
    D va = (fx - fy) * kAScale + kAOffset;
    const D vb = (fy - fz) * kBScale + kBOffset;
    // A white-point quotient within a hair of the threshold could fall on the
    // other side of it than the exact one: a whole number is never decided.
    const auto nearX = (tx > kBelowThreshold) & (tx < kAboveThreshold);
    const auto nearY = (y > kBelowThreshold) & (y < kAboveThreshold);
    const auto nearZ = (tz > kBelowThreshold) & (tz < kAboveThreshold);
    va = (nearX | nearY | nearZ) ? Splat<D>(100) : va;
    const IntLanes<D> l = Decide(vl, kRootMargin, d.value[0] + p);
    const IntLanes<D> ab = Decide(va, kRootMargin, d.value[1] + p) | Decide(vb, kRootMargin, d.value[2] + p);
    Store(d.lightness + p, l);
    Store(d.pixel + p, ab);
    undecided |= l | ab;
}

template <class D> PAX_INLINE bool LabDecide(Decided &d, int n) {
    LabRoots<D>(d, n);
    IntLanes<D> undecided = {};
    for (int p = 0; p < n; p += kLanes<D>) LabValues<D>(d, p, undecided);
    return AnySet(undecided);
}

// The bytes out, and the undecided ones again.
template <class FromPixel>
PAX_INLINE void FinishLab(const Decided &d, bool any, BytePlanes &out, int n, FromPixel unit) {
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; ++p) out.c[k][p] = static_cast<BYTE>(d.value[k][p]);
    if (!any) return;
    const LabTables &tab = Tables();
    for (int p = 0; p < n; ++p) {
        if (!(d.pixel[p] | d.lightness[p])) continue;
        const UnitRGB u = unit(p);
        if (d.pixel[p]) {
            BYTE v[3];
            UnitRGBtoLAB(v, u);
            out.c[0][p] = v[0];
            out.c[1][p] = v[1];
            out.c[2][p] = v[2];
        } else {
            out.c[0][p] = tab.Lightness(TristimulusOf(u).y);
        }
    }
}

template <class D> PAX_INLINE void LabOfUnit(UnitPlanes &u, BytePlanes &out, int n) {
    for (int p = n; p % kLanes<D>; ++p) u.c[0][p] = u.c[1][p] = u.c[2][p] = 0; // whole groups
    Decided d;
    for (int p = 0; p < n; p += kLanes<D>)
        LabArgumentsOfUnit(Load<D>(u.c[0] + p), Load<D>(u.c[1] + p), Load<D>(u.c[2] + p), d, p);
    FinishLab(d, LabDecide<D>(d, n), out, n, [&](int p) { return UnitRGB{u.c[0][p], u.c[1][p], u.c[2][p]}; });
}

template <class D> PAX_INLINE void LabOfRgb(const BytePlanes &in, BytePlanes &out, int n) {
    const LabTables &tab = Tables();
    alignas(32) BYTE rgb[3][kRunBlock + 4];
    for (int k = 0; k < 3; ++k) {
        std::memcpy(rgb[k], in.c[k], n);
        std::memset(rgb[k] + n, 0, 4);
    }
    const BYTE *const planes[3] = {rgb[0], rgb[1], rgb[2]};
    Decided d;
    for (int p = 0; p < n; p += kLanes<D>)
        LabArgumentsOfBytes<D>(planes, d, p);
    FinishLab(d, LabDecide<D>(d, n), out, n,
              [&](int p) { return UnitRGB{tab.unit[rgb[0][p]], tab.unit[rgb[1][p]], tab.unit[rgb[2][p]]}; });
}

template <class D> PAX_INLINE void RgbOfLab(const BytePlanes &in, BytePlanes &out, int n) {
    const LabTables &tab = Tables();
    alignas(32) BYTE lab[3][kRunBlock + 4];
    for (int k = 0; k < 3; ++k) {
        std::memcpy(lab[k], in.c[k], n);
        std::memset(lab[k] + n, 0, 4);
    }
    alignas(32) int32_t value[3][kRunBlock], flag[kRunBlock];
    IntLanes<D> undecided = {};
    for (int p = 0; p < n; p += kLanes<D>) {
        const D fy = FromTable<D>(tab.fy, lab[0] + p);
        const D y = FromTable<D>(tab.fyCube, lab[0] + p);
        const D bx = FromTable<D>(tab.aTerm, lab[1] + p) + fy;
        const D bz = fy - FromTable<D>(tab.bTerm, lab[2] + p);
        const D x = bx * bx * bx * kLabWhiteX;
        const D z = bz * bz * bz * kLabWhiteZ;
        const IntLanes<D> ur = Decide((x * 1.7467 - y * 0.2014 - z * 2.8135) * 255.0, kCubeMargin, value[0] + p);
        const IntLanes<D> ug = Decide((y * 2.0305 - x * 1.0002 - z * 0.271) * 255.0, kCubeMargin, value[1] + p);
        const IntLanes<D> ub = Decide((x * 0.5691 - y * 1.1553 + z * 8.7749) * 255.0, kCubeMargin, value[2] + p);
        const IntLanes<D> any = ur | ug | ub;
        Store(flag + p, any);
        undecided |= any;
    }
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; ++p) out.c[k][p] = static_cast<BYTE>(value[k][p]);
    if (!AnySet(undecided)) return;
    for (int p = 0; p < n; ++p) {
        if (!flag[p]) continue;
        const BYTE source[3] = {lab[0][p], lab[1][p], lab[2][p]};
        BYTE v[3];
        LABtoRGB(v, source);
        out.c[0][p] = v[0];
        out.c[1][p] = v[1];
        out.c[2][p] = v[2];
    }
}

#define PAX_LAB_KERNELS(ATTR, SUFFIX, D)                                                                  \
    ATTR void LabFromUnit##SUFFIX(UnitPlanes &u, BytePlanes &out, int n) { LabOfUnit<D>(u, out, n); }    \
    ATTR void LabFromRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) { LabOfRgb<D>(in, out, n); } \
    ATTR void LabToRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) { RgbOfLab<D>(in, out, n); }

PAX_LAB_KERNELS(, Sse2, D2)
#if PAX_HAVE_AVX2_BUILD
PAX_LAB_KERNELS(PAX_AVX2, Avx2, D4)
#endif

} // namespace

void FastLabKernels(ModelKernels *lab) {
#if PAX_HAVE_AVX2_BUILD
    if (ProcessorHasAvx2()) {
        *lab = {LabToRgbAvx2, LabFromRgbAvx2, nullptr, LabFromUnitAvx2};
        return;
    }
#endif
    *lab = {LabToRgbSse2, LabFromRgbSse2, nullptr, LabFromUnitSse2};
}

} // namespace pax
