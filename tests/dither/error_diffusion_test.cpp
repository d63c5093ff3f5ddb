// Error diffusion: the worked examples, the check order and codes of every
// method, properties over random images, and a seeded comparison with the
// straightforward evaluation in dither_reference.cpp.
#include "census.h"
#include "dib_builder.h"
#include "dither_reference.h"
#include "dither_test_util.h"
#include "dib.h"

#include <gtest/gtest.h>

#include <cstring>

using dithertest::Bit;
using dithertest::Dither;
using dithertest::Grey24;
using dithertest::PixelBytes;
using dithertest::RawBlock;
using dithertest::SetStatus;
using dithertest::Status;
using paxtest::BlockBytes;
using paxtest::ImsName;
using paxtest::MakeDib;
using paxtest::MakeDib24;
using paxtest::Rgb;

namespace {

const ref::Kernel &KernelNamed(const std::string &name) {
    for (const ref::Kernel &k : ref::Kernels())
        if (k.name == name) return k;
    throw std::runtime_error("no kernel " + name);
}

TEST(ErrorDiffusionExamples, Grey100ThreeByTwoUnderFS4) {
    HGLOBAL image = Grey24(3, 2, 100);
    std::vector<BYTE> out = Dither(DitherFS4, image, 1);
    ASSERT_EQ(out.size(), 40u + 8u + 4u * 2u);
    // Row bytes 64 (0 1 0) and 32 (0 0 1); the middle pixel of row 1 reaches
    // exactly 128 and stays black.
    EXPECT_EQ(out[48], 64);
    EXPECT_EQ(out[52], 32);
    for (int i : {49, 50, 51, 53, 54, 55}) EXPECT_EQ(out[i], 0) << "padding byte " << i;
    BITMAPINFOHEADER h;
    std::memcpy(&h, out.data(), 40);
    EXPECT_EQ(h.biSize, 40u);
    EXPECT_EQ(h.biWidth, 3);
    EXPECT_EQ(h.biHeight, 2);
    EXPECT_EQ(h.biPlanes, 1);
    EXPECT_EQ(h.biBitCount, 1);
    EXPECT_EQ(h.biCompression, 0u);
    EXPECT_EQ(h.biSizeImage, 8u);
    EXPECT_EQ(h.biXPelsPerMeter, 3780);
    EXPECT_EQ(h.biYPelsPerMeter, 3780);
    EXPECT_EQ(h.biClrUsed, 2u);
    EXPECT_EQ(h.biClrImportant, 0u);
    const BYTE table[8] = {0, 0, 0, 0, 255, 255, 255, 0};
    EXPECT_EQ(std::memcmp(out.data() + 40, table, 8), 0);
    GlobalFree(image);
}

TEST(ErrorDiffusionExamples, Grey100SixByFourUnderEveryKernel) {
    const std::vector<std::pair<std::string, std::vector<std::vector<int>>>> expected = {
        {"FS4", {{0, 1, 0, 0, 1, 0}, {0, 0, 1, 0, 0, 1}, {1, 0, 1, 0, 1, 0}, {0, 1, 0, 0, 1, 0}}},
        {"Burkes", {{0, 0, 1, 0, 0, 1}, {0, 1, 0, 0, 1, 0}, {1, 0, 0, 1, 0, 1}, {0, 0, 1, 0, 1, 0}}},
        {"Sierra", {{0, 1, 0, 0, 1, 0}, {0, 1, 0, 1, 0, 1}, {0, 1, 0, 0, 0, 1}, {0, 0, 1, 0, 1, 0}}},
        {"JJN", {{0, 0, 0, 1, 0, 0}, {1, 0, 1, 0, 0, 1}, {0, 1, 0, 0, 1, 0}, {0, 0, 1, 0, 1, 0}}},
        {"Stucki", {{0, 0, 1, 0, 0, 0}, {0, 1, 0, 1, 0, 1}, {1, 0, 0, 0, 1, 0}, {0, 1, 0, 1, 0, 0}}},
        {"SA", {{0, 0, 0, 0, 0, 0}, {0, 1, 1, 0, 0, 1}, {0, 1, 1, 0, 0, 1}, {0, 0, 0, 1, 1, 0}}},
    };
    HGLOBAL image = Grey24(6, 4, 100);
    for (const auto &[name, rows] : expected) {
        SCOPED_TRACE(name);
        std::vector<BYTE> out = Dither(KernelNamed(name).dither, image, 1);
        ASSERT_FALSE(out.empty());
        for (int r = 0; r < 4; ++r)
            for (int x = 0; x < 6; ++x) EXPECT_EQ(Bit(out, r, x), rows[r][x]) << "row " << r << " x " << x;
    }
    GlobalFree(image);
}

TEST(ErrorDiffusionExamples, SinglePixels) {
    HGLOBAL white = Grey24(1, 1, 255);
    std::vector<BYTE> one = Dither(DitherFS4, white, 1);
    ASSERT_FALSE(one.empty());
    EXPECT_EQ(one[48], 0x80);
    std::vector<BYTE> eight = Dither(DitherFS4, white, 8);
    ASSERT_EQ(eight.size(), 40u + 1024u + 4u);
    EXPECT_EQ(eight[40 + 1024], 255);
    // Entry 255: blue 255, green 252, red 252.
    const BYTE entry255[4] = {255, 252, 252, 0};
    EXPECT_EQ(std::memcmp(eight.data() + 40 + 4 * 255, entry255, 4), 0);
    GlobalFree(white);

    HGLOBAL colour = MakeDib24(1, 1, [](int, int) { return Rgb{100, 150, 200}; });
    std::vector<BYTE> c8 = Dither(DitherFS4, colour, 8);
    ASSERT_FALSE(c8.empty());
    EXPECT_EQ(c8[40 + 1024], 3 * 32 + 4 * 4 + 3); // levels 3, 4, 3
    GlobalFree(colour);

    // The threshold is strictly above 128.
    for (int g : {128, 129}) {
        HGLOBAL grey = Grey24(1, 1, static_cast<BYTE>(g));
        std::vector<BYTE> out = Dither(DitherFS4, grey, 1);
        ASSERT_FALSE(out.empty());
        EXPECT_EQ(Bit(out, 0, 0), g == 128 ? 0 : 1) << "grey " << g;
        GlobalFree(grey);
    }
}

TEST(ErrorDiffusionExamples, DepthsAndResultSizes) {
    HGLOBAL img8 = MakeDib(7, 3, 8, [](int x, int y, int) { return static_cast<BYTE>(x * 30 + y); });
    HGLOBAL img4 = MakeDib(7, 3, 4, [](int x, int y, int) { return static_cast<BYTE>(x + y); });
    HGLOBAL img24 = paxtest::MakeRandomDib24(7, 3, 5);
    SetStatus(99);
    EXPECT_TRUE(Dither(DitherFS4, img8, 8).empty());
    EXPECT_EQ(ImsName(Status()), "IMS_BADBITS");
    EXPECT_TRUE(Dither(DitherFS4, img4, 4).empty());
    EXPECT_EQ(ImsName(Status()), "IMS_BADBITS");
    for (auto [image, bits] : std::vector<std::pair<HGLOBAL, int>>{
             {img4, 1}, {img8, 1}, {img8, 4}, {img24, 1}, {img24, 4}, {img24, 8}}) {
        SetStatus(99);
        std::vector<BYTE> out = Dither(DitherFS4, image, bits);
        EXPECT_EQ(ImsName(Status()), "IMS_OK");
        const size_t s = ((7 * bits + 31) / 32) * 4;
        ASSERT_EQ(out.size(), 40 + 4 * (size_t{1} << bits) + s * 3) << "bits " << bits;
        ref::Source src = ref::Decode(image);
        std::vector<BYTE> head = ref::ResultHeaderAndTable(src, bits);
        EXPECT_TRUE(std::equal(head.begin(), head.end(), out.begin())) << "header and table, bits " << bits;
    }
    GlobalFree(img8);
    GlobalFree(img4);
    GlobalFree(img24);
}

// In a one-column image only the taps straight down land.
TEST(ErrorDiffusionExamples, OneColumnPassesOnlyTheTapsBelow) {
    // Share of an error of 100 passed one row down: 5/16, 8/32, 1/4, 7/48,
    // 8/42 and nothing.
    const std::vector<std::pair<std::string, int>> below = {
        {"FS4", 100 * 5 / 16}, {"Burkes", 100 * 8 / 32}, {"Sierra", 100 / 4},
        {"JJN", 100 * 7 / 48}, {"Stucki", 100 * 8 / 42}, {"SA", 0}};
    for (const auto &[name, share] : below) {
        for (int g : {129 - share, 128 - share}) {
            HGLOBAL image = MakeDib24(1, 2, [&](int, int y) {
                BYTE v = static_cast<BYTE>(y == 1 ? 100 : g); // y = 1 is stored row 0
                return Rgb{v, v, v};
            });
            std::vector<BYTE> out = Dither(KernelNamed(name).dither, image, 1);
            ASSERT_FALSE(out.empty());
            EXPECT_EQ(Bit(out, 0, 0), 0) << name;
            EXPECT_EQ(Bit(out, 1, 0), g + share > 128 ? 1 : 0) << name << " second row grey " << g;
            GlobalFree(image);
        }
    }
    // DitherSA gives 26/200 (13 of 100) to the row two below and nothing to
    // the rows one and three below: a cell of exactly 128 that receives
    // nothing stays black, any positive share would make it white.
    auto column = [](std::vector<int> stored) {
        return MakeDib24(1, static_cast<int>(stored.size()), [stored](int, int y) {
            BYTE v = static_cast<BYTE>(stored[stored.size() - 1 - y]);
            return Rgb{v, v, v};
        });
    };
    struct Case {
        std::vector<int> stored;
        int row, bit;
    };
    for (const Case &c : std::vector<Case>{{{100, 128}, 1, 0},
                                           {{100, 0, 115}, 2, 0},
                                           {{100, 0, 116}, 2, 1},
                                           {{100, 0, 0, 128}, 3, 0}}) {
        HGLOBAL image = column(c.stored);
        std::vector<BYTE> out = Dither(DitherSA, image, 1);
        ASSERT_FALSE(out.empty());
        EXPECT_EQ(Bit(out, c.row, 0), c.bit) << "row " << c.row;
        GlobalFree(image);
    }
}

TEST(ErrorDiffusionExamples, DivisionsTruncateTowardZero) {
    // Sierra, e = -3: (-6) / 4 = -1 to the right (a shift would give -2), so
    // 130 - 1 = 129 is white.
    HGLOBAL row = MakeDib24(2, 1, [](int x, int) {
        BYTE v = x == 0 ? 252 : 130;
        return Rgb{v, v, v};
    });
    std::vector<BYTE> out = Dither(DitherSierra, row, 1);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(Bit(out, 0, 0), 1);
    EXPECT_EQ(Bit(out, 0, 1), 1);
    GlobalFree(row);
    // (-3) / 4 = 0 below (a shift would give -1), so 129 stays white.
    HGLOBAL column = MakeDib24(1, 2, [](int, int y) {
        BYTE v = y == 1 ? 252 : 129;
        return Rgb{v, v, v};
    });
    out = Dither(DitherSierra, column, 1);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(Bit(out, 1, 0), 1);
    GlobalFree(column);
    // Small errors vanish: Stucki, e = 5 gives 0 even at weight 8, so 128
    // stays black; SA, e = 6 gives (6 * 32) / 200 = 0 two columns on.
    HGLOBAL stucki = MakeDib24(2, 1, [](int x, int) {
        BYTE v = x == 0 ? 5 : 128;
        return Rgb{v, v, v};
    });
    out = Dither(DitherStucki, stucki, 1);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[48], 0);
    GlobalFree(stucki);
    HGLOBAL sa = MakeDib24(3, 1, [](int x, int) {
        BYTE v = x == 0 ? 6 : x == 1 ? 0 : 128;
        return Rgb{v, v, v};
    });
    out = Dither(DitherSA, sa, 1);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[48], 0);
    GlobalFree(sa);
}

