// Sweeps over every source value: all 2^24 three-byte values, and for CMYK
// every value the conversions into CMYK produce.
//   - each conversion built on RGB bytes (paths B and I) equals the source's
//     conversion to RGB followed by the target's conversion from RGB, called
//     in place (dst == src) with guard bytes behind;
//   - each conversion with RGB writes exactly 3 bytes, and gives the same
//     result in place on every 7th value;
//   - CMYtoRGB is the complement, RGBtoCMYK leaves a zero among C, M, Y;
//   - hue byte 255 reads as 0 in every conversion from HSV and HSI.
#include "conversion_table.h"
#include "sweep.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>

namespace {

using sweep::kCount;
using sweep::kGuard;

const int kModels[] = {MODEL_RGB, MODEL_CMY, MODEL_CMYK, MODEL_HSV, MODEL_HSI,
                       MODEL_YIQ, MODEL_YUV, MODEL_XYZ, MODEL_LAB};

const pax::ConversionEntry &Entry(int from, int to) {
    for (const pax::ConversionEntry &e : pax::kConversions)
        if (e.fromModel == from && e.toModel == to) return e;
    ADD_FAILURE() << "no entry " << from << " " << to;
    return pax::kConversions[0];
}

// Output of one conversion of one source value, packed (3 or 4 bytes). Writes
// through a buffer with guard bytes; when asked, runs in place as well and
// compares. Counts disagreements and guard damage.
struct Checked {
    std::atomic<uint64_t> inPlaceDiffers{0}, guardDamaged{0};

    uint32_t Run(const pax::Conversion &c, int from, const BYTE *src, bool inPlace) {
        if (c.toCmyk) return sweep::PackQuad(c.toCmyk(src));
        BYTE out[8];
        std::memset(out, kGuard, sizeof out);
        if (c.toThree(out, src) != out) ++guardDamaged;
        for (int k = 3; k < 8; ++k)
            if (out[k] != kGuard) ++guardDamaged;
        if (!inPlace) return sweep::Pack3(out);
        BYTE buf[8];
        std::memset(buf, kGuard, sizeof buf);
        const int n = pax::SourceBytes(from);
        std::memcpy(buf, src, n);
        if (c.toThree(buf, buf) != buf) ++inPlaceDiffers;
        if (std::memcmp(buf, out, 3) != 0) ++inPlaceDiffers;
        for (int k = 3; k < n; ++k) // a CMYK source's K byte is not written
            if (buf[k] != src[k]) ++guardDamaged;
        for (int k = n; k < 8; ++k)
            if (buf[k] != kGuard) ++guardDamaged;
        return sweep::Pack3(out);
    }
};

class Exhaustive : public ::testing::Test {
protected:
    // RGBtoX for every RGB value, by target model; built once for the suite.
    static std::map<int, std::vector<uint32_t>> *fromRgb_;

