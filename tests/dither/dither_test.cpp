// The dithers: the worked examples of examples.txt (whole results, colour
// tables, single blocks, the threshold matrices; their checks and failures
// are the export table's),
// and every dither at every depth or type it offers over a table of seeded
// images, pinned by one digest per dither. The program runs twice (fast and
// straightforward paths, BOTH_PATHS), so each digest also says that the two
// paths give the same bytes.
#include "examples.h"
#include "block_dither.h"
#include "ordered_dither.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

using namespace paxtest;

using DitherFn = HDIB (*)(HDIB, int);

// Group 0 reports a null handle as a bad parameter, group 1 as a failed lock;
// group 2 are the block dithers; DitherOrdered takes a matrix type.
struct Method {
    std::string name;
    DitherFn dither;
    std::vector<int> args; // depths, or matrix types
    int group;
};
const Method kMethods[] = {
    {"FS4", DitherFS4, {1, 4, 8}, 0},       {"Burkes", DitherBurkes, {1, 4, 8}, 0},
    {"Sierra", DitherSierra, {1, 4, 8}, 0}, {"JJN", DitherJJN, {1, 4, 8}, 1},
    {"Stucki", DitherStucki, {1, 4, 8}, 1}, {"SA", DitherSA, {1, 4, 8}, 1},
    {"Sharp", DitherSharp, {1, 4}, 2},      {"Smooth", DitherSmooth, {1, 4}, 2},
    {"Ordered", DitherOrdered, {0, 1, 2, 3, 4, 5, 6}, 3}};
size_t Named(const std::string &name) {
    return std::find_if(std::begin(kMethods), std::end(kMethods), [&](const Method &m) { return m.name == name; }) -
           std::begin(kMethods);
}

constexpr int G(int g) { return g * 0x010101; } // grey g as 0xRRGGBB

// The rows of examples.txt that start with `kind`.
std::vector<Example> Examples(const std::string &kind) { return ReadExamples("examples.txt", kind); }

// An image from data. Pixels are listed in stored order, the first stored row
// first (one value fills the image): 0xRRGGBB at 24 bits, indices at 4 and 8.
// The colour table, 0xRRGGBB values, sets biClrUsed; when it is empty the
// table is a full grey ramp. Pixels per metre 1234 and 5678; a negative h
// marks the rows top-down.
HGLOBAL Image(int depth, int w, int h, const std::vector<int> &pixels, const std::vector<int> &table = {}) {
    const int rows = std::abs(h);
    auto fill = [&](int x, int y, int k) {
        const int v = pixels.size() == 1 ? pixels[0] : pixels[size_t(rows - 1 - y) * w + x];
        return static_cast<BYTE>(depth == 24 ? v >> (8 * k) : v);
    };
    HGLOBAL image = MakeDib(w, rows, depth, fill, table.empty() ? -1 : int(table.size()));
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    for (size_t i = 0; i < 4 * table.size(); ++i) p[40 + i] = static_cast<BYTE>(table[i / 4] >> (8 * (i % 4)));
    auto *header = reinterpret_cast<BITMAPINFOHEADER *>(p);
    header->biXPelsPerMeter = 1234;
    header->biYPelsPerMeter = 5678;
    header->biHeight = h;
    GlobalUnlock(image);
    return image;
}

// Pixel x of stored row r of a 1-, 4- or 8-bit result.
int Pixel(const std::vector<BYTE> &block, int r, int x) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, block.data(), sizeof h);
    const int bits = h.biBitCount;
    const int64_t stride = ((int64_t{h.biWidth} * bits + 31) / 32) * 4, bit = int64_t{x} * bits;
    const BYTE *row = block.data() + 40 + (size_t{4} << bits) + r * stride;
    return (row[bit / 8] >> (8 - bits - bit % 8)) & ((1 << bits) - 1);
}

// The header, the table size and the whole pixel rows, padding included.
TEST(DitherExamples, HandDerivedResults) {
    for (const Example &c : Examples("dither")) {
        const Method &m = kMethods[Named(c.words[0])];
        const int arg = c.I(1), w = c.I(3), h = c.I(4), bits = m.group == 3 ? 1 : arg, rows = std::abs(h);
        SCOPED_TRACE(c.line);
        HGLOBAL image = Image(c.I(2), w, h, c.fields[0], c.fields[1]);
        GetThreadState()->imageStatus = 99;
        std::vector<BYTE> out = Consume(m.dither(image, arg));
        GlobalFree(image);
        ASSERT_FALSE(out.empty());
        EXPECT_EQ(GetThreadState()->imageStatus, DWORD{IMS_OK});
        const DWORD s = DWORD((w * bits + 31) / 32 * 4), colours = 1u << bits;
        const DWORD header[10] = {40, DWORD(w), DWORD(h), 1u | DWORD(bits) << 16, 0, s * rows, 1234, 5678, colours, 0};
        ASSERT_EQ(out.size(), 40 + 4 * colours + s * rows);
        EXPECT_EQ(std::memcmp(out.data(), header, 40), 0);
        std::vector<BYTE> pixels(s * rows);
        for (int r = 0; r < rows; ++r)
            for (int x = 0; x < w; ++x)
                pixels[r * s + x * bits / 8] |= BYTE(c.fields[2][r * w + x] << (8 - bits - x * bits % 8));
        EXPECT_TRUE(std::equal(pixels.begin(), pixels.end(), out.end() - pixels.size()));
    }
}

TEST(DitherExamples, ColourTables) {
    HGLOBAL image = Image(24, 1, 1, {G(9)});
    for (const Example &c : Examples("table")) {
        std::vector<BYTE> out = Consume(DitherFS4(image, c.I(0)));
        ASSERT_FALSE(out.empty());
        const BYTE *entry = out.data() + 40 + 4 * c.I(1);
        EXPECT_EQ(std::vector<int>(entry, entry + 4), c.fields[0]) << c.line;
    }
    GlobalFree(image);
}

