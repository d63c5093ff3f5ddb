// The two powers of the LAB conversions, correctly rounded and identical on
// every platform: only IEEE additions, multiplications and divisions (plus exact
// exponent handling by the bits), so no result depends on the platform's mathematical
// library. tools/check_pow.cpp checks every input the conversions reach
// against a higher-precision reference.
//
// x^3: the exact cube is a sum of exact products (Dekker's splitting, no fused
// multiply-add), rounded once.
//
// x^0.3333333333333333: the exponent is the double nearest 1/3, smaller than
// 1/3 by exactly 2^-54 / 3, so x^y = cbrt(x) * x^(-2^-54/3). The cube root is
// refined to about 105 bits from the exact residual of a double estimate; the
// second factor is 1 + e + e^2/2 with e = -ln(x) * 2^-54 / 3 (|e| < 1e-16 on
// the inputs in use, so ln(x) is needed only to about 1e-16).
//
// PowOneThirdExact does that for every argument. PowOneThird first forms the
// same value to about 64 bits with a shorter chain of steps and returns its
// rounding when the bits beyond the 53rd are far enough from a halfway point
// that no error of that size can change it; otherwise (about one argument in
// 250 on the LAB arguments) it takes PowOneThirdExact.
#include "color_math.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace pax {

namespace {

struct Pair {
    double hi, lo;
};

// a * b = hi + lo exactly (Dekker). Operands stay far from overflow here.
[[gnu::always_inline]] inline Pair TwoProduct(double a, double b) {
    constexpr double kSplit = 134217729.0; // 2^27 + 1
    const double ca = kSplit * a, cb = kSplit * b;
    const double ah = ca - (ca - a), al = a - ah;
    const double bh = cb - (cb - b), bl = b - bh;
    const double hi = a * b;
    const double lo = ((ah * bh - hi) + ah * bl + al * bh) + al * bl;
    return {hi, lo};
}

// x = m 2^e with m in [0.5, 1), for positive normal x, by the bits of x.
[[gnu::always_inline]] inline double SplitExponent(double x, int *e) {
    uint64_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    *e = static_cast<int>((bits >> 52) & 0x7FF) - 1022;
    bits = (bits & 0x800FFFFFFFFFFFFFull) | (uint64_t{1022} << 52);
    double m;
    std::memcpy(&m, &bits, sizeof m);
    return m;
}

// 2^k for k in the normal range.
[[gnu::always_inline]] inline double PowerOfTwo(int k) {
    const uint64_t bits = static_cast<uint64_t>(k + 1023) << 52;
    double p;
    std::memcpy(&p, &bits, sizeof p);
    return p;
}

// Natural logarithm to about one unit in the last place: x = m * 2^e with m
// in [sqrt(1/2), sqrt(2)), ln(m) = 2 atanh((m - 1) / (m + 1)) by its series.
double NaturalLog(double x) {
    int e;
    double m = SplitExponent(x, &e);
    if (m < 0.70710678118654752) {
        m = m * 2;
        e = e - 1;
    }
    const double s = (m - 1) / (m + 1), s2 = s * s;
    // 1 + s2/3 + s2^2/5 + ... + s2^11/23 (|s| < 0.172: the rest is below
    // 1e-19), in Estrin's order to keep the chain of dependent steps short.
    const double z = s2, z2 = z * z, z4 = z2 * z2, z8 = z4 * z4;
    const double q0 = (1 + z * (1.0 / 3)) + z2 * (1.0 / 5 + z * (1.0 / 7));
    const double q1 = (1.0 / 9 + z * (1.0 / 11)) + z2 * (1.0 / 13 + z * (1.0 / 15));
    const double q2 = (1.0 / 17 + z * (1.0 / 19)) + z2 * (1.0 / 21 + z * (1.0 / 23));
    const double sum = (q0 + z4 * q1) + z8 * q2;
    constexpr double kLn2Hi = 0.6931471803691238; // ln 2 split so e * kLn2Hi is exact
    constexpr double kLn2Lo = 1.9082149292705877e-10;
    return e * kLn2Hi + (e * kLn2Lo + 2 * s * sum);
}

} // namespace

