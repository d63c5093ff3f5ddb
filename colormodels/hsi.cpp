// HSI against RGB: the lightness model. H as in HSV, S = lightness-model
// saturation * 255, I = (max + min) / 2 of R, G, B.
#include "hue.h"

BYTE *PAXCALL RGBtoHSI(BYTE *dst, const BYTE *src) {
    const int r = src[0], g = src[1], b = src[2];
    const int maxByte = pax::Max3(r, g, b), minByte = pax::Min3(r, g, b);
    const double max = maxByte, min = minByte;
    const double l = (max + min) * 0.5;
    if (max == min) return pax::Store3(dst, pax::kGreyHue, 0, pax::ClampToByte(l));
    const BYTE h = pax::HueByte(r, g, b, maxByte, maxByte - minByte);
    return pax::Store3(dst, h, pax::HsiSaturation(maxByte, maxByte - minByte), pax::ClampToByte(l));
}

namespace pax {

UnitRGB HSItoUnitRGB(const BYTE *src) {
    const double h = src[0] * 360.0 / 255.0;
    const double l = src[2] / 255.0;
    const double s = src[1] / 255.0;
    const double m2 = l <= 0.5 ? (s + 1) * l : l + s - l * s;
    const double m1 = l + l - m2;
    if (l == 0) return {l, l, l};
    return {HueRamp(m1, m2, h + 120), HueRamp(m1, m2, h), HueRamp(m1, m2, h - 120)};
}

} // namespace pax

BYTE *PAXCALL HSItoRGB(BYTE *dst, const BYTE *src) { return pax::UnitToBytes(dst, pax::HSItoUnitRGB(src)); }
