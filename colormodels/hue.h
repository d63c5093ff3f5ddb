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

// Sector tests in the order R, G, B; the integer difference becomes a double
// before the division by d (> 0); degrees, then * 255 / 360 in that order.
// The result is 0..254: 360 degrees is never reached.
inline BYTE HueByte(int r, int g, int b, int max, int d) {
    double h;
    if (r == max)
        h = static_cast<double>(g - b) / d;
    else if (g == max)
        h = static_cast<double>(b - r) / d + 2;
    else
        h = static_cast<double>(r - g) / d + 4;
    h = h * 60;
    if (h < 0) h = h + 360;
    return ClampToByte(h * 255 / 360);
}

} // namespace pax

#endif
