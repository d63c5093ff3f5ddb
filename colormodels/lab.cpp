// CIE L*a*b* against RGB. L byte = L* / 100 * 255; the a byte spans a* from
// -137.71922 (0) to 96.14317 (255), the b byte b* from -75.14155 (0) to
// 49.46907 (255), through the offsets and divisors of lab_terms.h.
#include "lab_terms.h"

namespace pax {

// L* has its own linear segment (slope 903.3) below the threshold; a* and b*
// use LabF. Every step in the order written.
BYTE *UnitRGBtoLAB(BYTE *dst, UnitRGB u) {
    const Tristimulus t = TristimulusOf(u);
    const double lstar = t.y > kLabThreshold ? PowOneThird(t.y) * 116 - 16 : t.y * 903.3;
    const double fy = LabF(t.y);
    const BYTE l = ClampToByte(lstar / 100 * 255);
    const BYTE a = ClampToByte(((LabF(t.x / kLabWhiteX) - fy) * 500 * 255 + kLabAOffset) / kLabADivisor);
    const BYTE b = ClampToByte(((fy - LabF(t.z / kLabWhiteZ)) * 200 * 255 + kLabBOffset) / kLabBDivisor);
    return Store3(dst, l, a, b);
}

// No linear segment on this side: the cube is taken for every L*, and a
// negative base gives a negative cube.
UnitRGB LABtoUnitRGB(const BYTE *src) {
    const double fy = LabFy(src[0]);
    const double x = PowCube(LabXBase(src[1], fy)) * kLabWhiteX;
    const double y = PowCube(fy);
    const double z = PowCube(LabZBase(src[2], fy)) * kLabWhiteZ;
    return {x * 1.7467 - y * 0.2014 - z * 2.8135, y * 2.0305 - x * 1.0002 - z * 0.271,
            x * 0.5691 - y * 1.1553 + z * 8.7749};
}

} // namespace pax

BYTE *PAXCALL RGBtoLAB(BYTE *dst, const BYTE *src) { return pax::UnitRGBtoLAB(dst, pax::UnitFromBytes(src)); }

BYTE *PAXCALL LABtoRGB(BYTE *dst, const BYTE *src) { return pax::UnitToBytes(dst, pax::LABtoUnitRGB(src)); }
