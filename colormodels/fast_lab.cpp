// LAB kernels over planes: decide each byte with fast powers and a proven
// error bound, and take the single-value code for the few pixels where the
// bound cannot decide. The loops work on two doubles at a time (SSE2) or four
// (AVX2), with the same operations in every lane.
//
// Into LAB. The arguments of the roots: from RGB doubles (the conversions
// that carry them), the tristimulus values are the same doubles as in the
// single-value code (same operations, same order), and X and Z are multiplied
// by the rounded reciprocals of the white point, within two units in the last
// place of the quotients there. From RGB bytes, X / white X, Y and
// Z / white Z are the bytes times the coefficients over 255 (and over the
// white point) folded into one rounded constant each: all terms are positive,
// so both these and the values of the single-value code lie within a few
// units in the last place of the same exact sums (under 1.4e-15 relative
// between them). Either way a root moves by under 5e-16 (relative) for it.
// Where an argument lies within 1e-12 (relative) of the threshold 0.008856,
// the side it falls on could differ from the exact one's, and the pixel is
// left to the single-value code; elsewhere the linear segment below the
// threshold is the same expression on an argument off by as little.
//
// The correctly rounded powers t^0.3333333333333333 are replaced by
// c = q P(e), q = t r^2, e = 1 - t r^3, P(e) close to (1 - e)^(-2/3), so that
// c is close to q (t r^3)^(-2/3) = t^(1/3):
//   r: from the high word h of the bits of t, the word K - h / 3 (K =
//      0x553EF0FF; formed in doubles as (2^52 + K + 2^52 / 3) less a third
//      of 2^52 + h, which rounds it to a whole number) as the high word of r,
//      the low word zero. Over every high word of an argument in
//      (0.008856, 1], with either end of its low word, r t^(1/3) = 1 + eps
//      with |eps| < 0.03425, so e = 1 - (1 + eps)^3 lies in [-0.1063, 0.0993].
//   P: the degree-5 polynomial through the Chebyshev nodes of
//      [-0.1065, 0.0995] for (1 - e)^(-2/3), coefficients rounded to doubles:
//      on a grid of 2e6 points of that interval (in long double) its relative
//      error stays below 1.526e-8, and between the points it changes by far
//      less than 1e-15.
// Rounding: t r^3 is formed with three roundings, so e is off by under
// 3.7e-16 (1 - t r^3 itself is exact), which moves (1 - e)^(-2/3) by under
// 3.2e-16 relative (its slope is below 0.8); the evaluation of P (terms of
// one sign, below 1.1, e^2 < 0.0114) rounds by under 6e-16 of it; q rounds
// twice and c once more: under 3.3e-16. So |c - t^(1/3)| < 1.527e-8 t^(1/3).
// With the arguments above, and the correctly rounded power differing from
// t^(1/3) by less than |ln t| * 2^-54 / 3 * t^(1/3) < 3e-16, every
// approximated root lies within delta = 1.53e-8 of the one the single-value
// code uses (the roots are at most 1).
//
// Each byte is ClampToByte(v) of a value v computed from the roots by the same
// operations as there, except that the divisions by constants (100 and 255 of
// L, the a and b divisors), the multiplications and the offsets are folded
// into one multiplication and one addition by rounded constants: each such
// change moves v by a few units in the last place of values below 1.6e5
// before the final division (under 1e-12 after it). A change of delta in a
// root moves v by at most
//   L: 116 / 100 * 255 * delta                 < 296 delta,
//   a: 2 delta * 500 * 255 / 233.86238849999802 < 1091 delta,
//   b: 2 delta * 200 * 255 / 124.610613285093   < 819 delta,
// so all together by under 1.7e-5 (and L, below the threshold, by far less),
// inside the margin E = 5e-5 used here. ClampToByte is non-decreasing, so
// when ClampToByte(v - E) equals ClampToByte(v + E), every value within E of
// v, the exact one included, gives that byte. Otherwise (v within E of a
// whole number, or of the ends of the byte range: a few pixels in 10^4, plus
// values that land on a whole number exactly) the byte is found again: an
// undecided a or b byte converts the pixel by the single-value code; an
// undecided L byte alone (white, for one: L lands on 255 exactly) is looked
// up with the exact Y among the least Y giving each L byte. Those 255
// thresholds are found once by bisection over the doubles with the
// single-value expression of L, which is non-decreasing in Y: every step of
// it is a correctly rounded monotone operation, and on both sides of the
// threshold 0.008856 L is the byte 20.
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

constexpr double kRootMargin = 5e-5, kCubeMargin = 1e-7;
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
template <class M> PAX_INLINE bool AllSet(M v) {
    for (unsigned k = 0; k < sizeof v / sizeof v[0]; ++k)
        if (!v[k]) return false;
    return true;
}
template <class I> PAX_INLINE bool AnySet(I v) {
    int32_t any = 0;
    for (unsigned k = 0; k < sizeof v / sizeof any; ++k) any |= v[k];
    return any != 0;
}