TEST(DitherExamples, BlockRowPass) {
    for (const Example &c : Examples("block")) {
        const std::vector<int> &q = c.fields[0];
        int16_t a[3] = {int16_t(q[0]), int16_t(q[1]), 0}, b[3] = {int16_t(q[2]), int16_t(q[3]), 0};
        BYTE out = 0xFF;
        BlockRowPass(a, b, &out, c.I(1), c.I(0) == 1);
        EXPECT_EQ((std::vector<int>{a[0], a[1], b[0], b[1]}), c.fields[1]) << q[0] << " " << q[1];
        EXPECT_EQ(out, c.fields[2][0]) << q[0] << " " << q[1]; // the bits after the pixels are 0
    }
}

// The rows written out in examples.txt, and every entry pinned by a digest.
TEST(DitherExamples, OrderedMatrices) {
    uint64_t digest = 0xCBF29CE484222325ull; // FNV-1a over n, maxM and the entries
    for (int t = 0; t < kOrderedMatrixCount; ++t) {
        const OrderedMatrix &m = GetOrderedMatrix(t);
        digest = ((((digest ^ m.n) * 0x100000001B3ull) ^ m.maxM) * 0x100000001B3ull);
        for (int i = 0; i < m.n * m.n; ++i) digest = (digest ^ m.entries[i]) * 0x100000001B3ull;
    }
    EXPECT_EQ(digest, 0x542cac9e1420d812ull);
    for (const Example &r : Examples("matrix")) {
        const OrderedMatrix &m = GetOrderedMatrix(r.I(0));
        EXPECT_EQ(m.n, int(r.fields[0].size()));
        EXPECT_EQ(m.maxM, r.I(2));
        const BYTE *row = m.entries + r.I(1) * m.n;
        EXPECT_EQ(std::vector<int>(row, row + m.n), r.fields[0]) << r.line;
    }
}

// The images of the `case` lines after seeded noise of widths 1 to 70 at 4,
// 8 and 24 bits, with a seeded table (short for some) or the grey ramp, some
// top-down, some darker (pixels below `top`). Besides the digests: 4-bit
// results hold only even indices (the corners of the colour cube); 1-bit rows
// end in zero bits and bytes; flat black gives 0, flat white the top level,
// except at 8 bits in the tall image, whose wrapped cells fall below it.
TEST(DitherDigest, EveryDitherDepthAndImage) {
    struct Case {
        int depth, w, h, entries, top, topDown, seededTable, fill;
    };
    std::vector<Case> cases;
    for (int w = 1; w <= 70; ++w) {
        const int depth = std::vector<int>{4, 8, 24}[w % 3], h = 1 + w * 7 % 9;
        const int entries = depth != 24 && w % 4 == 1 ? 1 + w % (depth == 4 ? 15 : 255) : 0;
        cases.push_back({depth, w, h, entries, w % 7 == 3 ? 1 + 3 * w : 256, w % 5 == 0, w % 2 == 0 && depth < 24, 0});
    }
    for (const Example &c : Examples("case"))
        cases.push_back({c.I(0), c.I(1), c.I(2), c.I(3), c.I(4), c.I(5), c.I(6), c.I(7)});
    Rng rng(2718);
    std::vector<uint64_t> digests(std::size(kMethods), kDigestStart);
    for (const Case &c : cases) {
        std::vector<int> pixels(size_t(c.w) * c.h), table(c.entries ? c.entries : c.seededTable << c.depth);
        for (int &v : pixels)
            v = c.fill ? G(c.fill == 1 ? 255 : 0) : c.depth == 24 ? int(rng.Next() >> 8) : rng.Below(c.top);
        for (int &v : table) v = int(rng.Next());
        HGLOBAL image = Image(c.depth, c.w, c.topDown ? -c.h : c.h, pixels, table);
        for (size_t i = 0; i < digests.size(); ++i) {
            const bool ordered = kMethods[i].group == 3;
            for (int arg : kMethods[i].args) {
                if (ordered ? c.depth != 8 : arg >= c.depth) continue;
                std::vector<BYTE> out = Consume(kMethods[i].dither(image, arg));
                ASSERT_FALSE(out.empty()) << kMethods[i].name << " " << c.w << "x" << c.h << " arg " << arg;
                digests[i] = Fold(digests[i], out);
                const int bits = ordered ? 1 : arg, s = (c.w * bits + 31) / 32 * 4;
                bool odd = false, padding = false, flat = true;
                for (int r = 0; r < c.h; ++r) {
                    for (int x = 0; x < c.w && (bits == 4 || c.fill); ++x) {
                        const int v = Pixel(out, r, x);
                        odd |= bits == 4 && v % 2;
                        flat &= v == (c.fill == 2 ? 0 : bits == 1 ? 1 : bits == 4 ? 14 : 255);
                    }
                    for (int x = c.w; x < s * 8 / bits && bits == 1; ++x) padding |= Pixel(out, r, x) != 0;
                }
                EXPECT_FALSE(odd || padding) << kMethods[i].name << " " << c.w << "x" << c.h << " arg " << arg;
                EXPECT_TRUE(!c.fill || flat == (bits != 8 || c.h != 1000)) << kMethods[i].name << " " << c.w;
            }
        }
        GlobalFree(image);
    }
    for (const Example &d : Examples("digest")) {
        char text[17];
        std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digests[Named(d.words[0])]));
        EXPECT_EQ(text, d.words[1]) << d.line;
    }
}

} // namespace
