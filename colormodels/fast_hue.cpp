// HSV and HSI kernels over planes: into HSV and HSI (the way back is in
// fast_hue_back.cpp).
//
// Integer max, min and d = max - min, then tables filled once by the very
// functions the single-value conversions call (hue.h): the hue byte by
// (sector, difference, d), the saturation bytes by (max, d). Each table entry
// is the reference result for its index, and the index holds everything that
// result depends on, so the kernels equal the single-value conversions for
// every input. A grey (d = 0) lands on index 0 of the hue tables and on the
// d = 0 column of the saturation tables, which hold the grey hue and 0.
#include "hue.h"
#include "run_kernels.h"
#include "simd_select.h"

namespace pax {
namespace {

struct HueTables {
    // [sector * 65536 + d * d + d + difference], difference in -d..d.
    BYTE hue[3 * 65536];
    // [max * 256 + d].
    BYTE hsvSaturation[65536], hsiSaturation[65536];

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

void HsvFromRgb(const BytePlanes &in, BytePlanes &out, int n) { FromRgb<false>(in, out, n); }
void HsiFromRgb(const BytePlanes &in, BytePlanes &out, int n) { FromRgb<true>(in, out, n); }

} // namespace

void FastHueKernels(ModelKernels *hsv, ModelKernels *hsi) {
    hsv->fromRgb = HsvFromRgb;
    hsi->fromRgb = HsiFromRgb;
}

} // namespace pax
