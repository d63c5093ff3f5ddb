// ColorBrightnessContrast: the tone table, palette and 24-bit images, the
// result's size rule, the checks and their codes, and failure sweeps.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"
#include "tone_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using namespace tonetest;
using paxtest::BlockBytes;
using paxtest::ImsName;

HDIB Adjust(HGLOBAL image, int b, int c) {
    return ColorBrightnessContrast(image, static_cast<short>(b), static_cast<short>(c), 0);
}

std::string Status() { return ImsName(GetThreadState()->imageStatus); }

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

// The library's tone table: a row holding every byte value, adjusted.
std::vector<int> ToneTable(int brightness, int contrast) {
    static HGLOBAL every = paxtest::MakeDib(256, 1, 24, [](int x, int, int) { return BYTE(x); });
    std::vector<BYTE> out = Consume(Adjust(every, brightness, contrast));
    std::vector<int> t(256);
    for (int i = 0; i < 256; ++i) t[i] = out.size() > 40u + 3 * i ? out[40 + 3 * i] : -1;
    return t;
}

// Every pair: the digest of all 201 x 201 tables, the same on the fast and
// the straightforward path (the test runs both ways), pinned beside the
// worked examples below. Sampled pairs on rows with marked padding (the
// result's padding must be zero) follow their table.
TEST(BrightnessContrast, EveryPairOnA24BitImageFollowsTheTable) {
    uint64_t digest = 14695981039346656037ull;
    for (int b = -100; b <= 100; ++b)
        for (int c = -100; c <= 100; ++c)
            for (int v : ToneTable(b, c)) digest = (digest ^ static_cast<uint64_t>(v & 0xFF)) * 1099511628211ull;
    EXPECT_EQ(digest, 0xbe59be977a599800ull);
    HGLOBAL image = paxtest::MakeDib(86, 3, 24, [](int x, int y, int k) {
        return static_cast<BYTE>(3 * x + k + y);
    }, -1, 0xEE);
    std::vector<BYTE> src = BlockBytes(image);
    for (auto [b, c] : std::vector<std::pair<int, int>>{{0, 0}, {-50, 0}, {-3, -100}, {37, 59}, {100, 100}}) {
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        HDIB r = Adjust(image, b, c);
        ASSERT_NE(r, nullptr) << b << " " << c;
        EXPECT_EQ(Status(), ImsName(IMS_OK));
        EXPECT_EQ(paxtest::LockCount(r), 0);
        ASSERT_TRUE(Consume(r) == Expected24(src, ToneTable(b, c))) << b << " " << c;
        paxtest::ExpectCensus(before, 0, "adjust");
    }
    EXPECT_TRUE(BlockBytes(image) == src);
    GlobalFree(image);
}

TEST(BrightnessContrastExamples, TheTableAtItsCorners) {
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(ToneTable(0, 0)[i], i);
        for (int b : {57, -100, -3, 0, 88}) EXPECT_EQ(ToneTable(b, -100)[i], 128);
        EXPECT_EQ(ToneTable(100, 0)[i], std::min(i + 128, 255));
        EXPECT_EQ(ToneTable(0, 100)[i], Clamp(2 * i - 128, 0, 255));
    }
    EXPECT_EQ(ToneTable(-50, 0)[100], 36); // -50 shifts by -64
    EXPECT_EQ(ToneTable(0, 50)[200], 236); // 200 x 150 / 100 - 64
    EXPECT_EQ(ToneTable(10, -29)[77], 100); // (77 + 12) x 71 / 100 + 37 = 100.19
}

TEST(BrightnessContrastExamples, ZeroChangesNothingAndFillsTheSizeAndPaddingIsZero) {
    HGLOBAL image = paxtest::MakeRandomDib24(5, 3, 2);
    EditHeader(image, [](BITMAPINFOHEADER *h) { h->biSizeImage = 0; });
    std::vector<BYTE> out = Consume(Adjust(image, 0, 0));
    ASSERT_EQ(out.size(), 40u + 48u);
    EXPECT_EQ(Header(out)->biSizeImage, 48u);
    Header(out)->biSizeImage = 0;
    EXPECT_TRUE(out == BlockBytes(image));
    GlobalFree(image);
    HGLOBAL ten = paxtest::MakeDib(5, 2, 24, [](int, int, int) { return BYTE{10}; }, -1, 0xAB);
    out = Consume(Adjust(ten, 100, 0));
    for (int row = 0; row < 2; ++row) {
        EXPECT_EQ(out[40 + row * 16 + 14], 138);
        EXPECT_EQ(out[40 + row * 16 + 15], 0);
    }
    GlobalFree(ten);
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
                const BYTE entry[4] = {static_cast<BYTE>(e * 3), static_cast<BYTE>(255 - e),
                                       static_cast<BYTE>(e * 7 + 1), static_cast<BYTE>(0xC0 + e % 7)};
                std::memcpy(p + 40 + 4 * e, entry, 4);
            }
            GlobalUnlock(image);
            std::vector<BYTE> src = BlockBytes(image);
            std::vector<BYTE> out = Consume(Adjust(image, 37, -41));
            ASSERT_EQ(out.size(), src.size());
            std::vector<int> t = ToneTable(37, -41);
            for (size_t i = 0; i < src.size(); ++i) {
                bool inTable = i >= 40 && i < 40 + 4u * count;
                int expected = inTable && (i - 40) % 4 != 3 ? t[src[i]] : src[i];
                ASSERT_EQ(out[i], expected) << "byte " << i << " bits " << bits;
            }
            GlobalFree(image);
        }
}