TEST(ErrorDiffusionExamples, BlueLevelClampsAtThree) {
    // Blue 255 leaves 63, so the pixel below reaches 255 + 63 * 5 / 16 = 274:
    // level 3, never a carry into the green bits.
    HGLOBAL image = MakeDib24(1, 2, [](int, int) { return Rgb{0, 0, 255}; });
    std::vector<BYTE> out = Dither(DitherFS4, image, 8);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[40 + 1024], 3);
    EXPECT_EQ(out[40 + 1024 + 4], 3);
    GlobalFree(image);
}

// The check order and codes of each method.
TEST(ErrorDiffusionChecks, OrderAndCodesOfEveryMethod) {
    HGLOBAL rgb = paxtest::MakeRandomDib24(5, 3, 11);
    HGLOBAL mono = MakeDib(5, 3, 1, [](int x, int, int) { return static_cast<BYTE>(x & 1); });
    HGLOBAL deep16 = MakeDib(5, 3, 16, [](int, int, int) { return BYTE{7}; });
    HGLOBAL deep32 = MakeDib(5, 3, 32, [](int, int, int) { return BYTE{7}; });
    HGLOBAL unlockable = GlobalAlloc(GMEM_MOVEABLE, 0);
    std::vector<BYTE> before = BlockBytes(rgb);
    GetThreadState()->convertError = CCE_BADMODEL;
    for (const ref::Kernel &k : ref::Kernels()) {
        SCOPED_TRACE(k.name);
        auto expect = [&](HGLOBAL image, int bits, DWORD code) {
            SetStatus(99);
            HDIB out = k.dither(image, bits);
            EXPECT_EQ(out, nullptr);
            if (out) GlobalFree(out);
            EXPECT_EQ(ImsName(Status()), ImsName(code)) << "bits " << bits;
        };
        for (int bits : {2, 0, -1, 3, 16, 24}) {
            expect(rgb, bits, IMS_BADPARAM);
            expect(nullptr, bits, IMS_BADPARAM); // before the handle is looked at
        }
        expect(nullptr, 1, k.nullImageStatus);
        expect(unlockable, 1, k.lockFailedStatus);
        expect(mono, 1, IMS_BADBITS);
        expect(deep16, 8, IMS_BADBITS);
        expect(deep32, 8, IMS_BADBITS);
        EXPECT_EQ(paxtest::LockCount(rgb), 0);
    }
    EXPECT_TRUE(BlockBytes(rgb) == before);
    EXPECT_EQ(GetLastColorConvertError(), static_cast<DWORD>(CCE_BADMODEL)); // untouched
    GetThreadState()->convertError = 0;
    for (HGLOBAL h : {rgb, mono, deep16, deep32, unlockable}) GlobalFree(h);
}

