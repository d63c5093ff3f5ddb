// GammaCorrection: every gamma on every component value, and a set of seeded
// images (colour tables, padding, top-down), each pinned by a digest beside
// worked examples (gamma_correction.txt); the range codes and the codes of
// injected failures. BOTH_PATHS: the digests hold on both paths.
#include "adjust_support.h"

#include <gtest/gtest.h>

namespace {

using namespace paxtest;

HDIB Gamma(HGLOBAL image, int r, int g, int b) { return GammaCorrection(image, r, g, b, 0, nullptr); }

// The library's correction of v with gamma g: a row of every value, with
// the same gamma in all three channels.
int Corrected(int v, int g) {
    static std::vector<std::vector<BYTE>> rows(501);
    static HGLOBAL every = MakeDib(256, 1, 24, [](int x, int, int) { return BYTE(x); });
    if (rows[g].empty()) rows[g] = Consume(Gamma(every, g, g, g));
    return rows[g].at(40 + 3 * v);
}

TEST(GammaCorrection, EveryGammaAndWorkedValues) {
    uint64_t digest = 14695981039346656037ull; // FNV-1a over 491 x 256 values
    for (int g = 10; g <= 500; ++g)
        for (int v = 0; v < 256; ++v) digest = (digest ^ static_cast<uint64_t>(Corrected(v, g))) * 1099511628211ull;
    EXPECT_EQ(digest, 0x2a1997ac9d0c165cull);
    for (const Example &e : ReadExamples("gamma_correction.txt", "value")) EXPECT_EQ(Corrected(e.I(1), e.I(0)), e.I(2)) << e.line;
    for (const Example &e : ReadExamples("gamma_correction.txt", "pixel")) {
        HGLOBAL image = MakeDib24(1, 1, [&](int, int) { return Rgb{BYTE(e.v[3]), BYTE(e.v[4]), BYTE(e.v[5])}; });
        HDIB out = Gamma(image, e.I(0), e.I(1), e.I(2));
        EXPECT_TRUE(out && Pixel24(out, 0, 0) == (Rgb{BYTE(e.v[6]), BYTE(e.v[7]), BYTE(e.v[8])})) << e.line;
        GlobalFree(out);
        GlobalFree(image);
    }
    for (int g = 10; g <= 500; ++g) EXPECT_TRUE(Corrected(0, g) == 0 && Corrected(1, g) == 1) << g;
    for (int v = 61; v < 256; ++v) EXPECT_EQ(Corrected(v, 500), 255);
}

// Gamma 100 copies the block byte for byte; the rest is pinned by a digest.
TEST(GammaCorrection, WholeImagesOneDigest) {
    Rng rng(29);
    uint64_t digest = kDigestStart;
    for (int w : {1, 2, 3, 4, 5, 9, 17, 33, 100})
        for (int round = 0; round < 2; ++round) {
            HGLOBAL image = SeededImage(w, 1 + (w + round) % 4, 24, rng.Next(), round ? w % 5 : 0, w % 3 == 1);
            const std::vector<BYTE> source = BlockBytes(image);
            const int r = 10 + rng.Below(491), g = 10 + rng.Below(491), b = 10 + rng.Below(491);
            HDIB out = Gamma(image, r, g, b);
            ASSERT_NE(out, nullptr);
            EXPECT_EQ(LockCount(out), 0);
            digest = Fold(digest, Consume(out));
            EXPECT_TRUE(Consume(Gamma(image, 100, 100, 100)) == source);
            EXPECT_TRUE(Consume(image) == source);
        }
    EXPECT_EQ(digest, 0x988dfe23e1bc27cfull) << std::hex << digest;
}

TEST(GammaCorrection, RangeAndFailureCodes) {
    HGLOBAL image = MakeRandomDib24(3, 3, 6);
    for (const Example &e : ReadExamples("gamma_correction.txt", "range"))
        for (int at = 0; at < 3; ++at) {
            int g[3] = {100, 100, 100};
            g[at] = e.I(0);
            HDIB out = Gamma(image, g[0], g[1], g[2]);
            EXPECT_EQ(out != nullptr, e.v[1] == CCE_NONE) << e.line;
            EXPECT_EQ(GetLastColorConvertError(), e.v[1]) << e.line;
            GlobalFree(out);
        }
    // The copy cannot be made: CCE_NOMEMORY; a lock fails: no code.
    ExpectFaults({{'a', 1, CCE_NOMEMORY}, {'l', 1, CCE_NONE}, {'l', 2, CCE_NONE}}, [&] {
        HDIB out = Gamma(image, 40, 100, 300);
        GlobalFree(out);
        return out ? kSucceeded : GetLastColorConvertError();
    });
    GlobalFree(image);
}

} // namespace
