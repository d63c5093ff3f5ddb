// GammaCorrection: every gamma and component against the expression
// evaluated per component, the examples, the checks and failure sweeps.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"
#include "tone_support.h"

#include <gtest/gtest.h>

#include <cmath>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using namespace tonetest;
using paxtest::BlockBytes;
using paxtest::CceName;

// trunc(v ^ (ln g / ln 100)), clamped: written out per component.
int GammaReference(int v, int g) {
    double p = std::pow(static_cast<double>(v), std::log(static_cast<double>(g)) / std::log(100.0));
    double t = std::trunc(p);
    return t < 0 ? 0 : t > 255 ? 255 : static_cast<int>(t);
}

HDIB Gamma(HGLOBAL image, int r, int g, int b) { return GammaCorrection(image, r, g, b, 0, nullptr); }

// An image whose rows run through every byte value in each channel, with
// blue, green and red out of step so a swapped channel shows.
HGLOBAL AllValues() {
    return paxtest::MakeDib24(256, 2, [](int x, int y) {
        return paxtest::Rgb{static_cast<BYTE>(x), static_cast<BYTE>(255 - x), static_cast<BYTE>(x * 7 + y)};
    }, 0x3C);
}

// Every gamma from 10 to 500 on every component value, in each channel: the
// tables give what the expression gives per component.
TEST(GammaCorrection, EveryGammaAndComponentMatchesTheExpression) {
    HGLOBAL image = AllValues();
    std::vector<BYTE> src = BlockBytes(image);
    long compared = 0;
    for (int g = 10; g <= 500; ++g) {
        int gr = g, gg = 510 - g, gb = 10 + (g * 37) % 491;
        HDIB r = Gamma(image, gr, gg, gb);
        ASSERT_NE(r, nullptr) << g;
        ASSERT_EQ(GetLastColorConvertError(), static_cast<DWORD>(CCE_NONE));
        std::vector<BYTE> out = BlockBytes(r);
        ASSERT_EQ(out.size(), src.size());
        const int stride = 768;
        for (int row = 0; row < 2; ++row)
            for (int x = 0; x < 256; ++x) {
                size_t at = 40 + static_cast<size_t>(row * stride + 3 * x);
                ASSERT_EQ(out[at], GammaReference(src[at], gb)) << "blue " << int(src[at]) << " g " << gb;
                ASSERT_EQ(out[at + 1], GammaReference(src[at + 1], gg)) << "green g " << gg;
                ASSERT_EQ(out[at + 2], GammaReference(src[at + 2], gr)) << "red g " << gr;
                compared += 3;
            }
        GlobalFree(r);
    }
    EXPECT_EQ(compared, 491L * 2 * 256 * 3);
    EXPECT_TRUE(BlockBytes(image) == src);
    GlobalFree(image);
}

TEST(GammaCorrectionExamples, ValuesFromTheRule) {
    EXPECT_EQ(GammaReference(255, 10), 15);
    EXPECT_EQ(GammaReference(100, 10), 10);
    EXPECT_EQ(GammaReference(64, 10), 8);
    EXPECT_EQ(GammaReference(60, 500), 250);
    for (int v = 61; v < 256; ++v) EXPECT_EQ(GammaReference(v, 500), 255);
    HGLOBAL image = paxtest::MakeDib24(4, 1, [](int x, int) {
        static const BYTE v[] = {255, 100, 64, 0};
        return paxtest::Rgb{v[x], 60, 1};
    });
    HDIB r = Gamma(image, 10, 500, 100);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(paxtest::Pixel24(r, 0, 0), (paxtest::Rgb{15, 250, 1}));
    EXPECT_EQ(paxtest::Pixel24(r, 1, 0), (paxtest::Rgb{10, 250, 1}));
    EXPECT_EQ(paxtest::Pixel24(r, 2, 0), (paxtest::Rgb{8, 250, 1}));
    EXPECT_EQ(paxtest::Pixel24(r, 3, 0), (paxtest::Rgb{0, 250, 1}));
    GlobalFree(r);
    GlobalFree(image);
}

TEST(GammaCorrectionExamples, GammaHundredCopiesTheBlockByteForByte) {
    HGLOBAL image = paxtest::MakeDib(7, 3, 24, [](int x, int y, int k) {
        return static_cast<BYTE>(x * 31 + y * 5 + k * 80);
    }, 4, 0x77); // a colour table of 4 entries and marked padding
    HDIB r = Gamma(image, 100, 100, 100);
    ASSERT_NE(r, nullptr);
    EXPECT_TRUE(BlockBytes(r) == BlockBytes(image));
    GlobalFree(r);
    HDIB dark = Gamma(image, 10, 10, 10);
    ASSERT_NE(dark, nullptr);
    std::vector<BYTE> a = BlockBytes(image), b = BlockBytes(dark);
    EXPECT_TRUE(std::equal(a.begin(), a.begin() + 56, b.begin())) << "header and table copied";
    EXPECT_EQ(b[56 + 21], 0x77) << "padding copied";
    GlobalFree(dark);
    GlobalFree(image);
}

