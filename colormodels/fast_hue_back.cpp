// HSV and HSI kernels over planes: from HSV and HSI back to RGB (bytes, or
// doubles limited to 0..1).
//
// The same double operations in the same order as the single-value
// conversions, with everything that depends on one byte alone (the sector,
// f and 1 - f of a hue byte, byte / 255, the places of the three HSI channels
// on the hue ramp) taken from tables filled by those operations, and the
// choice of sector made by index instead of by branches.
#include "hsi_back.h"
#include "hue.h"
#include "run_kernels.h"
#include "simd_select.h"

namespace pax {
namespace {

// Sector i of HSV to (R, G, B), as places in {v, p, q, t}.
constexpr int kHsvPick[6][3] = {{0, 3, 1}, {2, 0, 1}, {1, 0, 3}, {1, 2, 0}, {3, 1, 0}, {0, 1, 2}};

struct HueTables {
    double unit[256];
    // HSV: sector 0..5 of a hue byte, f and 1 - f.
    int sector[256];
    double f[256], oneMinusF[256];
    int pickAt[256][3]; // offsets of R, G, B among the v, p, q, t planes
    // HSI: per hue byte and channel (R, G, B), where the channel lies on the
    // ramp (from hsi_back.h): 0 rising or falling with argument arg, 1 at m2,
    // 2 at m1.
    int rampKind[256][3];
    double rampArg[256][3], atM2[256][3], atM1[256][3]; // 1.0 where the kind is 1 or 2

