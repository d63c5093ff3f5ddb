// Packed-DIB layout rules and the helpers that copy and make images.
#include "census.h"
#include "dib.h"
#include "dib_builder.h"
#include "layout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

using paxtest::BlockBytes;
using paxtest::HeaderOf;

namespace {

// Entries follow the depth unless biClrUsed names them; a 12-byte core
// header has 3-byte entries and no count (its depth is at offset 10).
TEST(ColorTable, SizeFollowsHeaderDepthAndClrUsed) {
    const struct { DWORD size; int bits; DWORD used; int64_t entries, bytes; } cases[] = {
        {40, 1, 0, 2, 8},    {40, 4, 0, 16, 64},   {40, 8, 0, 256, 1024},
        {40, 8, 20, 20, 80}, {40, 24, 0, 0, 0},    {40, 32, 0, 0, 0},
        {40, 16, 0, 0, 0},   {40, 24, 7, 7, 28},   {12, 8, 5, 256, 768},
        // Any count a header may claim has a size that compares with a block.
        {40, 24, 0x40000000u, 0x40000000, int64_t{1} << 32},
        {40, 24, 0x80000000u, 0x80000000, int64_t{1} << 33},
        {40, 24, 0xFFFFFFFFu, 0xFFFFFFFF, 4 * int64_t{0xFFFFFFFF}},
    };
    for (const auto &c : cases) {
        BITMAPINFOHEADER h = {c.size, 0, 0, 1, static_cast<WORD>(c.bits), 0, 0, 0, 0, c.used, 0};
        auto *core = reinterpret_cast<BITMAPCOREHEADER *>(&h);
        if (c.size == 12) {
            core->bcBitCount = static_cast<WORD>(c.bits);
            h.biBitCount = 0;
        }
        EXPECT_EQ(ColorTableEntries(&h), c.entries) << c.size << ", " << c.bits << " bits, used " << c.used;
        EXPECT_EQ(ColorTableSize(&h), c.bytes);
    }
}

// 3 x width rounded up to a multiple of 4 (1 -> 4, 4 -> 12, 5 -> 16); 4 x width.
TEST(Stride, RowsArePaddedToFourBytes) {
    for (int w = 0; w < 64; ++w) {
        EXPECT_EQ(Stride24(w), StrideForBits(w, 24));
        EXPECT_EQ(Stride24(w), (3 * w + 3) / 4 * 4);
        EXPECT_EQ(Stride32(w), 4 * w);
    }
}

TEST(ModelTag, MatchesOnlyItsModel) {
    EXPECT_EQ(ModelTagMatches(1, 0), 1);
    EXPECT_EQ(ModelTagMatches(0, 8) + ModelTagMatches(10, 18) + ModelTagMatches(2, 2), 0);
    for (int m = 2; m <= 9; ++m) {
        EXPECT_EQ(ModelTagMatches(m, static_cast<DWORD>(m + 8)), 1);
        EXPECT_EQ(ModelTagMatches(m, 0), 0);
    }
}

TEST(ModelTag, ReadsCompressionOrMinusOne) {
    EXPECT_EQ(GetDIBModelTag(nullptr), -1);
    HGLOBAL img = paxtest::MakeDib(2, 2, 24, [](int, int, int) { return 1; }, -1, 0, 14);
    EXPECT_EQ(GetDIBModelTag(img), 14);
    EXPECT_EQ(paxtest::LockCount(img), 0);
    GlobalFree(img);
    HGLOBAL empty = GlobalAlloc(GHND, 0); // exists but cannot be locked
    EXPECT_EQ(GetDIBModelTag(empty), -1);
    GlobalFree(empty);
}

TEST(DuplicateDIB, CopiesEveryByteIntoANewUnlockedBlock) {
    HGLOBAL img = paxtest::MakeRandomDib24(5, 3, 7);
    paxtest::Snapshot before = paxtest::TakeSnapshot();
    HGLOBAL copy = DuplicateDIB(img);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, img);
    EXPECT_EQ(BlockBytes(copy), BlockBytes(img));
    EXPECT_EQ(paxtest::LockCount(copy), 0);
    EXPECT_EQ(paxtest::LockCount(img), 0);
    paxtest::ExpectCensus(before, 1, "duplicate");
    GlobalFree(copy);
    GlobalFree(img);
    EXPECT_EQ(DuplicateDIB(nullptr), nullptr);
}

