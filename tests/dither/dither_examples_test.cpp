// Worked examples of the six error-diffusion dithers and the two block
// dithers, each derived by hand from the kernels and the block rule; their
// colour tables; the block pass on single blocks; the codes of their checks.
// Seeded images of every depth are pinned in dither_digest_test.cpp.
#include "block_dither.h"
#include "dither_test_util.h"

#include <array>

using namespace dithertest;

namespace {

struct Example {
    const char *what;
    DitherFn dither;
    int bits, depth, w, h;
    std::vector<int> pixels, table; // as Image() takes them
    std::vector<int> want;          // result pixels in stored order
};

const Example kExamples[] = {
    // Cells 100, 143, 51 give 0 1 0 and pass 10, -20, 8 down; the second row
    // starts from 110, 80, 108, and its middle pixel reaches exactly 128.
    {"FS4 3x2 grey 100", DitherFS4, 1, 24, 3, 2, {G(100)}, {}, {0, 1, 0, 0, 0, 1}},
    {"FS4 6x4", DitherFS4, 1, 24, 6, 4, {G(100)}, {}, {0, 1, 0, 0, 1, 0, 0, 0, 1, 0, 0, 1, 1, 0, 1, 0, 1, 0, 0, 1, 0, 0, 1, 0}},
    {"Burkes 6x4", DitherBurkes, 1, 24, 6, 4, {G(100)}, {}, {0, 0, 1, 0, 0, 1, 0, 1, 0, 0, 1, 0, 1, 0, 0, 1, 0, 1, 0, 0, 1, 0, 1, 0}},
    {"Sierra 6x4", DitherSierra, 1, 24, 6, 4, {G(100)}, {}, {0, 1, 0, 0, 1, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 0, 0, 1, 0, 0, 1, 0, 1, 0}},
    {"JJN 6x4", DitherJJN, 1, 24, 6, 4, {G(100)}, {}, {0, 0, 0, 1, 0, 0, 1, 0, 1, 0, 0, 1, 0, 1, 0, 0, 1, 0, 0, 0, 1, 0, 1, 0}},
    {"Stucki 6x4", DitherStucki, 1, 24, 6, 4, {G(100)}, {}, {0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 1, 1, 0, 0, 0, 1, 0, 0, 1, 0, 1, 0, 0}},
    {"SA 6x4", DitherSA, 1, 24, 6, 4, {G(100)}, {}, {0, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0}},
    {"white, 1 bit", DitherFS4, 1, 24, 1, 1, {G(255)}, {}, {1}},
    {"white, 8 bits", DitherFS4, 8, 24, 1, 1, {G(255)}, {}, {255}},
    {"levels 3, 4, 3", DitherFS4, 8, 24, 1, 1, {0x6496C8}, {}, {3 * 32 + 4 * 4 + 3}},
    {"128 is black", DitherFS4, 1, 24, 1, 1, {G(128)}, {}, {0}},
    {"129 is white", DitherFS4, 1, 24, 1, 1, {G(129)}, {}, {1}},
    // Red and green 60 leave 28, so the next pixel reaches 72 (level 2); blue
    // leaves 60 and the next reaches 86 (level 1).
    {"3-3-2 errors", DitherFS4, 8, 24, 2, 1, {G(60)}, {}, {36, 73}},
    // Blue 255 leaves 63; below, 255 + 63 * 5 / 16 = 274 clamps to level 3.
    {"blue level clamps", DitherFS4, 8, 24, 1, 2, {0x0000FF}, {}, {3, 3}},
    // Each channel on its own: red 200 white, passing -24 to the red 50 after it.
    {"4-bit planes", DitherFS4, 4, 24, 2, 1, {0xC86432, 0x32C8C8}, {}, {8, 6}},
    {"4-bit grey", DitherFS4, 4, 24, 2, 1, {G(100)}, {}, {0, 14}},
    {"8-bit source", DitherFS4, 4, 8, 2, 1, {200, 60}, {}, {14, 0}},
    // Entry 1 is red (grey 76, black), passing 33 to grey 100 after it.
    {"4-bit source", DitherFS4, 1, 4, 2, 1, {1, 3}, {0, 0xFF0000, 0, G(100), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {0, 1}},
    // Sierra, e = -3: (-6) / 4 = -1 to the right and (-3) / 4 = 0 below (a
    // shift would give -2 and -1, and 128, black).
    {"right share truncates", DitherSierra, 1, 24, 2, 1, {G(252), G(130)}, {}, {1, 1}},
    {"lower share truncates", DitherSierra, 1, 24, 1, 2, {G(252), G(129)}, {}, {1, 1}},
    // Small errors vanish: Stucki (5 * 8) / 42 = 0, SA (6 * 32) / 200 = 0.
    {"Stucki small error", DitherStucki, 1, 24, 2, 1, {G(5), G(128)}, {}, {0, 0}},
    {"SA small error", DitherSA, 1, 24, 3, 1, {G(6), 0, G(128)}, {}, {0, 0, 0}},
    // One column: only the taps straight down land. An error of 100 passes
    // 5/16 (31), 8/32 (25), 1/4 (25), 7/48 (14), 8/42 (19) or nothing.
    {"FS4 column", DitherFS4, 1, 24, 1, 2, {G(100), G(98)}, {}, {0, 1}},
    {"FS4 column", DitherFS4, 1, 24, 1, 2, {G(100), G(97)}, {}, {0, 0}},
    {"Burkes column", DitherBurkes, 1, 24, 1, 2, {G(100), G(104)}, {}, {0, 1}},
    {"Burkes column", DitherBurkes, 1, 24, 1, 2, {G(100), G(103)}, {}, {0, 0}},
    {"Sierra column", DitherSierra, 1, 24, 1, 2, {G(100), G(104)}, {}, {0, 1}},
    {"Sierra column", DitherSierra, 1, 24, 1, 2, {G(100), G(103)}, {}, {0, 0}},
    {"JJN column", DitherJJN, 1, 24, 1, 2, {G(100), G(115)}, {}, {0, 1}},
    {"JJN column", DitherJJN, 1, 24, 1, 2, {G(100), G(114)}, {}, {0, 0}},
    {"Stucki column", DitherStucki, 1, 24, 1, 2, {G(100), G(110)}, {}, {0, 1}},
    {"Stucki column", DitherStucki, 1, 24, 1, 2, {G(100), G(109)}, {}, {0, 0}},
    {"SA column", DitherSA, 1, 24, 1, 2, {G(100), G(128)}, {}, {0, 0}},
    // Two rows down: 5/48 (10) plus 7/48 of the 14 below (2); 4/42 (9) plus
    // 8/42 of 19 (3); SA 26/200 (13), and nothing three rows down.
    {"JJN two below", DitherJJN, 1, 24, 1, 3, {G(100), 0, G(117)}, {}, {0, 0, 1}},
    {"JJN two below", DitherJJN, 1, 24, 1, 3, {G(100), 0, G(116)}, {}, {0, 0, 0}},
    {"Stucki two below", DitherStucki, 1, 24, 1, 3, {G(100), 0, G(117)}, {}, {0, 0, 1}},
    {"Stucki two below", DitherStucki, 1, 24, 1, 3, {G(100), 0, G(116)}, {}, {0, 0, 0}},
    {"SA two below", DitherSA, 1, 24, 1, 3, {G(100), 0, G(116)}, {}, {0, 0, 1}},
    {"SA two below", DitherSA, 1, 24, 1, 3, {G(100), 0, G(115)}, {}, {0, 0, 0}},
    {"SA three below", DitherSA, 1, 24, 1, 4, {G(100), 0, 0, G(128)}, {}, {0, 0, 0, 0}},
    // Block dithers: the priming pass leaves (145, 0) over (145, 0), which
    // deals 255 to the pixel; (60, 200) leaves (0, 255) twice: 0 then 1.
    {"Smooth 1x1", DitherSmooth, 1, 24, 1, 1, {G(200)}, {}, {1}},
    {"Sharp 1x1", DitherSharp, 1, 24, 1, 1, {G(200)}, {}, {1}},
    {"Smooth 2x1", DitherSmooth, 1, 24, 2, 1, {G(60), G(200)}, {}, {0, 1}},
    {"Sharp 2x1", DitherSharp, 4, 24, 2, 1, {G(60), G(200)}, {}, {0, 14}},
};

// The header, the table size and the whole pixel rows, padding included.
TEST(DitherExamples, HandDerivedResults) {
    for (const Example &c : kExamples) {
        SCOPED_TRACE(c.what);
        HGLOBAL image = Image(c.depth, c.w, c.h, c.pixels, c.table);
        Status() = 99;
        std::vector<BYTE> out = Dither(c.dither, image, c.bits);
        GlobalFree(image);
        ASSERT_FALSE(out.empty());
        EXPECT_EQ(Status(), DWORD{IMS_OK});
        const DWORD s = DWORD((c.w * c.bits + 31) / 32 * 4), colours = 1u << c.bits;
        const DWORD header[10] = {40, DWORD(c.w), DWORD(c.h), 1u | DWORD(c.bits) << 16, 0, s * c.h, 1234, 5678, colours, 0};
        ASSERT_EQ(out.size(), 40 + 4 * colours + s * c.h);
        EXPECT_EQ(std::memcmp(out.data(), header, 40), 0);
        std::vector<BYTE> rows(s * c.h);
        for (int r = 0; r < c.h; ++r)
            for (int x = 0; x < c.w; ++x)
                rows[r * s + x * c.bits / 8] |= BYTE(c.want[r * c.w + x] << (8 - c.bits - x * c.bits % 8));
        EXPECT_TRUE(std::equal(rows.begin(), rows.end(), out.end() - rows.size()));
    }
}

// Entries (blue, green, red, reserved): at 4 bits bit 1 of the index is blue,
// bit 2 green, bit 3 red and bit 0 the reserved byte; at 8 bits red and green
// run in steps of 36 and blue in steps of 85.
TEST(DitherExamples, ColourTables) {
    const struct {
        int bits, entry;
        std::array<BYTE, 4> bgrx;
    } entries[] = {{1, 0, {0, 0, 0, 0}},        {1, 1, {255, 255, 255, 0}},   {4, 0, {0, 0, 0, 0}},
                   {4, 1, {0, 0, 0, 255}},      {4, 6, {255, 255, 0, 0}},     {4, 9, {0, 0, 255, 255}},
                   {4, 14, {255, 255, 255, 0}}, {4, 15, {255, 255, 255, 255}}, {8, 0, {0, 0, 0, 0}},
                   {8, 36, {0, 36, 36, 0}},     {8, 73, {85, 72, 72, 0}},     {8, 115, {255, 144, 108, 0}},
                   {8, 255, {255, 252, 252, 0}}};
    HGLOBAL image = Image(24, 1, 1, {G(9)});
    for (const auto &e : entries) {
        std::vector<BYTE> out = Dither(DitherFS4, image, e.bits);
        ASSERT_FALSE(out.empty());
        EXPECT_TRUE(std::equal(e.bgrx.begin(), e.bgrx.end(), out.begin() + 40 + 4 * e.entry)) << e.entry;
    }
    GlobalFree(image);
}

// One block in isolation (w = 1, carry 0), then the carry that a black pixel
// hands to the next block (w = 2): its value whole (smooth) or halved (sharp),
// nothing after a white pixel.
TEST(DitherExamples, BlockRowPass) {
    const struct {
        std::array<int, 4> q, after; // q0 = a[0], q1 = a[1], q2 = b[0], q3 = b[1]
        bool halve;
        int w, out; // the row byte
    } cases[] = {
        {{200, 100, 50, 0}, {255, 95, 0, 0}, false, 1, 0x80},     // s 350, n 1, rem 95
        {{100, 100, 100, 100}, {255, 0, 145, 0}, true, 1, 0x80},   // ranking q0, q2, q1, q3
        {{10, 100, 100, 10}, {0, 220, 0, 0}, false, 1, 0x00},      // ranking q1, q2, q0, q3
        {{60, 0, 0, 0}, {60, 0, 0, 0}, true, 1, 0x00},
        {{255, 255, 255, 255}, {255, 255, 255, 255}, false, 1, 0x80},
        {{0, 0, 0, 0}, {0, 0, 0, 0}, true, 1, 0x00},
        {{60, 0, 0, 0}, {60, 60, 0, 0}, false, 2, 0x00},           // the second block is 0 + 60
        {{60, 0, 0, 0}, {60, 30, 0, 0}, true, 2, 0x00},
        {{200, 100, 50, 0}, {255, 95, 0, 0}, false, 2, 0x80},      // the second block is 95 + 0
    };
    for (const auto &c : cases) {
        int16_t a[3] = {int16_t(c.q[0]), int16_t(c.q[1]), 0}, b[3] = {int16_t(c.q[2]), int16_t(c.q[3]), 0};
        BYTE out = 0xFF;
        BlockRowPass(a, b, &out, c.w, c.halve);
        EXPECT_EQ((std::array<int, 4>{a[0], a[1], b[0], b[1]}), c.after) << c.q[0] << " " << c.q[1];
        EXPECT_EQ(out, c.out) << c.q[0] << " " << c.q[1]; // the bits after the pixels are 0
    }
}

// The checks in their order, with the codes that differ between the dithers,
// on images of every depth; the conversion error is not theirs to touch.
TEST(DitherChecks, CodesOfEveryMethod) {
    const struct {
        DitherFn dither;
        int top;
        DWORD nullCode, lockCode;
    } methods[] = {{DitherFS4, 8, IMS_BADPARAM, IMS_LOCKFAILED},    {DitherBurkes, 8, IMS_BADPARAM, IMS_LOCKFAILED},
                   {DitherSierra, 8, IMS_BADPARAM, IMS_LOCKFAILED}, {DitherJJN, 8, IMS_LOCKFAILED, IMS_NOMEMORY},
                   {DitherStucki, 8, IMS_LOCKFAILED, IMS_NOMEMORY}, {DitherSA, 8, IMS_LOCKFAILED, IMS_NOMEMORY},
                   {DitherSharp, 4, IMS_LOCKFAILED, IMS_NOMEMORY},  {DitherSmooth, 4, IMS_LOCKFAILED, IMS_NOMEMORY}};
    HGLOBAL rgb = Image(24, 5, 3, {0x123456}), img8 = Image(8, 7, 3, {200}), img4 = Image(4, 7, 3, {5});
    HGLOBAL mono = Image(1, 5, 3, {1}), deep16 = Image(16, 5, 3, {7}), deep32 = Image(32, 5, 3, {7});
    HGLOBAL noWidth = Image(24, 0, 3, {9}), noHeight = Image(24, 3, 0, {9}), unlockable = GlobalAlloc(GMEM_MOVEABLE, 0);
    GetThreadState()->convertError = CCE_BADMODEL;
    for (const auto &m : methods) {
        const struct {
            HGLOBAL image;
            int bits;
            DWORD code;
        } cases[] = {
            // A depth other than 1, 4 or 8 (8 too for the block dithers) is
            // refused before the handle is looked at.
            {rgb, 2, IMS_BADPARAM}, {nullptr, 0, IMS_BADPARAM}, {rgb, -1, IMS_BADPARAM}, {nullptr, 3, IMS_BADPARAM},
            {rgb, 16, IMS_BADPARAM}, {nullptr, 24, IMS_BADPARAM}, {rgb, 8, m.top == 8 ? IMS_OK : IMS_BADPARAM},
            {nullptr, 1, m.nullCode}, {unlockable, 1, m.lockCode}, {mono, 1, IMS_BADBITS}, {img4, 4, IMS_BADBITS},
            {img8, 8, m.top == 8 ? IMS_BADBITS : IMS_BADPARAM}, {deep16, 1, IMS_BADBITS}, {deep32, 4, IMS_BADBITS},
            {noWidth, 1, IMS_NOMEMORY}, {noHeight, 4, IMS_NOMEMORY}, {img4, 1, IMS_OK}, {img8, 4, IMS_OK},
        };
        for (const auto &c : cases) {
            Status() = 99;
            HDIB out = m.dither(c.image, c.bits);
            EXPECT_EQ(out != nullptr, c.code == IMS_OK) << "bits " << c.bits;
            EXPECT_EQ(paxtest::ImsName(Status()), paxtest::ImsName(c.code)) << "top " << m.top << " bits " << c.bits;
            if (out) GlobalFree(out);
            EXPECT_EQ(c.image ? paxtest::LockCount(c.image) : 0, 0);
        }
    }
    EXPECT_EQ(GetLastColorConvertError(), DWORD{CCE_BADMODEL});
    GetThreadState()->convertError = 0;
    for (HGLOBAL h : {rgb, img8, img4, mono, deep16, deep32, noWidth, noHeight, unlockable}) GlobalFree(h);
}

} // namespace