TEST(ErrorDiffusionChecks, MalformedHeaders) {
    auto header = [](LONG w, LONG h, WORD bits, DWORD clrUsed) {
        BITMAPINFOHEADER hd = {};
        hd.biSize = 40;
        hd.biWidth = w;
        hd.biHeight = h;
        hd.biPlanes = 1;
        hd.biBitCount = bits;
        hd.biClrUsed = clrUsed;
        return hd;
    };
    struct Case {
        const char *what;
        HGLOBAL block;
        DWORD code;
    };
    BITMAPINFOHEADER core = header(4, 2, 24, 0);
    core.biSize = 12;
    std::vector<Case> cases = {
        {"block smaller than a header", RawBlock(20, header(4, 2, 24, 0)), IMS_BADPARAM},
        {"rows beyond the block", RawBlock(40 + 12 * 2, header(4, 100, 24, 0)), IMS_BADPARAM},
        {"top-down rows beyond the block", RawBlock(40 + 12 * 2, header(4, -3, 24, 0)), IMS_BADPARAM},
        {"full table missing", RawBlock(40 + 8, header(4, 2, 8, 0)), IMS_BADPARAM},
        {"table larger than the block", RawBlock(40 + 64, header(4, 2, 8, 0x40000000u)), IMS_BADPARAM},
        {"table count near 2^32", RawBlock(40 + 64, header(4, 2, 8, 0xFFFFFFFFu)), IMS_BADPARAM},
        {"header size 12", RawBlock(40 + 24, core), IMS_BADPARAM},
        {"negative width", RawBlock(40 + 24, header(-4, 2, 24, 0)), IMS_BADPARAM},
        {"width 0", RawBlock(40, header(0, 5, 24, 0)), IMS_NOMEMORY},
        {"height 0", RawBlock(40, header(5, 0, 24, 0)), IMS_NOMEMORY},
        {"huge width", RawBlock(40 + 64, header(0x7FFFFFFF, 1, 24, 0)), IMS_BADPARAM},
        {"huge width and height", RawBlock(40 + 64, header(0x7FFFFFFF, 0x7FFFFFFF, 24, 0)), IMS_BADPARAM},
        {"huge top-down height", RawBlock(40 + 64, header(0x7FFFFFFF, -0x7FFFFFFF - 1, 24, 0)), IMS_BADPARAM},
    };
    for (const Case &c : cases) {
        for (const ref::Kernel &k : ref::Kernels()) {
            SetStatus(99);
            HDIB out = k.dither(c.block, 1);
            EXPECT_EQ(out, nullptr) << c.what;
            if (out) GlobalFree(out);
            EXPECT_EQ(ImsName(Status()), ImsName(c.code)) << c.what << ", " << k.name;
            EXPECT_EQ(paxtest::LockCount(c.block), 0) << c.what;
        }
        GlobalFree(c.block);
    }
}

