// DitherOrdered: the threshold matrices, the thresholding rule seen through
// grey-ramp images, its silent failures, and sweeps.
#include "census.h"
#include "dib_builder.h"
#include "dither_reference.h"
#include "dither_test_util.h"
#include "ordered_dither.h"

#include <gtest/gtest.h>

#include <set>

using dithertest::Bit;
using dithertest::Dither;
using dithertest::RawBlock;
using dithertest::SetStatus;
using dithertest::Status;
using paxtest::ImsName;
using paxtest::MakeDib;

namespace {

int Entry(int type, int row, int column) {
    const OrderedMatrix &m = GetOrderedMatrix(type);
    return m.entries[row * m.n + column];
}

TEST(OrderedMatrices, SidesAndLargestEntries) {
    const int n[7] = {6, 6, 5, 5, 8, 8, 16};
    const int maxM[7] = {36, 36, 25, 242, 63, 64, 255};
    for (int t = 0; t < kOrderedMatrixCount; ++t) {
        const OrderedMatrix &m = GetOrderedMatrix(t);
        EXPECT_EQ(m.n, n[t]) << "type " << t;
        EXPECT_EQ(m.maxM, maxM[t]) << "type " << t;
        int largest = 0;
        for (int i = 0; i < m.n * m.n; ++i) largest = std::max<int>(largest, m.entries[i]);
        EXPECT_EQ(largest, m.maxM) << "type " << t;
    }
}

TEST(OrderedMatrices, ClusteredLinesAndSpiral) {
    // Types 0 and 1 hold 1..36 once each, type 2 1..25.
    for (int t : {0, 1, 2}) {
        const OrderedMatrix &m = GetOrderedMatrix(t);
        std::set<int> seen(m.entries, m.entries + m.n * m.n);
        EXPECT_EQ(seen.size(), size_t(m.n * m.n));
        EXPECT_EQ(*seen.begin(), 1);
        EXPECT_EQ(*seen.rbegin(), m.n * m.n);
    }
    EXPECT_EQ(Entry(0, 3, 2), 1); // type 0 grows from the centre
    EXPECT_EQ(Entry(0, 0, 5), 36);
    const int lines[6] = {6, 4, 2, 1, 3, 5};
    for (int c = 0; c < 6; ++c) EXPECT_EQ(Entry(1, 3, c), lines[c]);
    for (int c = 0; c < 6; ++c) EXPECT_EQ(Entry(1, 0, c), 36 - (c < 3 ? 2 * c : 2 * (5 - c) + 1));
    const int spiralTop[5] = {21, 22, 23, 24, 25};
    for (int c = 0; c < 5; ++c) EXPECT_EQ(Entry(2, 0, c), spiralTop[c]);
    EXPECT_EQ(Entry(2, 2, 2), 1);
    const int irregular[25] = {167, 200, 230, 216, 181, 94,  72,  193, 242, 232, 36,  52, 222,
                               167, 200, 181, 126, 210, 94,  72,  232, 153, 111, 36,  51};
    for (int i = 0; i < 25; ++i) EXPECT_EQ(Entry(3, i / 5, i % 5), irregular[i]) << i;
}

// B(1) = [0]; B(2m) = [[4B, 4B + 2], [4B + 3, 4B + 1]].
std::vector<std::vector<int>> Bayer(int m) {
    if (m == 1) return {{0}};
    std::vector<std::vector<int>> half = Bayer(m / 2), out(m, std::vector<int>(m));
    const int h = m / 2;
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < h; ++c) {
            int v = 4 * half[r][c];
            out[r][c] = v;
            out[r][c + h] = v + 2;
            out[r + h][c] = v + 3;
            out[r + h][c + h] = v + 1;
        }
    return out;
}

TEST(OrderedMatrices, BayerFromItsRecursion) {
    std::vector<std::vector<int>> b = Bayer(8);
    for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) EXPECT_EQ(Entry(4, r, c), b[r][c]) << r << "," << c;
    const int first[8] = {0, 32, 8, 40, 2, 34, 10, 42}, last[8] = {63, 31, 55, 23, 61, 29, 53, 21};
    for (int c = 0; c < 8; ++c) {
        EXPECT_EQ(Entry(4, 0, c), first[c]);
        EXPECT_EQ(Entry(4, 7, c), last[c]);
    }
}

