// The pixel of Desaturate, straight and by table.
#ifndef PAX_ADJUST_DESATURATE_H
#define PAX_ADJUST_DESATURATE_H

#include "paximage.h"

#include <array>

namespace hueadjust {

// To HSI, saturation 0, back to RGB.
void DesaturatePixel(const BYTE rgb[3], BYTE out[3]);

// The same by table. With saturation 0 the way back from HSI gives the same
// value for every hue (both ramp ends are the lightness itself), and the
// lightness byte is (max + min) / 2 truncated, which is exact in double
// precision; so the grey depends only on that byte, and the table holds what
// the way back gives for each. A test compares both over every RGB value.
struct GreyTable {
    GreyTable();
    std::array<std::array<BYTE, 3>, 256> grey;
};
void DesaturatePixelFast(const GreyTable &table, const BYTE rgb[3], BYTE out[3]);

} // namespace hueadjust

#endif
