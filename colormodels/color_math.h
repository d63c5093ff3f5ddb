// Shared pieces of the single-value conversions: the byte rule every
// floating-point component leaves through, the HSI hue ramp, the LAB
// companding function, and RGB carried as three doubles in 0..1.
#ifndef PAX_COLOR_MATH_H
#define PAX_COLOR_MATH_H

#include "paximage.h"

namespace pax {

// Hue byte given to every grey (max = min, black included) by the conversions
// into HSV and HSI: 0, the hue of red. Any hue gives grey again on the way back
// when S = 0, so the choice only shows to callers that read or raise the hue of
// a grey; 0 is what such a caller most likely expects.
constexpr BYTE kGreyHue = 0;

// Above 255 gives 255, below 0 gives 0, anything else truncates toward zero
// (254.999 gives 254).
inline BYTE ClampToByte(double v) {
    if (v > 255) return 255;
    if (v < 0) return 0;
    return static_cast<BYTE>(v);
}

// One channel of HSI to RGB. x is in degrees and gets a single correction into
// 0..360 (the callers pass h - 120 .. h + 120 with h in 0..360).
inline double HueRamp(double m1, double m2, double x) {
    if (x > 360)
        x = x - 360;
    else if (x < 0)
        x = x + 360;
    if (x < 60) return (m2 - m1) * x / 60 + m1;
    if (x < 180) return m2;
    if (x < 240) return (m2 - m1) * (240 - x) / 60 + m1;
    return m1;
}

// x^0.3333333333333333 and x^3, each correctly rounded, computed with the same
// IEEE operations on every platform (exact_pow.cpp).
double PowOneThird(double x);
double PowCube(double x);
// The long evaluation PowOneThird falls back on near halfway points, usable on
// its own for every argument (the straightforward form the checks compare with).
double PowOneThirdExact(double x);

// LAB companding: the cube root above the threshold, the linear segment below.
inline double LabF(double t) {
    if (t > 0.008856) return PowOneThird(t);
    return t * 7.787 + 0.13793103448275862;
}

// RGB as doubles in 0..1 standing for R / 255, G / 255, B / 255.
struct UnitRGB {
    double r, g, b;
};

// Limits each channel to 0..1, the step between the two halves of a conversion
// that carries RGB as doubles.
inline UnitRGB ClampUnit(UnitRGB u) {
    auto limit = [](double v) { return v < 0 ? 0.0 : (v > 1 ? 1.0 : v); };
    return {limit(u.r), limit(u.g), limit(u.b)};
}

inline UnitRGB UnitFromBytes(const BYTE *rgb) {
    return {rgb[0] / 255.0, rgb[1] / 255.0, rgb[2] / 255.0};
}

// Writes each channel as ClampToByte(channel * 255).
inline BYTE *UnitToBytes(BYTE *dst, UnitRGB u) {
    const BYTE r = ClampToByte(u.r * 255), g = ClampToByte(u.g * 255), b = ClampToByte(u.b * 255);
    dst[0] = r;
    dst[1] = g;
    dst[2] = b;
    return dst;
}

inline BYTE *Store3(BYTE *dst, BYTE a, BYTE b, BYTE c) {
    dst[0] = a;
    dst[1] = b;
    dst[2] = c;
    return dst;
}

// The halves of the conversions from and to RGB that carry RGB as doubles:
// XtoUnitRGB stops before the final * 255 and ClampToByte; UnitRGBtoX takes
// the doubles in place of R / 255, G / 255, B / 255. Each reads its whole
// source before it writes.
UnitRGB HSVtoUnitRGB(const BYTE *src);
UnitRGB HSItoUnitRGB(const BYTE *src);
UnitRGB YIQtoUnitRGB(const BYTE *src);
UnitRGB YUVtoUnitRGB(const BYTE *src);
UnitRGB XYZtoUnitRGB(const BYTE *src);
UnitRGB LABtoUnitRGB(const BYTE *src);
BYTE *UnitRGBtoYIQ(BYTE *dst, UnitRGB u);
BYTE *UnitRGBtoYUV(BYTE *dst, UnitRGB u);
BYTE *UnitRGBtoXYZ(BYTE *dst, UnitRGB u);
BYTE *UnitRGBtoLAB(BYTE *dst, UnitRGB u);

} // namespace pax

#endif
