// Per-pixel arithmetic shared by the hue-based adjustments: hue units, the
// hue wrap, the range test and the HSI move, and the ink scaling of the CMYK
// levels. Pure functions, so the tests can check them one by one.
#ifndef PAX_ADJUST_HUE_MATH_H
#define PAX_ADJUST_HUE_MATH_H

#include "paximage.h"

#include <cstdint>

namespace hueadjust {

// Hue-byte steps to the full circle: 255 (a hue byte of 255 is 360 degrees).
constexpr int kHueSteps = 255;

// Degrees to hue-byte units: divide by 360 first, then multiply by 255, in
// double precision; truncated toward zero (180 -> 127, -180 -> -127, 120 -> 85).
inline int DegreesToHueUnits(double degrees) {
    return static_cast<int>(degrees / 360.0 * 255.0);
}

// H + shift brought back onto the circle. Inside -255..510, which every
// checked shift gives, one correction is made: below 0 add 255, above 255
// subtract 255 (255 itself stays). A larger shift, which only the parameter
// dialog can set, is taken as that many whole turns: the same correction is
// repeated until the hue lies in 0..255. 64-bit so that no shift overflows.
inline int WrapHue(int64_t h) {
    if (h < 0) {
        h += kHueSteps * ((-h + kHueSteps - 1) / kHueSteps);
    } else if (h > kHueSteps) {
        h -= kHueSteps * ((h - kHueSteps + kHueSteps - 1) / kHueSteps);
    }
    return static_cast<int>(h);
}

// Limited to 0..255. 64-bit: a saturation or lightness set by the dialog may
// be any 32-bit value.
inline BYTE ClampToByteRange(int64_t v) {
    return static_cast<BYTE>(v < 0 ? 0 : v > 255 ? 255 : v);
}

// The hue range test: lo..hi inclusive, or, when lo > hi, the range across
// 0 degrees (H >= lo or H <= hi). lo and hi are compared as they are, so
// bounds set by the dialog outside 0..255 simply widen or empty the range.
inline bool HueInRange(int hue, int lo, int hi) {
    return lo <= hi ? (lo <= hue && hue <= hi) : (hue >= lo || hue <= hi);
}

// The HSI move of a selected pixel: hue turned by shift, saturation and
// lightness moved and limited, then back to RGB.
inline void MoveHsi(const BYTE hsi[3], int shift, int saturation, int lightness, BYTE rgb[3]) {
    BYTE moved[3] = {
        static_cast<BYTE>(WrapHue(static_cast<int64_t>(hsi[0]) + shift)),
        ClampToByteRange(static_cast<int64_t>(hsi[1]) + saturation),
        ClampToByteRange(static_cast<int64_t>(hsi[2]) + lightness),
    };
    HSItoRGB(rgb, moved);
}

// A CMYK level (-100..100) as a factor: L / 100 + 1 for L >= 0, (L + 100) /
// 100 below 0, so factors run from 0 to 2.
inline double LevelFactor(int level) {
    return level >= 0 ? level / 100.0 + 1.0 : (level + 100) / 100.0;
}

// One ink times its factor, truncated toward zero and limited to 0..255.
// Every product of a checked factor fits a 32-bit integer; a factor set by
// the dialog may not, so the limits are applied before the truncation
// (which gives the same byte) and a product that is not a number gives 0.
inline BYTE ScaleInk(BYTE ink, double factor) {
    double v = ink * factor;
    if (!(v > 0.0)) return 0; // negative, zero or not a number
    if (v >= 255.0) return 255;
    return static_cast<BYTE>(static_cast<int32_t>(v));
}

} // namespace hueadjust

#endif