TEST(OrderedMatrices, DispersedSixteenAndItsEvenSubgrid) {
    const int top[16] = {2, 236, 60, 220, 16, 232, 56, 216, 3, 233, 57, 217, 13, 229, 53, 213};
    for (int c = 0; c < 16; ++c) EXPECT_EQ(Entry(6, 0, c), top[c]);
    const int bottom[16] = {172, 108, 156, 92, 168, 104, 152, 88,
                            169, 105, 153, 89, 165, 101, 149, 85};
    for (int c = 0; c < 16; ++c) EXPECT_EQ(Entry(6, 15, c), bottom[c]);
    // 1..254 once each and 255 twice, at (6, 7) and (14, 15).
    std::multiset<int> values;
    for (int r = 0; r < 16; ++r)
        for (int c = 0; c < 16; ++c) values.insert(Entry(6, r, c));
    for (int v = 1; v <= 254; ++v) EXPECT_EQ(values.count(v), 1u) << v;
    EXPECT_EQ(values.count(255), 2u);
    EXPECT_EQ(Entry(6, 6, 7), 255);
    EXPECT_EQ(Entry(6, 14, 15), 255);
    for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) EXPECT_EQ(Entry(5, r, c), Entry(6, 2 * r, 2 * c)) << r << "," << c;
    const int five[8] = {2, 60, 16, 56, 3, 57, 13, 53};
    for (int c = 0; c < 8; ++c) EXPECT_EQ(Entry(5, 0, c), five[c]);
}

// The rule, evaluated as stated: v * maxM / maxPix in single precision, the
// product first, compared strictly with the matrix entry at row x mod n and
// column y mod n, y counted from the top of the picture.
int ExpectedBit(int type, int v, int maxPix, int x, int y) {
    const OrderedMatrix &m = GetOrderedMatrix(type);
    if (maxPix == 0) return 0;
    float q = static_cast<float>(v) * static_cast<float>(m.maxM) / static_cast<float>(maxPix);
    return q > static_cast<float>(m.entries[(x % m.n) * m.n + y % m.n]) ? 1 : 0;
}

// An 8-bit image (grey-ramp table unless entries says otherwise) with
// values(x, y), y = 0 the top row.
HGLOBAL Image8(int w, int h, const std::function<int(int, int)> &values, int entries = -1) {
    return MakeDib(w, h, 8, [&](int x, int y, int) { return static_cast<BYTE>(values(x, y)); }, entries);
}

void ExpectPattern(const std::vector<BYTE> &out, int type, int w, int h,
                   const std::function<int(int, int)> &values, int maxPix, bool topDown = false) {
    ASSERT_FALSE(out.empty());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int stored = topDown ? y : h - 1 - y;
            ASSERT_EQ(Bit(out, stored, x), ExpectedBit(type, values(x, y), maxPix, x, y))
                << "type " << type << " at " << x << "," << y << " v " << values(x, y);
        }
}

// Through a grey-ramp table 255 is white and 0 black with no error, so the
// 1-bit result is the threshold pattern itself.
TEST(OrderedDitherPattern, GreyRampReproducesTheThresholds) {
    for (int type = 0; type < kOrderedMatrixCount; ++type)
        for (int maxPix : {255, 254, 200, 63, 37, 1}) {
            const int n = GetOrderedMatrix(type).n;
            const int w = 256 + n, h = 2 * n + 3;
            auto values = [maxPix](int x, int y) { return (x + 97 * y) % (maxPix + 1); };
            SetStatus(99);
            std::vector<BYTE> out = Dither(DitherOrdered, Image8(w, h, values), type);
            EXPECT_EQ(ImsName(Status()), "IMS_OK");
            ExpectPattern(out, type, w, h, values, maxPix);
        }
    // Random images.
    paxtest::Rng rng(404);
    for (int trial = 0; trial < 40; ++trial) {
        const int w = 1 + rng.Below(50), h = 1 + rng.Below(40), type = rng.Below(7);
        const int top = 1 + rng.Below(256);
        std::vector<int> px(w * h);
        int maxPix = 0;
        for (int &v : px) maxPix = std::max(maxPix, v = rng.Below(top));
        auto values = [&](int x, int y) { return px[y * w + x]; };
        HGLOBAL image = Image8(w, h, values);
        ExpectPattern(Dither(DitherOrdered, image, type), type, w, h, values, maxPix);
        GlobalFree(image);
    }
}

