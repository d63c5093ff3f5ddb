// ColorBrightnessContrast: the tone table, palette and 24-bit images, the
// result's size rule, the checks and their codes, and failure sweeps.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"
#include "tone_support.h"

#include <gtest/gtest.h>

#include <algorithm>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using namespace tonetest;
using paxtest::BlockBytes;
using paxtest::ImsName;

// The tone table written out from the rule.
std::vector<int> ToneTable(int brightness, int contrast) {
    std::vector<int> t(256);
    for (int i = 0; i < 256; ++i) {
        int a = Clamp(i + brightness * 128 / 100, 0, 255);
        double v = a * (contrast + 100) / 100.0 - contrast * 128 / 100;
        t[i] = v <= 0.0 ? 0 : v >= 255.0 ? 255 : static_cast<int>(v);
    }
    return t;
}

HDIB Adjust(HGLOBAL image, int b, int c, DWORD *status = nullptr) {
    HDIB r = ColorBrightnessContrast(image, static_cast<short>(b), static_cast<short>(c), 0);
    if (status) *status = GetThreadState()->imageStatus;
    return r;
}

// The whole expected result of a 24-bit image: every component through T,
// padding zero, biSizeImage filled in.
std::vector<BYTE> Expected24(const std::vector<BYTE> &src, const std::vector<int> &t) {
    BITMAPINFOHEADER hd;
    std::memcpy(&hd, src.data(), sizeof hd);
    int64_t stride = Stride24(hd.biWidth), rows = hd.biHeight < 0 ? -hd.biHeight : hd.biHeight;
    int64_t size = hd.biSizeImage ? hd.biSizeImage : stride * rows;
    int64_t offset = 40 + 4 * static_cast<int64_t>(hd.biClrUsed);
    std::vector<BYTE> out(static_cast<size_t>(offset + size), 0);
    std::memcpy(out.data(), src.data(), static_cast<size_t>(offset));
    Header(out)->biSizeImage = static_cast<DWORD>(size);
    for (int64_t r = 0; r < rows; ++r)
        for (int64_t i = 0; i < 3 * hd.biWidth; ++i)
            out[offset + r * stride + i] = static_cast<BYTE>(t[src[offset + r * stride + i]]);
    return out;
}

TEST(BrightnessContrast, EveryPairOnA24BitImageFollowsTheTable) {
    HGLOBAL image = paxtest::MakeDib(86, 3, 24, [](int x, int y, int k) {
        return static_cast<BYTE>(3 * x + k + y); // every byte value in each row
    }, -1, 0xEE);
    std::vector<BYTE> src = BlockBytes(image);
    int checked = 0;
    for (int b = -100; b <= 100; b += 7)
        for (int c = -100; c <= 100; c += 9) {
            paxtest::Snapshot before = paxtest::TakeSnapshot();
            DWORD status = 99;
            HDIB r = Adjust(image, b, c, &status);
            ASSERT_NE(r, nullptr) << b << " " << c;
            EXPECT_EQ(status, static_cast<DWORD>(IMS_OK));
            ASSERT_TRUE(BlockBytes(r) == Expected24(src, ToneTable(b, c))) << b << " " << c;
            EXPECT_EQ(paxtest::LockCount(r), 0);
            GlobalFree(r);
            paxtest::ExpectCensus(before, 0, "adjust");
            ++checked;
        }
    EXPECT_TRUE(BlockBytes(image) == src);
    EXPECT_EQ(checked, 29 * 23);
    GlobalFree(image);
}

TEST(BrightnessContrastExamples, TheTableAtItsCorners) {
    std::vector<int> zero = ToneTable(0, 0), flat = ToneTable(57, -100), up = ToneTable(100, 0),
                     steep = ToneTable(0, 100);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(zero[i], i);
        EXPECT_EQ(flat[i], 128);
        EXPECT_EQ(up[i], std::min(i + 128, 255));
        EXPECT_EQ(steep[i], Clamp(2 * i - 128, 0, 255));
    }
    EXPECT_EQ(-50 * 128 / 100, -64);
}

TEST(BrightnessContrastExamples, ZeroChangesNothingAndFillsTheSize) {
    HGLOBAL image = paxtest::MakeRandomDib24(5, 3, 2);
    EditHeader(image, [](BITMAPINFOHEADER *h) { h->biSizeImage = 0; });
    std::vector<BYTE> src = BlockBytes(image);
    HDIB r = Adjust(image, 0, 0);
    ASSERT_NE(r, nullptr);
    std::vector<BYTE> out = BlockBytes(r);
    EXPECT_EQ(paxtest::HeaderOf(r).biSizeImage, 48u);
    Header(out)->biSizeImage = 0;
    EXPECT_TRUE(out == src);
    GlobalFree(r);
    GlobalFree(image);
}

