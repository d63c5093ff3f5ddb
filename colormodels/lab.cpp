// CIE L*a*b* against RGB. L byte = L* / 100 * 255; the a byte spans a* from
// -137.71922 (0) to 96.14317 (255), the b byte b* from -75.14155 (0) to
// 49.46907 (255), through the offsets and divisors below.
#include "color_math.h"

namespace pax {

namespace {
constexpr double kWhiteX = 0.981, kWhiteZ = 0.182;
constexpr double kAOffset = 35118.4018196406, kADivisor = 233.86238849999802;
constexpr double kBOffset = 19161.09434904267, kBDivisor = 124.610613285093;
} // namespace

// X, Y, Z are not multiplied by 255 here. L* has its own linear segment
// (slope 903.3) below the threshold; a* and b* use LabF.
BYTE *UnitRGBtoLAB(BYTE *dst, UnitRGB u) {
    const double x = u.g * 0.174 + u.r * 0.607 + u.b * 0.2;
    const double y = u.g * 0.587 + u.r * 0.299 + u.b * 0.114;
    const double z = u.g * 0.066 + u.b * 0.116;
    const double lstar = y > 0.008856 ? PowOneThird(y) * 116 - 16 : y * 903.3;
    const double fy = LabF(y);
    const BYTE l = ClampToByte(lstar / 100 * 255);
    const BYTE a = ClampToByte(((LabF(x / kWhiteX) - fy) * 500 * 255 + kAOffset) / kADivisor);
    const BYTE b = ClampToByte(((fy - LabF(z / kWhiteZ)) * 200 * 255 + kBOffset) / kBDivisor);
    return Store3(dst, l, a, b);
}

// L* = L byte * 100 / 255 in integers, so a whole number 0..100. No linear
// segment on this side: the cube is taken for every L*, and a negative base
// gives a negative cube.
UnitRGB LABtoUnitRGB(const BYTE *src) {
    const int lstar = src[0] * 100 / 255;
    const double c = PowOneThird(0.01);
    const double fy = c * ((lstar + 16) / 25.0);
    const double x = PowCube((src[1] * kADivisor - kAOffset) / 255 / 500 + fy) * kWhiteX;
    const double y = PowCube(fy);
    const double z = PowCube(fy - (src[2] * kBDivisor - kBOffset) / 255 / 200) * kWhiteZ;
    return {x * 1.7467 - y * 0.2014 - z * 2.8135, y * 2.0305 - x * 1.0002 - z * 0.271,
            x * 0.5691 - y * 1.1553 + z * 8.7749};
}

} // namespace pax

BYTE *PAXCALL RGBtoLAB(BYTE *dst, const BYTE *src) { return pax::UnitRGBtoLAB(dst, pax::UnitFromBytes(src)); }

BYTE *PAXCALL LABtoRGB(BYTE *dst, const BYTE *src) { return pax::UnitToBytes(dst, pax::LABtoUnitRGB(src)); }