TEST(BrightnessContrast, TopDownImagesAreAdjustedLikeBottomUp) {
    HGLOBAL image = paxtest::MakeRandomDib24(6, 5, 9);
    HGLOBAL topDown = BlockFrom(FlipStorage(BlockBytes(image)));
    std::vector<BYTE> down = Consume(Adjust(topDown, 20, 30));
    EXPECT_TRUE(FlipStorage(Consume(Adjust(image, 20, 30))) == down);
    EXPECT_EQ(Header(down)->biHeight, -5);
    GlobalFree(image);
    GlobalFree(topDown);
}

TEST(BrightnessContrastChecks, EveryCheckStoresItsCode) {
    ThreadState *state = GetThreadState();
    auto fill = [](int x, int y, int k) { return static_cast<BYTE>(x * y + k); };
    auto made = [&](int bits, DWORD compression = 0) {
        return Consume(paxtest::MakeDib(4, 4, bits, fill, -1, 0, compression));
    };
    const std::vector<BYTE> rgb = made(24);
    const std::vector<BYTE> good = Consume(paxtest::MakeDib(6, 3, 8, [](int x, int, int) {
        return static_cast<BYTE>(x);
    }));
    auto edit = [](const std::vector<BYTE> &bytes, auto f) { return Edited(bytes, f); };
    struct Case {
        const char *what;
        std::vector<BYTE> bytes;
        int b, c;
        DWORD status;
    } cases[] = {
        {"brightness 101", rgb, 101, 0, IMS_BADPARAM},
        {"brightness -101", rgb, -101, 0, IMS_BADPARAM},
        {"contrast 101", rgb, 0, 101, IMS_BADPARAM},
        {"contrast -101", rgb, 0, -101, IMS_BADPARAM},
        {"brightness -32768", rgb, -32768, 0, IMS_BADPARAM},
        {"contrast 32767", rgb, 0, 32767, IMS_BADPARAM},
        {"1 bit", made(1), 10, 10, IMS_BADDEPTH},
        {"16 bits", made(16), 10, 10, IMS_BADDEPTH},
        {"32 bits", made(32), 10, 10, IMS_BADDEPTH},
        {"compressed", made(24, 1), 10, 10, IMS_COMPRESSED},
        {"1 bit compressed", made(1, 1), 10, 10, IMS_COMPRESSED},
        {"header 108", edit(rgb, [](BITMAPINFOHEADER *h) { h->biSize = 108; }), 10, 10, IMS_BADPARAM},
        {"width 0", edit(rgb, [](BITMAPINFOHEADER *h) { h->biWidth = 0; }), 10, 10, IMS_EMPTYIMAGE},
        {"height 0", edit(rgb, [](BITMAPINFOHEADER *h) { h->biHeight = 0; }), 10, 10, IMS_EMPTYIMAGE},
        {"one byte short", std::vector<BYTE>(good.begin(), good.end() - 1), 5, 5, IMS_BADPARAM},
        {"20 bytes", std::vector<BYTE>(good.begin(), good.begin() + 20), 5, 5, IMS_BADPARAM},
        {"table", edit(good, [](BITMAPINFOHEADER *h) { h->biClrUsed = 0x80000000u; }), 5, 5, IMS_BADPARAM},
        {"size past", edit(good, [](BITMAPINFOHEADER *h) { h->biSizeImage = 0xFFFFFFF0u; }), 5, 5, IMS_BADPARAM},
        {"size below", edit(good, [](BITMAPINFOHEADER *h) { h->biSizeImage = 8; }), 5, 5, IMS_BADPARAM},
        {"negative width", edit(good, [](BITMAPINFOHEADER *h) { h->biWidth = -6; }), 5, 5, IMS_BADPARAM},
        {"tall", edit(good, [](BITMAPINFOHEADER *h) { h->biHeight = 0x7FFFFFFF; }), 5, 5, IMS_BADPARAM},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        HGLOBAL block = BlockFrom(c.bytes);
        state->convertError = 66;
        EXPECT_EQ(Adjust(block, c.b, c.c), nullptr);
        EXPECT_EQ(Status(), ImsName(c.status));
        EXPECT_EQ(state->convertError, 66u);
        EXPECT_EQ(paxtest::LockCount(block), 0);
        EXPECT_TRUE(Consume(block) == c.bytes);
    }
    EXPECT_EQ(Adjust(nullptr, 10, 10), nullptr);
    EXPECT_EQ(Status(), ImsName(IMS_BADPARAM));
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
        EXPECT_EQ(Status(), ImsName(IMS_LOCKFAILED));
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