// Properties that hold for every image.
TEST(ErrorDiffusionProperties, RandomImages) {
    paxtest::Rng rng(2024);
    for (int trial = 0; trial < 40; ++trial) {
        const int w = 1 + rng.Below(45), h = 1 + rng.Below(6);
        HGLOBAL image = paxtest::MakeRandomDib24(w, h, rng.Next());
        for (const ref::Kernel &k : ref::Kernels()) {
            std::vector<BYTE> four = PixelBytes(Dither(k.dither, image, 4));
            const size_t s4 = ((4 * w + 31) / 32) * 4;
            ASSERT_EQ(four.size(), s4 * h);
            for (int r = 0; r < h; ++r)
                for (int x = 0; x < w; ++x) {
                    BYTE b = four[r * s4 + x / 2];
                    int index = x % 2 ? b & 15 : b >> 4;
                    EXPECT_EQ(index % 2, 0) << k.name << " odd index at " << x << "," << r;
                }
            std::vector<BYTE> one = PixelBytes(Dither(k.dither, image, 1));
            const size_t s1 = ((w + 31) / 32) * 4;
            ASSERT_EQ(one.size(), s1 * h);
            for (int r = 0; r < h; ++r) {
                if (w % 8) {
                    EXPECT_EQ(one[r * s1 + w / 8] & (0xFF >> (w % 8)), 0) << k.name;
                }
                for (size_t i = (w + 7) / 8; i < s1; ++i) EXPECT_EQ(one[r * s1 + i], 0) << k.name;
            }
        }
        GlobalFree(image);
    }
}

