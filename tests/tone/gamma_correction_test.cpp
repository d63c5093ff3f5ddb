// GammaCorrection: every gamma and component against the expression
// evaluated per component, the examples, the checks and failure sweeps.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"
#include "tone_support.h"

#include <gtest/gtest.h>

#include <climits>

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
    double t = std::trunc(std::pow(static_cast<double>(v), std::log(static_cast<double>(g)) / std::log(100.0)));
    return t < 0 ? 0 : t > 255 ? 255 : static_cast<int>(t);
}

HDIB Gamma(HGLOBAL image, int r, int g, int b) { return GammaCorrection(image, r, g, b, 0, nullptr); }

std::string Error() { return CceName(GetLastColorConvertError()); }

// Every gamma from 10 to 500 on every component value, in each channel (blue,
// green and red out of step so a swapped channel shows): the tables give what
// the expression gives per component.
TEST(GammaCorrection, EveryGammaAndComponentMatchesTheExpression) {
    HGLOBAL image = paxtest::MakeDib24(256, 2, [](int x, int y) {
        return paxtest::Rgb{static_cast<BYTE>(x), static_cast<BYTE>(255 - x), static_cast<BYTE>(x * 7 + y)};
    }, 0x3C);
    std::vector<BYTE> src = BlockBytes(image);
    for (int g = 10; g <= 500; ++g) {
        const int gammas[3] = {10 + (g * 37) % 491, 510 - g, g}; // blue, green, red
        HDIB r = Gamma(image, gammas[2], gammas[1], gammas[0]);
        ASSERT_NE(r, nullptr) << g;
        ASSERT_EQ(Error(), CceName(CCE_NONE));
        std::vector<BYTE> out = Consume(r);
        ASSERT_EQ(out.size(), src.size());
        for (size_t at = 40; at < src.size(); ++at)
            ASSERT_EQ(out[at], GammaReference(src[at], gammas[(at - 40) % 3]))
                << "byte " << at << " value " << int(src[at]) << " g " << g;
    }
    EXPECT_TRUE(BlockBytes(image) == src);
    GlobalFree(image);
}

TEST(GammaCorrectionExamples, ValuesFromTheRule) {
    for (int v = 61; v < 256; ++v) EXPECT_EQ(GammaReference(v, 500), 255);
    for (int g = 10; g <= 500; ++g) {
        EXPECT_EQ(GammaReference(0, g), 0) << g;
        EXPECT_EQ(GammaReference(1, g), 1) << g;
    }
    HGLOBAL image = paxtest::MakeDib24(4, 1, [](int x, int) {
        static const BYTE v[] = {255, 100, 64, 0};
        return paxtest::Rgb{v[x], 60, 1};
    });
    HDIB r = Gamma(image, 10, 500, 100);
    ASSERT_NE(r, nullptr);
    const BYTE red[] = {15, 10, 8, 0};
    for (int x = 0; x < 4; ++x) EXPECT_EQ(paxtest::Pixel24(r, x, 0), (paxtest::Rgb{red[x], 250, 1}));
    GlobalFree(r);
    GlobalFree(image);
}

TEST(GammaCorrectionExamples, GammaHundredCopiesTheBlockByteForByte) {
    HGLOBAL image = paxtest::MakeDib(7, 3, 24, [](int x, int y, int k) {
        return static_cast<BYTE>(x * 31 + y * 5 + k * 80);
    }, 4, 0x77); // a colour table of 4 entries and marked padding
    std::vector<BYTE> a = BlockBytes(image);
    EXPECT_TRUE(Consume(Gamma(image, 100, 100, 100)) == a);
    std::vector<BYTE> dark = Consume(Gamma(image, 10, 10, 10));
    EXPECT_TRUE(std::equal(a.begin(), a.begin() + 56, dark.begin())) << "header and table copied";
    EXPECT_EQ(dark[56 + 21], 0x77) << "padding copied";
    GlobalFree(image);
}