    static void SetUpTestSuite() {
        fromRgb_ = new std::map<int, std::vector<uint32_t>>;
        Checked checked;
        for (int to : kModels) {
            if (to == MODEL_RGB) continue;
            std::vector<uint32_t> &table = (*fromRgb_)[to];
            table.resize(kCount);
            const pax::Conversion c = pax::FindConversion(MODEL_RGB, to);
            sweep::ParallelFor(kCount, [&](uint32_t begin, uint32_t end) {
                BYTE src[4];
                for (uint32_t i = begin; i < end; ++i) {
                    sweep::SourceValue(MODEL_RGB, i, src);
                    table[i] = checked.Run(c, MODEL_RGB, src, i % 7 == 0);
                }
            });
        }
        EXPECT_EQ(checked.inPlaceDiffers.load(), 0u);
        EXPECT_EQ(checked.guardDamaged.load(), 0u);
    }
    static void TearDownTestSuite() {
        delete fromRgb_;
        fromRgb_ = nullptr;
    }
};
std::map<int, std::vector<uint32_t>> *Exhaustive::fromRgb_ = nullptr;

TEST_F(Exhaustive, RgbToCmykAlwaysLeavesAZeroInk) {
    const std::vector<uint32_t> &cmyk = (*fromRgb_)[MODEL_CMYK];
    sweep::Coverage inks(kCount);
    std::atomic<uint64_t> bad{0};
    sweep::ParallelFor(kCount, [&](uint32_t begin, uint32_t end) {
        for (uint32_t i = begin; i < end; ++i) {
            const int c = cmyk[i] & 255, m = cmyk[i] >> 8 & 255, y = cmyk[i] >> 16 & 255, k = cmyk[i] >> 24;
            const int r = i & 255, g = i >> 8 & 255, b = i >> 16;
            const int kWant = std::min({255 - r, 255 - g, 255 - b});
            if (std::min({c, m, y}) != 0 || k != kWant || c != 255 - r - kWant || m != 255 - g - kWant ||
                y != 255 - b - kWant)
                ++bad;
            inks.Mark(cmyk[i] & 0xFFFFFF);
        }
    });
    EXPECT_EQ(bad.load(), 0u);
    EXPECT_EQ(inks.Distinct(), 256u * 256 * 256 - 255u * 255 * 255); // every C, M, Y with a zero
}

// Every conversion into RGB, in place and not; CMY and CMYK complements; then
// every conversion built on RGB bytes against the two exports in turn.
TEST_F(Exhaustive, ConversionsThroughRgbBytesEqualTheTwoExports) {
    int composedChecked = 0;
    for (int from : kModels) {
        if (from == MODEL_RGB) continue;
        SCOPED_TRACE(Entry(from, MODEL_RGB).name);
        std::vector<uint32_t> rgbOf(kCount);
        Checked checked;
        std::atomic<uint64_t> notComplement{0};
        sweep::Coverage coverage(kCount);
        const pax::Conversion toRgb = pax::FindConversion(from, MODEL_RGB);
        sweep::ParallelFor(kCount, [&](uint32_t begin, uint32_t end) {
            BYTE src[4];
            for (uint32_t i = begin; i < end; ++i) {
                sweep::SourceValue(from, i, src);
                rgbOf[i] = checked.Run(toRgb, from, src, i % 7 == 0);
                // CMY is the complement; CMYK values made from RGB come back whole.
                if (from == MODEL_CMY && rgbOf[i] != (~sweep::Pack3(src) & 0xFFFFFF)) ++notComplement;
                if (from == MODEL_CMYK && rgbOf[i] != i) ++notComplement;
                coverage.Mark(from == MODEL_CMYK ? i : sweep::Pack3(src));
            }
        });
        EXPECT_EQ(coverage.Distinct(), kCount);
        EXPECT_EQ(checked.inPlaceDiffers.load(), 0u);
        EXPECT_EQ(checked.guardDamaged.load(), 0u);
        EXPECT_EQ(notComplement.load(), 0u);

        for (int to : kModels) {
            if (to == from || to == MODEL_RGB) continue;
            const pax::ConversionEntry &e = Entry(from, to);
            if (e.path != pax::Path::Bytes && e.path != pax::Path::Integer) continue;
            SCOPED_TRACE(e.name);
            ++composedChecked;
            // The target's export again, or its table where that is read in
            // order (CMY and CMYK sources) and the export is slow (LAB).
            const std::vector<uint32_t> &target = (*fromRgb_)[to];
            const bool useTable = to == MODEL_LAB;
            const pax::Conversion fromRgb = pax::FindConversion(MODEL_RGB, to);
            std::atomic<uint64_t> differs{0}, guardDamaged{0};
            sweep::ParallelFor(kCount, [&](uint32_t begin, uint32_t end) {
                BYTE buf[8], rgb[3], out[3];
                for (uint32_t i = begin; i < end; ++i) {
                    sweep::SourceValue(from, i, buf);
                    uint32_t want;
                    if (useTable) {
                        want = target[rgbOf[i]];
                    } else {
                        sweep::SourceValue(MODEL_RGB, rgbOf[i], rgb);
                        want = fromRgb.toCmyk ? sweep::PackQuad(fromRgb.toCmyk(rgb))
                                              : sweep::Pack3(fromRgb.toThree(out, rgb));
                    }
                    if (e.fn.toCmyk) {
                        if (sweep::PackQuad(e.fn.toCmyk(buf)) != want) ++differs;
                        continue;
                    }
                    const BYTE k = buf[3];
                    std::memset(buf + pax::SourceBytes(from), kGuard, 8 - pax::SourceBytes(from));
                    e.fn.toThree(buf, buf);
                    if (sweep::Pack3(buf) != want) ++differs;
                    if (from == MODEL_CMYK && buf[3] != k) ++guardDamaged;
                    for (int g = pax::SourceBytes(from); g < 8; ++g)
                        if (buf[g] != kGuard) ++guardDamaged;
                }
            });
            EXPECT_EQ(differs.load(), 0u);
            EXPECT_EQ(guardDamaged.load(), 0u);
        }
    }
    EXPECT_EQ(composedChecked, 48); // 34 through RGB bytes, 14 integer
}

TEST_F(Exhaustive, HueByte255ReadsAsZero) {
    int checkedConversions = 0;
    for (const pax::ConversionEntry &e : pax::kConversions) {
        if (e.fromModel != MODEL_HSV && e.fromModel != MODEL_HSI) continue;
        SCOPED_TRACE(e.name);
        ++checkedConversions;
        uint64_t differs = 0;
        std::vector<bool> outputs(kCount);
        for (int sv = 0; sv < 65536; ++sv) {
            const BYTE at0[3] = {0, BYTE(sv), BYTE(sv >> 8)};
            const BYTE at255[3] = {255, BYTE(sv), BYTE(sv >> 8)};
            if (e.fn.toCmyk) {
                if (sweep::PackQuad(e.fn.toCmyk(at0)) != sweep::PackQuad(e.fn.toCmyk(at255))) ++differs;
                continue;
            }
            BYTE a[3], b[3];
            e.fn.toThree(a, at0);
            e.fn.toThree(b, at255);
            if (std::memcmp(a, b, 3) != 0) ++differs;
            outputs[sweep::Pack3(a)] = true;
        }
        EXPECT_EQ(differs, 0u);
        if (!e.fn.toCmyk) {
            EXPECT_GT(std::count(outputs.begin(), outputs.end(), true), 1000);
        }
    }
    EXPECT_EQ(checkedConversions, 16);
}

// The conversions through RGB doubles, in place and with guard bytes, on a
// spread sample; their values are covered by the examples and the digests.
TEST_F(Exhaustive, ConversionsThroughDoublesWorkInPlace) {
    int n = 0;
    for (const pax::ConversionEntry &e : pax::kConversions) {
        if (e.path != pax::Path::Doubles) continue;
        SCOPED_TRACE(e.name);
        ++n;
        Checked checked;
        sweep::Coverage outputs(kCount);
        // Every 61st value: 275,000 values spread over the whole cube.
        sweep::ParallelFor(kCount / 61, [&](uint32_t begin, uint32_t end) {
            BYTE src[4];
            for (uint32_t j = begin; j < end; ++j) {
                sweep::SourceValue(e.fromModel, j * 61, src);
                outputs.Mark(checked.Run(e.fn, e.fromModel, src, true));
            }
        });
        EXPECT_EQ(checked.inPlaceDiffers.load(), 0u);
        EXPECT_EQ(checked.guardDamaged.load(), 0u);
        EXPECT_GT(outputs.Distinct(), 10000u);
    }
    EXPECT_EQ(n, 8);
}

} // namespace
