// DitherOrdered: its threshold matrices, worked thresholding examples read
// off the matrices, the tables and storage orders it accepts, and its silent
// refusals. Seeded images of every type are pinned in dither_digest_test.cpp.
#include "census.h"
#include "dither_test_util.h"
#include "ordered_dither.h"

#include <functional>

using namespace dithertest;

namespace {

int Entry(int type, int row, int column) {
    const OrderedMatrix &m = GetOrderedMatrix(type);
    return m.entries[row * m.n + column];
}

using Picture = std::function<int(int x, int y)>; // y = 0 the top row

// An 8-bit image of a picture, in stored order for Image().
HGLOBAL Image8(int w, int h, const Picture &p, const std::vector<int> &table = {}) {
    std::vector<int> stored;
    for (int y = h - 1; y >= 0; --y)
        for (int x = 0; x < w; ++x) stored.push_back(p(x, y));
    return Image(8, w, h, stored, table);
}

TEST(OrderedMatrices, SidesLargestEntriesAndValues) {
    const int n[7] = {6, 6, 5, 5, 8, 8, 16}, maxM[7] = {36, 36, 25, 242, 63, 64, 255};
    uint64_t digest = 0xCBF29CE484222325ull; // FNV-1a over every entry of every matrix
    for (int t = 0; t < kOrderedMatrixCount; ++t) {
        const OrderedMatrix &m = GetOrderedMatrix(t);
        EXPECT_EQ(m.n, n[t]) << "type " << t;
        EXPECT_EQ(m.maxM, maxM[t]) << "type " << t;
        for (int i = 0; i < m.n * m.n; ++i) digest = (digest ^ m.entries[i]) * 0x100000001B3ull;
    }
    EXPECT_EQ(digest, 0xa31963cfc2fe7aadull);
    for (const Line &r : Examples("matrix")) {
        const OrderedMatrix &m = GetOrderedMatrix(std::stoi(r.head[0]));
        const BYTE *row = m.entries + std::stoi(r.head[1]) * m.n;
        EXPECT_EQ(std::vector<int>(row, row + m.n), r.fields[0]) << "type " << r.head[0] << " row " << r.head[1];
    }
    for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) EXPECT_EQ(Entry(5, r, c), Entry(6, 2 * r, 2 * c)) << r << "," << c;
}

// Dithers the picture and expects bit(x, y) at every pixel.
void ExpectPicture(const char *what, int type, int w, int h, const Picture &value, const Picture &bit,
                   const std::vector<int> &table = {}) {
    HGLOBAL image = Image8(w, h, value, table);
    Status() = 99;
    std::vector<BYTE> out = Dither(DitherOrdered, image, type);
    GlobalFree(image);
    ASSERT_FALSE(out.empty()) << what;
    EXPECT_EQ(Status(), DWORD{IMS_OK});
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) ASSERT_EQ(Pixel(out, h - 1 - y, x), bit(x, y)) << what << " at " << x << "," << y;
}

// Flat images at their own maximum: black only where the matrix holds maxM.
TEST(OrderedDither, FlatImages) {
    for (const Line &c : Examples("flat")) {
        const int n = GetOrderedMatrix(std::stoi(c.head[0])).n;
        const std::vector<int> &at = c.fields[0];
        ExpectPicture("flat", std::stoi(c.head[0]), 2 * n + 1, n + 3, [&](int, int) { return std::stoi(c.head[1]); },
                      [&](int x, int y) {
                          for (size_t i = 0; i < at.size(); i += 2)
                              if (x % n == at[i] && y % n == at[i + 1]) return 0;
                          return 1;
                      });
    }
}

TEST(OrderedDither, Examples) {
    auto zero = [](int, int) { return 0; };
    ExpectPicture("all zero", 2, 9, 4, zero, zero);
    // Type 1, grey 45 beside one column of 255: 45 * 36 / 255 = 6.35 passes only
    // the matrix row 6 4 2 1 3 5, taken by the columns with x mod 6 = 3, so the
    // lines run down the picture; the column of 255 is black where M = 36.
    ExpectPicture("lines", 1, 12, 12, [](int x, int) { return x == 0 ? 255 : 45; },
                  [](int x, int y) { return x == 0 ? y % 6 != 0 : x % 6 == 3; });
    // Type 2 holds 1..25: a picture of its own entries scales to them exactly
    // and stays black; one more (at most 25) is white except at the 25.
    auto own = [](int x, int y) { return Entry(2, x % 5, y % 5); };
    ExpectPicture("equal is black", 2, 7, 6, own, zero);
    ExpectPicture("above is white", 2, 7, 6, [&](int x, int y) { return std::min(own(x, y) + 1, 25); },
                  [](int x, int y) { return x % 5 == 0 && y % 5 == 4 ? 0 : 1; });
    // DitherSierra reads the thresholded 255 through the image's own table:
    // here red, grey 76, black, and its error 76 passes 38 on: black too.
    std::vector<int> ramp(256);
    for (int i = 0; i < 256; ++i) ramp[i] = G(i);
    auto lone = [](int x, int) { return x == 0 ? 255 : 0; };
    ExpectPicture("grey ramp", 4, 2, 1, lone, [](int x, int) { return x == 0; });
    ramp[255] = 0xFF0000;
    ExpectPicture("red 255", 4, 2, 1, lone, zero, ramp);
}

