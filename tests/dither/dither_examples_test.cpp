// The worked examples of examples.txt: whole results of every dither, the
// colour tables of the results, the block pass on single blocks,
// and the codes of their checks. Seeded images of every depth are pinned in
// dither_digest_test.cpp.
#include "block_dither.h"
#include "dither_test_util.h"

#include <algorithm>
#include <cstdlib>
#include <map>

using namespace dithertest;

namespace {

// The header, the table size and the whole pixel rows, padding included.
TEST(DitherExamples, HandDerivedResults) {
    for (const Line &c : Examples("dither")) {
        const Method &m = Named(c.head[0]);
        const int arg = std::stoi(c.head[1]), w = std::stoi(c.head[3]), h = std::stoi(c.head[4]);
        const int bits = m.group == 3 ? 1 : arg, rows = std::abs(h);
        SCOPED_TRACE(c.head[0] + " " + c.head[1] + " " + c.head[3] + "x" + c.head[4]);
        HGLOBAL image = Image(std::stoi(c.head[2]), w, h, c.fields[0], c.fields[1]);
        Status() = 99;
        std::vector<BYTE> out = Dither(m.dither, image, arg);
        GlobalFree(image);
        ASSERT_FALSE(out.empty());
        EXPECT_EQ(Status(), DWORD{IMS_OK});
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
    for (const Line &c : Examples("table")) {
        std::vector<BYTE> out = Dither(DitherFS4, image, std::stoi(c.head[0]));
        ASSERT_FALSE(out.empty());
        const BYTE *entry = out.data() + 40 + 4 * std::stoi(c.head[1]);
        EXPECT_EQ(std::vector<int>(entry, entry + 4), c.fields[0]) << c.head[0] << " bits, entry " << c.head[1];
    }
    GlobalFree(image);
}

TEST(DitherExamples, BlockRowPass) {
    for (const Line &c : Examples("block")) {
        const std::vector<int> &q = c.fields[0];
        int16_t a[3] = {int16_t(q[0]), int16_t(q[1]), 0}, b[3] = {int16_t(q[2]), int16_t(q[3]), 0};
        BYTE out = 0xFF;
        BlockRowPass(a, b, &out, std::stoi(c.head[1]), c.head[0] == "1");
        EXPECT_EQ((std::vector<int>{a[0], a[1], b[0], b[1]}), c.fields[1]) << q[0] << " " << q[1];
        EXPECT_EQ(out, c.fields[2][0]) << q[0] << " " << q[1]; // the bits after the pixels are 0
    }
}

// The checks of every error-diffusion and block dither; the conversion error
// is not theirs to touch.
TEST(DitherChecks, CodesOfEveryMethod) {
    const std::map<std::string, HGLOBAL> images = {
        {"rgb", Image(24, 5, 3, {0x123456})}, {"img8", Image(8, 7, 3, {200})},   {"img4", Image(4, 7, 3, {5})},
        {"mono", Image(1, 5, 3, {1})},        {"deep16", Image(16, 5, 3, {7})},  {"deep32", Image(32, 5, 3, {7})},
        {"nowidth", Image(24, 0, 3, {9})},    {"noheight", Image(24, 3, 0, {9})}, {"null", nullptr},
        {"unlockable", GlobalAlloc(GMEM_MOVEABLE, 0)}};
    GetThreadState()->convertError = CCE_BADMODEL;
    for (const Line &c : Examples("check"))
        for (const Method &m : Methods()) {
            if (m.group > 2) continue;
            HGLOBAL image = images.at(c.head[0]);
            Status() = 99;
            HDIB out = m.dither(image, std::stoi(c.head[1]));
            EXPECT_EQ(out != nullptr, c.fields[0][m.group] == IMS_OK) << m.name << " " << c.head[0];
            EXPECT_EQ(paxtest::ImsName(Status()), paxtest::ImsName(c.fields[0][m.group])) << m.name << " " << c.head[0]
                                                                                          << " bits " << c.head[1];
            if (out) GlobalFree(out);
            EXPECT_EQ(image ? paxtest::LockCount(image) : 0, 0);
        }
    EXPECT_EQ(GetLastColorConvertError(), DWORD{CCE_BADMODEL});
    GetThreadState()->convertError = 0;
    for (const auto &[name, image] : images)
        if (image) GlobalFree(image);
}

} // namespace
