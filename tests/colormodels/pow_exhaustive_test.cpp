// The quick cube root against the long one on every argument the conversions
// into LAB can give it, and the two LAB conversions against their
// straightforward forms on every value:
//   - PowOneThird equals PowOneThirdExact bit for bit on X / 0.981, Y and
//     Z / 0.182 of every RGB byte triple and of the limited RGB doubles of
//     every HSV, HSI, YIQ, YUV and XYZ value (those above the threshold);
//   - RGBtoLAB equals the formulas with one PowOneThirdExact call per use;
//   - LABtoRGB equals the formulas evaluated afresh for every value.
#include "color_math.h"
#include "lab_terms.h"
#include "sweep.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

namespace {

using sweep::kCount;

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

void SourceBytes(uint32_t i, BYTE *v) {
    v[0] = BYTE(i);
    v[1] = BYTE(i >> 8);
    v[2] = BYTE(i >> 16);
}

// Counts the arguments tried and those where the two cube roots differ.
struct PowTally {
    std::atomic<uint64_t> tried{0}, differ{0};
    void Check(double x) {
        if (!(x > pax::kLabThreshold)) return;
        ++tried;
        if (!SameBits(pax::PowOneThird(x), pax::PowOneThirdExact(x))) ++differ;
    }
    void CheckUnit(pax::UnitRGB u) {
        const pax::Tristimulus t = pax::TristimulusOf(u);
        Check(t.y);
        Check(t.x / pax::kLabWhiteX);
        Check(t.z / pax::kLabWhiteZ);
    }
};

TEST(PowExhaustive, QuickCubeRootEqualsLongOneOnRgbBytes) {
    PowTally tally;
    sweep::ParallelFor(kCount, [&](uint32_t begin, uint32_t end) {
        BYTE v[3];
        for (uint32_t i = begin; i < end; ++i) {
            SourceBytes(i, v);
            tally.CheckUnit(pax::UnitFromBytes(v));
        }
    });
    EXPECT_EQ(tally.differ.load(), 0u);
    EXPECT_GT(tally.tried.load(), 2u * kCount);
}

TEST(PowExhaustive, QuickCubeRootEqualsLongOneOnDoubleSources) {
    struct Source {
        const char *name;
        pax::UnitRGB (*toUnit)(const BYTE *);
    };
    const Source sources[] = {{"HSV", pax::HSVtoUnitRGB}, {"HSI", pax::HSItoUnitRGB}, {"YIQ", pax::YIQtoUnitRGB},
                              {"YUV", pax::YUVtoUnitRGB}, {"XYZ", pax::XYZtoUnitRGB}};
    for (const Source &s : sources) {
        PowTally tally;
        sweep::ParallelFor(kCount, [&](uint32_t begin, uint32_t end) {
            BYTE v[3];
            for (uint32_t i = begin; i < end; ++i) {
                SourceBytes(i, v);
                tally.CheckUnit(pax::ClampUnit(s.toUnit(v)));
            }
        });
        EXPECT_EQ(tally.differ.load(), 0u) << s.name;
        EXPECT_GT(tally.tried.load(), kCount) << s.name;
    }
}

TEST(PowExhaustive, RgbToLabEqualsStraightforwardForm) {
    std::atomic<uint64_t> differ{0};
    sweep::ParallelFor(kCount, [&](uint32_t begin, uint32_t end) {
        auto f = [](double t) { return t > 0.008856 ? pax::PowOneThirdExact(t) : t * 7.787 + 0.13793103448275862; };
        BYTE v[3], got[3], want[3];
        for (uint32_t i = begin; i < end; ++i) {
            SourceBytes(i, v);
            const pax::UnitRGB u = pax::UnitFromBytes(v);
            const pax::Tristimulus t = pax::TristimulusOf(u);
            const double lstar = t.y > 0.008856 ? pax::PowOneThirdExact(t.y) * 116 - 16 : t.y * 903.3;
            const double fy = f(t.y);
            want[0] = pax::ClampToByte(lstar / 100 * 255);
            want[1] = pax::ClampToByte(((f(t.x / 0.981) - fy) * 500 * 255 + pax::kLabAOffset) / pax::kLabADivisor);
            want[2] = pax::ClampToByte(((fy - f(t.z / 0.182)) * 200 * 255 + pax::kLabBOffset) / pax::kLabBDivisor);
            RGBtoLAB(got, v);
            if (std::memcmp(got, want, 3) != 0) ++differ;
        }
    });
    EXPECT_EQ(differ.load(), 0u);
}

TEST(PowExhaustive, LabToRgbEqualsStraightforwardForm) {
    std::atomic<uint64_t> differ{0};
    sweep::ParallelFor(kCount, [&](uint32_t begin, uint32_t end) {
        BYTE v[3];
        for (uint32_t i = begin; i < end; ++i) {
            SourceBytes(i, v);
            const int lstar = v[0] * 100 / 255;
            const double fy = pax::PowOneThirdExact(0.01) * ((lstar + 16) / 25.0);
            const double x = pax::PowCube((v[1] * pax::kLabADivisor - pax::kLabAOffset) / 255 / 500 + fy) * 0.981;
            const double y = pax::PowCube(fy);
            const double z = pax::PowCube(fy - (v[2] * pax::kLabBDivisor - pax::kLabBOffset) / 255 / 200) * 0.182;
            const pax::UnitRGB want = {x * 1.7467 - y * 0.2014 - z * 2.8135, y * 2.0305 - x * 1.0002 - z * 0.271,
                                       x * 0.5691 - y * 1.1553 + z * 8.7749};
            const pax::UnitRGB got = pax::LABtoUnitRGB(v);
            if (!SameBits(got.r, want.r) || !SameBits(got.g, want.g) || !SameBits(got.b, want.b)) ++differ;
        }
    });
    EXPECT_EQ(differ.load(), 0u);
}

} // namespace