// A table shorter than 256 entries and a top-down image give the pattern of a
// bottom-up image with a full grey ramp.
TEST(OrderedDither, ShortTablesAndTopDown) {
    std::vector<int> stored, reversed, ramp16;
    for (int i = 0; i < 23 * 9; ++i) stored.push_back(i * 37 % 256);
    for (int i = 0; i < 23 * 9; ++i) reversed.push_back(stored[(8 - i / 23) * 23 + i % 23]);
    for (int i = 0; i < 16; ++i) ramp16.push_back(G(i * 17));
    HGLOBAL full = Image(8, 23, 9, stored), shortTable = Image(8, 23, 9, stored, ramp16),
            topDown = Image(8, 23, -9, reversed);
    for (int type = 0; type < kOrderedMatrixCount; ++type) {
        std::vector<BYTE> want = Dither(DitherOrdered, full, type), a = Dither(DitherOrdered, shortTable, type),
                          b = Dither(DitherOrdered, topDown, type);
        ASSERT_EQ(want.size(), a.size());
        EXPECT_TRUE(std::equal(want.end() - 4 * 9, want.end(), a.end() - 4 * 9)) << type;
        for (int r = 0; r < 9; ++r)
            for (int x = 0; x < 23; ++x) ASSERT_EQ(Pixel(b, 8 - r, x), Pixel(want, r, x)) << type;
    }
    for (HGLOBAL h : {full, shortTable, topDown}) GlobalFree(h);
}

// Its own refusals return null and leave the status as it was.
TEST(OrderedDither, Refusals) {
    auto picture = [](int x, int y) { return x * y; };
    const struct {
        const char *what;
        HGLOBAL image;
        int type;
    } cases[] = {{"type 7", Image8(8, 8, picture), 7},          {"type -1", Image8(8, 8, picture), -1},
                 {"null image", nullptr, 0},                   {"24-bit image", Image(24, 8, 8, {0x808080}), 0},
                 {"4-bit image", Image(4, 8, 8, {15}), 0},    {"unlockable", GlobalAlloc(GMEM_MOVEABLE, 0), 0}};
    for (const auto &c : cases) {
        Status() = 99;
        HDIB out = DitherOrdered(c.image, c.type);
        EXPECT_EQ(out, nullptr) << c.what;
        if (out) GlobalFree(out);
        EXPECT_EQ(Status(), 99u) << c.what;
        EXPECT_EQ(c.image ? paxtest::LockCount(c.image) : 0, 0) << c.what;
        if (c.image) GlobalFree(c.image);
    }
    // An empty image gets as far as DitherSierra, which reports it.
    HGLOBAL empty = Image8(0, 4, picture);
    Status() = 99;
    EXPECT_EQ(DitherOrdered(empty, 3), nullptr);
    EXPECT_EQ(Status(), DWORD{IMS_NOMEMORY});
    GlobalFree(empty);
    // The working copy is the first allocation and the image the first lock:
    // failing either is its own refusal and leaves the status.
    HGLOBAL image = Image8(9, 7, picture);
    std::vector<DWORD> statuses;
    paxtest::SweepCounts counts = paxtest::SweepFailures(
        [&]() -> HGLOBAL {
            Status() = 99;
            HDIB out = DitherOrdered(image, 4);
            statuses.push_back(Status());
            return out;
        },
        {image});
    GlobalFree(image);
    if (!paxtest::HaveCensus()) return;
    ASSERT_EQ(statuses.size(), size_t(1 + counts.allocationPoints + counts.lockPoints));
    EXPECT_EQ(statuses[0], DWORD{IMS_OK});
    EXPECT_EQ(statuses[1], 99u);
    EXPECT_EQ(statuses[1 + counts.allocationPoints], 99u);
}

} // namespace
