// The tone tables. ColorBrightnessContrast: the tone table of every pair and
// a set of seeded images (24 bits with padding, palettes of 4 and 8 bits,
// top-down), each pinned by a digest beside worked examples
// (brightness_contrast.txt). GammaCorrection: every gamma on every component
// value and a set of seeded images (colour tables, padding, top-down), each
// pinned by a digest beside worked examples (gamma_correction.txt). Their
// checks and failures are the export table's. The program runs on the
// fast and the straightforward paths (BOTH_PATHS), so the digests say that
// both give the same bytes.
#include "examples.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace paxtest;

// ---- Brightness and contrast ----------------------------------------------

HDIB Adjust(HGLOBAL image, int b, int c) {
    return ColorBrightnessContrast(image, static_cast<short>(b), static_cast<short>(c), 0);
}

// What op makes of every byte value: a row holding them all, put through it.
std::vector<int> EveryValue(const std::function<HDIB(HDIB)> &op) {
    static HGLOBAL every = MakeDib(256, 1, 24, [](int x, int, int) { return BYTE(x); });
    const std::vector<BYTE> out = Consume(op(every));
    std::vector<int> t(256, -1);
    for (size_t i = 0; i < 256 && 40 + 3 * i < out.size(); ++i) t[i] = out[40 + 3 * i];
    return t;
}

// The library's tone table.
std::vector<int> ToneTable(int b, int c) {
    return EveryValue([=](HDIB im) { return Adjust(im, b, c); });
}

TEST(BrightnessContrast, EveryTableAndWorkedEntries) {
    uint64_t digest = 14695981039346656037ull; // FNV-1a over all 201 x 201 tables
    for (int b = -100; b <= 100; ++b)
        for (int c = -100; c <= 100; ++c)
            for (int v : ToneTable(b, c)) digest = (digest ^ static_cast<uint64_t>(v & 0xFF)) * 1099511628211ull;
    EXPECT_EQ(digest, 0xbe59be977a599800ull);
    for (const Example &e : ReadExamples("brightness_contrast.txt", "table"))
        EXPECT_EQ(ToneTable(e.I(0), e.I(1))[e.I(2)], e.I(3)) << e.line;
    // Identity; contrast -100 gives 128; +128 up to 255; 2a - 128 around the pivot.
    const std::vector<int> identity = ToneTable(0, 0), grey = ToneTable(57, -100);
    const std::vector<int> bright = ToneTable(100, 0), steep = ToneTable(0, 100);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(identity[i], i);
        EXPECT_EQ(grey[i], 128);
        EXPECT_EQ(bright[i], std::min(i + 128, 255));
        EXPECT_EQ(steep[i], std::clamp(2 * i - 128, 0, 255));
    }
}

TEST(BrightnessContrast, WholeImagesOneDigest) {
    Rng rng(23);
    uint64_t digest = kDigestStart;
    for (int w : {1, 2, 3, 5, 9, 17, 33, 86})
        for (int bits : {4, 8, 24}) {
            HGLOBAL image = SeededImage(w, 1 + w % 4, bits, rng.Next(), w % 3 ? -1 : 1 + w % 15, w % 5 == 2);
            if (w % 2) EditHeader(image, [](BITMAPINFOHEADER *h) { h->biSizeImage = 0; });
            const int b = rng.Below(201) - 100, c = rng.Below(201) - 100;
            digest = Fold(digest, Consume(Adjust(image, b, c)));
            GlobalFree(image);
        }
    EXPECT_EQ(digest, 0x7e43efc7aa176032ull) << std::hex << digest;
}

// Palette images change their table only (the fourth byte kept); 24-bit
// rows get zero padding, and biSizeImage is filled in.
TEST(BrightnessContrast, WorkedImages) {
    std::vector<BYTE> palette = Consume(MakeDib(3, 2, 8, [](int x, int y, int) { return BYTE(x + y); }, 2));
    const BYTE entries[8] = {10, 200, 0, 0xC3, 255, 0, 128, 0x11}, adjusted[8] = {138, 255, 128, 0xC3, 255, 128, 255, 0x11};
    std::copy_n(entries, 8, &palette[40]);
    HGLOBAL block = BlockFrom(palette);
    std::copy_n(adjusted, 8, &palette[40]);
    EXPECT_TRUE(Consume(Adjust(block, 100, 0)) == palette);
    HGLOBAL ten = MakeDib(5, 2, 24, [](int, int, int) { return BYTE{10}; }, -1, 0xAB);
    EditHeader(ten, [](BITMAPINFOHEADER *h) { h->biSizeImage = 0; });
    const std::vector<BYTE> source = BlockBytes(ten);
    for (auto [b, v] : {std::pair{100, 138}, std::pair{0, 10}}) {
        std::vector<BYTE> out = Consume(Adjust(ten, b, 0));
        ASSERT_EQ(out.size(), 40u + 32u);
        EXPECT_EQ(Header(out)->biSizeImage, 32u);
        Header(out)->biSizeImage = 0;
        EXPECT_TRUE(std::equal(source.begin(), source.begin() + 40, out.begin()));
        for (size_t i = 40; i < out.size(); ++i) EXPECT_EQ(out[i], (i - 40) % 16 < 15 ? v : 0) << i;
    }
    GlobalFree(ten);
    GlobalFree(block);
}

// ---- Gamma ------------------------------------------------------------------

HDIB Gamma(HGLOBAL image, int r, int g, int b) { return GammaCorrection(image, r, g, b, 0, nullptr); }

// The library's correction of v with gamma g.
int Corrected(int v, int g) {
    static std::vector<std::vector<int>> tables(501);
    if (tables.at(g).empty()) tables[g] = EveryValue([=](HDIB im) { return Gamma(im, g, g, g); });
    return tables[g].at(v);
}

TEST(GammaCorrection, EveryGammaAndWorkedValues) {
    uint64_t digest = 14695981039346656037ull; // FNV-1a over 491 x 256 values
    for (int g = 10; g <= 500; ++g)
        for (int v = 0; v < 256; ++v) digest = (digest ^ static_cast<uint64_t>(Corrected(v, g))) * 1099511628211ull;
    EXPECT_EQ(digest, 0x2a1997ac9d0c165cull);
    for (const Example &e : ReadExamples("gamma_correction.txt", "value")) EXPECT_EQ(Corrected(e.I(1), e.I(0)), e.I(2)) << e.line;
    for (const Example &e : ReadExamples("gamma_correction.txt", "pixel")) {
        const Rgb in{BYTE(e.v[3]), BYTE(e.v[4]), BYTE(e.v[5])}, want{BYTE(e.v[6]), BYTE(e.v[7]), BYTE(e.v[8])};
        EXPECT_TRUE(OnePixel(in, [&](HDIB im) { return Gamma(im, e.I(0), e.I(1), e.I(2)); }) == want) << e.line;
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
            digest = Fold(digest, Consume(Gamma(image, r, g, b)));
            EXPECT_TRUE(Consume(Gamma(image, 100, 100, 100)) == source);
            EXPECT_TRUE(Consume(image) == source);
        }
    EXPECT_EQ(digest, 0x988dfe23e1bc27cfull) << std::hex << digest;
}

} // namespace