double PowCube(double x) {
    const Pair sq = TwoProduct(x, x);
    const Pair hi = TwoProduct(sq.hi, x);
    const Pair lo = TwoProduct(sq.lo, x);
    return hi.hi + (hi.lo + (lo.hi + lo.lo));
}

double PowOneThirdExact(double x) {
    if (!(x > 0)) return x == 0 ? 0.0 : std::nan("");
    if (x < 0x1p-1000) return PowOneThirdExact(x * 0x1p999) * 0x1p-333; // 2^999 = (2^333)^3, exact
    // x = m 2^(3k + rem), m in [0.5, 1), rem in 0..2.
    int e;
    const double m = SplitExponent(x, &e);
    int rem = e % 3;
    if (rem < 0) rem += 3;
    const int k = (e - rem) / 3;
    const double scaled = m * PowerOfTwo(rem);

    // Estimate of cbrt(scaled) without division: a fit of m^(-1/3) on
    // [0.5, 1) (relative error below 7e-6) times 2^(-rem/3), two Newton steps
    // for scaled^(-1/3) (error below 1e-15), then scaled * y^2.
    constexpr double kInvCbrtPow2[3] = {1.0, 0.79370052598409974, 0.62996052494743658};
    double y = ((((-0.66570918579906771 * m + 3.0691588960396917) * m - 5.9116923059791978) * m +
                 6.1844465505383776) * m - 3.9159036861764452) * m + 2.2396950868653162;
    y = y * kInvCbrtPow2[rem];
    for (int i = 0; i < 2; ++i) y = y + y * (1 - scaled * (y * y * y)) * (1.0 / 3);
    const double r = scaled * (y * y);

    // r^3 = scaled (1 + t), with r^3 - scaled formed exactly up to the last
    // additions (c1.hi - scaled is exact: the two are within a factor of 2).
    const Pair sq = TwoProduct(r, r);
    const Pair c1 = TwoProduct(sq.hi, r);
    const Pair c2 = TwoProduct(sq.lo, r);
    const double residual = (((c1.hi - scaled) + c1.lo) + c2.hi) + c2.lo;
    const double t = residual / scaled;

    // x^y = r 2^k (1 + t)^(-1/3) (1 + eps + eps^2/2), eps = -ln(x) 2^-54 / 3,
    //     = r 2^k (1 + first + second) to second order; the rest is below 1e-45.
    const double eps = -NaturalLog(x) * (5.551115123125783e-17 / 3);
    const double first = eps - t * (1.0 / 3);
    const double second = eps * eps / 2 + t * t * (2.0 / 9) - eps * t * (1.0 / 3);
    return (r + r * (first + second)) * PowerOfTwo(k);
}

