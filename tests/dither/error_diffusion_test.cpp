// Error diffusion examples, then for every error-diffusion and block method:
// check order and codes, properties and failure sweeps. The bytes of seeded
// images are pinned in dither_digest_test.cpp.
#include "dib.h"
#include "dither_test_util.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

using namespace dithertest;
using paxtest::ImsName;
using paxtest::MakeDib;
using paxtest::Rgb;

namespace {

// The six error-diffusion methods and the two block dithers.
struct Method {
    std::string name;
    DitherFn dither;
    std::vector<int> depths; // result depths offered
    DWORD nullCode, lockCode;
};
const std::vector<Method> kMethods = {
    {"FS4", DitherFS4, {1, 4, 8}, IMS_BADPARAM, IMS_LOCKFAILED},
    {"Burkes", DitherBurkes, {1, 4, 8}, IMS_BADPARAM, IMS_LOCKFAILED},
    {"Sierra", DitherSierra, {1, 4, 8}, IMS_BADPARAM, IMS_LOCKFAILED},
    {"JJN", DitherJJN, {1, 4, 8}, IMS_LOCKFAILED, IMS_NOMEMORY},
    {"Stucki", DitherStucki, {1, 4, 8}, IMS_LOCKFAILED, IMS_NOMEMORY},
    {"SA", DitherSA, {1, 4, 8}, IMS_LOCKFAILED, IMS_NOMEMORY},
    {"Sharp", DitherSharp, {1, 4}, IMS_LOCKFAILED, IMS_NOMEMORY},
    {"Smooth", DitherSmooth, {1, 4}, IMS_LOCKFAILED, IMS_NOMEMORY},
};
DitherFn Named(const std::string &name) {
    for (const Method &m : kMethods)
        if (m.name == name) return m.dither;
    return nullptr;
}

TEST(ErrorDiffusionExamples, Grey100ThreeByTwoUnderFS4) {
    HGLOBAL image = Grey24(3, 2, 100);
    std::vector<BYTE> out = Dither(DitherFS4, image, 1);
    // Header, black-and-white table, then row bytes 64 (0 1 0) and 32 (0 0 1):
    // the middle pixel of row 1 reaches exactly 128 and stays black.
    const DWORD header[10] = {40, 3, 2, 1 | (1u << 16), 0, 8, 3780, 3780, 2, 0};
    const BYTE table[8] = {0, 0, 0, 0, 255, 255, 255, 0};
    const BYTE rows[8] = {64, 0, 0, 0, 32, 0, 0, 0};
    ASSERT_EQ(out.size(), 40u + 8u + 8u);
    EXPECT_EQ(std::memcmp(out.data(), header, 40), 0);
    EXPECT_EQ(std::memcmp(out.data() + 40, table, 8), 0);
    EXPECT_EQ(std::memcmp(out.data() + 48, rows, 8), 0);
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
        std::vector<BYTE> out = Dither(Named(name), image, 1);
        ASSERT_FALSE(out.empty()) << name;
        for (int r = 0; r < 4; ++r)
            for (int x = 0; x < 6; ++x) EXPECT_EQ(Bit(out, r, x), rows[r][x]) << name << " row " << r << " x " << x;
    }
    GlobalFree(image);
}

