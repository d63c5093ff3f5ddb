// The hue byte shared by the conversions from RGB into HSV and HSI.
#ifndef PAX_HUE_H
#define PAX_HUE_H

#include "color_math.h"

namespace pax {

inline int Max3(int a, int b, int c) {
    const int m = a > b ? a : b;
    return m > c ? m : c;
}

inline int Min3(int a, int b, int c) {
    const int m = a < b ? a : b;
    return m < c ? m : c;
}

// The hue byte of the sector of the largest channel (0: R, 1: G, 2: B) and the
// difference of the other two taken in the sector's order (G - B, B - R,
// R - G), with d = max - min > 0. The integer difference becomes a double
// before the division by d; degrees, then * 255 / 360 in that order. The
// result is 0..254: 360 degrees is never reached.
inline BYTE HueOfSector(int sector, int difference, int d) {
    double h = static_cast<double>(difference) / d;
    if (sector == 1)
        h = h + 2;
    else if (sector == 2)
        h = h + 4;
    h = h * 60;
    if (h < 0) h = h + 360;
    return ClampToByte(h * 255 / 360);
}

// Sector tests in the order R, G, B.
inline BYTE HueByte(int r, int g, int b, int max, int d) {
    if (r == max) return HueOfSector(0, g - b, d);
    if (g == max) return HueOfSector(1, b - r, d);
    return HueOfSector(2, r - g, d);
}

// Saturation bytes of the two models from max and d = max - min (max > 0).
inline BYTE HsvSaturation(int max, int d) {
    const double s = static_cast<double>(d) / max;
    return ClampToByte(s * 255);
}
inline BYTE HsiSaturation(int maxByte, int d) {
    const double max = maxByte, min = maxByte - d;
    const double l = (max + min) * 0.5;
    const double s = l <= 127.5 ? (max - min) / (max + min) : (max - min) / (510 - (max + min));
    return ClampToByte(s * 255);
}

} // namespace pax

#endif