TEST(ErrorDiffusionProperties, FlatWhiteAndBlackStayFlat) {
    for (const ref::Kernel &k : ref::Kernels()) {
        for (int w : {1, 7, 33}) {
            HGLOBAL white = Grey24(w, 9, 255), black = Grey24(w, 9, 0);
            std::vector<BYTE> w1 = PixelBytes(Dither(k.dither, white, 1));
            std::vector<BYTE> w4 = PixelBytes(Dither(k.dither, white, 4));
            std::vector<BYTE> b1 = PixelBytes(Dither(k.dither, black, 1));
            std::vector<BYTE> b4 = PixelBytes(Dither(k.dither, black, 4));
            std::vector<BYTE> b8 = PixelBytes(Dither(k.dither, black, 8));
            const int s1 = ((w + 31) / 32) * 4, s4 = ((4 * w + 31) / 32) * 4;
            for (int r = 0; r < 9; ++r)
                for (int x = 0; x < w; ++x) {
                    EXPECT_EQ((w1[r * s1 + x / 8] >> (7 - x % 8)) & 1, 1) << k.name;
                    BYTE b = w4[r * s4 + x / 2];
                    EXPECT_EQ(x % 2 ? b & 15 : b >> 4, 14) << k.name; // 8 + 4 + 2: white
                }
            for (BYTE b : b1) EXPECT_EQ(b, 0) << k.name;
            for (BYTE b : b4) EXPECT_EQ(b, 0) << k.name;
            for (BYTE b : b8) EXPECT_EQ(b, 0) << k.name;
            GlobalFree(white);
            GlobalFree(black);
        }
    }
}