// The source's header with the new depth, no model tag, the size of the new
// rows and no table, then zeroed rows; the source stays as it was.
TEST(CreateDIBLike, MakesAnEmptyImageOfTheSourcesSize) {
    const struct { HGLOBAL (*make)(HGLOBAL); int sourceBits, table, bits; DWORD sizeImage; } cases[] = {
        {CreateDIB24Like, 32, -1, 24, 48}, {CreateDIB32Like, 24, 4, 32, 60}};
    for (const auto &c : cases) {
        HGLOBAL src = paxtest::MakeDib(5, 3, c.sourceBits, [](int x, int y, int k) { return x + y + k; }, c.table, 0, 12);
        const std::vector<BYTE> source = BlockBytes(src);
        HGLOBAL out = c.make(src);
        ASSERT_NE(out, nullptr);
        BITMAPINFOHEADER h = HeaderOf(src);
        h.biBitCount = static_cast<WORD>(c.bits);
        h.biCompression = 0;
        h.biSizeImage = c.sizeImage;
        h.biClrUsed = 0;
        std::vector<BYTE> want(40 + c.sizeImage, 0);
        std::memcpy(want.data(), &h, 40);
        EXPECT_EQ(BlockBytes(out), want) << c.bits;
        EXPECT_EQ(BlockBytes(src), source);
        GlobalFree(out);
        GlobalFree(src);
    }
}

TEST(CreateDIBLike, RefusesWhatCannotBeRead) {
    EXPECT_EQ(CreateDIB24Like(nullptr), nullptr);
    HGLOBAL tiny = GlobalAlloc(GHND, 12); // smaller than a header
    EXPECT_EQ(CreateDIB32Like(tiny), nullptr);
    EXPECT_EQ(paxtest::LockCount(tiny), 0);
    GlobalFree(tiny);
    HGLOBAL negative = paxtest::MakeDib(2, 2, 24, [](int, int, int) { return 0; });
    auto *h = static_cast<BITMAPINFOHEADER *>(GlobalLock(negative));
    h->biWidth = -2;
    GlobalUnlock(negative);
    EXPECT_EQ(CreateDIB24Like(negative), nullptr);
    GlobalFree(negative);
}

// Rows that do not fit and hostile headers: LocateImage below.
TEST(DescribeDib, FindsTheRowsOfAnImageOfItsDepth) {
    HGLOBAL img = paxtest::MakeDib(5, 4, 24, [](int, int, int) { return 0; });
    BYTE *p = static_cast<BYTE *>(GlobalLock(img));
    DibLayout d;
    ASSERT_TRUE(DescribeDib(p, GlobalSize(img), 24, &d));
    EXPECT_EQ(d.stride, 16);
    EXPECT_EQ(d.imageSize, 64);
    EXPECT_EQ(d.pixels, p + 40);
    EXPECT_EQ(PixelAt(d, 0, 0, 3), p + 40 + 48); // top row is stored last
    EXPECT_FALSE(DescribeDib(p, GlobalSize(img) - 1, 24, &d));
    EXPECT_FALSE(DescribeDib(p, GlobalSize(img), 32, &d));
    reinterpret_cast<BITMAPINFOHEADER *>(p)->biClrUsed = 1; // a table that is not there
    EXPECT_FALSE(DescribeDib(p, GlobalSize(img), 24, &d));
    GlobalUnlock(img);
    GlobalFree(img);
}

// 3- and 4-component pixels hold components 0..2 in bytes 2, 1, 0; CMYK
// pixels hold K, Y, M, C.
TEST(PixelHelpers, StoreComponentsReversed) {
    const BYTE v[4] = {10, 20, 30, 40};
    const struct { void (*put)(BYTE *, const BYTE *); void (*get)(const BYTE *, BYTE *); std::vector<BYTE> stored; } cases[] = {
        {PutPixel3, GetPixel3, {30, 20, 10, 0}}, {PutPixel4, GetPixel4, {30, 20, 10, 40}},
        {PutCMYKPixel, GetCMYKPixel, {40, 30, 20, 10}}};
    for (const auto &c : cases) {
        std::vector<BYTE> px(4, 0), back(4, 0);
        c.put(px.data(), v);
        EXPECT_EQ(px, c.stored);
        c.get(px.data(), back.data());
        EXPECT_TRUE(std::equal(v, v + (c.stored[3] ? 4 : 3), back.begin()));
    }
}

// A copy whose source or own lock failed is still made: zeroed, unlocked.
TEST(HelperFailures, EveryAllocationAndLockPointLeavesNothingBehind) {
    if (!paxtest::HaveCensus()) GTEST_SKIP() << "fault injection needs the Linux stand-in";
    HGLOBAL img = paxtest::MakeRandomDib24(7, 5, 3);
    auto zeroedCopy = [&](paxtest::FailureKind kind, long, const std::vector<HGLOBAL> &made) {
        if (kind != paxtest::FailureKind::Lock) return;
        ASSERT_NE(made[0], nullptr);
        EXPECT_EQ(BlockBytes(made[0]), std::vector<BYTE>(GlobalSize(img), 0));
        EXPECT_EQ(paxtest::LockCount(made[0]), 0);
    };
    auto dup = paxtest::SweepFailures([&] { return std::vector<HGLOBAL>{DuplicateDIB(img)}; }, {img}, false, zeroedCopy);
    auto c24 = paxtest::SweepFailures([&] { return CreateDIB24Like(img); }, {img});
    auto c32 = paxtest::SweepFailures([&] { return CreateDIB32Like(img); }, {img});
    EXPECT_EQ(dup.allocationPoints, 1);
    EXPECT_EQ(dup.lockPoints, 2);
    EXPECT_EQ(c24.allocationPoints, 1);
    EXPECT_EQ(c32.lockPoints, 2);
    GlobalFree(img);
}

