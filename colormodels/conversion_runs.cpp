// The run functions: for every ordered pair of models and every pixel layout,
// a function that converts a run of pixels block by block. A block is taken
// apart into component planes, converted by the pair's kernels along the path
// that the pair's single-value conversion takes through RGB (conversion_list.h),
// and put back in the destination layout.
//
// RGB and CMY, both ways, in the buffer and 24-bit image layouts, and RGB to
// CMYK and back in the image layout are the exceptions: they are converted on
// the interleaved bytes, without planes (fast_ink.cpp).
#include "conversion_runs.h"

#include "color_math.h"
#include "conversion_list.h"
#include "conversion_table.h"
#include "plane_shuffle.h"
#include "run_kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace pax {
namespace {

// ---- The per-pixel kernels: the single-value conversions, one by one.

BYTE *PAXCALL Identity(BYTE *dst, const BYTE *src) { return Store3(dst, src[0], src[1], src[2]); }

template <ToThree Fn>
void PixelToRgb(const BytePlanes &in, BytePlanes &out, int n) {
    for (int p = 0; p < n; ++p) {
        const BYTE v[4] = {in.c[0][p], in.c[1][p], in.c[2][p], in.c[3][p]};
        BYTE rgb[3];
        Fn(rgb, v);
        out.c[0][p] = rgb[0];
        out.c[1][p] = rgb[1];
        out.c[2][p] = rgb[2];
    }
}
template <ToThree Fn>
void PixelFromRgb(const BytePlanes &in, BytePlanes &out, int n) {
    PixelToRgb<Fn>(in, out, n);
}
void PixelRgbToCmyk(const BytePlanes &in, BytePlanes &out, int n) {
    for (int p = 0; p < n; ++p) {
        const BYTE v[3] = {in.c[0][p], in.c[1][p], in.c[2][p]};
        const CMYKQUAD q = RGBtoCMYK(v);
        out.c[0][p] = q.c;
        out.c[1][p] = q.m;
        out.c[2][p] = q.y;
        out.c[3][p] = q.k;
    }
}
template <UnitRGB (*Fn)(const BYTE *)>
void PixelToUnit(const BytePlanes &in, UnitPlanes &out, int n) {
    for (int p = 0; p < n; ++p) {
        const BYTE v[3] = {in.c[0][p], in.c[1][p], in.c[2][p]};
        const UnitRGB u = ClampUnit(Fn(v));
        out.c[0][p] = u.r;
        out.c[1][p] = u.g;
        out.c[2][p] = u.b;
    }
}
template <BYTE *(*Fn)(BYTE *, UnitRGB)>
void PixelFromUnit(UnitPlanes &in, BytePlanes &out, int n) {
    for (int p = 0; p < n; ++p) {
        BYTE v[3];
        Fn(v, UnitRGB{in.c[0][p], in.c[1][p], in.c[2][p]});
        out.c[0][p] = v[0];
        out.c[1][p] = v[1];
        out.c[2][p] = v[2];
    }
}

struct KernelTable {
    ModelKernels k[10] = {};
    KernelTable() {
        k[MODEL_RGB] = {PixelToRgb<Identity>, PixelFromRgb<Identity>, nullptr, nullptr};
        k[MODEL_CMY] = {PixelToRgb<CMYtoRGB>, PixelFromRgb<RGBtoCMY>, nullptr, nullptr};
        k[MODEL_CMYK] = {PixelToRgb<CMYKtoRGB>, PixelRgbToCmyk, nullptr, nullptr};
        k[MODEL_HSV] = {PixelToRgb<HSVtoRGB>, PixelFromRgb<RGBtoHSV>, PixelToUnit<HSVtoUnitRGB>, nullptr};
        k[MODEL_HSI] = {PixelToRgb<HSItoRGB>, PixelFromRgb<RGBtoHSI>, PixelToUnit<HSItoUnitRGB>, nullptr};
        k[MODEL_YIQ] = {PixelToRgb<YIQtoRGB>, PixelFromRgb<RGBtoYIQ>, PixelToUnit<YIQtoUnitRGB>,
                        PixelFromUnit<UnitRGBtoYIQ>};
        k[MODEL_YUV] = {PixelToRgb<YUVtoRGB>, PixelFromRgb<RGBtoYUV>, PixelToUnit<YUVtoUnitRGB>,
                        PixelFromUnit<UnitRGBtoYUV>};
        k[MODEL_XYZ] = {PixelToRgb<XYZtoRGB>, PixelFromRgb<RGBtoXYZ>, PixelToUnit<XYZtoUnitRGB>,
                        PixelFromUnit<UnitRGBtoXYZ>};
        k[MODEL_LAB] = {PixelToRgb<LABtoRGB>, PixelFromRgb<RGBtoLAB>, PixelToUnit<LABtoUnitRGB>,
                        PixelFromUnit<UnitRGBtoLAB>};
        ModelKernels fast[10] = {};
        FastHueKernels(&fast[MODEL_HSV], &fast[MODEL_HSI]);
        FastHueBackKernels(&fast[MODEL_HSV], &fast[MODEL_HSI]);
        FastLinearKernels(&fast[MODEL_YIQ], &fast[MODEL_YUV], &fast[MODEL_XYZ]);
        FastLabKernels(&fast[MODEL_LAB]);
        FastInkKernels(&fast[MODEL_CMY], &fast[MODEL_CMYK]);
        for (int m = 1; m <= 9; ++m) {
            if (fast[m].toRgb) k[m].toRgb = fast[m].toRgb;
            if (fast[m].fromRgb) k[m].fromRgb = fast[m].fromRgb;
            if (fast[m].toUnit) k[m].toUnit = fast[m].toUnit;
            if (fast[m].fromUnit) k[m].fromUnit = fast[m].fromUnit;
        }
    }
};

// ---- Layouts.

constexpr int Components(int model) { return model == MODEL_CMYK ? 4 : 3; }
constexpr int SourceStep(int from, RunLayout l) { return l == RunLayout::Image32 ? 4 : Components(from); }
constexpr int DestinationStep(int to, RunLayout l) { return l == RunLayout::Image32 ? 4 : Components(to); }

template <int N, RunLayout L, int Step>
void Load(const BYTE *src, BytePlanes &planes, int n) {
    if constexpr (N == 3 && Step == 3) {
        if constexpr (L == RunLayout::Buffer)
            Shuffles().split(src, planes.c[0], planes.c[1], planes.c[2], n);
        else
            Shuffles().split(src, planes.c[2], planes.c[1], planes.c[0], n);
        return;
    }
    if constexpr (N == 4 && Step == 4) {
        // Whole 32-bit pixels, taken apart by shifts of little-endian words.
        static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "x86 byte order");
        constexpr int s0 = L == RunLayout::Buffer ? 0 : 24, s3 = 24 - s0;
        constexpr int s1 = L == RunLayout::Buffer ? 8 : 16, s2 = 24 - s1;
        for (int p = 0; p < n; ++p) {
            uint32_t w;
            std::memcpy(&w, src + 4 * p, 4);
            planes.c[0][p] = static_cast<BYTE>(w >> s0);
            planes.c[1][p] = static_cast<BYTE>(w >> s1);
            planes.c[2][p] = static_cast<BYTE>(w >> s2);
            planes.c[3][p] = static_cast<BYTE>(w >> s3);
        }
        return;
    }
    for (int p = 0; p < n; ++p, src += Step)
        for (int k = 0; k < N; ++k) planes.c[k][p] = src[L == RunLayout::Buffer ? k : N - 1 - k];
}

