// The arguments of the powers in the LAB conversions, shared by lab.cpp and
// the check of the powers so both see exactly the same values.
#ifndef PAX_LAB_TERMS_H
#define PAX_LAB_TERMS_H

#include "color_math.h"

namespace pax {

constexpr double kLabWhiteX = 0.981, kLabWhiteZ = 0.182;
constexpr double kLabThreshold = 0.008856;
constexpr double kLabAOffset = 35118.4018196406, kLabADivisor = 233.86238849999802;
constexpr double kLabBOffset = 19161.09434904267, kLabBDivisor = 124.610613285093;

// X, Y, Z of RGB, not multiplied by 255 (additions in the order written).
struct Tristimulus {
    double x, y, z;
};
inline Tristimulus TristimulusOf(UnitRGB u) {
    return {u.g * 0.174 + u.r * 0.607 + u.b * 0.2, u.g * 0.587 + u.r * 0.299 + u.b * 0.114,
            u.g * 0.066 + u.b * 0.116};
}

// From LAB: L* = L byte * 100 / 255 in integers, a whole number 0..100, and
// fy = 0.01^(1/3) * ((L* + 16) / 25).
inline double LabFy(BYTE lByte) {
    static const double kHundredthCubeRoot = PowOneThird(0.01); // computed once
    const int lstar = lByte * 100 / 255;
    return kHundredthCubeRoot * ((lstar + 16) / 25.0);
}
// The bases cubed for X and Z: fy plus the a term, fy minus the b term.
inline double LabATerm(BYTE aByte) { return (aByte * kLabADivisor - kLabAOffset) / 255 / 500; }
inline double LabBTerm(BYTE bByte) { return (bByte * kLabBDivisor - kLabBOffset) / 255 / 200; }
inline double LabXBase(BYTE aByte, double fy) { return LabATerm(aByte) + fy; }
inline double LabZBase(BYTE bByte, double fy) { return fy - LabBTerm(bByte); }

} // namespace pax

#endif