TEST(OrderedDitherPattern, Examples) {
    // Type 4: the brightest pixel is white except where the threshold is 63.
    auto bright = [](int, int) { return 180; };
    std::vector<BYTE> out = Dither(DitherOrdered, Image8(16, 16, bright), 4);
    ASSERT_FALSE(out.empty());
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            EXPECT_EQ(Bit(out, 15 - y, x), Entry(4, x % 8, y % 8) == 63 ? 0 : 1);
    // Type 6: black only at the two cells of 255.
    out = Dither(DitherOrdered, Image8(16, 16, bright), 6);
    ASSERT_FALSE(out.empty());
    int black = 0;
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) black += Bit(out, 15 - y, x) == 0;
    EXPECT_EQ(black, 2);
    EXPECT_EQ(Bit(out, 15 - 7, 6), 0);
    EXPECT_EQ(Bit(out, 15 - 15, 14), 0);
    // All zero: all black.
    out = Dither(DitherOrdered, Image8(9, 4, [](int, int) { return 0; }), 2);
    ASSERT_FALSE(out.empty());
    for (BYTE b : dithertest::PixelBytes(out)) EXPECT_EQ(b, 0);
    // Type 1, a mid grey: the columns with x mod 6 = 3 use 6 4 2 1 3 5 down
    // the picture, the lowest thresholds, so those columns are the lines.
    auto mid = [](int x, int) { return x == 0 ? 255 : 45; }; // 45 * 36 / 255 = 6.35
    out = Dither(DitherOrdered, Image8(12, 12, mid), 1);
    ASSERT_FALSE(out.empty());
    for (int y = 0; y < 12; ++y)
        for (int x = 1; x < 12; ++x) EXPECT_EQ(Bit(out, 11 - y, x), x % 6 == 3 ? 1 : 0) << x << "," << y;
}

TEST(OrderedDitherPattern, TopDownCountsRowsFromTheFirstStored) {
    auto values = [](int x, int y) { return (x * 31 + y * 17) % 256; };
    HGLOBAL image = Image8(13, 19, values);
    // Reverse the stored rows and mark the image top-down: the same picture.
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    auto *h = reinterpret_cast<BITMAPINFOHEADER *>(p);
    h->biHeight = -19;
    BYTE *rows = p + 40 + 1024;
    for (int y = 0; y < 19; ++y)
        for (int x = 0; x < 13; ++x) rows[y * 16 + x] = static_cast<BYTE>(values(x, y));
    GlobalUnlock(image);
    std::vector<BYTE> out = Dither(DitherOrdered, image, 5);
    ASSERT_FALSE(out.empty());
    BITMAPINFOHEADER rh;
    std::memcpy(&rh, out.data(), 40);
    EXPECT_EQ(rh.biHeight, -19);
    ExpectPattern(out, 5, 13, 19, values, 255, true);
    GlobalFree(image);
}

// A full table that is not a grey ramp: DitherSierra reads 0 and 255 through
// it, as for any image.
TEST(OrderedDitherTables, FullTableIsTheSources) {
    auto values = [](int x, int y) { return (x * 11 + y * 23) % 256; };
    HGLOBAL image = Image8(21, 9, values);
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    p[40 + 4 * 255 + 0] = 0; // entry 255 becomes red: grey 76
    p[40 + 4 * 255 + 1] = 0;
    GlobalUnlock(image);
    std::vector<BYTE> out = Dither(DitherOrdered, image, 0);
    // Expected: DitherSierra of the thresholded picture, through the table.
    HGLOBAL thresholded = paxtest::MakeDib24(21, 9, [&](int x, int y) {
        return ExpectedBit(0, values(x, y), 255, x, y) ? paxtest::Rgb{255, 0, 0} : paxtest::Rgb{0, 0, 0};
    });
    ref::Source src = ref::Decode(thresholded);
    std::vector<BYTE> want = ref::ErrorDiffusion(src, ref::Kernels()[2], 1);
    EXPECT_TRUE(dithertest::PixelBytes(out) == dithertest::PixelBytes(want));
    GlobalFree(image);
    GlobalFree(thresholded);
}