// A seeded sweep of sizes, depths, palettes and methods against the
// straightforward evaluation.
TEST(ErrorDiffusionReference, SeededRandomCases) {
    paxtest::Rng rng(77);
    int compared = 0;
    for (int trial = 0; trial < 300; ++trial) {
        const int w = 1 + rng.Below(trial % 10 == 0 ? 300 : 40);
        const int h = 1 + rng.Below(12);
        const int depth = std::vector<int>{4, 8, 24}[rng.Below(3)];
        // Palette images sometimes carry a short table.
        int entries = -1;
        if (depth != 24 && rng.Below(3) == 0) entries = 1 + rng.Below(depth == 4 ? 15 : 255);
        paxtest::Rng pix(rng.Next());
        HGLOBAL image = MakeDib(w, h, depth, [&](int, int, int) { return pix.Byte(); }, entries);
        if (depth != 24) {
            // A random palette in place of the grey ramp.
            BYTE *p = static_cast<BYTE *>(GlobalLock(image));
            int n = entries < 0 ? 1 << depth : entries;
            for (int i = 0; i < 4 * n; ++i) p[40 + i] = pix.Byte();
            GlobalUnlock(image);
        }
        if (rng.Below(4) == 0) {
            // Top-down: the same stored rows, read in the same order.
            BYTE *p = static_cast<BYTE *>(GlobalLock(image));
            reinterpret_cast<BITMAPINFOHEADER *>(p)->biHeight = -h;
            GlobalUnlock(image);
        }
        ref::Source src = ref::Decode(image);
        for (const ref::Kernel &k : ref::Kernels())
            for (int bits : {1, 4, 8}) {
                if (bits >= depth) continue;
                std::vector<BYTE> got = Dither(k.dither, image, bits);
                std::vector<BYTE> want = ref::ErrorDiffusion(src, k, bits);
                ASSERT_TRUE(got == want) << k.name << " trial " << trial << " " << w << "x" << h
                                         << " depth " << depth << " bits " << bits;
                ++compared;
            }
        GlobalFree(image);
    }
    EXPECT_GT(compared, 2000);
}

// Columns are not limited to 16-bit counts.
TEST(ErrorDiffusionReference, WidthsBeyondSixteenBits) {
    HGLOBAL image = paxtest::MakeRandomDib24(40000, 2, 99);
    ref::Source src = ref::Decode(image);
    for (const ref::Kernel &k : ref::Kernels())
        for (int bits : {1, 4, 8})
            EXPECT_TRUE(Dither(k.dither, image, bits) == ref::ErrorDiffusion(src, k, bits))
                << k.name << " bits " << bits;
    GlobalFree(image);
}