// t^(1/3) within 1.54e-8 (relative) for t in (0.008856, 1] (see the top of
// the file): t r^2 (1 - e)^(-2/3) with e = 1 - t r^3, the power by a
// polynomial in e, its pairs of terms formed side by side.
template <class D> PAX_INLINE D CubeRoot(D t) {
    using U = typename Lanes<D>::U;
    constexpr double kTwo52 = 4503599627370496.0;
    constexpr double kWord = (0x553EF0FF + kTwo52) + kTwo52 / 3;
    constexpr double c0 = 1.0000000145009713, c1 = 0.666666505691581, c2 = 0.555530741614539,
                     c3 = 0.49389159806478944, c4 = 0.4589783431380709, c5 = 0.4201666600025915;
    // The high word h as the double 2^52 + h; kWord less a third of it is
    // 2^52 + K - h / 3, rounded to a whole number.
    const D high = reinterpret_cast<D>((reinterpret_cast<U>(t) >> 32) | 0x4330000000000000ull);
    const D word = kWord - high * (1.0 / 3);
    const D r = reinterpret_cast<D>(reinterpret_cast<U>(word) << 32);
    const D tr = t * r, rr = r * r;
    const D q = tr * r, e = 1.0 - tr * rr;
    const D e2 = e * e;
    const D upper = (c2 + c3 * e) + e2 * (c4 + c5 * e);
    return q * ((c0 + c1 * e) + e2 * upper);
}

// ClampToByte of each lane of v (|v| well below 2^31): truncated toward zero
// as there, then limited to 0..255 as whole numbers.
template <class D> PAX_INLINE IntLanes<D> ByteOf(D v) {
    using I = IntLanes<D>;
    I k = __builtin_convertvector(v, I);
    k = k > 255 ? 255 : k;
    return k < 0 ? 0 : k;
}

template <class D> PAX_INLINE IntLanes<D> Decide(D v, double margin, int32_t *dst) {
    using I = IntLanes<D>;
    const I lo = ByteOf(v - margin), hi = ByteOf(v + margin);
    Store(dst, lo);
    return lo ^ hi;
}
// The same for v known to exceed the margin (no limit at 0 needed).
template <class D> PAX_INLINE IntLanes<D> DecidePositive(D v, double margin, int32_t *dst) {
    using I = IntLanes<D>;
    I lo = __builtin_convertvector(v - margin, I), hi = __builtin_convertvector(v + margin, I);
    lo = lo > 255 ? 255 : lo;
    hi = hi > 255 ? 255 : hi;
    Store(dst, lo);
    return lo ^ hi;
}

struct Decided {
    alignas(32) double t[3][kRunBlock];    // X / white X, Y, Z / white Z
    alignas(32) double root[3][kRunBlock]; // their cube roots where above the threshold
    alignas(32) int32_t value[3][kRunBlock];
    alignas(32) int32_t lightness[kRunBlock], pixel[kRunBlock]; // nonzero: undecided
    bool low = false; // some argument at or below a hair above the threshold
};
template <class D> using Mask = decltype(D{} > 0.0);

// The pixels are taken in three passes over the block, each a loop of
// independent groups, so that the long chains of the roots overlap.
// First the arguments of the roots of a group: X / white X, Y, Z / white Z.
// Roots are needed only above the threshold, and those within a hair of it
// go to the single-value code: 1 takes their place, which keeps the steps
// finite. The lanes with every argument clear of the threshold are marked.
template <class D> PAX_INLINE Mask<D> LabArgument(D t, Decided &d, int k, int p) {
    std::memcpy(d.t[k] + p, &t, sizeof t);
    const Mask<D> clear = t > kAboveThreshold;
    const D arg = clear ? t : Splat<D>(1);
    std::memcpy(d.root[k] + p, &arg, sizeof arg);
    return clear;
}
template <class D> PAX_INLINE void LabArguments(D tx, D y, D tz, Decided &d, int p, Mask<D> &clear) {
    clear &= LabArgument(tx, d, 0, p) & LabArgument(y, d, 1, p) & LabArgument(tz, d, 2, p);
}

// From RGB doubles: the very tristimulus values of the single-value code.
template <class D> PAX_INLINE void LabArgumentsOfUnit(D r, D g, D b, Decided &d, int p, Mask<D> &clear) {
    const D x = g * 0.174 + r * 0.607 + b * 0.2;
    const D y = g * 0.587 + r * 0.299 + b * 0.114;
    const D z = g * 0.066 + b * 0.116;
    LabArguments(x * kInverseWhiteX, y, z * kInverseWhiteZ, d, p, clear);
}

