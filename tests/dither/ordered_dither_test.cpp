// DitherOrdered: its threshold matrices and its silent refusals. Its worked
// examples are in examples.txt, its seeded images in dither_digest_test.cpp.
#include "census.h"
#include "dither_test_util.h"
#include "ordered_dither.h"

using namespace dithertest;

namespace {

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
    // Type 5 is type 6 at its even rows and columns.
    const BYTE *five = GetOrderedMatrix(5).entries, *six = GetOrderedMatrix(6).entries;
    for (int i = 0; i < 64; ++i) EXPECT_EQ(five[i], six[(i / 8) * 32 + (i % 8) * 2]) << i;
}

// Its own refusals return null and leave the status as it was.
TEST(OrderedDither, Refusals) {
    const struct {
        const char *what;
        HGLOBAL image;
        int type;
    } cases[] = {{"type 7", Image(8, 8, 8, {200}), 7},          {"type -1", Image(8, 8, 8, {200}), -1},
                 {"null image", nullptr, 0},                    {"24-bit image", Image(24, 8, 8, {0x808080}), 0},
                 {"4-bit image", Image(4, 8, 8, {15}), 0},      {"unlockable", GlobalAlloc(GMEM_MOVEABLE, 0), 0}};
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
    HGLOBAL empty = Image(8, 0, 4, {0});
    Status() = 99;
    EXPECT_EQ(DitherOrdered(empty, 3), nullptr);
    EXPECT_EQ(Status(), DWORD{IMS_NOMEMORY});
    GlobalFree(empty);
    // The working copy is the first allocation and the image the first lock:
    // failing either is its own refusal and leaves the status.
    HGLOBAL image = Image(8, 9, 7, {200});
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