// Single pixels and short lines: {method, image, bits, stored row, x, expected pixel}.
TEST(ErrorDiffusionExamples, SmallImages) {
    struct Case {
        const char *what;
        DitherFn dither;
        HGLOBAL image;
        int bits, row, x, want;
    };
    auto colour = [](Rgb c) { return paxtest::MakeDib24(1, 1, [c](int, int) { return c; }); };
    const std::vector<Case> cases = {
        {"white to 1 bit", DitherFS4, Grey24(1, 1, 255), 1, 0, 0, 1},
        {"white to 8 bits", DitherFS4, Grey24(1, 1, 255), 8, 0, 0, 255},
        {"levels 3, 4, 3", DitherFS4, colour(Rgb{100, 150, 200}), 8, 0, 0, 3 * 32 + 4 * 4 + 3},
        {"128 is black", DitherFS4, Grey24(1, 1, 128), 1, 0, 0, 0},
        {"129 is white", DitherFS4, Grey24(1, 1, 129), 1, 0, 0, 1},
        // Blue 255 leaves 63; below, 255 + 63 * 5 / 16 = 274 clamps to level 3.
        {"blue clamps", DitherFS4, paxtest::MakeDib24(1, 2, [](int, int) { return Rgb{0, 0, 255}; }), 8, 1, 0, 3},
        // Sierra, e = -3: (-6) / 4 = -1 to the right (a shift gives -2): 129.
        {"right share truncates", DitherSierra, GreyLine({252, 130}, false), 1, 0, 1, 1},
        // (-3) / 4 = 0 below (a shift gives -1): 129 stays white.
        {"lower share truncates", DitherSierra, GreyLine({252, 129}, true), 1, 1, 0, 1},
        // Stucki, e = 5: (5 * 8) / 42 = 0, so 128 stays black.
        {"Stucki small error", DitherStucki, GreyLine({5, 128}, false), 1, 0, 1, 0},
        // SA, e = 6: (6 * 32) / 200 = 0 two columns on.
        {"SA small error", DitherSA, GreyLine({6, 0, 128}, false), 1, 0, 2, 0},
        // SA in one column: 26/200 of 100 (13) two rows down, nothing one or
        // three rows down, where exactly 128 stays black.
        {"SA one below", DitherSA, GreyLine({100, 128}, true), 1, 1, 0, 0},
        {"SA two below, 115", DitherSA, GreyLine({100, 0, 115}, true), 1, 2, 0, 0},
        {"SA two below, 116", DitherSA, GreyLine({100, 0, 116}, true), 1, 2, 0, 1},
        {"SA three below", DitherSA, GreyLine({100, 0, 0, 128}, true), 1, 3, 0, 0},
    };
    for (const Case &c : cases) {
        std::vector<BYTE> out = Dither(c.dither, c.image, c.bits);
        ASSERT_FALSE(out.empty()) << c.what;
        EXPECT_EQ(Pixel(out, c.row, c.x), c.want) << c.what;
        GlobalFree(c.image);
    }
    // Entry 255 of the 3-3-2 table: blue 255, green 252, red 252.
    HGLOBAL white = Grey24(1, 1, 255);
    std::vector<BYTE> eight = Dither(DitherFS4, white, 8);
    const BYTE entry255[4] = {255, 252, 252, 0};
    EXPECT_EQ(std::memcmp(eight.data() + 40 + 4 * 255, entry255, 4), 0);
    GlobalFree(white);
}

// In a one-column image only the taps straight down land: the share of an
// error of 100 passed one row down is 5/16, 8/32, 1/4, 7/48, 8/42 or nothing.
TEST(ErrorDiffusionExamples, OneColumnPassesOnlyTheTapsBelow) {
    const std::vector<std::pair<std::string, int>> below = {
        {"FS4", 100 * 5 / 16}, {"Burkes", 100 * 8 / 32}, {"Sierra", 100 / 4},
        {"JJN", 100 * 7 / 48}, {"Stucki", 100 * 8 / 42}, {"SA", 0}};
    for (const auto &[name, share] : below)
        for (int g : {129 - share, 128 - share}) {
            HGLOBAL image = GreyLine({100, g}, true);
            std::vector<BYTE> out = Dither(Named(name), image, 1);
            ASSERT_FALSE(out.empty());
            EXPECT_EQ(Bit(out, 0, 0), 0) << name;
            EXPECT_EQ(Bit(out, 1, 0), g + share > 128 ? 1 : 0) << name << " second row grey " << g;
            GlobalFree(image);
        }
}

