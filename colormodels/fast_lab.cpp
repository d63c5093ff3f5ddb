// LAB kernels over planes: decide each byte with fast powers and a proven
// error bound, and take the single-value code for the few pixels where the
// bound cannot decide.
//
// Into LAB (from RGB bytes, and from RGB doubles on the conversions that carry
// them): the tristimulus values are the same doubles as in the single-value
// code (same operations, same order).
// The correctly rounded powers t^0.3333333333333333 are replaced by cube roots
// c from a bit-level first guess of t^(-1/3) refined by three Newton steps
// r <- r + r (1 - t r^3) / 3 (no division), then c = t r r. The first guess
// is within 3.5% of t^(-1/3) for every positive normal t; each step takes a
// relative error e to at most about 2 e^2 (3.5e-2, 2.5e-3, 1.2e-5, 2.9e-10;
// measured over the arguments in use: 5.3e-10 at worst after the third), so
// |c - t^(1/3)| < 1e-9 for t in (0.008856, 1.02], and the correctly rounded
// power differs from t^(1/3) by less than |ln t| * 2^-54 / 3 * t^(1/3)
// < 3e-16. So every approximated root lies within delta = 1e-9 of the one the
// single-value code uses.
//
// The divisions by constants (the white point, 100 and 255 of L, the a and b
// divisors) are multiplications by the rounded reciprocals here: each such
// quotient is off by at most two units in its last place, which moves a root
// by under 1e-16 and a value v below by under 1e-13. Where a quotient by the
// white point lies within 1e-12 (relative) of the threshold, the side it
// falls on could differ from the exact one's, and the pixel is left to the
// single-value code.
//
// Each byte is ClampToByte(v) of a value v computed from the roots by the same
// operations as there. A change of delta in a root moves v by at most
//   L: 116 / 100 * 255 * delta                 < 296 delta,
//   a: 2 delta * 500 * 255 / 233.86238849999802 < 1091 delta,
//   b: 2 delta * 200 * 255 / 124.610613285093   < 819 delta,
// plus the differences that the roundings of those operations can make on
// values below 1.6e5 before the final division (a few units of 2^-36, under
// 1e-10 after it). All together stay below 1.1e-6, inside the margin
// E = 1e-5 used here. ClampToByte is non-decreasing, so when
// ClampToByte(v - E) equals ClampToByte(v + E), every value within E of v,
// the exact one included, gives that byte. Otherwise (v within E of a whole
// number, or of the ends of the byte range: a few pixels in 100,000, plus
// values that land on a whole number exactly) the pixel is converted again by
// the single-value code.
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