template <int N, RunLayout L, int Step>
void Put(const BytePlanes &planes, BYTE *dst, int n) {
    if constexpr (N == 3 && Step == 3) {
        if constexpr (L == RunLayout::Buffer)
            Shuffles().join(planes.c[0], planes.c[1], planes.c[2], dst, n);
        else
            Shuffles().join(planes.c[2], planes.c[1], planes.c[0], dst, n);
        return;
    }
    if constexpr (N == 4 && Step == 4) {
        constexpr int s0 = L == RunLayout::Buffer ? 0 : 24, s3 = 24 - s0;
        constexpr int s1 = L == RunLayout::Buffer ? 8 : 16, s2 = 24 - s1;
        for (int p = 0; p < n; ++p) {
            const uint32_t w = uint32_t{planes.c[0][p]} << s0 | uint32_t{planes.c[1][p]} << s1 |
                               uint32_t{planes.c[2][p]} << s2 | uint32_t{planes.c[3][p]} << s3;
            std::memcpy(dst + 4 * p, &w, 4);
        }
        return;
    }
    for (int p = 0; p < n; ++p, dst += Step)
        for (int k = 0; k < N; ++k) dst[L == RunLayout::Buffer ? k : N - 1 - k] = planes.c[k][p];
}

enum class Via { FromRgb, ToRgb, Bytes, Doubles };