// The check order and codes of each method; the caller's image and the
// conversion error are left alone.
TEST(DitherChecks, OrderAndCodesOfEveryMethod) {
    HGLOBAL rgb = paxtest::MakeRandomDib24(5, 3, 11);
    HGLOBAL img8 = MakeDib(7, 3, 8, [](int x, int y, int) { return static_cast<BYTE>(x * 30 + y); });
    HGLOBAL img4 = MakeDib(7, 3, 4, [](int x, int y, int) { return static_cast<BYTE>(x + y); });
    HGLOBAL mono = MakeDib(5, 3, 1, [](int x, int, int) { return static_cast<BYTE>(x & 1); });
    HGLOBAL deep16 = MakeDib(5, 3, 16, [](int, int, int) { return BYTE{7}; });
    HGLOBAL deep32 = MakeDib(5, 3, 32, [](int, int, int) { return BYTE{7}; });
    HGLOBAL unlockable = GlobalAlloc(GMEM_MOVEABLE, 0);
    HGLOBAL empty = Grey24(0, 3, 9);
    std::vector<BYTE> before = paxtest::BlockBytes(rgb);
    GetThreadState()->convertError = CCE_BADMODEL;
    for (const Method &m : kMethods) {
        SCOPED_TRACE(m.name);
        const int top = m.depths.back();
        // Bad depths (8 too for the block dithers, even for a 24-bit image)
        // fail before the handle is looked at.
        for (int bits : {2, 0, -1, 3, 8, 16, 24}) {
            if (bits == top) continue;
            ExpectFailure(m.dither, rgb, bits, IMS_BADPARAM);
            ExpectFailure(m.dither, nullptr, bits, IMS_BADPARAM);
        }
        ExpectFailure(m.dither, nullptr, 1, m.nullCode);
        ExpectFailure(m.dither, unlockable, 1, m.lockCode);
        ExpectFailure(m.dither, mono, 1, IMS_BADBITS);
        ExpectFailure(m.dither, img4, 4, IMS_BADBITS);
        if (top == 8) ExpectFailure(m.dither, img8, 8, IMS_BADBITS);
        ExpectFailure(m.dither, deep16, top, IMS_BADBITS);
        ExpectFailure(m.dither, deep32, top, IMS_BADBITS);
        ExpectFailure(m.dither, empty, 1, IMS_NOMEMORY);
        for (auto [image, bits] : std::vector<std::pair<HGLOBAL, int>>{{img4, 1}, {img8, 4}, {rgb, top}}) {
            SetStatus(99);
            EXPECT_FALSE(Dither(m.dither, image, bits).empty());
            EXPECT_EQ(ImsName(Status()), "IMS_OK");
        }
    }
    EXPECT_TRUE(paxtest::BlockBytes(rgb) == before);
    EXPECT_EQ(GetLastColorConvertError(), static_cast<DWORD>(CCE_BADMODEL)); // untouched
    GetThreadState()->convertError = 0;
    for (HGLOBAL h : {rgb, img8, img4, mono, deep16, deep32, unlockable, empty}) GlobalFree(h);
}

// Headers that do not match their blocks never make a dither read outside.
TEST(ErrorDiffusionChecks, MalformedHeaders) {
    const struct {
        const char *what;
        size_t size;
        BITMAPINFOHEADER header;
        DWORD code;
    } cases[] = {
        {"block smaller than a header", 20, Header(4, 2, 24), IMS_BADPARAM},
        {"rows beyond the block", 40 + 12 * 2, Header(4, 100, 24), IMS_BADPARAM},
        {"top-down rows beyond the block", 40 + 12 * 2, Header(4, -3, 24), IMS_BADPARAM},
        {"full table missing", 40 + 8, Header(4, 2, 8), IMS_BADPARAM},
        {"table larger than the block", 40 + 64, Header(4, 2, 8, 0x40000000u), IMS_BADPARAM},
        {"table count near 2^32", 40 + 64, Header(4, 2, 8, 0xFFFFFFFFu), IMS_BADPARAM},
        {"header size 12", 40 + 24, Header(4, 2, 24, 0, 12), IMS_BADPARAM},
        {"negative width", 40 + 24, Header(-4, 2, 24), IMS_BADPARAM},
        {"width 0", 40, Header(0, 5, 24), IMS_NOMEMORY},
        {"height 0", 40, Header(5, 0, 24), IMS_NOMEMORY},
        {"huge width", 40 + 64, Header(0x7FFFFFFF, 1, 24), IMS_BADPARAM},
        {"huge width and height", 40 + 64, Header(0x7FFFFFFF, 0x7FFFFFFF, 24), IMS_BADPARAM},
        {"huge top-down height", 40 + 64, Header(0x7FFFFFFF, -0x7FFFFFFF - 1, 24), IMS_BADPARAM},
    };
    for (const auto &c : cases) {
        HGLOBAL block = RawBlock(c.size, c.header);
        for (const Method &m : kMethods) ExpectFailure(m.dither, block, 1, c.code, c.what + (", " + m.name));
        GlobalFree(block);
    }
}

TEST(DitherProperties, FlatImagesEvenIndicesAndPadding) {
    for (const Method &m : kMethods) CheckProperties(m.name, m.dither, m.depths, 2024);
}

// Injected allocation and lock failures, the caller's lock included.
TEST(DitherFailures, SweepEveryMethodAndDepth) {
    HGLOBAL image = paxtest::MakeRandomDib24(13, 4, 8);
    for (const Method &m : kMethods)
        for (int bits : m.depths) {
            SCOPED_TRACE(m.name + " bits " + std::to_string(bits));
            SweepDither(m.dither, image, bits, m.lockCode);
        }
    GlobalFree(image);
}

} // namespace