// A byte b as the double 2^52 + b (its bits), less 2^52: exactly b.
template <class D> PAX_INLINE D FromBytes(const BYTE *p) {
    using U = typename Lanes<D>::U;
    constexpr double kTwo52 = 4503599627370496.0;
    U u;
    if constexpr (kLanes<D> == 2)
        u = U{p[0], p[1]};
    else
        u = U{p[0], p[1], p[2], p[3]};
    return reinterpret_cast<D>(u | 0x4330000000000000ull) - kTwo52;
}
// From RGB bytes: the bytes times the coefficients over 255 (and over the
// white point), all terms positive: within 1.4e-15 (relative) of the values
// of the single-value code (see the top of the file).
template <class D>
PAX_INLINE void LabArgumentsOfBytes(const BYTE *const rgb[3], Decided &d, int p, Mask<D> &clear) {
    constexpr double kX[3] = {0.607 / 255 / kLabWhiteX, 0.174 / 255 / kLabWhiteX, 0.2 / 255 / kLabWhiteX};
    constexpr double kY[3] = {0.299 / 255, 0.587 / 255, 0.114 / 255};
    constexpr double kZ[2] = {0.066 / 255 / kLabWhiteZ, 0.116 / 255 / kLabWhiteZ};
    const D r = FromBytes<D>(rgb[0] + p), g = FromBytes<D>(rgb[1] + p), b = FromBytes<D>(rgb[2] + p);
    LabArguments(g * kX[1] + r * kX[0] + b * kX[2], g * kY[1] + r * kY[0] + b * kY[2], g * kZ[0] + b * kZ[1], d, p,
                 clear);
}

template <class D> PAX_INLINE void LabRoots(Decided &d, int n) {
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; p += kLanes<D>) {
            const D c = CubeRoot(Load<D>(d.root[k] + p));
            std::memcpy(d.root[k] + p, &c, sizeof c);
        }
}

// The values of a group where every argument is clear of the threshold.
template <class D> PAX_INLINE void LabValuesClear(Decided &d, int p, IntLanes<D> &undecided) {
    const D fx = Load<D>(d.root[0] + p), fy = Load<D>(d.root[1] + p), fz = Load<D>(d.root[2] + p);
    // Above the threshold L is above 20.
    const IntLanes<D> l = DecidePositive(fy * kLScale - kLOffset, kRootMargin, d.value[0] + p);
    const IntLanes<D> ab = Decide((fx - fy) * kAScale + kAOffset, kRootMargin, d.value[1] + p) |
                           Decide((fy - fz) * kBScale + kBOffset, kRootMargin, d.value[2] + p);
    Store(d.lightness + p, l);
    Store(d.pixel + p, ab);
    undecided |= l | ab;
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
    // An argument within a hair of the threshold could fall on the other
    // side of it than the exact one: a whole number is never decided.
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
    if (d.low)
        for (int p = 0; p < n; p += kLanes<D>) LabValues<D>(d, p, undecided);
    else
        for (int p = 0; p < n; p += kLanes<D>) LabValuesClear<D>(d, p, undecided);
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
    Mask<D> clear = ~Mask<D>{};
    for (int p = 0; p < n; p += kLanes<D>)
        LabArgumentsOfUnit(Load<D>(u.c[0] + p), Load<D>(u.c[1] + p), Load<D>(u.c[2] + p), d, p, clear);
    d.low = !AllSet(clear);
    FinishLab(d, LabDecide<D>(d, n), out, n, [&](int p) { return UnitRGB{u.c[0][p], u.c[1][p], u.c[2][p]}; });
}

// Byte planes in whole groups of lanes: the caller's own when n fills them,
// else a copy with zeros after the last pixel.
struct WholeGroups {
    const BYTE *c[3];
    alignas(32) BYTE copy[3][kRunBlock + 4];
    PAX_INLINE WholeGroups(const BytePlanes &in, int n, int lanes) {
        for (int k = 0; k < 3; ++k) {
            c[k] = in.c[k];
            if (n % lanes == 0) continue;
            std::memcpy(copy[k], in.c[k], n);
            std::memset(copy[k] + n, 0, 4);
            c[k] = copy[k];
        }
    }
};

template <class D> PAX_INLINE void LabOfRgb(const BytePlanes &in, BytePlanes &out, int n) {
    const LabTables &tab = Tables();
    const WholeGroups g(in, n, kLanes<D>);
    const BYTE *const *planes = g.c, *const *rgb = g.c;
    Decided d;
    Mask<D> clear = ~Mask<D>{};
    for (int p = 0; p < n; p += kLanes<D>) LabArgumentsOfBytes<D>(planes, d, p, clear);
    d.low = !AllSet(clear);
    FinishLab(d, LabDecide<D>(d, n), out, n,
              [&](int p) { return UnitRGB{tab.unit[rgb[0][p]], tab.unit[rgb[1][p]], tab.unit[rgb[2][p]]}; });
}

template <class D> PAX_INLINE void RgbOfLab(const BytePlanes &in, BytePlanes &out, int n) {
    const LabTables &tab = Tables();
    const WholeGroups g(in, n, kLanes<D>);
    const BYTE *const *lab = g.c;
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
