// BlockRowPass of DitherSharp and DitherSmooth: single blocks and the carry.
// The exports are checked with the other dithers in error_diffusion_test.cpp.
#include "block_dither.h"
#include "dither_test_util.h"

#include <gtest/gtest.h>

#include <array>

using namespace dithertest;

namespace {

// One block in isolation (w = 1, carry 0): a = {q0, q1}, b = {q2, q3}.
TEST(BlockRowPassExamples, SingleBlocks) {
    const struct {
        std::array<int, 4> q, after;
        int bit;
    } cases[] = {
        {{200, 100, 50, 0}, {255, 95, 0, 0}, 1},    // s 350, n 1, rem 95
        {{100, 100, 100, 100}, {255, 0, 145, 0}, 1}, // ranking q0, q2, q1, q3
        {{10, 100, 100, 10}, {0, 220, 0, 0}, 0},     // ranking q1, q2, q0, q3
        {{60, 0, 0, 0}, {60, 0, 0, 0}, 0},
        {{255, 255, 255, 255}, {255, 255, 255, 255}, 1},
        {{0, 0, 0, 0}, {0, 0, 0, 0}, 0},
    };
    for (bool halve : {false, true})
        for (const auto &c : cases) {
            int16_t a[2] = {int16_t(c.q[0]), int16_t(c.q[1])}, b[2] = {int16_t(c.q[2]), int16_t(c.q[3])};
            BYTE out = 0xFF;
            BlockRowPass(a, b, &out, 1, halve);
            EXPECT_EQ((std::array<int, 4>{a[0], a[1], b[0], b[1]}), c.after) << c.q[0] << " " << c.q[1];
            EXPECT_EQ(out, c.bit ? 0x80 : 0x00); // the bits after the pixel are 0
        }
}

// The next block's q0 is a[1]: a black (60, 0, 0, 0) hands on 60 (smooth) or
// 30 (sharp) into an all-0 block; a white pixel hands on nothing, leaving the
// second block (95, 0, 0, 0).
TEST(BlockRowPassExamples, CarryToTheNextBlock) {
    const struct {
        int16_t a0, a1, b0;
        bool halve;
        BYTE bits;
        int16_t next;
    } cases[] = {{60, 0, 0, false, 0x00, 60}, {60, 0, 0, true, 0x00, 30}, {200, 100, 50, false, 0x80, 95}};
    for (const auto &c : cases) {
        int16_t a[3] = {c.a0, c.a1, 0}, b[3] = {c.b0, 0, 0};
        BYTE out = 0;
        BlockRowPass(a, b, &out, 2, c.halve);
        EXPECT_EQ(out, c.bits);
        EXPECT_EQ(a[1], c.next) << c.a0 << " halve " << c.halve;
    }
}

} // namespace
