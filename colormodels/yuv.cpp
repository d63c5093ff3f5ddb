// YUV against RGB. Y = luma * 255; U (blue difference) and V (red difference)
// = (difference + 0.5) * 255. Additions left to right as written.
#include "color_math.h"

namespace pax {

// r', g', b' = channel - 0.5.
BYTE *UnitRGBtoYUV(BYTE *dst, UnitRGB u) {
    const double r = u.r - 0.5, g = u.g - 0.5, b = u.b - 0.5;
    const BYTE y = ClampToByte((g * 0.587 + r * 0.299 + b * 0.114 + 0.5) * 255);
    const BYTE cu = ClampToByte((b * 0.5 - (g * 0.3313 + r * 0.1687) + 0.5) * 255);
    const BYTE cv = ClampToByte((r * 0.5 - g * 0.4187 - b * 0.0813 + 0.5) * 255);
    return Store3(dst, y, cu, cv);
}

UnitRGB YUVtoUnitRGB(const BYTE *src) {
    const double y = src[0] / 255.0 - 0.5, u = src[1] / 255.0 - 0.5, v = src[2] / 255.0 - 0.5;
    return {v * 1.402 + y + 0.5, y - u * 0.3441 - v * 0.7141 + 0.5, u * 1.772 + y - v * 0.0001 + 0.5};
}

} // namespace pax

BYTE *PAXCALL RGBtoYUV(BYTE *dst, const BYTE *src) { return pax::UnitRGBtoYUV(dst, pax::UnitFromBytes(src)); }

BYTE *PAXCALL YUVtoRGB(BYTE *dst, const BYTE *src) { return pax::UnitToBytes(dst, pax::YUVtoUnitRGB(src)); }