namespace pax {
namespace {

constexpr double kRootMargin = 1e-5, kCubeMargin = 1e-7;
// Divisions by constants become multiplications by their rounded reciprocals.
constexpr double kInverseWhiteX = 1 / kLabWhiteX, kInverseWhiteZ = 1 / kLabWhiteZ;
constexpr double kInverseADivisor = 1 / kLabADivisor, kInverseBDivisor = 1 / kLabBDivisor;
constexpr double kBelowThreshold = kLabThreshold * (1 - 1e-12), kAboveThreshold = kLabThreshold * (1 + 1e-12);

struct LabTables {
    double unit[256];
    double fy[256], fyCube[256], aTerm[256], bTerm[256];
    LabTables() {
        for (int v = 0; v < 256; ++v) {
            const BYTE b = static_cast<BYTE>(v);
            unit[v] = v / 255.0;
            fy[v] = LabFy(b);
            fyCube[v] = PowCube(fy[v]);
            aTerm[v] = LabATerm(b);
            bTerm[v] = LabBTerm(b);
        }
    }
};
const LabTables &Tables() {
    static const LabTables t;
    return t;
}

// First guesses of t^(-1/3) from the high word of the bits of t (positive
// normal): the exponent and the leading mantissa bits divided by 3, taken
// from a constant that centres the error (under 3.5% over the arguments).
PAX_INLINE void FirstGuesses(const double *t, double *r, int n) {
    for (int p = 0; p < n; ++p) {
        uint64_t bits;
        std::memcpy(&bits, &t[p], sizeof bits);
        const uint32_t high = static_cast<uint32_t>(bits >> 32);
        bits = static_cast<uint64_t>(0x553EF0FFu - high / 3) << 32;
        std::memcpy(&r[p], &bits, sizeof bits);
    }
}

PAX_INLINE void Refine(const double *t, double *r, int n) {
    for (int step = 0; step < 3; ++step)
        for (int p = 0; p < n; ++p) {
            const double x = r[p];
            r[p] = x + x * (1 - t[p] * x * x * x) * (1.0 / 3);
        }
    for (int p = 0; p < n; ++p) r[p] = t[p] * r[p] * r[p];
}

// ClampToByte of v - E and v + E (min and max give the same as its tests for
// every number); a byte, and whether the two differ.
template <int MarginIndex>
PAX_INLINE void Decide(const double *v, BYTE *out, int *undecided, int n) {
    constexpr double margin = MarginIndex == 0 ? kRootMargin : kCubeMargin;
    for (int p = 0; p < n; ++p) {
        double lo = v[p] - margin, hi = v[p] + margin;
        lo = lo > 255 ? 255.0 : lo;
        lo = lo < 0 ? 0.0 : lo;
        hi = hi > 255 ? 255.0 : hi;
        hi = hi < 0 ? 0.0 : hi;
        const int a = static_cast<int>(lo), b = static_cast<int>(hi);
        out[p] = static_cast<BYTE>(a);
        undecided[p] |= a != b;
    }
}

PAX_INLINE void LabOfUnit(const UnitPlanes &u, BytePlanes &out, int n) {
    alignas(32) double tx[kRunBlock], ty[kRunBlock], tz[kRunBlock];
    alignas(32) double cx[kRunBlock], cy[kRunBlock], cz[kRunBlock];
    alignas(32) double rx[kRunBlock], ry[kRunBlock], rz[kRunBlock];
    alignas(32) int undecided[kRunBlock];
    for (int p = 0; p < n; ++p) {
        const Tristimulus t = TristimulusOf(UnitRGB{u.c[0][p], u.c[1][p], u.c[2][p]});
        // Roots are only used above the threshold; elsewhere any positive
        // normal argument keeps the steps finite.
        tx[p] = t.x * kInverseWhiteX;
        ty[p] = t.y;
        tz[p] = t.z * kInverseWhiteZ;
        // A quotient by the white point within a hair of the threshold could
        // fall on the other side of it than the exact one.
        undecided[p] = (tx[p] > kBelowThreshold && tx[p] < kAboveThreshold) |
                       (tz[p] > kBelowThreshold && tz[p] < kAboveThreshold);
        cx[p] = tx[p] > kLabThreshold ? tx[p] : 1.0;
        cy[p] = ty[p] > kLabThreshold ? ty[p] : 1.0;
        cz[p] = tz[p] > kLabThreshold ? tz[p] : 1.0;
    }
    FirstGuesses(cx, rx, n);
    FirstGuesses(cy, ry, n);
    FirstGuesses(cz, rz, n);
    Refine(cx, rx, n);
    Refine(cy, ry, n);
    Refine(cz, rz, n);
    // The values before ClampToByte, in place of the roots. Both sides of
    // each threshold are computed and one is picked, which the compiler can
    // do in vector registers.
    for (int p = 0; p < n; ++p) {
        const bool above = ty[p] > kLabThreshold;
        const double rootL = ry[p] * 116 - 16, lineL = ty[p] * 903.3;
        const double lineY = ty[p] * 7.787 + 0.13793103448275862;
        const double lineX = tx[p] * 7.787 + 0.13793103448275862;
        const double lineZ = tz[p] * 7.787 + 0.13793103448275862;
        const double lstar = above ? rootL : lineL;
        const double fy = above ? ry[p] : lineY;
        const double fx = tx[p] > kLabThreshold ? rx[p] : lineX;
        const double fz = tz[p] > kLabThreshold ? rz[p] : lineZ;
        cx[p] = lstar * 2.55;
        cy[p] = ((fx - fy) * 500 * 255 + kLabAOffset) * kInverseADivisor;
        cz[p] = ((fy - fz) * 200 * 255 + kLabBOffset) * kInverseBDivisor;
    }
    Decide<0>(cx, out.c[0], undecided, n);
    Decide<0>(cy, out.c[1], undecided, n);
    Decide<0>(cz, out.c[2], undecided, n);
    int any = 0;
    for (int p = 0; p < n; ++p) any |= undecided[p];
    for (int p = 0; any && p < n; ++p)
        if (undecided[p]) {
            BYTE v[3];
            UnitRGBtoLAB(v, UnitRGB{u.c[0][p], u.c[1][p], u.c[2][p]});
            out.c[0][p] = v[0];
            out.c[1][p] = v[1];
            out.c[2][p] = v[2];
        }
}

PAX_INLINE void RgbOfLab(const BytePlanes &in, BytePlanes &out, int n) {
    const LabTables &tab = Tables();
    alignas(32) double fy[kRunBlock], ya[kRunBlock], yb[kRunBlock], cube[kRunBlock];
    alignas(32) int undecided[kRunBlock] = {};
    for (int p = 0; p < n; ++p) {
        fy[p] = tab.fy[in.c[0][p]];
        cube[p] = tab.fyCube[in.c[0][p]];
        ya[p] = tab.aTerm[in.c[1][p]];
        yb[p] = tab.bTerm[in.c[2][p]];
    }
    // R, G, B before ClampToByte, in place of the terms.
    for (int p = 0; p < n; ++p) {
        const double bx = ya[p] + fy[p], bz = fy[p] - yb[p];
        const double x = bx * bx * bx * kLabWhiteX;
        const double y = cube[p];
        const double z = bz * bz * bz * kLabWhiteZ;
        fy[p] = (x * 1.7467 - y * 0.2014 - z * 2.8135) * 255;
        ya[p] = (y * 2.0305 - x * 1.0002 - z * 0.271) * 255;
        yb[p] = (x * 0.5691 - y * 1.1553 + z * 8.7749) * 255;
    }
    Decide<1>(fy, out.c[0], undecided, n);
    Decide<1>(ya, out.c[1], undecided, n);
    Decide<1>(yb, out.c[2], undecided, n);
    int any = 0;
    for (int p = 0; p < n; ++p) any |= undecided[p];
    for (int p = 0; any && p < n; ++p)
        if (undecided[p]) {
            const BYTE lab[3] = {in.c[0][p], in.c[1][p], in.c[2][p]};
            BYTE v[3];
            LABtoRGB(v, lab);
            out.c[0][p] = v[0];
            out.c[1][p] = v[1];
            out.c[2][p] = v[2];
        }
}

#define PAX_LAB_KERNELS(ATTR, SUFFIX)                                                              \
    ATTR void LabFromUnit##SUFFIX(UnitPlanes &u, BytePlanes &out, int n) { LabOfUnit(u, out, n); } \
    ATTR void LabFromRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {                 \
        const LabTables &tab = Tables();                                                         \
        UnitPlanes u;                                                                            \
        for (int k = 0; k < 3; ++k)                                                              \
            for (int p = 0; p < n; ++p) u.c[k][p] = tab.unit[in.c[k][p]];                        \
        LabOfUnit(u, out, n);                                                                    \
    }                                                                                            \
    ATTR void LabToRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) { RgbOfLab(in, out, n); }

PAX_LAB_KERNELS(, Sse2)
#if PAX_HAVE_AVX2_BUILD
PAX_LAB_KERNELS(PAX_AVX2, Avx2)
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
