// YIQ against RGB. Y = luma * 255; I and Q = (chroma + 0.5) * 255, so 127.5
// is zero chroma. The additions run left to right as written: a result at a
// truncation boundary depends on their order.
#include "color_math.h"

namespace pax {

// r', g', b' = channel - 0.5.
BYTE *UnitRGBtoYIQ(BYTE *dst, UnitRGB u) {
    const double r = u.r - 0.5, g = u.g - 0.5, b = u.b - 0.5;
    const BYTE y = ClampToByte((g * 0.587 + r * 0.299 + b * 0.114 + 0.5) * 255);
    const BYTE i = ClampToByte((r * 0.596 - g * 0.275 - b * 0.321 + 0.5) * 255);
    const BYTE q = ClampToByte((r * 0.212 - g * 0.523 + b * 0.311 + 0.5) * 255);
    return Store3(dst, y, i, q);
}

UnitRGB YIQtoUnitRGB(const BYTE *src) {
    const double y = src[0] / 255.0 - 0.5, i = src[1] / 255.0 - 0.5, q = src[2] / 255.0 - 0.5;
    return {i * 0.9557 + y + q * 0.6199 + 0.5, y - i * 0.2716 - q * 0.6469 + 0.5,
            y - i * 1.1082 + q * 1.7051 + 0.5};
}

} // namespace pax

BYTE *PAXCALL RGBtoYIQ(BYTE *dst, const BYTE *src) { return pax::UnitRGBtoYIQ(dst, pax::UnitFromBytes(src)); }

BYTE *PAXCALL YIQtoRGB(BYTE *dst, const BYTE *src) { return pax::UnitToBytes(dst, pax::YIQtoUnitRGB(src)); }
