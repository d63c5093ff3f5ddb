// Checks the two powers of the LAB conversions over every argument the 72
// conversions can pass them:
//   x^0.3333333333333333: X / 0.981, Y and Z / 0.182 of every RGB byte triple
//     (RGBtoLAB and every conversion that reaches it through RGB bytes) and of
//     the limited RGB doubles of every source value of HSV, HSI, YIQ, YUV and
//     XYZ (the conversions into LAB through doubles), and 0.01;
//   x^3: the X, Y and Z bases of every LAB value (LABtoRGB and everything
//     built on it).
// For each argument it reports whether the library's result is the correctly
// rounded one, decided with an 80-bit long double power and, where that lies
// too near a halfway point between doubles, a 113-bit __float128 power; and
// how often the platform's own pow differs from the library's result.
//
// Usage: check_pow [--platform-only]
//   --platform-only  skips the reference and only compares with std::pow
//                    (for builds without __float128 support, such as the
//                    Windows one). The digest of std::pow's results shows
//                    whether two platforms' pow agree on every argument.
#include "color_math.h"
#include "lab_terms.h"

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>

#if defined(__SIZEOF_FLOAT128__) && !defined(_WIN32)
#define PAX_HAVE_QUAD 1
extern "C" {
#include <quadmath.h>
}
#endif

