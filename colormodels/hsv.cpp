// HSV against RGB. H = hue angle * 255 / 360, S = saturation * 255,
// V = max(R, G, B).
#include "hue.h"

// V is copied from the largest channel without floating point; S = d / M;
// the hue comes from the sector of the largest channel.
BYTE *PAXCALL RGBtoHSV(BYTE *dst, const BYTE *src) {
    const int r = src[0], g = src[1], b = src[2];
    const int max = pax::Max3(r, g, b), min = pax::Min3(r, g, b);
    if (max == 0) return pax::Store3(dst, pax::kGreyHue, 0, 0);
    const int d = max - min; // S = d / max is 0 exactly when d is
    if (d == 0) return pax::Store3(dst, pax::kGreyHue, 0, static_cast<BYTE>(max));
    const BYTE h = pax::HueByte(r, g, b, max, d);
    return pax::Store3(dst, h, pax::HsvSaturation(max, d), static_cast<BYTE>(max));
}

namespace pax {

// Hue byte 255 means 360 degrees, folded onto sector 0 like hue 0.
UnitRGB HSVtoUnitRGB(const BYTE *src) {
    const double s = src[1] / 255.0, v = src[2] / 255.0;
    double h = src[0] * 360.0 / 255.0 / 60.0;
    if (h == 6.0) h = 0;
    // h lies in [0, 6) here, where truncation is floor.
    const int i = static_cast<int>(h);
    const double f = h - i;
    const double p = (1 - s) * v;
    const double q = (1 - f * s) * v;
    const double t = (1 - (1 - f) * s) * v;
    switch (i) {
    case 0: return {v, t, p};
    case 1: return {q, v, p};
    case 2: return {p, v, t};
    case 3: return {p, q, v};
    case 4: return {t, p, v};
    default: return {v, p, q};
    }
}

} // namespace pax

BYTE *PAXCALL HSVtoRGB(BYTE *dst, const BYTE *src) { return pax::UnitToBytes(dst, pax::HSVtoUnitRGB(src)); }