TEST(ErrorDiffusionLayout, TopDownKeepsItsOrientation) {
    HGLOBAL up = paxtest::MakeRandomDib24(9, 5, 3);
    HGLOBAL down = DuplicateDIB(up);
    BYTE *p = static_cast<BYTE *>(GlobalLock(down));
    reinterpret_cast<BITMAPINFOHEADER *>(p)->biHeight = -5;
    GlobalUnlock(down);
    for (int bits : {1, 4, 8}) {
        std::vector<BYTE> a = Dither(DitherJJN, up, bits), b = Dither(DitherJJN, down, bits);
        ASSERT_FALSE(a.empty());
        ASSERT_FALSE(b.empty());
        BITMAPINFOHEADER ha, hb;
        std::memcpy(&ha, a.data(), 40);
        std::memcpy(&hb, b.data(), 40);
        EXPECT_EQ(ha.biHeight, 5);
        EXPECT_EQ(hb.biHeight, -5);
        EXPECT_EQ(hb.biSizeImage, ha.biSizeImage);
        EXPECT_TRUE(PixelBytes(a) == PixelBytes(b)) << "bits " << bits;
    }
    GlobalFree(up);
    GlobalFree(down);
}

TEST(ErrorDiffusionLayout, ShortColourTables) {
    // Two entries, black and white: index 1 is white, an index past the table
    // reads as black. The pixels start right after the two entries.
    HGLOBAL image = MakeDib(3, 1, 8, [](int x, int, int) { return BYTE(x == 0 ? 1 : x == 1 ? 0 : 200); }, 2);
    std::vector<BYTE> out = Dither(DitherFS4, image, 1);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(Bit(out, 0, 0), 1);
    EXPECT_EQ(Bit(out, 0, 1), 0);
    EXPECT_EQ(Bit(out, 0, 2), 0);
    GlobalFree(image);
    // A 4-bit image with a four-entry grey table.
    HGLOBAL four = MakeDib(4, 1, 4, [](int x, int, int) { return BYTE(x == 3 ? 3 : 0); }, 4);
    out = Dither(DitherFS4, four, 1);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[48], 0x10); // only the last pixel, entry 3 (255), is white
    GlobalFree(four);
}

// Injected allocation and lock failures leave nothing behind, and every
// failure after the checks leaves IMS_NOMEMORY.
TEST(ErrorDiffusionFailures, SweepEveryMethodAndDepth) {
    HGLOBAL image = paxtest::MakeRandomDib24(13, 4, 8);
    for (const ref::Kernel &k : ref::Kernels())
        for (int bits : {1, 4, 8}) {
            SCOPED_TRACE(k.name + " bits " + std::to_string(bits));
            std::vector<std::pair<bool, DWORD>> runs;
            paxtest::SweepCounts counts = paxtest::SweepFailures(
                [&]() -> HGLOBAL {
                    SetStatus(99);
                    HDIB out = k.dither(image, bits);
                    runs.push_back({out != nullptr, Status()});
                    return out;
                },
                {image});
            if (!paxtest::HaveCensus()) continue;
            ASSERT_EQ(runs.size(), size_t(1 + counts.allocationPoints + counts.lockPoints));
            EXPECT_EQ(counts.allocationPoints, 4); // three working blocks and the result
            EXPECT_TRUE(runs[0].first);
            EXPECT_EQ(ImsName(runs[0].second), "IMS_OK");
            for (size_t i = 1; i < runs.size(); ++i) {
                EXPECT_FALSE(runs[i].first) << "run " << i;
                // The first lock is the caller's image; every later one is a
                // block of the operation's own.
                DWORD want = i == size_t(1 + counts.allocationPoints) ? k.lockFailedStatus
                                                                      : DWORD{IMS_NOMEMORY};
                EXPECT_EQ(ImsName(runs[i].second), ImsName(want)) << "run " << i;
            }
        }
    GlobalFree(image);
}

} // namespace