    HueTables() {
        const HsiBackTables &back = HsiBackTablesOnce();
        for (int v = 0; v < 256; ++v) {
            unit[v] = v / 255.0;
            double h = v * 360.0 / 255.0 / 60.0;
            if (h == 6.0) h = 0;
            sector[v] = static_cast<int>(h);
            f[v] = h - sector[v];
            oneMinusF[v] = 1 - f[v];
            for (int k = 0; k < 3; ++k) pickAt[v][k] = kHsvPick[sector[v]][k] * kRunBlock;
            for (int k = 0; k < 3; ++k) {
                const HsiBackTables::Region region = back.region[v][k];
                rampKind[v][k] = region == HsiBackTables::High ? 1 : region == HsiBackTables::Low ? 2 : 0;
                rampArg[v][k] = back.ramp[v][k];
                atM2[v][k] = rampKind[v][k] == 1 ? 1.0 : 0.0;
                atM1[v][k] = rampKind[v][k] == 2 ? 1.0 : 0.0;
            }
        }
    }
};

const HueTables &Tables() {
    static const HueTables tables;
    return tables;
}

// ClampToByte(v * 255) of doubles in 0..1 (and the limit to 0..1), over a
// plane; min and max give what the tests of ClampToByte give.
PAX_INLINE void NarrowPlane(const double *v, BYTE *out, int n) {
    for (int p = 0; p < n; ++p) {
        double c = v[p] * 255;
        c = c > 255 ? 255.0 : c;
        c = c < 0 ? 0.0 : c;
        out[p] = static_cast<BYTE>(static_cast<int>(c));
    }
}
PAX_INLINE void LimitPlane(double *v, int n) {
    for (int p = 0; p < n; ++p) {
        double c = v[p];
        c = c < 0 ? 0.0 : c;
        v[p] = c > 1 ? 1.0 : c;
    }
}

// v, p, q and t of every pixel in vector-friendly passes, then each channel
// picked by the sector.
template <bool Unit>
PAX_INLINE void HsvTo(const BytePlanes &in, BytePlanes *bytes, UnitPlanes *unit, int n) {
    const HueTables &t = Tables();
    alignas(32) double s[kRunBlock], f[kRunBlock], g[kRunBlock], vals[4][kRunBlock];
    for (int px = 0; px < n; ++px) {
        const int h = in.c[0][px];
        s[px] = t.unit[in.c[1][px]];
        vals[0][px] = t.unit[in.c[2][px]];
        f[px] = t.f[h];
        g[px] = t.oneMinusF[h];
    }
    for (int px = 0; px < n; ++px) {
        const double v = vals[0][px];
        vals[1][px] = (1 - s[px]) * v;
        vals[2][px] = (1 - f[px] * s[px]) * v;
        vals[3][px] = (1 - g[px] * s[px]) * v;
    }
    if (Unit) {
        for (int k = 0; k < 4; ++k) LimitPlane(vals[k], n);
        for (int px = 0; px < n; ++px) {
            const int *pick = kHsvPick[t.sector[in.c[0][px]]];
            for (int k = 0; k < 3; ++k) unit->c[k][px] = vals[pick[k]][px];
        }
    } else {
        alignas(32) BYTE b[4 * kRunBlock];
        for (int k = 0; k < 4; ++k) NarrowPlane(vals[k], b + k * kRunBlock, n);
        BYTE *__restrict r = bytes->c[0], *__restrict g = bytes->c[1], *__restrict bl = bytes->c[2];
        for (int px = 0; px < n; ++px) {
            const int *pick = t.pickAt[in.c[0][px]];
            const BYTE vr = b[pick[0] + px], vg = b[pick[1] + px], vb = b[pick[2] + px];
            r[px] = vr;
            g[px] = vg;
            bl[px] = vb;
        }
    }
}

// m1 and m2, then each channel's place on the ramp, in vector-friendly passes.
template <bool Unit>
PAX_INLINE void HsiTo(const BytePlanes &in, BytePlanes *bytes, UnitPlanes *unit, int n) {
    const HueTables &t = Tables();
    alignas(32) double l[kRunBlock], s[kRunBlock], m1[kRunBlock], m2[kRunBlock];
    alignas(32) double arg[3][kRunBlock], atM2[3][kRunBlock], atM1[3][kRunBlock], out[3][kRunBlock];
    for (int px = 0; px < n; ++px) {
        const int h = in.c[0][px];
        l[px] = t.unit[in.c[2][px]];
        s[px] = t.unit[in.c[1][px]];
        for (int k = 0; k < 3; ++k) {
            arg[k][px] = t.rampArg[h][k];
            atM2[k][px] = t.atM2[h][k];
            atM1[k][px] = t.atM1[h][k];
        }
    }
    for (int px = 0; px < n; ++px) {
        const double lo = (s[px] + 1) * l[px], hi = l[px] + s[px] - l[px] * s[px];
        m2[px] = l[px] <= 0.5 ? lo : hi;
        m1[px] = l[px] + l[px] - m2[px];
    }
    for (int k = 0; k < 3; ++k)
        for (int px = 0; px < n; ++px) {
            const double ramp = (m2[px] - m1[px]) * arg[k][px] / 60 + m1[px];
            double c = atM2[k][px] != 0 ? m2[px] : ramp;
            c = atM1[k][px] != 0 ? m1[px] : c;
            out[k][px] = l[px] == 0 ? l[px] : c;
        }
    for (int k = 0; k < 3; ++k) {
        if (Unit) {
            LimitPlane(out[k], n);
            for (int px = 0; px < n; ++px) unit->c[k][px] = out[k][px];
        } else {
            NarrowPlane(out[k], bytes->c[k], n);
        }
    }
}

#define PAX_HUE_BACK(ATTR, SUFFIX)                                                                 \
    ATTR void HsvToRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {                   \
        HsvTo<false>(in, &out, nullptr, n);                                                      \
    }                                                                                            \
    ATTR void HsvToUnit##SUFFIX(const BytePlanes &in, UnitPlanes &out, int n) {                  \
        HsvTo<true>(in, nullptr, &out, n);                                                       \
    }                                                                                            \
    ATTR void HsiToRgb##SUFFIX(const BytePlanes &in, BytePlanes &out, int n) {                   \
        HsiTo<false>(in, &out, nullptr, n);                                                      \
    }                                                                                            \
    ATTR void HsiToUnit##SUFFIX(const BytePlanes &in, UnitPlanes &out, int n) {                  \
        HsiTo<true>(in, nullptr, &out, n);                                                       \
    }

PAX_HUE_BACK(, Sse2)
#if PAX_HAVE_AVX2_BUILD
PAX_HUE_BACK(PAX_AVX2, Avx2)
#endif

} // namespace

void FastHueBackKernels(ModelKernels *hsv, ModelKernels *hsi) {
#if PAX_HAVE_AVX2_BUILD
    if (ProcessorHasAvx2()) {
        hsv->toRgb = HsvToRgbAvx2;
        hsv->toUnit = HsvToUnitAvx2;
        hsi->toRgb = HsiToRgbAvx2;
        hsi->toUnit = HsiToUnitAvx2;
        return;
    }
#endif
    hsv->toRgb = HsvToRgbSse2;
    hsv->toUnit = HsvToUnitSse2;
    hsi->toRgb = HsiToRgbSse2;
    hsi->toUnit = HsiToUnitSse2;
}

} // namespace pax
