// Packed-DIB layout rules and the helpers that copy and make images.
#include "census.h"
#include "dib.h"
#include "dib_builder.h"
#include "examples.h"
#include "layout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

using namespace paxtest;

namespace {

// The colour table's entries and bytes by header (dib.txt).
TEST(ColorTable, SizeFollowsHeaderDepthAndClrUsed) {
    for (const Example &c : ReadExamples("dib.txt", "table")) {
        BITMAPINFOHEADER h = {DWORD(c.v[0]), 0, 0, 1, WORD(c.v[1]), 0, 0, 0, 0, DWORD(c.v[2]), 0};
        auto *core = reinterpret_cast<BITMAPCOREHEADER *>(&h);
        if (h.biSize == 12) {
            core->bcBitCount = WORD(c.v[1]);
            h.biBitCount = 0;
        }
        EXPECT_EQ(ColorTableEntries(&h), int64_t(c.v[3])) << c.line;
        EXPECT_EQ(ColorTableSize(&h), int64_t(c.v[4])) << c.line;
    }
}

// Rows padded to four bytes: the rows' sizes of LocateImage and DescribeDib
// below, and every pinned digest.

TEST(ModelTag, MatchesOnlyItsModel) {
    EXPECT_EQ(ModelTagMatches(1, 0), 1);
    EXPECT_EQ(GetDIBModelTag(nullptr), -1);
    EXPECT_EQ(ModelTagMatches(0, 8) + ModelTagMatches(10, 18) + ModelTagMatches(2, 2), 0);
    for (int m = 2; m <= 9; ++m) {
        EXPECT_EQ(ModelTagMatches(m, static_cast<DWORD>(m + 8)), 1);
        EXPECT_EQ(ModelTagMatches(m, 0), 0);
    }
}

// GetDIBModelTag (-1 for a null or unlockable block): the split's rows of the
// export table (tag=14, unlockable, and its first lock made to fail).

// The source's header with the new depth, no model tag, the size of the new
// rows and no table, then zeroed rows; the source stays as it was.
TEST(CreateDIBLike, MakesAnEmptyImageOfTheSourcesSize) {
    const struct { HGLOBAL (*make)(HGLOBAL); int sourceBits, table, bits; DWORD sizeImage; } cases[] = {
        {CreateDIB24Like, 32, -1, 24, 48}, {CreateDIB32Like, 24, 4, 32, 60}};
    for (const auto &c : cases) {
        HGLOBAL src = MakeDib(5, 3, c.sourceBits, [](int x, int y, int k) { return x + y + k; }, c.table, 0, 12);
        const std::vector<BYTE> source = BlockBytes(src);
        HGLOBAL out = c.make(src);
        ASSERT_NE(out, nullptr);
        BITMAPINFOHEADER h;
        std::memcpy(&h, source.data(), sizeof h);
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
    EXPECT_EQ(LockCount(tiny), 0);
    GlobalFree(tiny);
    HGLOBAL negative = MakeDib(2, 2, 24, [](int, int, int) { return 0; });
    EditHeader(negative, [](BITMAPINFOHEADER *h) { h->biWidth = -2; });
    EXPECT_EQ(CreateDIB24Like(negative), nullptr);
    GlobalFree(negative);
}

// Rows that do not fit and hostile headers: LocateImage below.
TEST(DescribeDib, FindsTheRowsOfAnImageOfItsDepth) {
    HGLOBAL img = MakeDib(5, 4, 24, [](int, int, int) { return 0; });
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
    if (!HaveCensus()) GTEST_SKIP() << "fault injection needs the Linux stand-in";
    HGLOBAL img = SeededImage(7, 5, 24, 3);
    auto zeroedCopy = [&](FailureKind kind, long, const std::vector<HGLOBAL> &made) {
        if (kind != FailureKind::Lock) return;
        ASSERT_NE(made[0], nullptr);
        EXPECT_EQ(BlockBytes(made[0]), std::vector<BYTE>(GlobalSize(img), 0));
        EXPECT_EQ(LockCount(made[0]), 0);
    };
    auto dup = SweepFailures([&] { return std::vector<HGLOBAL>{DuplicateDIB(img)}; }, {img}, false, zeroedCopy);
    auto c24 = SweepFailures([&] { return std::vector<HGLOBAL>{CreateDIB24Like(img)}; }, {img});
    auto c32 = SweepFailures([&] { return std::vector<HGLOBAL>{CreateDIB32Like(img)}; }, {img});
    EXPECT_EQ(dup.allocationPoints, 1);
    EXPECT_EQ(dup.lockPoints, 2);
    EXPECT_EQ(c24.allocationPoints, 1);
    EXPECT_EQ(c32.lockPoints, 2);
    EXPECT_EQ(DuplicateDIB(nullptr), nullptr); // a good copy: the export table's images without columns
    GlobalFree(img);
}

// The layout rule itself, at the edges where sizes would overflow or just fit.
TEST(LocateImage, FaultsAndSizesAtTheEdges) {
    using F = LayoutFault;
    for (const Example &r : ReadExamples("dib.txt", "locate")) {
        SCOPED_TRACE(r.line);
        std::vector<BYTE> block(size_t(r.v[4]), 0);
        *reinterpret_cast<BITMAPINFOHEADER *>(block.data()) =
            BITMAPINFOHEADER{40, LONG(r.v[0]), LONG(r.v[1]), 1, 24, 0, DWORD(r.v[3]), 0, 0, DWORD(r.v[2]), 0};
        const LayoutRules rules = {uint64_t{1} << 24, true, r.v[5] != 0, RowsStart(r.I(6)), SizeImageRule(r.I(7))};
        const DibLayout l = LocateImage(block.data(), block.size(), rules);
        EXPECT_EQ(l.fault, F(r.I(8)));
        EXPECT_EQ(l.height, int64_t(r.v[10]));
        EXPECT_TRUE(l.depthAccepted);
        EXPECT_EQ(l.pixels ? l.pixels - block.data() : 0, l.fault == F::None ? int64_t(r.v[9]) : 0);
        if (l.fault == F::None) {
            EXPECT_EQ(l.imageSize, int64_t(r.v[11]));
        }
    }
    // 65535 bits per pixel: stride x rows would wrap unsigned 64 bits too.
    BITMAPINFOHEADER wide = {40, 0x7FFFFFFF, INT_MIN, 1, 0xFFFF, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(LocateImage(&wide, sizeof wide, LayoutRules{0, true, true}).fault, F::Rows); // any depth, top-down
    EXPECT_EQ(LocateImage(nullptr, 0, LayoutRules{}).fault, F::ShortBlock);
}

} // namespace
