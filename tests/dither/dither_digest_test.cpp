// Every dither at every depth or type it offers over one table of seeded
// images, one digest per dither (pinned in examples.txt). The program runs
// twice (fast and straightforward paths, BOTH_PATHS), so each digest also
// says that the two paths give the same bytes; the worked examples pin the
// rules.
#include "dither_test_util.h"

#include <cstdio>

using namespace dithertest;

namespace {

// Source images at 4, 8 and 24 bits: seeded noise below `top` (so that the
// brightest pixel varies), with a seeded colour table (short when `entries`
// > 0) or the grey ramp, some stored top-down; flat white and black.
enum Fill { kNoise, kWhite, kBlack };
struct Case {
    int depth, w, h, entries, top;
    bool topDown, randomTable;
    Fill fill = kNoise;
};

std::vector<Case> Cases() {
    std::vector<Case> cases;
    for (int w = 1; w <= 70; ++w) {
        const int depth = std::vector<int>{4, 8, 24}[w % 3];
        const int entries = depth != 24 && w % 4 == 1 ? 1 + w % (depth == 4 ? 15 : 255) : 0;
        cases.push_back({depth, w, 1 + w * 7 % 9, entries, w % 7 == 3 ? 1 + 3 * w : 256, w % 5 == 0, w % 2 == 0});
    }
    cases.push_back({8, 13, 5, 0, 1, false, false}); // all 0
    // Wide rows, beyond 16-bit column counts too (and beyond 65,535).
    cases.push_back({24, 40000, 2, 0, 256, false, false});
    cases.push_back({8, 4099, 3, 200, 256, true, true});
    cases.push_back({4, 33001, 2, 9, 256, false, true});
    cases.push_back({24, 65601, 2, 0, 256, true, false});
    for (int w : {1, 7, 33}) cases.push_back({24, w, 6, 0, 256, false, false, kBlack});
    for (int w : {1, 7, 33}) cases.push_back({24, w, 6, 0, 256, false, false, kWhite});
    // White at 8 bits measures its error against 224 and 192, so the cells
    // grow row by row until they wrap past 32767.
    cases.push_back({24, 256, 1000, 0, 256, false, false, kWhite});
    return cases;
}

HGLOBAL Make(const Case &c, paxtest::Rng &rng) {
    std::vector<int> pixels(size_t(c.w) * c.h), table(c.entries ? c.entries : c.randomTable && c.depth <= 8 ? 1 << c.depth : 0);
    for (int &v : pixels) v = c.fill ? G(c.fill == kWhite ? 255 : 0) : c.depth == 24 ? int(rng.Next() >> 8) : rng.Below(c.top);
    for (int &v : table) v = int(rng.Next());
    return Image(c.depth, c.w, c.topDown ? -c.h : c.h, pixels, table);
}

uint64_t Fold(uint64_t digest, const std::vector<BYTE> &bytes) {
    for (BYTE b : bytes) digest = (digest ^ b) * 0x100000001B3ull; // FNV-1a
    return (digest ^ bytes.size()) * 0x100000001B3ull;
}

// Besides the digests: 4-bit results hold only even indices (the corners of
// the colour cube) and 1-bit rows end in zero bits and bytes. Flat black
// gives 0 everywhere, flat white the top level at 1 and 4 bits, and at 8 bits
// the wrapped cells of the tall white image show as pixels below the top.
TEST(DitherDigest, EveryDitherDepthAndImage) {
    paxtest::Rng rng(2718);
    const std::vector<Method> &methods = Methods();
    std::vector<uint64_t> digests(methods.size(), 0xCBF29CE484222325ull);
    for (const Case &c : Cases()) {
        HGLOBAL image = Make(c, rng);
        for (size_t i = 0; i < methods.size(); ++i) {
            const bool ordered = methods[i].group == 3;
            for (int arg : methods[i].args) {
                if (ordered ? c.depth != 8 : arg >= c.depth) continue;
                std::vector<BYTE> out = Dither(methods[i].dither, image, arg);
                ASSERT_FALSE(out.empty()) << methods[i].name << " " << c.w << "x" << c.h << " arg " << arg;
                digests[i] = Fold(digests[i], out);
                const int bits = ordered ? 1 : arg, s = (c.w * bits + 31) / 32 * 4, top = bits == 1 ? 1 : 14;
                bool odd = false, padding = false, flat = true, dark = false;
                for (int r = 0; r < c.h; ++r) {
                    for (int x = 0; x < c.w && (bits == 4 || c.fill); ++x) {
                        const int v = Pixel(out, r, x);
                        odd |= bits == 4 && v % 2;
                        flat &= v == (c.fill == kBlack ? 0 : bits == 8 ? 255 : top);
                        dark |= v != 255;
                    }
                    for (int x = c.w; x < s * 8 / bits && bits == 1; ++x) padding |= Pixel(out, r, x) != 0;
                }
                EXPECT_FALSE(odd || padding) << methods[i].name << " " << c.w << "x" << c.h << " arg " << arg;
                EXPECT_TRUE(!c.fill || flat || (bits == 8 && c.h == 1000 && dark)) << methods[i].name << " " << c.w;
            }
        }
        GlobalFree(image);
    }
    for (const Line &d : Examples("digest")) {
        char text[17];
        const size_t i = &Named(d.head[0]) - methods.data();
        std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digests[i]));
        EXPECT_EQ(text, d.head[1]) << d.head[0];
    }
}

} // namespace