template <int F, int T, Via V, RunLayout L>
void Run(const BYTE *src, BYTE *dst, int64_t count) {
    constexpr int inStep = SourceStep(F, L), outStep = DestinationStep(T, L);
    if constexpr (((F == MODEL_RGB && T == MODEL_CMY) || (F == MODEL_CMY && T == MODEL_RGB)) &&
                  L != RunLayout::Image32) {
        DirectInkRuns().complement(src, dst, count * 3);
        return;
    }
    if constexpr (F == MODEL_RGB && T == MODEL_CMYK && L == RunLayout::Image) {
        DirectInkRuns().rgbToCmykImage(src, dst, count);
        return;
    }
    if constexpr (F == MODEL_CMYK && T == MODEL_RGB && L == RunLayout::Image) {
        DirectInkRuns().cmykToRgbImage(src, dst, count);
        return;
    }
    const ModelKernels &from = KernelsOf(F), &to = KernelsOf(T);
    BytePlanes in, out, rgb;
    UnitPlanes unit;
    while (count > 0) {
        const int n = static_cast<int>(std::min<int64_t>(count, kRunBlock));
        Load<Components(F), L, inStep>(src, in, n);
        if constexpr (V == Via::FromRgb) {
            to.fromRgb(in, out, n);
        } else if constexpr (V == Via::ToRgb) {
            from.toRgb(in, out, n);
        } else if constexpr (V == Via::Bytes) {
            from.toRgb(in, rgb, n);
            to.fromRgb(rgb, out, n);
        } else {
            from.toUnit(in, unit, n);
            to.fromUnit(unit, out, n);
        }
        Put<Components(T), L, outStep>(out, dst, n);
        src += static_cast<int64_t>(n) * inStep;
        dst += static_cast<int64_t>(n) * outStep;
        count -= n;
    }
}

// The path token of the table: BASE, B, D or I.
constexpr Via ViaOf(int from, const char *path) {
    return path[1] != '\0' ? (from == MODEL_RGB ? Via::FromRgb : Via::ToRgb)
           : path[0] == 'D' ? Via::Doubles
                            : Via::Bytes;
}

struct RunEntry {
    int from, to;
    RunFn runs[3];
};

#define PAX_RUN_ENTRY(F, T, P)                                                                 \
    {MODEL_##F, MODEL_##T,                                                                     \
     {Run<MODEL_##F, MODEL_##T, ViaOf(MODEL_##F, #P), RunLayout::Buffer>,                   \
      Run<MODEL_##F, MODEL_##T, ViaOf(MODEL_##F, #P), RunLayout::Image>,                    \
      MODEL_##F == MODEL_CMYK ? nullptr                                                        \
                              : Run<MODEL_##F, MODEL_##T, ViaOf(MODEL_##F, #P), RunLayout::Image32>}},
const RunEntry kRuns[] = {PAX_CONVERSIONS(PAX_RUN_ENTRY)};
#undef PAX_RUN_ENTRY

} // namespace

const ModelKernels &KernelsOf(int model) {
    static const KernelTable table; // picked once
    return table.k[model];
}

RunFn FindRun(int fromModel, int toModel, RunLayout layout) {
    for (const RunEntry &e : kRuns)
        if (e.from == fromModel && e.to == toModel) return e.runs[static_cast<int>(layout)];
    return nullptr;
}

void RgbImageToPlanes(int toModel, const BYTE *src, BytePlanes &out, int n) {
    BytePlanes in;
    Load<3, RunLayout::Image, 3>(src, in, n);
    KernelsOf(toModel).fromRgb(in, out, n);
}

int RunSourceStep(int fromModel, RunLayout layout) { return SourceStep(fromModel, layout); }
int RunDestinationStep(int toModel, RunLayout layout) { return DestinationStep(toModel, layout); }

} // namespace pax