TEST(BrightnessContrastExamples, ContrastMinus100MakesEverything128) {
    HGLOBAL image = paxtest::MakeRandomDib24(7, 4, 3);
    for (int b : {-100, -3, 0, 88}) {
        HDIB r = Adjust(image, b, -100);
        ASSERT_NE(r, nullptr);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 7; ++x) EXPECT_EQ(paxtest::Pixel24(r, x, y), (paxtest::Rgb{128, 128, 128}));
        GlobalFree(r);
    }
    GlobalFree(image);
}

TEST(BrightnessContrastExamples, PaddingOfTheResultIsZero) {
    HGLOBAL image = paxtest::MakeDib(5, 2, 24, [](int, int, int) { return BYTE{10}; }, -1, 0xAB);
    HDIB r = Adjust(image, 100, 0);
    ASSERT_NE(r, nullptr);
    std::vector<BYTE> out = BlockBytes(r);
    for (int row = 0; row < 2; ++row) {
        EXPECT_EQ(out[40 + row * 16 + 14], 138);
        EXPECT_EQ(out[40 + row * 16 + 15], 0);
    }
    GlobalFree(r);
    GlobalFree(image);
}

TEST(BrightnessContrast, PaletteImagesChangeTheirTableOnly) {
    for (int bits : {4, 8})
        for (int entries : {-1, 20}) {
            HGLOBAL image = paxtest::MakeDib(9, 5, bits, [](int x, int y, int) {
                return static_cast<BYTE>((x * 3 + y) % 16);
            }, entries);
            // A table with distinct components and a marked fourth byte.
            auto *p = static_cast<BYTE *>(GlobalLock(image));
            int count = entries < 0 ? 1 << bits : entries;
            for (int e = 0; e < count; ++e) {
                p[40 + 4 * e] = static_cast<BYTE>(e * 3);
                p[40 + 4 * e + 1] = static_cast<BYTE>(255 - e);
                p[40 + 4 * e + 2] = static_cast<BYTE>(e * 7 + 1);
                p[40 + 4 * e + 3] = static_cast<BYTE>(0xC0 + e % 7);
            }
            GlobalUnlock(image);
            std::vector<BYTE> src = BlockBytes(image);
            HDIB r = Adjust(image, 37, -41);
            ASSERT_NE(r, nullptr);
            std::vector<BYTE> out = BlockBytes(r);
            ASSERT_EQ(out.size(), src.size());
            std::vector<int> t = ToneTable(37, -41);
            for (size_t i = 0; i < src.size(); ++i) {
                bool inTable = i >= 40 && i < 40 + 4u * count;
                int expected = inTable && (i - 40) % 4 != 3 ? t[src[i]] : src[i];
                ASSERT_EQ(out[i], expected) << "byte " << i << " bits " << bits;
            }
            GlobalFree(r);
            GlobalFree(image);
        }
}

TEST(BrightnessContrast, TopDownImagesAreAdjustedLikeBottomUp) {
    HGLOBAL image = paxtest::MakeRandomDib24(6, 5, 9);
    std::vector<BYTE> flipped = FlipStorage(BlockBytes(image));
    HGLOBAL topDown = BlockFrom(flipped);
    HDIB up = Adjust(image, 20, 30), down = Adjust(topDown, 20, 30);
    ASSERT_NE(up, nullptr);
    ASSERT_NE(down, nullptr);
    EXPECT_TRUE(FlipStorage(BlockBytes(up)) == BlockBytes(down));
    EXPECT_EQ(paxtest::HeaderOf(down).biHeight, -5);
    for (HGLOBAL b : {image, topDown, up, down}) GlobalFree(b);
}