namespace {

constexpr double kThird = 0.3333333333333333;

struct Tally {
    const char *name;
    uint64_t calls = 0;
    uint64_t wrong = 0;       // library result not correctly rounded
    uint64_t byQuad = 0;      // decided by the 113-bit power
    uint64_t undecided = 0;   // too near a halfway point even for 113 bits
    uint64_t platformDiffers = 0;
    uint64_t platformDigest = 0xcbf29ce484222325ull; // FNV-1a of std::pow's bits
    double firstWrong = 0, firstPlatform = 0;
};

bool g_reference = true;

// +1 if the exact value v (given as a higher-precision approximation with
// relative error bound err) lies above the halfway point between d and its
// neighbour toward v, -1 if below, 0 if too near to say.
template <typename Wide>
int SideOfHalfway(Wide v, double d, Wide relErr) {
    const double up = std::nextafter(d, v > static_cast<Wide>(d) ? DBL_MAX : -DBL_MAX);
    const Wide half = (static_cast<Wide>(d) + static_cast<Wide>(up)) / 2;
    const Wide dist = v - half;
    const Wide bound = (v < 0 ? -v : v) * relErr;
    if (dist > bound) return 1;
    if (dist < -bound) return -1;
    return 0;
}

// Correctly rounded double of x^y, or NaN when neither reference decides.
double Reference(double x, double y, Tally &tally) {
    const long double wide = powl(static_cast<long double>(x), static_cast<long double>(y));
    const double nearest = static_cast<double>(wide);
    // 2^-58: 32 times the documented error of the 64-bit-mantissa power.
    const int side = SideOfHalfway<long double>(wide, nearest, 0x1p-58L);
    // Only the halfway point on wide's side of nearest can lie between wide and
    // the exact value; the other is half a unit away.
    if (wide == static_cast<long double>(nearest) || side != 0) return nearest;
#ifdef PAX_HAVE_QUAD
    ++tally.byQuad;
    const __float128 q = powq(static_cast<__float128>(x), static_cast<__float128>(y));
    const double qd = static_cast<double>(q);
    if (SideOfHalfway<__float128>(q, qd, static_cast<__float128>(0x1p-108)) != 0 || q == static_cast<__float128>(qd)) return qd;
#endif
    ++tally.undecided;
    return std::nan("");
}

void Check(Tally &tally, double x, double y, double got) {
    ++tally.calls;
    const double platform = std::pow(x, y);
    uint64_t bits;
    std::memcpy(&bits, &platform, sizeof bits);
    for (int k = 0; k < 64; k += 8) tally.platformDigest = (tally.platformDigest ^ ((bits >> k) & 255)) * 0x100000001b3ull;
    if (platform != got) {
        if (!tally.platformDiffers) tally.firstPlatform = x;
        ++tally.platformDiffers;
    }
    if (!g_reference) return;
    const double want = Reference(x, y, tally);
    if (std::isnan(want)) return;
    if (want != got) {
        if (!tally.wrong) tally.firstWrong = x;
        ++tally.wrong;
    }
}

void CheckThird(Tally &tally, double x) { Check(tally, x, kThird, pax::PowOneThird(x)); }

// The LabF and L* arguments of one RGB value given as doubles.
void CheckLabArguments(Tally &tally, pax::UnitRGB u) {
    const pax::Tristimulus t = pax::TristimulusOf(u);
    if (t.y > pax::kLabThreshold) CheckThird(tally, t.y);
    const double x = t.x / pax::kLabWhiteX, z = t.z / pax::kLabWhiteZ;
    if (x > pax::kLabThreshold) CheckThird(tally, x);
    if (z > pax::kLabThreshold) CheckThird(tally, z);
}

void SweepThreeBytes(const std::function<void(const BYTE *)> &visit) {
    BYTE v[3];
    for (int a = 0; a < 256; ++a)
        for (int b = 0; b < 256; ++b)
            for (int c = 0; c < 256; ++c) {
                v[0] = static_cast<BYTE>(a);
                v[1] = static_cast<BYTE>(b);
                v[2] = static_cast<BYTE>(c);
                visit(v);
            }
}

void Print(const Tally &t) {
    std::printf("%-22s calls %9llu", t.name, static_cast<unsigned long long>(t.calls));
    if (g_reference)
        std::printf("  not correctly rounded %llu  decided by __float128 %llu  undecided %llu",
                    static_cast<unsigned long long>(t.wrong), static_cast<unsigned long long>(t.byQuad),
                    static_cast<unsigned long long>(t.undecided));
    std::printf("  std::pow differs %llu (digest of std::pow %016llx)",
                static_cast<unsigned long long>(t.platformDiffers),
                static_cast<unsigned long long>(t.platformDigest));
    if (t.wrong) std::printf("  first wrong at %.17g", t.firstWrong);
    if (t.platformDiffers) std::printf("  first difference at %.17g", t.firstPlatform);
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv) {
    if (argc > 1 && std::strcmp(argv[1], "--platform-only") == 0) g_reference = false;
#ifndef PAX_HAVE_QUAD
    if (g_reference) std::printf("no __float128 here: near-halfway cases stay undecided\n");
#endif
    uint64_t bad = 0;
    auto finish = [&bad](const Tally &t) {
        Print(t);
        bad += t.wrong + t.undecided;
    };

    {
        Tally t{"pow(0.01, 1/3)"};
        CheckThird(t, 0.01);
        finish(t);
    }
    {
        Tally t{"RGB bytes into LAB"};
        SweepThreeBytes([&t](const BYTE *v) { CheckLabArguments(t, pax::UnitFromBytes(v)); });
        finish(t);
    }
    struct Source {
        const char *name;
        pax::UnitRGB (*toUnit)(const BYTE *);
    };
    const Source sources[] = {{"HSV doubles into LAB", pax::HSVtoUnitRGB},
                              {"HSI doubles into LAB", pax::HSItoUnitRGB},
                              {"YIQ doubles into LAB", pax::YIQtoUnitRGB},
                              {"YUV doubles into LAB", pax::YUVtoUnitRGB},
                              {"XYZ doubles into LAB", pax::XYZtoUnitRGB}};
    for (const Source &s : sources) {
        Tally t{s.name};
        SweepThreeBytes([&t, &s](const BYTE *v) { CheckLabArguments(t, pax::ClampUnit(s.toUnit(v))); });
        finish(t);
    }
    {
        Tally t{"LAB cubes"};
        for (int l = 0; l < 256; ++l) {
            const double fy = pax::LabFy(static_cast<BYTE>(l));
            Check(t, fy, 3, pax::PowCube(fy));
            for (int c = 0; c < 256; ++c) {
                const double xb = pax::LabXBase(static_cast<BYTE>(c), fy);
                const double zb = pax::LabZBase(static_cast<BYTE>(c), fy);
                Check(t, xb, 3, pax::PowCube(xb));
                Check(t, zb, 3, pax::PowCube(zb));
            }
        }
        finish(t);
    }
    if (g_reference) std::printf(bad ? "FAILED\n" : "every result correctly rounded\n");
    return bad ? 1 : 0;
}
