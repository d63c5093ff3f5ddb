// Every dither at every depth or type it offers over one table of seeded
// images, one digest per dither. The program runs twice (fast and
// straightforward paths, BOTH_PATHS), so each pinned digest also says that
// the two paths give the same bytes; the worked examples in the other files
// pin the rules. The digests of the error-diffusion and block dithers were
// reproduced, when they were pinned, by a separate evaluation written from
// the rules with no shortcuts.
#include "dither_test_util.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

using namespace dithertest;

namespace {

// Source images: seeded noise at 4, 8 and 24 bits, values below `top` (so
// the brightest pixel varies), with a seeded colour table (short when
// `entries` > 0) or the grey ramp; some stored top-down; one all white.
struct Case {
    int depth, w, h, entries, top;
    bool topDown, randomTable, white;
};

std::vector<Case> Cases() {
    std::vector<Case> cases;
    for (int w = 1; w <= 70; ++w) {
        const int depth = std::vector<int>{4, 8, 24}[w % 3];
        const int entries = depth != 24 && w % 4 == 1 ? 1 + w % (depth == 4 ? 15 : 255) : 0;
        cases.push_back({depth, w, 1 + w * 7 % 9, entries, w % 7 == 3 ? 1 + 3 * w : 256, w % 5 == 0, w % 2 == 0, false});
    }
    cases.push_back({8, 13, 5, 0, 1, false, false, false}); // all 0
    // Wide rows, beyond 16-bit column counts too (and beyond 65,535).
    cases.push_back({24, 40000, 2, 0, 256, false, false, false});
    cases.push_back({8, 4099, 3, 200, 256, true, true, false});
    cases.push_back({4, 33001, 2, 9, 256, false, true, false});
    cases.push_back({24, 65601, 2, 0, 256, true, false, false});
    // White at 8 bits measures its error against 224 and 192, so the cells
    // grow row by row until they wrap past 32767.
    cases.push_back({24, 256, 1000, 0, 256, false, false, true});
    return cases;
}

HGLOBAL Make(const Case &c, paxtest::Rng &rng) {
    std::vector<int> pixels(size_t(c.w) * c.h), table(c.entries ? c.entries : c.randomTable && c.depth <= 8 ? 1 << c.depth : 0);
    for (int &v : pixels) v = c.white ? 0xFFFFFF : c.depth == 24 ? int(rng.Next() >> 8) : rng.Below(c.top);
    for (int &v : table) v = int(rng.Next());
    return Image(c.depth, c.w, c.topDown ? -c.h : c.h, pixels, table);
}

uint64_t Fold(uint64_t digest, const std::vector<BYTE> &bytes) {
    for (BYTE b : bytes) digest = (digest ^ b) * 0x100000001B3ull; // FNV-1a
    return (digest ^ bytes.size()) * 0x100000001B3ull;
}

struct Pinned {
    const char *name;
    DitherFn dither;
    std::vector<int> args; // depths, or matrix types
    const char *digest;
};
const Pinned kPinned[] = {
    {"DitherFS4", DitherFS4, {1, 4, 8}, "cfd28050d454e757"},
    {"DitherBurkes", DitherBurkes, {1, 4, 8}, "8377e8f083bfd8f1"},
    {"DitherSierra", DitherSierra, {1, 4, 8}, "9cabf3036d4d1211"},
    {"DitherJJN", DitherJJN, {1, 4, 8}, "635b462b952c36d7"},
    {"DitherStucki", DitherStucki, {1, 4, 8}, "cc7a6fb605a2ea5a"},
    {"DitherSA", DitherSA, {1, 4, 8}, "a4048fa2cbdff698"},
    {"DitherSharp", DitherSharp, {1, 4}, "5c245284a9495c4b"},
    {"DitherSmooth", DitherSmooth, {1, 4}, "7ccb9c4c5e6e702f"},
    {"DitherOrdered", DitherOrdered, {0, 1, 2, 3, 4, 5, 6}, "0c4df38538a5a9bd"},
};

// Besides the digests: 4-bit results hold only even indices (the corners of
// the colour cube), 1-bit rows end in zero bits and bytes, and the white
// image's wrapped cells show at 8 bits as pixels below the top level.
TEST(DitherDigest, EveryDitherDepthAndImage) {
    paxtest::Rng rng(2718);
    std::vector<uint64_t> digests(std::size(kPinned), 0xCBF29CE484222325ull);
    for (const Case &c : Cases()) {
        HGLOBAL image = Make(c, rng);
        for (size_t i = 0; i < digests.size(); ++i) {
            const bool ordered = kPinned[i].dither == DitherOrdered;
            for (int arg : kPinned[i].args) {
                if (ordered ? c.depth != 8 : arg >= c.depth) continue;
                std::vector<BYTE> out = Dither(kPinned[i].dither, image, arg);
                ASSERT_FALSE(out.empty()) << kPinned[i].name << " " << c.w << "x" << c.h << " arg " << arg;
                digests[i] = Fold(digests[i], out);
                const int bits = ordered ? 1 : arg, s = (c.w * bits + 31) / 32 * 4;
                bool odd = false, padding = false, dark = false;
                for (int r = 0; r < c.h; ++r) {
                    for (int x = 0; x < c.w && (bits == 4 || c.white); ++x) {
                        odd |= bits == 4 && Pixel(out, r, x) % 2;
                        dark |= Pixel(out, r, x) != 255;
                    }
                    for (int x = c.w; x < s * 8 / bits && bits == 1; ++x) padding |= Pixel(out, r, x) != 0;
                }
                EXPECT_FALSE(odd || padding) << kPinned[i].name << " " << c.w << "x" << c.h << " arg " << arg;
                EXPECT_TRUE(!c.white || bits != 8 || dark) << kPinned[i].name << ": no cell wrapped";
            }
        }
        GlobalFree(image);
    }
    for (size_t i = 0; i < digests.size(); ++i) {
        char text[17];
        std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digests[i]));
        EXPECT_STREQ(text, kPinned[i].digest) << kPinned[i].name;
    }
}

// Flat white gives the top level at 1 and 4 bits (8 bits drifts, as above);
// flat black gives zero pixel bytes at every depth.
TEST(DitherDigest, FlatImages) {
    for (const Pinned &p : kPinned) {
        if (p.dither == DitherOrdered) continue;
        for (int w : {1, 7, 33}) {
            HGLOBAL white = Image(24, w, 6, {G(255)}), black = Image(24, w, 6, {0});
            for (int bits : p.args) {
                std::vector<BYTE> wo = Dither(p.dither, white, bits), bo = Dither(p.dither, black, bits);
                for (int r = 0; r < 6; ++r)
                    for (int x = 0; x < w && bits != 8; ++x) ASSERT_EQ(Pixel(wo, r, x), bits == 1 ? 1 : 14) << p.name;
                ASSERT_GT(bo.size(), size_t(40 + (4 << bits)));
                EXPECT_TRUE(std::all_of(bo.begin() + (40 + (4 << bits)), bo.end(), [](BYTE b) { return b == 0; }));
            }
            GlobalFree(white);
            GlobalFree(black);
        }
    }
}

} // namespace