TEST(GammaCorrection, TopDownImagesAreCorrectedLikeBottomUp) {
    HGLOBAL image = paxtest::MakeRandomDib24(9, 4, 5);
    HGLOBAL topDown = BlockFrom(FlipStorage(BlockBytes(image)));
    EXPECT_TRUE(FlipStorage(Consume(Gamma(image, 30, 200, 470))) == Consume(Gamma(topDown, 30, 200, 470)));
    GlobalFree(image);
    GlobalFree(topDown);
}

TEST(GammaCorrectionChecks, CodesAndSilentFailures) {
    ThreadState *state = GetThreadState();
    auto run = [&](HGLOBAL img, int r, int g, int b) {
        state->convertError = 55;
        EXPECT_EQ(Gamma(img, r, g, b), nullptr);
        if (img) {
            EXPECT_EQ(paxtest::LockCount(img), 0);
        }
        return CceName(state->convertError);
    };
    auto bytesCase = [&](std::vector<BYTE> bytes) {
        HGLOBAL block = BlockFrom(bytes);
        std::string code = run(block, 100, 100, 100);
        EXPECT_TRUE(Consume(block) == bytes);
        return code;
    };
    EXPECT_EQ(run(nullptr, 100, 100, 100), CceName(CCE_BADARGUMENT));
    HGLOBAL image = paxtest::MakeRandomDib24(3, 3, 6);
    for (int bad : {9, 501, 0, -1, 1 << 30, INT_MIN, INT_MIN + 9, INT_MAX}) {
        EXPECT_EQ(run(image, bad, 100, 100), CceName(CCE_BADARGUMENT)) << bad;
        EXPECT_EQ(run(image, 100, bad, 100), CceName(CCE_BADARGUMENT)) << bad;
        EXPECT_EQ(run(image, 100, 100, bad), CceName(CCE_BADARGUMENT)) << bad;
    }
    std::vector<BYTE> good = Consume(image);
    auto fill = [](int x, int y, int k) { return static_cast<BYTE>(x + y + k); };
    for (int bits : {1, 8, 32})
        EXPECT_EQ(bytesCase(Consume(paxtest::MakeDib(3, 3, bits, fill))), CceName(CCE_NONE)) << bits;
    auto edit = [&](auto f) { return bytesCase(Edited(good, f)); };
    EXPECT_EQ(bytesCase(std::vector<BYTE>(good.begin(), good.end() - 1)), CceName(CCE_BADARGUMENT));
    EXPECT_EQ(bytesCase(std::vector<BYTE>(good.begin(), good.begin() + 30)), CceName(CCE_BADARGUMENT));
    EXPECT_EQ(edit([](BITMAPINFOHEADER *h) { h->biClrUsed = 0xFFFFFFFFu; }), CceName(CCE_BADARGUMENT));
    EXPECT_EQ(edit([](BITMAPINFOHEADER *h) { h->biSize = 12; }), CceName(CCE_BADARGUMENT));
    EXPECT_EQ(edit([](BITMAPINFOHEADER *h) { h->biWidth = -3; }), CceName(CCE_BADARGUMENT));
    EXPECT_EQ(edit([](BITMAPINFOHEADER *h) { h->biHeight = -400; }), CceName(CCE_BADARGUMENT));
}

TEST(GammaCorrectionFailures, Sweep) {
    HGLOBAL image = paxtest::MakeRandomDib24(6, 5, 8);
    auto counts = paxtest::SweepFailures([&]() -> HGLOBAL { return Gamma(image, 40, 100, 300); }, {image});
    if (paxtest::HaveCensus()) {
        EXPECT_EQ(counts.allocationPoints, 1);
        EXPECT_EQ(counts.lockPoints, 2);
    }
#ifndef _WIN32
    struct {
        void (*arm)(long);
        long at;
        DWORD error;
    } faults[] = {{win32lite::FailAllocationAt, 1, CCE_NOMEMORY},
                  {win32lite::FailLockAt, 1, CCE_NONE},
                  {win32lite::FailLockAt, 2, CCE_NONE}};
    for (auto f : faults) {
        win32lite::ResetFaults();
        f.arm(f.at);
        EXPECT_EQ(Gamma(image, 40, 100, 300), nullptr);
        win32lite::ResetFaults();
        EXPECT_EQ(Error(), CceName(f.error));
    }
#endif
    GlobalFree(image);
}

} // namespace