TEST(GammaCorrection, TopDownImagesAreCorrectedLikeBottomUp) {
    HGLOBAL image = paxtest::MakeRandomDib24(9, 4, 5);
    HGLOBAL topDown = BlockFrom(FlipStorage(BlockBytes(image)));
    HDIB up = Gamma(image, 30, 200, 470), down = Gamma(topDown, 30, 200, 470);
    ASSERT_NE(up, nullptr);
    ASSERT_NE(down, nullptr);
    EXPECT_TRUE(FlipStorage(BlockBytes(up)) == BlockBytes(down));
    for (HGLOBAL b : {image, topDown, up, down}) GlobalFree(b);
}

TEST(GammaCorrectionChecks, CodesAndSilentFailures) {
    ThreadState *state = GetThreadState();
    HGLOBAL image = paxtest::MakeRandomDib24(3, 3, 6);
    auto run = [&](HGLOBAL img, int r, int g, int b) {
        state->convertError = 55;
        HDIB out = Gamma(img, r, g, b);
        EXPECT_EQ(out, nullptr);
        if (img) {
            EXPECT_EQ(paxtest::LockCount(img), 0);
        }
        return CceName(state->convertError);
    };
    EXPECT_EQ(run(nullptr, 100, 100, 100), CceName(CCE_BADARGUMENT));
    for (int bad : {9, 501, 0, -1, 1 << 30}) {
        EXPECT_EQ(run(image, bad, 100, 100), CceName(CCE_BADARGUMENT)) << bad;
        EXPECT_EQ(run(image, 100, bad, 100), CceName(CCE_BADARGUMENT)) << bad;
        EXPECT_EQ(run(image, 100, 100, bad), CceName(CCE_BADARGUMENT)) << bad;
    }
    auto fill = [](int x, int y, int k) { return static_cast<BYTE>(x + y + k); };
    for (int bits : {1, 8, 32}) {
        HGLOBAL other = paxtest::MakeDib(3, 3, bits, fill);
        EXPECT_EQ(run(other, 100, 100, 100), CceName(CCE_NONE)) << bits;
        GlobalFree(other);
    }
    std::vector<BYTE> good = BlockBytes(image);
    auto bytesCase = [&](std::vector<BYTE> bytes) {
        HGLOBAL block = BlockFrom(bytes);
        std::string code = run(block, 100, 100, 100);
        GlobalFree(block);
        return code;
    };
    EXPECT_EQ(bytesCase(std::vector<BYTE>(good.begin(), good.end() - 1)), CceName(CCE_BADARGUMENT));
    EXPECT_EQ(bytesCase(std::vector<BYTE>(good.begin(), good.begin() + 30)), CceName(CCE_BADARGUMENT));
    std::vector<BYTE> table = good;
    Header(table)->biClrUsed = 0xFFFFFFFFu;
    EXPECT_EQ(bytesCase(table), CceName(CCE_BADARGUMENT));
    std::vector<BYTE> core = good;
    Header(core)->biSize = 12;
    EXPECT_EQ(bytesCase(core), CceName(CCE_BADARGUMENT));
    std::vector<BYTE> wide = good;
    Header(wide)->biWidth = -3;
    EXPECT_EQ(bytesCase(wide), CceName(CCE_BADARGUMENT));
    std::vector<BYTE> tall = good;
    Header(tall)->biHeight = -400;
    EXPECT_EQ(bytesCase(tall), CceName(CCE_BADARGUMENT));
    GlobalFree(image);
}

TEST(GammaCorrectionFailures, Sweep) {
    HGLOBAL image = paxtest::MakeRandomDib24(6, 5, 8);
    auto counts = paxtest::SweepFailures([&]() -> HGLOBAL { return Gamma(image, 40, 100, 300); }, {image});
    if (paxtest::HaveCensus()) {
        EXPECT_EQ(counts.allocationPoints, 1);
        EXPECT_EQ(counts.lockPoints, 2);
    }
#ifndef _WIN32
    win32lite::ResetFaults();
    win32lite::FailAllocationAt(1);
    EXPECT_EQ(Gamma(image, 40, 100, 300), nullptr);
    win32lite::ResetFaults();
    EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(CCE_NOMEMORY));
    for (long n : {1L, 2L}) {
        win32lite::FailLockAt(n);
        EXPECT_EQ(Gamma(image, 40, 100, 300), nullptr);
        win32lite::ResetFaults();
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(CCE_NONE));
    }
#endif
    GlobalFree(image);
}

} // namespace