namespace {

// The cheaper evaluation, for x in [2^-60, 2^60]. scaled = m 2^rem as above,
// m in [0.5, 1) in 256 slots of width 2^-9 by its leading fraction bits:
//   1. est = cbrt(slot centre * 2^rem) (1 + u/3 - u^2/9), u = m / centre - 1,
//      |u| <= 2^-9, so est is within about 2^-31 of cbrt(scaled);
//   2. r = est cut to 17 significant bits: r^3 (51 bits) and
//      residual = r^3 - scaled are exact, and t = residual / scaled is below
//      2^-14.4 (rejected above 2^-13);
//   3. x^y = r 2^k (1 + t)^(-1/3) exp(eps), eps = -ln(x) 2^-54 / 3, with
//      (1 + t)^(-1/3) = 1 + f, f = -t/3 + 2t^2/9 - 14t^3/81 + 35t^4/243 (the
//      rest is below 2^-68) and exp(eps) = 1 + eps to 2^-100 (|eps| < 2^-50,
//      and ln(x) is needed only to about 1e-4 for eps to 2^-69);
//   4. r (1 + f + eps + f eps) = sum + tail exactly (Fast2Sum).
// The roundings in 3 and 4 (t's own included) stay below 2^-64 of r in total,
// the truncated series and ln(x) add less than 2^-67, and r is below 2.1
// times sum's leading power of two, so sum is the correctly rounded power
// whenever |tail| is more than 2^-61 of that power away from half a unit.
constexpr double kFastLow = 0x1p-60, kFastHigh = 0x1p60;
constexpr double kFastMaxResidual = 0x1p-13;
constexpr double kHalfUlpLessMargin = 0x1p-53 - 0x1p-61;

struct CbrtSlots {
    double root[3][256]; // cbrt(centre * 2^rem)
    double invCentre[256];
    double centre[256];
    double lnCentre[256];
    CbrtSlots() {
        for (int i = 0; i < 256; ++i) {
            centre[i] = 0.5 + (i + 0.5) * 0x1p-9;
            invCentre[i] = 1 / centre[i];
            lnCentre[i] = NaturalLog(centre[i]);
            for (int rem = 0; rem < 3; ++rem) root[rem][i] = PowOneThirdExact(centre[i] * PowerOfTwo(rem));
        }
    }
};

const CbrtSlots &Slots() {
    static const CbrtSlots slots; // filled on first use
    return slots;
}

} // namespace

double PowOneThird(double x) {
    if (!(x >= kFastLow && x <= kFastHigh)) return PowOneThirdExact(x);
    const CbrtSlots &slots = Slots();
    int e;
    const double m = SplitExponent(x, &e);
    int rem = e % 3;
    if (rem < 0) rem += 3;
    const int k = (e - rem) / 3;
    const double scaled = m * PowerOfTwo(rem);

    uint64_t mBits;
    std::memcpy(&mBits, &m, sizeof mBits);
    const int slot = static_cast<int>((mBits >> 44) & 0xFF);
    const double u = (m - slots.centre[slot]) * slots.invCentre[slot];
    const double est = slots.root[rem][slot] * (1 + u * (1.0 / 3 - u * (1.0 / 9)));
    uint64_t rBits;
    std::memcpy(&rBits, &est, sizeof rBits);
    rBits &= ~((uint64_t{1} << 36) - 1);
    double r;
    std::memcpy(&r, &rBits, sizeof r);
    const double t = (r * r * r - scaled) / scaled;
    if (!(std::fabs(t) < kFastMaxResidual)) return PowOneThirdExact(x);

    // ln(x) = e ln 2 + ln(centre) + u to about 2e-6 (the u^2 / 2 left out is
    // below 2^-19), far better than eps needs: it scales ln(x) by 2^-54 / 3.
    const double lnx = (e * 0.69314718055994531 + slots.lnCentre[slot]) + u;
    const double eps = -lnx * (5.551115123125783e-17 / 3);

    const double t2 = t * t;
    const double f = (t2 * (2.0 / 9 - t * (14.0 / 81)) + t2 * t2 * (35.0 / 243)) - t * (1.0 / 3);
    const double corr = (f + eps) + f * eps;
    const double c = r * corr;
    const double sum = r + c;
    const double tail = (r - sum) + c;

    // A power-of-two sum with a negative tail (whose lower neighbour is
    // nearer) goes the exact way too.
    uint64_t bits;
    std::memcpy(&bits, &sum, sizeof bits);
    const uint64_t leadBits = bits & 0x7FF0000000000000ull;
    double lead;
    std::memcpy(&lead, &leadBits, sizeof lead);
    const bool powerOfTwo = (bits & 0x000FFFFFFFFFFFFFull) == 0;
    if (std::fabs(tail) < lead * kHalfUlpLessMargin && !(powerOfTwo && tail < 0)) return sum * PowerOfTwo(k);
    return PowOneThirdExact(x);
}

} // namespace pax
