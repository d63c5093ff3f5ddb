// HSV and HSI kernels over planes.
//
// Into HSV and HSI: integer max, min and d = max - min, then tables filled
// once by the very functions the single-value conversions call (hue.h): the
// hue byte by (sector, difference, d), the saturation bytes by (max, d). Each
// table entry is the reference result for its index, and the index holds
// everything that result depends on, so the kernels equal the single-value
// conversions for every input. A grey (d = 0) lands on index 0 of the hue
// tables and on the d = 0 column of the saturation tables, which hold the grey
// hue and 0.
//
// From HSV and HSI: the same double operations in the same order as the
// single-value conversions, with everything that depends on one byte alone
// (the sector, f and 1 - f of a hue byte, byte / 255, the places of the three
// HSI channels on the hue ramp) taken from tables filled by those operations,
// and the choice of sector made by index instead of by branches.
#include "hue.h"
#include "run_kernels.h"

namespace pax {
namespace {

struct HueTables {
    // [sector * 65536 + d * d + d + difference], difference in -d..d.
    BYTE hue[3 * 65536];
    // [max * 256 + d].
    BYTE hsvSaturation[65536], hsiSaturation[65536];
    double unit[256];
    // HSV: sector 0..5 of a hue byte, f and 1 - f.
    int sector[256];
    double f[256], oneMinusF[256];
    // HSI: per hue byte and channel (R, G, B), where the channel lies on the
    // ramp: 0 rising or falling with argument arg, 1 at m2, 2 at m1.
    int rampKind[256][3];
    double rampArg[256][3];