// The layout rule itself, at the edges where sizes would overflow or just fit.
TEST(LocateImage, FaultsAndSizesAtTheEdges) {
    using F = LayoutFault;
    struct Row {
        const char *what;
        LONG w, h;
        DWORD clrUsed, sizeImage;
        SIZE_T block;
        bool topDown;
        RowsStart start;
        SizeImageRule rule;
        F fault;
        int64_t offset, rows, imageSize;
    } rows[] = {
        {"fits exactly", 5, 4, 0, 0, 104, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::None, 40, 4, 64},
        {"one byte short", 5, 4, 0, 0, 103, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::Rows, 40, 4, 0},
        {"table then rows", 1, 1, 2, 0, 52, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::None, 48, 1, 4},
        {"table ignored", 1, 1, 0xFFFFFFFFu, 0, 44, false, RowsStart::AfterHeader, SizeImageRule::Ignored, F::None, 40, 1, 4},
        {"2^32 - 1 entries", 1, 1, 0xFFFFFFFFu, 0, 100, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::Table, 0, 1, 0},
        {"past signed 64 bits", 0x7FFFFFFF, 0x7FFFFFFF, 0, 0, 100, true, RowsStart::AfterTable, SizeImageRule::Ignored, F::Rows, 40, 0x7FFFFFFF, 0},
        {"INT_MIN rows", 0x7FFFFFFF, INT_MIN, 0, 0, 100, true, RowsStart::AfterTable, SizeImageRule::Ignored, F::Rows, 40, int64_t{1} << 31, 0},
        {"no columns, 2^31 rows", 0, INT_MIN, 0, 0, 40, true, RowsStart::AfterTable, SizeImageRule::Ignored, F::None, 40, int64_t{1} << 31, 0},
        {"bottom-up only", 1, -1, 0, 0, 100, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::NegativeHeight, 0, -1, 0},
        {"negative width", -1, 1, 0, 0, 100, true, RowsStart::AfterTable, SizeImageRule::Ignored, F::NegativeWidth, 0, 1, 0},
        {"size inside", 1, 2, 0, 12, 52, false, RowsStart::AfterTable, SizeImageRule::InsideBlock, F::None, 40, 2, 8},
        {"size past the block", 1, 2, 0, 13, 52, false, RowsStart::AfterTable, SizeImageRule::InsideBlock, F::SizeImage, 40, 2, 8},
        {"size sizes a result", 1, 2, 0, 0xFFFFFFFFu, 48, false, RowsStart::AfterHeader, SizeImageRule::SizesResult, F::None, 40, 2, 8},
        {"size below the rows", 1, 2, 0, 7, 48, false, RowsStart::AfterHeader, SizeImageRule::SizesResult, F::SizeImage, 40, 2, 8},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        std::vector<BYTE> block(r.block, 0);
        auto *h = reinterpret_cast<BITMAPINFOHEADER *>(block.data());
        *h = BITMAPINFOHEADER{40, r.w, r.h, 1, 24, 0, r.sizeImage, 0, 0, r.clrUsed, 0};
        const LayoutRules rules = {uint64_t{1} << 24, true, r.topDown, r.start, r.rule};
        const DibLayout l = LocateImage(block.data(), block.size(), rules);
        EXPECT_EQ(l.fault, r.fault);
        EXPECT_EQ(l.height, r.rows);
        EXPECT_TRUE(l.depthAccepted);
        if (r.fault == F::None) {
            EXPECT_EQ(l.pixels - block.data(), r.offset);
            EXPECT_EQ(l.imageSize, r.imageSize);
        } else {
            EXPECT_EQ(l.pixels, nullptr);
        }
    }
    // 65535 bits per pixel: stride x rows would wrap unsigned 64 bits too.
    BITMAPINFOHEADER wide = {40, 0x7FFFFFFF, INT_MIN, 1, 0xFFFF, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(LocateImage(&wide, sizeof wide, LayoutRules{0, true, true}).fault, F::Rows); // any depth, top-down
    EXPECT_EQ(LocateImage(nullptr, 0, LayoutRules{}).fault, F::ShortBlock);
}

} // namespace
