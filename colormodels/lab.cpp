// CIE L*a*b* against RGB. L byte = L* / 100 * 255; the a byte spans a* from
// -137.71922 (0) to 96.14317 (255), the b byte b* from -75.14155 (0) to
// 49.46907 (255), through the offsets and divisors of lab_terms.h.
#include "lab_terms.h"

namespace pax {

// L* has its own linear segment (slope 903.3) below the threshold; a* and b*
// use LabF. Every step in the order written.
// The cube root of Y serves both L* and fy (the two thresholds are the same).
BYTE *UnitRGBtoLAB(BYTE *dst, UnitRGB u) {
    const Tristimulus t = TristimulusOf(u);
    const bool aboveThreshold = t.y > kLabThreshold;
    const double rootY = aboveThreshold ? PowOneThird(t.y) : 0.0;
    const double lstar = aboveThreshold ? rootY * 116 - 16 : t.y * 903.3;
    const double fy = aboveThreshold ? rootY : LabF(t.y);
    const BYTE l = ClampToByte(lstar / 100 * 255);
    const BYTE a = ClampToByte(((LabF(t.x / kLabWhiteX) - fy) * 500 * 255 + kLabAOffset) / kLabADivisor);
    const BYTE b = ClampToByte(((fy - LabF(t.z / kLabWhiteZ)) * 200 * 255 + kLabBOffset) / kLabBDivisor);
    return Store3(dst, l, a, b);
}

// No linear segment on this side: the cube is taken for every L*, and a
// negative base gives a negative cube.
//
// Everything that depends on one byte alone (fy and its cube, the a and b
// terms) comes from tables filled once by the same expressions.
namespace {

struct LabByteTables {
    double fy[256], fyCube[256], aTerm[256], bTerm[256];
    LabByteTables() {
        for (int v = 0; v < 256; ++v) {
            const BYTE b = static_cast<BYTE>(v);
            fy[v] = LabFy(b);
            fyCube[v] = PowCube(fy[v]);
            aTerm[v] = LabATerm(b);
            bTerm[v] = LabBTerm(b);
        }
    }
};

const LabByteTables &ByteTables() {
    static const LabByteTables tables; // filled on first use
    return tables;
}

} // namespace

UnitRGB LABtoUnitRGB(const BYTE *src) {
    const LabByteTables &tab = ByteTables();
    const double fy = tab.fy[src[0]];
    const double x = PowCube(tab.aTerm[src[1]] + fy) * kLabWhiteX;
    const double y = tab.fyCube[src[0]];
    const double z = PowCube(fy - tab.bTerm[src[2]]) * kLabWhiteZ;
    return {x * 1.7467 - y * 0.2014 - z * 2.8135, y * 2.0305 - x * 1.0002 - z * 0.271,
            x * 0.5691 - y * 1.1553 + z * 8.7749};
}

} // namespace pax

BYTE *PAXCALL RGBtoLAB(BYTE *dst, const BYTE *src) { return pax::UnitRGBtoLAB(dst, pax::UnitFromBytes(src)); }

BYTE *PAXCALL LABtoRGB(BYTE *dst, const BYTE *src) { return pax::UnitToBytes(dst, pax::LABtoUnitRGB(src)); }