TEST(BrightnessContrastChecks, EveryCheckStoresItsCode) {
    ThreadState *state = GetThreadState();
    auto statusFor = [&](HGLOBAL image, int b = 10, int c = 10) {
        state->convertError = 66;
        HDIB r = Adjust(image, b, c);
        EXPECT_EQ(r, nullptr);
        EXPECT_EQ(state->convertError, 66u);
        if (image) {
            EXPECT_EQ(paxtest::LockCount(image), 0);
        }
        return ImsName(state->imageStatus);
    };
    auto fill = [](int x, int y, int k) { return static_cast<BYTE>(x * y + k); };
    EXPECT_EQ(statusFor(nullptr), ImsName(IMS_BADPARAM));
    HGLOBAL image = paxtest::MakeRandomDib24(4, 4, 1);
    EXPECT_EQ(statusFor(image, 101, 0), ImsName(IMS_BADPARAM));
    EXPECT_EQ(statusFor(image, -101, 0), ImsName(IMS_BADPARAM));
    EXPECT_EQ(statusFor(image, 0, 101), ImsName(IMS_BADPARAM));
    EXPECT_EQ(statusFor(image, 0, -101), ImsName(IMS_BADPARAM));
    EXPECT_EQ(statusFor(image, -32768, 0), ImsName(IMS_BADPARAM));
    EXPECT_EQ(statusFor(image, 0, 32767), ImsName(IMS_BADPARAM));
    GlobalFree(image);
    struct Case {
        const char *what;
        HGLOBAL image;
        DWORD status;
    } cases[] = {
        {"1 bit", paxtest::MakeDib(4, 4, 1, fill), IMS_BADDEPTH},
        {"16 bits", paxtest::MakeDib(4, 4, 16, fill), IMS_BADDEPTH},
        {"32 bits", paxtest::MakeDib(4, 4, 32, fill), IMS_BADDEPTH},
        {"compressed", paxtest::MakeDib(4, 4, 24, fill, -1, 0, 1), IMS_COMPRESSED},
        {"1 bit compressed", paxtest::MakeDib(4, 4, 1, fill, -1, 0, 1), IMS_COMPRESSED},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(statusFor(c.image), ImsName(c.status)) << c.what;
        GlobalFree(c.image);
    }
    HGLOBAL core = paxtest::MakeRandomDib24(4, 4, 1);
    EditHeader(core, [](BITMAPINFOHEADER *h) { h->biSize = 108; });
    EXPECT_EQ(statusFor(core), ImsName(IMS_BADPARAM));
    EditHeader(core, [](BITMAPINFOHEADER *h) { h->biSize = 40; h->biWidth = 0; });
    EXPECT_EQ(statusFor(core), ImsName(IMS_EMPTYIMAGE));
    EditHeader(core, [](BITMAPINFOHEADER *h) { h->biWidth = 4; h->biHeight = 0; });
    EXPECT_EQ(statusFor(core), ImsName(IMS_EMPTYIMAGE));
    GlobalFree(core);
}

TEST(BrightnessContrastChecks, HeadersClaimingMoreThanTheBlockAreRefused) {
    HGLOBAL model = paxtest::MakeDib(6, 3, 8, [](int x, int, int) { return static_cast<BYTE>(x); });
    std::vector<BYTE> good = BlockBytes(model);
    GlobalFree(model);
    auto statusFor = [&](std::vector<BYTE> bytes) {
        HGLOBAL block = BlockFrom(bytes);
        HDIB r = Adjust(block, 5, 5);
        EXPECT_EQ(r, nullptr);
        GlobalFree(block);
        return ImsName(GetThreadState()->imageStatus);
    };
    EXPECT_EQ(statusFor(std::vector<BYTE>(good.begin(), good.end() - 1)), ImsName(IMS_BADPARAM));
    EXPECT_EQ(statusFor(std::vector<BYTE>(good.begin(), good.begin() + 20)), ImsName(IMS_BADPARAM));
    std::vector<BYTE> table = good;
    Header(table)->biClrUsed = 0x80000000u;
    EXPECT_EQ(statusFor(table), ImsName(IMS_BADPARAM));
    std::vector<BYTE> size = good;
    Header(size)->biSizeImage = 0xFFFFFFF0u;
    EXPECT_EQ(statusFor(size), ImsName(IMS_BADPARAM));
    std::vector<BYTE> small = good;
    Header(small)->biSizeImage = 8;
    EXPECT_EQ(statusFor(small), ImsName(IMS_BADPARAM));
    std::vector<BYTE> wide = good;
    Header(wide)->biWidth = -6;
    EXPECT_EQ(statusFor(wide), ImsName(IMS_BADPARAM));
    std::vector<BYTE> tall = good;
    Header(tall)->biHeight = 0x7FFFFFFF;
    EXPECT_EQ(statusFor(tall), ImsName(IMS_BADPARAM));
}

TEST(BrightnessContrastFailures, Sweep) {
    HGLOBAL rgb = paxtest::MakeRandomDib24(5, 4, 7);
    HGLOBAL palette = paxtest::MakeDib(5, 4, 8, [](int x, int y, int) { return static_cast<BYTE>(x + y); });
    for (HGLOBAL image : {rgb, palette}) {
        auto counts = paxtest::SweepFailures([&]() -> HGLOBAL { return Adjust(image, 30, 40); }, {image});
        if (paxtest::HaveCensus()) {
            EXPECT_EQ(counts.allocationPoints, 1);
            EXPECT_EQ(counts.lockPoints, 2);
        }
    }
#ifndef _WIN32
    // The lock failures and their code.
    for (long n : {1L, 2L}) {
        win32lite::ResetFaults();
        win32lite::FailLockAt(n);
        EXPECT_EQ(Adjust(rgb, 1, 1), nullptr);
        win32lite::ResetFaults();
        EXPECT_EQ(ImsName(GetThreadState()->imageStatus), ImsName(IMS_LOCKFAILED));
    }
    // One failed allocation is retried.
    win32lite::FailAllocationAt(1);
    HDIB r = Adjust(rgb, 1, 1);
    win32lite::ResetFaults();
    EXPECT_NE(r, nullptr);
    GlobalFree(r);
#endif
    GlobalFree(rgb);
    GlobalFree(palette);
}

} // namespace