    HueTables() {
        for (int sector = 0; sector < 3; ++sector) {
            hue[sector * 65536] = kGreyHue;
            for (int d = 1; d < 256; ++d)
                for (int diff = -d; diff <= d; ++diff)
                    hue[sector * 65536 + d * d + d + diff] = HueOfSector(sector, diff, d);
        }
        for (int max = 0; max < 256; ++max)
            for (int d = 0; d < 256; ++d) {
                const bool valid = d > 0 && d <= max;
                hsvSaturation[max * 256 + d] = valid ? HsvSaturation(max, d) : 0;
                hsiSaturation[max * 256 + d] = valid ? HsiSaturation(max, d) : 0;
            }
        for (int v = 0; v < 256; ++v) {
            unit[v] = v / 255.0;
            double h = v * 360.0 / 255.0 / 60.0;
            if (h == 6.0) h = 0;
            sector[v] = static_cast<int>(h);
            f[v] = h - sector[v];
            oneMinusF[v] = 1 - f[v];
            const double degrees = v * 360.0 / 255.0;
            const double at[3] = {degrees + 120, degrees, degrees - 120};
            for (int k = 0; k < 3; ++k) {
                double x = at[k];
                if (x > 360)
                    x = x - 360;
                else if (x < 0)
                    x = x + 360;
                if (x < 60) {
                    rampKind[v][k] = 0;
                    rampArg[v][k] = x;
                } else if (x < 180) {
                    rampKind[v][k] = 1;
                    rampArg[v][k] = 0;
                } else if (x < 240) {
                    rampKind[v][k] = 0;
                    rampArg[v][k] = 240 - x;
                } else {
                    rampKind[v][k] = 2;
                    rampArg[v][k] = 0;
                }
            }
        }
    }
};

const HueTables &Tables() {
    static const HueTables tables;
    return tables;
}

// Two passes: the indices, without branches (the sector by masks), over whole
// planes so the compiler can use vector registers; then the table reads.
template <bool Hsi>
void FromRgb(const BytePlanes &in, BytePlanes &out, int n) {
    const HueTables &t = Tables();
    const BYTE *saturation = Hsi ? t.hsiSaturation : t.hsvSaturation;
    alignas(32) int hueAt[kRunBlock], satAt[kRunBlock];
    for (int p = 0; p < n; ++p) {
        const int r = in.c[0][p], g = in.c[1][p], b = in.c[2][p];
        const int max = Max3(r, g, b), min = Min3(r, g, b), d = max - min;
        const int isR = -(r == max), isG = ~isR & -(g == max), isB = ~(isR | isG);
        const int diff = ((g - b) & isR) | ((b - r) & isG) | ((r - g) & isB);
        const int sector = (65536 & isG) | (131072 & isB);
        hueAt[p] = sector + d * d + d + diff;
        satAt[p] = max * 256 + d;
        out.c[2][p] = static_cast<BYTE>(Hsi ? (max + min) >> 1 : max);
    }
    for (int p = 0; p < n; ++p) {
        out.c[0][p] = t.hue[hueAt[p]];
        out.c[1][p] = saturation[satAt[p]];
    }
}

// Sector i of HSV to (R, G, B), as places in {v, p, q, t}.
constexpr int kHsvPick[6][3] = {{0, 3, 1}, {2, 0, 1}, {1, 0, 3}, {1, 2, 0}, {3, 1, 0}, {0, 1, 2}};

template <bool Unit>
void HsvTo(const BytePlanes &in, BytePlanes *bytes, UnitPlanes *unit, int n) {
    const HueTables &t = Tables();
    for (int px = 0; px < n; ++px) {
        const int h = in.c[0][px];
        const double s = t.unit[in.c[1][px]], v = t.unit[in.c[2][px]];
        const double f = t.f[h];
        const double vals[4] = {v, (1 - s) * v, (1 - f * s) * v, (1 - t.oneMinusF[h] * s) * v};
        const int *pick = kHsvPick[t.sector[h]];
        for (int k = 0; k < 3; ++k) {
            const double c = vals[pick[k]];
            if (Unit)
                unit->c[k][px] = c < 0 ? 0.0 : (c > 1 ? 1.0 : c);
            else
                bytes->c[k][px] = ClampToByte(c * 255);
        }
    }
}

template <bool Unit>
void HsiTo(const BytePlanes &in, BytePlanes *bytes, UnitPlanes *unit, int n) {
    const HueTables &t = Tables();
    for (int px = 0; px < n; ++px) {
        const int h = in.c[0][px];
        const double l = t.unit[in.c[2][px]], s = t.unit[in.c[1][px]];
        const double m2 = l <= 0.5 ? (s + 1) * l : l + s - l * s;
        const double m1 = l + l - m2;
        for (int k = 0; k < 3; ++k) {
            const int kind = t.rampKind[h][k];
            const double ramp = (m2 - m1) * t.rampArg[h][k] / 60 + m1;
            double c = kind == 0 ? ramp : (kind == 1 ? m2 : m1);
            if (in.c[2][px] == 0) c = l;
            if (Unit)
                unit->c[k][px] = c < 0 ? 0.0 : (c > 1 ? 1.0 : c);
            else
                bytes->c[k][px] = ClampToByte(c * 255);
        }
    }
}

void HsvFromRgb(const BytePlanes &in, BytePlanes &out, int n) { FromRgb<false>(in, out, n); }
void HsiFromRgb(const BytePlanes &in, BytePlanes &out, int n) { FromRgb<true>(in, out, n); }
void HsvToRgb(const BytePlanes &in, BytePlanes &out, int n) { HsvTo<false>(in, &out, nullptr, n); }
void HsvToUnit(const BytePlanes &in, UnitPlanes &out, int n) { HsvTo<true>(in, nullptr, &out, n); }
void HsiToRgb(const BytePlanes &in, BytePlanes &out, int n) { HsiTo<false>(in, &out, nullptr, n); }
void HsiToUnit(const BytePlanes &in, UnitPlanes &out, int n) { HsiTo<true>(in, nullptr, &out, n); }

} // namespace

void FastHueKernels(ModelKernels *hsv, ModelKernels *hsi) {
    *hsv = {HsvToRgb, HsvFromRgb, HsvToUnit, nullptr};
    *hsi = {HsiToRgb, HsiFromRgb, HsiToUnit, nullptr};
}

} // namespace pax
