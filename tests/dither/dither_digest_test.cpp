// Every error-diffusion and block dither at every depth it offers over a table
// of seeded images, folded into one digest. The program runs twice (plain and
// fast passes, BOTH_PATHS), so the one pinned digest says that the two give
// the same bytes; the worked examples in the other files pin the rules. The
// digest was also reproduced, when it was pinned, by a separate evaluation
// written from the rules with no shortcuts.
#include "dither_test_util.h"

#include <gtest/gtest.h>

#include <cstdio>

using namespace dithertest;

namespace {

struct Method {
    const char *name;
    DitherFn dither;
    std::vector<int> depths;
};
const Method kMethods[] = {
    {"FS4", DitherFS4, {1, 4, 8}},       {"Burkes", DitherBurkes, {1, 4, 8}},
    {"Sierra", DitherSierra, {1, 4, 8}}, {"JJN", DitherJJN, {1, 4, 8}},
    {"Stucki", DitherStucki, {1, 4, 8}}, {"SA", DitherSA, {1, 4, 8}},
    {"Sharp", DitherSharp, {1, 4}},      {"Smooth", DitherSmooth, {1, 4}},
};

uint64_t Fold(uint64_t digest, const std::vector<BYTE> &bytes) {
    for (BYTE b : bytes) digest = (digest ^ b) * 0x100000001B3ull; // FNV-1a
    return (digest ^ bytes.size()) * 0x100000001B3ull;
}

// What the images are made of: seeded noise (with a random colour table at
// 4 and 8 bits, short or full), or all white.
enum Fill { kNoise, kWhite };
struct Case {
    int depth, w, h;
    int entries; // colour-table entries; -1 for the full table
    bool topDown;
    Fill fill;
};

std::vector<Case> Cases() {
    std::vector<Case> cases;
    // Widths 1..70 at every source depth, full and short tables, some
    // top-down, one to nine rows.
    for (int w = 1; w <= 70; ++w) {
        const int depth = std::vector<int>{4, 8, 24}[w % 3];
        const int entries = depth != 24 && w % 4 == 1 ? 1 + w % (depth == 4 ? 15 : 255) : -1;
        cases.push_back({depth, w, 1 + w * 7 % 9, entries, w % 5 == 0, kNoise});
    }
    // Wide rows, beyond 16-bit column counts too (and beyond 65,535).
    cases.push_back({24, 40000, 2, -1, false, kNoise});
    cases.push_back({8, 4099, 3, 200, true, kNoise});
    cases.push_back({4, 33001, 2, 9, false, kNoise});
    cases.push_back({24, 65601, 2, -1, true, kNoise});
    // White at 8 bits measures its error against 224 and 192, so the cells
    // grow row by row until they wrap past 32767.
    cases.push_back({24, 256, 1000, -1, false, kWhite});
    return cases;
}

HGLOBAL Make(const Case &c, paxtest::Rng &rng) {
    paxtest::Rng pix(rng.Next());
    HGLOBAL image = paxtest::MakeDib(
        c.w, c.h, c.depth,
        [&](int, int, int) { return c.fill == kWhite ? BYTE{255} : pix.Byte(); }, c.entries);
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    if (c.depth != 24)
        for (int i = 0; i < 4 * (c.entries < 0 ? 1 << c.depth : c.entries); ++i)
            p[40 + i] = pix.Byte();
    if (c.topDown) reinterpret_cast<BITMAPINFOHEADER *>(p)->biHeight = -c.h;
    GlobalUnlock(image);
    return image;
}

TEST(DitherDigest, EveryMethodDepthAndImage) {
    paxtest::Rng rng(2718);
    uint64_t digest = 0xCBF29CE484222325ull;
    int runs = 0;
    for (const Case &c : Cases()) {
        HGLOBAL image = Make(c, rng);
        for (const Method &m : kMethods)
            for (int bits : m.depths) {
                if (bits >= c.depth) continue;
                std::vector<BYTE> out = Dither(m.dither, image, bits);
                ASSERT_FALSE(out.empty()) << m.name << " " << c.w << "x" << c.h;
                digest = Fold(digest, out);
                ++runs;
                // The wrapped cells show as pixels below the top level.
                if (c.fill == kWhite && bits == 8) {
                    bool dark = false;
                    for (int x = 0; x < c.w && !dark; ++x)
                        for (int r = 0; r < c.h && !dark; ++r) dark = Pixel(out, r, x) != 255;
                    EXPECT_TRUE(dark) << m.name << ": no cell wrapped";
                }
            }
        GlobalFree(image);
    }
    EXPECT_EQ(runs, 1164);
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digest));
    EXPECT_STREQ(text, "d92faecb6a7e08dd");
}

} // namespace
