// DitherSharp and DitherSmooth: single blocks of BlockRowPass, check order and
// codes, properties, a seeded comparison with the straightforward evaluation,
// and failure sweeps.
#include "block_dither.h"
#include "census.h"
#include "dib_builder.h"
#include "dither_reference.h"
#include "dither_test_util.h"

#include <gtest/gtest.h>

#include <array>

using dithertest::Bit;
using dithertest::Dither;
using dithertest::Grey24;
using dithertest::PixelBytes;
using dithertest::SetStatus;
using dithertest::Status;
using paxtest::ImsName;
using paxtest::MakeDib;

namespace {

struct BlockCase {
    std::array<int, 4> q;
    std::array<int, 4> after;
    int bit;
};

// One block in isolation (w = 1, carry 0): a = {q0, q1}, b = {q2, q3}.
TEST(BlockRowPassExamples, SingleBlocks) {
    const std::vector<BlockCase> cases = {
        {{200, 100, 50, 0}, {255, 95, 0, 0}, 1},    // s 350, n 1, rem 95
        {{100, 100, 100, 100}, {255, 0, 145, 0}, 1}, // ranking q0, q2, q1, q3
        {{10, 100, 100, 10}, {0, 220, 0, 0}, 0},     // ranking q1, q2, q0, q3
        {{60, 0, 0, 0}, {60, 0, 0, 0}, 0},
        {{255, 255, 255, 255}, {255, 255, 255, 255}, 1},
        {{0, 0, 0, 0}, {0, 0, 0, 0}, 0},
    };
    for (bool halve : {false, true})
        for (const BlockCase &c : cases) {
            int16_t a[2] = {int16_t(c.q[0]), int16_t(c.q[1])};
            int16_t b[2] = {int16_t(c.q[2]), int16_t(c.q[3])};
            BYTE out = 0xFF;
            BlockRowPass(a, b, &out, 1, halve);
            EXPECT_EQ((std::array<int, 4>{a[0], a[1], b[0], b[1]}), c.after)
                << c.q[0] << " " << c.q[1] << " " << c.q[2] << " " << c.q[3];
            EXPECT_EQ(out, c.bit ? 0x80 : 0x00); // the bits after the pixel are 0
        }
}

TEST(BlockRowPassExamples, CarryOfABlackPixel) {
    // (60, 0, 0, 0) is black and hands on 60 (smooth) or 30 (sharp); the
    // next block is all 0, so its brightest cell, q0 = a[1], receives it.
    for (bool halve : {false, true}) {
        int16_t a[3] = {60, 0, 0}, b[3] = {0, 0, 0};
        BYTE out = 0;
        BlockRowPass(a, b, &out, 2, halve);
        EXPECT_EQ(a[1], halve ? 30 : 60);
        EXPECT_EQ(out, 0);
    }
    // A white pixel hands on nothing.
    int16_t a[3] = {200, 100, 0}, b[3] = {50, 0, 0};
    BYTE out = 0;
    BlockRowPass(a, b, &out, 2, false);
    EXPECT_EQ(out, 0x80);
    EXPECT_EQ(a[1], 95); // the second block is (95, 0, 0, 0) with carry 0
}

struct Method {
    const char *name;
    HDIB (*dither)(HDIB, int);
    bool halve;
};
const Method kMethods[] = {{"Sharp", DitherSharp, true}, {"Smooth", DitherSmooth, false}};

TEST(BlockDitherChecks, OrderAndCodes) {
    HGLOBAL rgb = paxtest::MakeRandomDib24(5, 3, 4);
    HGLOBAL mono = MakeDib(5, 3, 1, [](int, int, int) { return BYTE{1}; });
    HGLOBAL img4 = MakeDib(5, 3, 4, [](int x, int, int) { return BYTE(x); });
    HGLOBAL deep16 = MakeDib(5, 3, 16, [](int, int, int) { return BYTE{7}; });
    HGLOBAL unlockable = GlobalAlloc(GMEM_MOVEABLE, 0);
    HGLOBAL empty = Grey24(0, 3, 9);
    for (const Method &m : kMethods) {
        SCOPED_TRACE(m.name);
        auto expect = [&](HGLOBAL image, int bits, DWORD code) {
            SetStatus(99);
            HDIB out = m.dither(image, bits);
            EXPECT_EQ(out, nullptr);
            if (out) GlobalFree(out);
            EXPECT_EQ(ImsName(Status()), ImsName(code)) << "bits " << bits;
        };
        expect(rgb, 8, IMS_BADPARAM); // 8 is not offered, even for a 24-bit image
        for (int bits : {0, 2, -1, 24}) expect(nullptr, bits, IMS_BADPARAM);
        expect(nullptr, 1, IMS_LOCKFAILED);
        expect(unlockable, 1, IMS_NOMEMORY);
        expect(mono, 1, IMS_BADBITS);
        expect(img4, 4, IMS_BADBITS);
        expect(deep16, 4, IMS_BADBITS);
        expect(empty, 1, IMS_NOMEMORY);
        SetStatus(99);
        std::vector<BYTE> ok = Dither(m.dither, img4, 1);
        EXPECT_FALSE(ok.empty());
        EXPECT_EQ(ImsName(Status()), "IMS_OK");
        EXPECT_EQ(paxtest::LockCount(rgb), 0);
    }
    for (HGLOBAL h : {rgb, mono, img4, deep16, unlockable, empty}) GlobalFree(h);
}

TEST(BlockDitherProperties, FlatImagesAndEvenIndices) {
    for (const Method &m : kMethods)
        for (int w : {1, 2, 9, 40}) {
            HGLOBAL white = Grey24(w, 5, 255), black = Grey24(w, 5, 0);
            std::vector<BYTE> w1 = Dither(m.dither, white, 1), w4 = Dither(m.dither, white, 4);
            std::vector<BYTE> b1 = Dither(m.dither, black, 1), b4 = Dither(m.dither, black, 4);
            const int s4 = ((4 * w + 31) / 32) * 4;
            std::vector<BYTE> p4 = PixelBytes(w4);
            for (int r = 0; r < 5; ++r)
                for (int x = 0; x < w; ++x) {
                    EXPECT_EQ(Bit(w1, r, x), 1) << m.name << " w " << w;
                    BYTE b = p4[r * s4 + x / 2];
                    EXPECT_EQ(x % 2 ? b & 15 : b >> 4, 14) << m.name;
                }
            for (BYTE b : PixelBytes(b1)) EXPECT_EQ(b, 0) << m.name;
            for (BYTE b : PixelBytes(b4)) EXPECT_EQ(b, 0) << m.name;
            GlobalFree(white);
            GlobalFree(black);
        }
    paxtest::Rng rng(5);
    for (int trial = 0; trial < 30; ++trial) {
        const int w = 1 + rng.Below(40), h = 1 + rng.Below(6);
        HGLOBAL image = paxtest::MakeRandomDib24(w, h, rng.Next());
        for (const Method &m : kMethods) {
            std::vector<BYTE> p4 = PixelBytes(Dither(m.dither, image, 4));
            const int s4 = ((4 * w + 31) / 32) * 4;
            for (int r = 0; r < h; ++r)
                for (int x = 0; x < w; ++x) {
                    BYTE b = p4[r * s4 + x / 2];
                    EXPECT_EQ((x % 2 ? b & 15 : b >> 4) % 2, 0) << m.name;
                }
            std::vector<BYTE> p1 = PixelBytes(Dither(m.dither, image, 1));
            const int s1 = ((w + 31) / 32) * 4;
            for (int r = 0; r < h; ++r) {
                if (w % 8) {
                    EXPECT_EQ(p1[r * s1 + w / 8] & (0xFF >> (w % 8)), 0) << m.name;
                }
                for (int i = (w + 7) / 8; i < s1; ++i) EXPECT_EQ(p1[r * s1 + i], 0) << m.name;
            }
        }
        GlobalFree(image);
    }
}

// Sizes from one pixel up (one-row and one-column images included), every
// source depth, short tables and top-down rows, against the reference.
TEST(BlockDitherReference, SeededRandomCases) {
    paxtest::Rng rng(31337);
    int compared = 0;
    for (int trial = 0; trial < 300; ++trial) {
        const int w = 1 + rng.Below(trial % 10 == 0 ? 200 : 30);
        const int h = 1 + rng.Below(trial % 7 == 0 ? 1 : 10);
        const int depth = std::vector<int>{4, 8, 24}[rng.Below(3)];
        int entries = -1;
        if (depth != 24 && rng.Below(3) == 0) entries = 1 + rng.Below(depth == 4 ? 15 : 255);
        paxtest::Rng pix(rng.Next());
        HGLOBAL image = MakeDib(w, h, depth, [&](int, int, int) { return pix.Byte(); }, entries);
        if (rng.Below(4) == 0) {
            BYTE *p = static_cast<BYTE *>(GlobalLock(image));
            reinterpret_cast<BITMAPINFOHEADER *>(p)->biHeight = -h;
            GlobalUnlock(image);
        }
        ref::Source src = ref::Decode(image);
        for (const Method &m : kMethods)
            for (int bits : {1, 4}) {
                if (bits >= depth) continue;
                std::vector<BYTE> got = Dither(m.dither, image, bits);
                ASSERT_TRUE(got == ref::BlockDither(src, m.halve, bits))
                    << m.name << " trial " << trial << " " << w << "x" << h << " depth " << depth
                    << " bits " << bits;
                ++compared;
            }
        GlobalFree(image);
    }
    EXPECT_GT(compared, 700);
    // Beyond 16-bit column counts.
    HGLOBAL wide = paxtest::MakeRandomDib24(33000, 2, 1);
    ref::Source src = ref::Decode(wide);
    for (const Method &m : kMethods)
        for (int bits : {1, 4})
            EXPECT_TRUE(Dither(m.dither, wide, bits) == ref::BlockDither(src, m.halve, bits)) << m.name;
    GlobalFree(wide);
}

TEST(BlockDitherFailures, SweepBothMethodsAndDepths) {
    HGLOBAL image = paxtest::MakeRandomDib24(11, 3, 2);
    for (const Method &m : kMethods)
        for (int bits : {1, 4}) {
            SCOPED_TRACE(std::string(m.name) + " bits " + std::to_string(bits));
            std::vector<std::pair<bool, DWORD>> runs;
            paxtest::SweepCounts counts = paxtest::SweepFailures(
                [&]() -> HGLOBAL {
                    SetStatus(99);
                    HDIB out = m.dither(image, bits);
                    runs.push_back({out != nullptr, Status()});
                    return out;
                },
                {image});
            if (!paxtest::HaveCensus()) continue;
            EXPECT_EQ(counts.allocationPoints, 4);
            ASSERT_EQ(runs.size(), size_t(1 + counts.allocationPoints + counts.lockPoints));
            EXPECT_EQ(ImsName(runs[0].second), "IMS_OK");
            // Every failure, the caller's lock included, leaves IMS_NOMEMORY.
            for (size_t i = 1; i < runs.size(); ++i) {
                EXPECT_FALSE(runs[i].first);
                EXPECT_EQ(ImsName(runs[i].second), "IMS_NOMEMORY") << "run " << i;
            }
        }
    GlobalFree(image);
}

} // namespace
