// HSItoRGB from tables per hue byte, for the plane kernels (fast_hue_back.cpp)
// and the hue adjustments (adjust/hue_fast.cpp).
//
// Everything HSItoRGB does with the hue byte alone is done once per byte:
// h = H x 360 / 255, then for each channel x = h + 120, h or h - 120, the one
// correction by 360, and the region of HueRamp that x falls in, with the
// ramp's argument (x, or 240 - x). What is left per pixel is m1 and m2 of
// the lightness and saturation, and (m2 - m1) x arg / 60 + m1 where a channel
// ramps, with the same double operations in the same order.
//
// The three rising and falling stretches of the channels tile the circle, so
// a hue byte has at most one channel whose ramp argument is not 0 (the table
// finds this for every byte). A ramp with argument 0 is (m2 - m1) x 0 / 60 +
// m1, which is m1. So each channel of a pixel takes one of three values, m2,
// m1 or the one ramp, which the vector forms compute four (AVX2) or two (SSE2)
// pixels at a time: IEEE vector operations without contraction give each lane
// the double of the scalar operation. m1 and m2 lie in 0..1 up to rounding,
// and a ramp between them, so each value times 255 lies inside -1..256, where
// truncation toward zero gives what ClampToByte gives.
#ifndef PAX_HSI_BACK_H
#define PAX_HSI_BACK_H

#include "paximage.h"

#include <cstdint>

namespace pax {

struct HsiBackTables {
    HsiBackTables();
    enum Region : BYTE { Rising, High, Falling, Low };
    // What a channel takes: m2, m1 or the hue's ramp.
    enum Take : BYTE { TakeM2, TakeM1, TakeRamp };
    double unit[256];      // v / 255.0
    Region region[256][3]; // per hue byte, per channel R, G, B
    double ramp[256][3];   // x, or 240 - x, where the channel ramps; else 0
    Take take[256][3];     // a ramp with argument 0 is taken as m1
    double hueRamp[256];   // the argument of the hue's one ramp (0 where there is none)
    // The byte of each channel R, G, B within m2 | m1 << 8 | ramp << 16.
    BYTE shift[256][3];    // 0, 8 or 16
    uint32_t pick[256];    // the same as a byte shuffle to B | G << 8 | R << 16

    // HSItoRGB of (h, s, i), one pixel.
    void Convert(int h, int s, int i, BYTE rgb[3]) const {
        const double l = unit[i], sat = unit[s];
        const double m2 = l <= 0.5 ? (sat + 1) * l : l + sat - l * sat;
        const double m1 = l + l - m2;
        const unsigned value = static_cast<unsigned>(static_cast<int>(m2 * 255)) |
                               static_cast<unsigned>(static_cast<int>(m1 * 255)) << 8 |
                               static_cast<unsigned>(static_cast<int>(
                                   ((m2 - m1) * hueRamp[h] / 60 + m1) * 255))
                                   << 16;
        for (int ch = 0; ch < 3; ++ch) rgb[ch] = static_cast<BYTE>(value >> shift[h][ch]);
    }
};

// The tables of the process, built on first use.
const HsiBackTables &HsiBackTablesOnce();

// HSItoRGB of n pixels given as planes of H, S and I bytes: bgr[k] =
// B | G << 8 | R << 16. The planes are read, and bgr written, up to the next
// multiple of 4 pixels (the bytes beyond n may be any values). The SSE2 form
// runs everywhere; the AVX2 one is null where it is not built (the Windows
// build keeps SSE2) or the processor lacks AVX2.
using HsiToBgrKernel = void (*)(const BYTE *h, const BYTE *s, const BYTE *i, uint32_t *bgr, int n);
HsiToBgrKernel HsiToBgrSse2();
HsiToBgrKernel HsiToBgrAvx2();

} // namespace pax

#endif
