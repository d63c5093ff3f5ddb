// DitherOrdered: the threshold matrices, the thresholding rule seen through
// grey-ramp images, its silent failures, and sweeps.
#include "dither_test_util.h"
#include "ordered_dither.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

using namespace dithertest;
using paxtest::ImsName;

namespace {

int Entry(int type, int row, int column) {
    const OrderedMatrix &m = GetOrderedMatrix(type);
    return m.entries[row * m.n + column];
}

TEST(OrderedMatrices, SidesLargestEntriesAndValues) {
    const int n[7] = {6, 6, 5, 5, 8, 8, 16}, maxM[7] = {36, 36, 25, 242, 63, 64, 255};
    for (int t = 0; t < kOrderedMatrixCount; ++t) {
        const OrderedMatrix &m = GetOrderedMatrix(t);
        EXPECT_EQ(m.n, n[t]) << "type " << t;
        EXPECT_EQ(m.maxM, maxM[t]) << "type " << t;
        EXPECT_EQ(*std::max_element(m.entries, m.entries + m.n * m.n), m.maxM) << "type " << t;
    }
    // Types 0 and 1 hold 1..36 once each, type 2 1..25.
    for (int t : {0, 1, 2}) {
        const OrderedMatrix &m = GetOrderedMatrix(t);
        std::set<int> seen(m.entries, m.entries + m.n * m.n);
        EXPECT_EQ(seen.size(), size_t(m.n * m.n));
        EXPECT_EQ(*seen.begin(), 1);
        EXPECT_EQ(*seen.rbegin(), m.n * m.n);
    }
    const struct {
        int type, row;
        std::vector<int> values;
    } rows[] = {
        {0, 0, {35, 30, 18, 22, 31, 36}}, {0, 3, {13, 4, 1, 2, 11, 19}},
        {1, 0, {36, 34, 32, 31, 33, 35}}, {1, 3, {6, 4, 2, 1, 3, 5}},
        {2, 0, {21, 22, 23, 24, 25}},     {2, 2, {19, 6, 1, 2, 11}},
        {3, 0, {167, 200, 230, 216, 181}}, {3, 1, {94, 72, 193, 242, 232}},
        {3, 2, {36, 52, 222, 167, 200}},  {3, 3, {181, 126, 210, 94, 72}},
        {3, 4, {232, 153, 111, 36, 51}},  {4, 0, {0, 32, 8, 40, 2, 34, 10, 42}},
        {4, 7, {63, 31, 55, 23, 61, 29, 53, 21}}, {5, 0, {2, 60, 16, 56, 3, 57, 13, 53}},
        {6, 0, {2, 236, 60, 220, 16, 232, 56, 216, 3, 233, 57, 217, 13, 229, 53, 213}},
        {6, 15, {172, 108, 156, 92, 168, 104, 152, 88, 169, 105, 153, 89, 165, 101, 149, 85}},
    };
    for (const auto &r : rows)
        for (size_t c = 0; c < r.values.size(); ++c)
            EXPECT_EQ(Entry(r.type, r.row, int(c)), r.values[c]) << "type " << r.type << " row " << r.row;
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

TEST(OrderedMatrices, BayerDispersedAndItsEvenSubgrid) {
    std::vector<std::vector<int>> b = Bayer(8);
    for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) {
            EXPECT_EQ(Entry(4, r, c), b[r][c]) << r << "," << c;
            EXPECT_EQ(Entry(5, r, c), Entry(6, 2 * r, 2 * c)) << r << "," << c;
        }
    // Type 6 holds 1..254 once each and 255 twice, at (6, 7) and (14, 15).
    std::multiset<int> values;
    for (int r = 0; r < 16; ++r)
        for (int c = 0; c < 16; ++c) values.insert(Entry(6, r, c));
    for (int v = 1; v <= 254; ++v) EXPECT_EQ(values.count(v), 1u) << v;
    EXPECT_EQ(values.count(255), 2u);
    EXPECT_EQ(Entry(6, 6, 7), 255);
    EXPECT_EQ(Entry(6, 14, 15), 255);
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

using Values = std::function<int(int, int)>;

// An 8-bit image (grey-ramp table unless entries says otherwise) with
// values(x, y), y = 0 the top row.
HGLOBAL Image8(int w, int h, const Values &values, int entries = -1) {
    return paxtest::MakeDib(w, h, 8, [&](int x, int y, int) { return static_cast<BYTE>(values(x, y)); }, entries);
}

// Dithers image (freed here) and expects the threshold pattern, or the bits
// that `expected(x, y)` gives.
void ExpectPattern(HGLOBAL image, int type, int w, int h, const Values &expected, bool topDown = false) {
    SetStatus(99);
    std::vector<BYTE> out = Dither(DitherOrdered, image, type);
    GlobalFree(image);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(ImsName(Status()), "IMS_OK");
    EXPECT_EQ(HeaderOf(out).biHeight, topDown ? -h : h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            ASSERT_EQ(Bit(out, topDown ? y : h - 1 - y, x), expected(x, y)) << "type " << type << " at " << x << "," << y;
}
void ExpectThresholds(HGLOBAL image, int type, int w, int h, const Values &values, int maxPix, bool topDown = false) {
    ExpectPattern(image, type, w, h, [&](int x, int y) { return ExpectedBit(type, values(x, y), maxPix, x, y); },
                  topDown);
}

// Through a grey-ramp table 255 is white and 0 black with no error, so the
// 1-bit result is the threshold pattern itself; also for tables shorter than
// 256 entries, where the working copy gets a full table.
TEST(OrderedDitherPattern, GreyRampReproducesTheThresholds) {
    for (int type = 0; type < kOrderedMatrixCount; ++type)
        for (int maxPix : {255, 254, 200, 63, 37, 1}) {
            const int n = GetOrderedMatrix(type).n, w = 256 + n, h = 2 * n + 3;
            auto values = [maxPix](int x, int y) { return (x + 97 * y) % (maxPix + 1); };
            ExpectThresholds(Image8(w, h, values), type, w, h, values, maxPix);
        }
    paxtest::Rng rng(404);
    for (int trial = 0; trial < 40; ++trial) {
        const int w = 1 + rng.Below(50), h = 1 + rng.Below(40), type = rng.Below(7), top = 1 + rng.Below(256);
        std::vector<int> px(w * h);
        int maxPix = 0;
        for (int &v : px) maxPix = std::max(maxPix, v = rng.Below(top));
        auto values = [&](int x, int y) { return px[y * w + x]; };
        ExpectThresholds(Image8(w, h, values), type, w, h, values, maxPix);
    }
    auto values = [](int x, int y) { return (x * 5 + y * 41) % 256; };
    for (int entries : {1, 16, 200}) ExpectThresholds(Image8(17, 11, values, entries), 6, 17, 11, values, 255);
}

TEST(OrderedDitherPattern, Examples) {
    auto bright = [](int, int) { return 180; };
    // Type 4: the brightest pixel is white except where the threshold is 63.
    ExpectPattern(Image8(16, 16, bright), 4, 16, 16, [](int x, int y) { return Entry(4, x % 8, y % 8) == 63 ? 0 : 1; });
    // Type 6: black only at the two cells of 255, (row 6, column 7) and (14, 15).
    ExpectPattern(Image8(16, 16, bright), 6, 16, 16,
                  [](int x, int y) { return (x == 6 && y == 7) || (x == 14 && y == 15) ? 0 : 1; });
    // All zero: all black.
    ExpectPattern(Image8(9, 4, [](int, int) { return 0; }), 2, 9, 4, [](int, int) { return 0; });
    // Type 1, a mid grey: the columns with x mod 6 = 3 use 6 4 2 1 3 5 down
    // the picture, the lowest thresholds, so those columns are the lines.
    auto mid = [](int x, int) { return x == 0 ? 255 : 45; }; // 45 * 36 / 255 = 6.35
    ExpectPattern(Image8(12, 12, mid), 1, 12, 12,
                  [](int x, int y) { return x == 0 ? ExpectedBit(1, 255, 255, 0, y) : x % 6 == 3 ? 1 : 0; });
}

TEST(OrderedDitherPattern, TopDownCountsRowsFromTheFirstStored) {
    auto values = [](int x, int y) { return (x * 31 + y * 17) % 256; };
    HGLOBAL image = Image8(13, 19, values);
    // Reverse the stored rows and mark the image top-down: the same picture.
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    reinterpret_cast<BITMAPINFOHEADER *>(p)->biHeight = -19;
    for (int y = 0; y < 19; ++y)
        for (int x = 0; x < 13; ++x) p[40 + 1024 + y * 16 + x] = static_cast<BYTE>(values(x, y));
    GlobalUnlock(image);
    ExpectThresholds(image, 5, 13, 19, values, 255, true);
}

// A full table that is not a grey ramp: DitherSierra reads 0 and 255 through
// it, as for any image.
TEST(OrderedDitherPattern, FullTableIsTheSources) {
    auto values = [](int x, int y) { return (x * 11 + y * 23) % 256; };
    HGLOBAL image = Image8(21, 9, values);
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    p[40 + 4 * 255 + 0] = 0; // entry 255 becomes red: grey 76
    p[40 + 4 * 255 + 1] = 0;
    GlobalUnlock(image);
    std::vector<BYTE> out = Dither(DitherOrdered, image, 0);
    HGLOBAL thresholded = paxtest::MakeDib24(21, 9, [&](int x, int y) {
        return ExpectedBit(0, values(x, y), 255, x, y) ? paxtest::Rgb{255, 0, 0} : paxtest::Rgb{0, 0, 0};
    });
    EXPECT_TRUE(PixelBytes(out) == PixelBytes(Dither(DitherSierra, thresholded, 1)));
    GlobalFree(image);
    GlobalFree(thresholded);
}

// Its own failures return null and leave the status alone, never reading
// outside the block.
TEST(OrderedDitherFailures, NullAndStatusUntouched) {
    const struct {
        const char *what;
        HGLOBAL image;
        int type;
    } cases[] = {
        {"type 7", Image8(8, 8, [](int x, int y) { return x * y; }), 7},
        {"type -1", Image8(8, 8, [](int x, int y) { return x * y; }), -1},
        {"null image", nullptr, 0},
        {"24-bit image", paxtest::MakeRandomDib24(8, 8, 1), 0},
        {"unlockable", GlobalAlloc(GMEM_MOVEABLE, 0), 0},
        {"rows beyond the block", RawBlock(40 + 1024 + 8 * 8, Header(8, 50, 8)), 0},
        {"block smaller than a header", RawBlock(16, Header(8, 50, 8)), 0},
        {"huge dimensions", RawBlock(40 + 1024 + 64, Header(0x7FFFFFFF, 0x7FFFFFFF, 8)), 0},
        {"header size 12", RawBlock(40 + 1024 + 16, Header(8, 2, 8, 0, 12)), 0},
    };
    for (const auto &c : cases) {
        SetStatus(99);
        HDIB out = DitherOrdered(c.image, c.type);
        EXPECT_EQ(out, nullptr) << c.what;
        if (out) GlobalFree(out);
        EXPECT_EQ(Status(), 99u) << c.what;
        if (c.image) {
            EXPECT_EQ(paxtest::LockCount(c.image), 0) << c.what;
            GlobalFree(c.image);
        }
    }
    // An empty image gets as far as DitherSierra, which reports it.
    HGLOBAL empty = Image8(0, 4, [](int, int) { return 0; });
    ExpectFailure(DitherOrdered, empty, 3, IMS_NOMEMORY);
    GlobalFree(empty);
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
        GlobalFree(image);
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
