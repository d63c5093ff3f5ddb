// The quick cube root against the long one away from the LAB arguments: the
// whole range it takes itself, its edges, and the arguments it hands on.
#include "color_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace {

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(PowOneThird, EqualsLongFormOnRandomArgumentsOfEveryScale) {
    std::mt19937_64 rng(20261123);
    std::uniform_real_distribution<double> exponent(-70.0, 70.0);
    int differ = 0;
    for (int i = 0; i < 1000000; ++i) {
        const double x = std::exp2(exponent(rng));
        if (!SameBits(pax::PowOneThird(x), pax::PowOneThirdExact(x))) ++differ;
    }
    EXPECT_EQ(differ, 0);
}

TEST(PowOneThird, EqualsLongFormAtEdgesAndExactCubes) {
    const double edges[] = {0x1p-60, std::nextafter(0x1p-60, 0.0), 0x1p60, std::nextafter(0x1p60, 1e300),
                            0.008856, 0.01, 1.0, 0.5, 2.0, 4.0, 8.0, 0.125, 1e-300, 1e300,
                            std::numeric_limits<double>::denorm_min(), 1 - 0x1p-53, 1 + 0x1p-52};
    for (double x : edges) EXPECT_TRUE(SameBits(pax::PowOneThird(x), pax::PowOneThirdExact(x))) << x;
    // Cubes of short doubles, whose roots lie on or near a double.
    for (int n = 1; n < 4096; ++n) {
        const double x = double(n) * n * n * 0x1p-36;
        EXPECT_TRUE(SameBits(pax::PowOneThird(x), pax::PowOneThirdExact(x))) << x;
    }
}

TEST(PowOneThird, ZeroNegativeAndNonFinite) {
    EXPECT_TRUE(SameBits(pax::PowOneThird(0.0), 0.0));
    EXPECT_TRUE(std::isnan(pax::PowOneThird(-1.0)));
    EXPECT_TRUE(std::isnan(pax::PowOneThird(std::nan(""))));
    EXPECT_TRUE(SameBits(pax::PowOneThird(HUGE_VAL), pax::PowOneThirdExact(HUGE_VAL)));
}

} // namespace