// A table shorter than 256 entries: the pixels are found after it, and the
// working copy gets a full table (the source's entries, then the grey ramp),
// so 255 still reads white and the pattern comes through.
TEST(OrderedDitherTables, ShortTables) {
    for (int entries : {1, 16, 200}) {
        auto values = [](int x, int y) { return (x * 5 + y * 41) % 256; };
        HGLOBAL image = Image8(17, 11, values, entries);
        ExpectPattern(Dither(DitherOrdered, image, 6), 6, 17, 11, values, 255);
        GlobalFree(image);
    }
}

TEST(OrderedDitherFailures, NullAndStatusUntouched) {
    HGLOBAL image = Image8(8, 8, [](int x, int y) { return x * y; });
    HGLOBAL rgb = paxtest::MakeRandomDib24(8, 8, 1);
    HGLOBAL unlockable = GlobalAlloc(GMEM_MOVEABLE, 0);
    BITMAPINFOHEADER h = {};
    h.biSize = 40;
    h.biWidth = 8;
    h.biHeight = 50;
    h.biPlanes = 1;
    h.biBitCount = 8;
    HGLOBAL tooFew = RawBlock(40 + 1024 + 8 * 8, h); // claims 50 rows, holds 8
    HGLOBAL tiny = RawBlock(16, h);
    BITMAPINFOHEADER huge = h;
    huge.biWidth = 0x7FFFFFFF;
    huge.biHeight = 0x7FFFFFFF;
    HGLOBAL hugeClaim = RawBlock(40 + 1024 + 64, huge);
    BITMAPINFOHEADER core = h;
    core.biSize = 12;
    core.biHeight = 2;
    HGLOBAL coreHeader = RawBlock(40 + 1024 + 16, core);
    struct Case {
        const char *what;
        HGLOBAL image;
        int type;
    };
    for (const Case &c : std::vector<Case>{{"type 7", image, 7},
                                           {"type -1", image, -1},
                                           {"null image", nullptr, 0},
                                           {"24-bit image", rgb, 0},
                                           {"unlockable", unlockable, 0},
                                           {"rows beyond the block", tooFew, 0},
                                           {"block smaller than a header", tiny, 0},
                                           {"huge dimensions", hugeClaim, 0},
                                           {"header size 12", coreHeader, 0}}) {
        SetStatus(99);
        HDIB out = DitherOrdered(c.image, c.type);
        EXPECT_EQ(out, nullptr) << c.what;
        if (out) GlobalFree(out);
        EXPECT_EQ(Status(), 99u) << c.what;
        if (c.image) {
            EXPECT_EQ(paxtest::LockCount(c.image), 0) << c.what;
        }
    }
    // An empty image gets as far as DitherSierra, which reports it.
    HGLOBAL empty = Image8(0, 4, [](int, int) { return 0; });
    SetStatus(99);
    EXPECT_EQ(DitherOrdered(empty, 3), nullptr);
    EXPECT_EQ(ImsName(Status()), "IMS_NOMEMORY");
    for (HGLOBAL b : {image, rgb, unlockable, tooFew, tiny, hugeClaim, coreHeader, empty}) GlobalFree(b);
}

TEST(OrderedDitherFailures, Sweep) {
    for (int entries : {-1, 16}) {
        HGLOBAL image = Image8(9, 7, [](int x, int y) { return x * 20 + y; }, entries);
        std::vector<DWORD> statuses;
        paxtest::SweepCounts counts = paxtest::SweepFailures(
            [&]() -> HGLOBAL {
                SetStatus(99);
                HDIB out = DitherOrdered(image, 4);
                statuses.push_back(Status());
                return out;
            },
            {image});
        if (!paxtest::HaveCensus()) continue;
        ASSERT_EQ(statuses.size(), size_t(1 + counts.allocationPoints + counts.lockPoints));
        EXPECT_EQ(ImsName(statuses[0]), "IMS_OK");
        // The working copy is the first allocation and the image the first
        // lock: those failures are DitherOrdered's own and leave the status.
        EXPECT_EQ(statuses[1], 99u);
        EXPECT_EQ(statuses[1 + counts.allocationPoints], 99u);
    }
}

} // namespace
