#include "image_exports.h"

#include "dialog_double_control.h"
#include "dib_builder.h"

#include <algorithm>
#include <cstring>

namespace paxtest {

namespace {

using C = CodeChannel;
using M = ModeArg;
using P = ProgressShape;

HDIB Convert(HDIB im, const Args &g, Outcome &) {
    return ConvertDIBColorSpace(im, g.a[0], g.a[1], g.mode, g.owner);
}
// a[1] nonzero: no array. A failed split leaves the array as it was, or
// (once it has begun to make the outputs) its first three entries null.
HDIB Split(HDIB im, const Args &g, Outcome &o) {
    HGLOBAL const unwritten = reinterpret_cast<HGLOBAL>(0x1234);
    HGLOBAL channels[4] = {unwritten, unwritten, unwritten, unwritten};
    o.value = SplitColorChannels(im, g.a[1] ? nullptr : channels, static_cast<BYTE>(g.a[0]));
    for (long k = 0; k < o.value && k < 4; ++k) o.results.push_back(channels[k]);
    if (!o.value && channels[0] != unwritten)
        o.arrayCleared = !channels[0] && !channels[1] && !channels[2] ? 1 : -1;
    return nullptr;
}
HDIB HueSaturation(HDIB im, const Args &g, Outcome &) {
    return ColorHueSaturation(im, g.a[0], g.a[1], g.a[2], static_cast<UINT>(g.a[3]), static_cast<UINT>(g.a[4]),
                              g.mode, g.owner);
}
HDIB Desat(HDIB im, const Args &g, Outcome &) { return Desaturate(im, g.mode, g.owner); }
HDIB Replace(HDIB im, const Args &g, Outcome &o) {
    BYTE target[3], tolerance[3];
    for (int i = 0; i < 3; ++i) {
        target[i] = static_cast<BYTE>(g.a[0] >> (8 * i));
        tolerance[i] = static_cast<BYTE>(g.a[1] >> (8 * i));
    }
    HDIB r = ReplaceColor(im, g.a[5] & 1 ? nullptr : target, g.a[5] & 2 ? nullptr : tolerance, g.a[2], g.a[3],
                          g.a[4], g.mode, g.owner);
    o.value = target[0] != BYTE(g.a[0]) || tolerance[0] != BYTE(g.a[1]) ? -1 : 0; // the caller's colours written
    return r;
}
HDIB Levels(HDIB im, const Args &g, Outcome &) {
    return ColorCMYKLevels(im, g.a[0], g.a[1], g.a[2], g.a[3], g.mode, g.owner);
}
HDIB Contrast(HDIB im, const Args &g, Outcome &) {
    return ColorBrightnessContrast(im, static_cast<short>(g.a[0]), static_cast<short>(g.a[1]), g.mode);
}
HDIB Gamma(HDIB im, const Args &g, Outcome &) { return GammaCorrection(im, g.a[0], g.a[1], g.a[2], g.mode, g.owner); }

// Built-in coefficient lists for the caller's-array type: a smoothing 3 x 3,
// a 5 x 5 with a negative divisor, a 7 x 7 summing to its own divisor, and
// one over the magnitude limit. Exactly n x n + 1 values are handed over.
template <int kNewImage> HDIB Convolve(HDIB im, const Args &g, Outcome &o) {
    const int n = static_cast<short>(g.a[2]), list = g.a[3] & 3;
    std::vector<short> k(n >= 3 && n <= 7 ? static_cast<size_t>(n * n + 1) : 1, 1);
    for (int j = 0; k.size() > 1 && j < n * n; ++j) k[j] = static_cast<short>((j * 7 + list * 3) % 5 - 1);
    if (k.size() > 1) k[n * n] = static_cast<short>(list == 1 ? -3 : list == 2 ? 0 : 7);
    if (list == 3 && k.size() > 1) k[n * n / 2] = 128;
    return ColorConvolution(im, kNewImage, g.a[0], static_cast<short>(g.a[1]), static_cast<short>(n), g.filterFile,
                            k.data(), &o.errorCode, g.mode, g.owner);
}
template <HDIB(PAXCALL *F)(HDIB, int)> HDIB Dither(HDIB im, const Args &g, Outcome &) { return F(im, g.a[0]); }

std::vector<ImageExport> Build() {
    const std::vector<DWORD> noCopy = {CCE_NONE, CCE_NOMEMORY}, ims = {IMS_NOMEMORY, IMS_LOCKFAILED};
    const std::vector<DWORD> convolution = {IMS_NOMEMORY, IMS_LOCKFAILED, IMS_BADPARAM};
    std::vector<ImageExport> t = {
        {"ConvertDIBColorSpace/RGB-HSV", Convert, C::ConvertError, 24, 0, A({MODEL_RGB, MODEL_HSV}),
         M::ProgressFlag, -1, P::Bytes1500, false, noCopy},
        {"SplitColorChannels", Split, C::ConvertError, 24, 0, A({MODEL_HSI}), M::None, -1, P::None, false,
         {CCE_NONE, CCE_NOMEMORY, CCE_BADMODEL, CCE_CONVERTFAILED}},
        {"ColorHueSaturation", HueSaturation, C::ConvertError, 24, 0, A({40, 20, -10, 0, 120}), M::Mode,
         DD_HUE_SATURATION, P::Columns5, false, noCopy},
        {"Desaturate", Desat, C::ConvertError, 24, 0, Args(), M::Mode, DD_DESATURATE, P::Columns5, false, noCopy},
        {"ReplaceColor", Replace, C::ConvertError, 24, 0, A({0x3264C8, 0x3C3C3C, 60, 10, 5, 0}), M::Mode,
         DD_REPLACE_COLOR, P::Columns5, false, noCopy},
        {"ColorCMYKLevels", Levels, C::ConvertError, 24, 0, A({20, -10, 5, -30}), M::Mode, DD_CMYK_LEVELS,
         P::Columns5, false, noCopy},
        {"ColorBrightnessContrast", Contrast, C::ImageStatus, 24, 0, A({25, -15}), M::DialogFlag, DD_CONTRAST,
         P::None, false, ims},
        {"GammaCorrection", Gamma, C::ConvertError, 24, 0, A({150, 80, 120}), M::Mode, DD_GAMMA,
         P::Columns5Rounded, false, noCopy},
        {"ColorConvolution/new-image", Convolve<1>, C::ErrorVariable, 24, 0, A({1, CONV_SHARPEN, 3}), M::Mode,
         DD_CONVOLUTION, P::Rows5, false, convolution},
        {"ColorConvolution/in-place", Convolve<0>, C::ErrorVariable, 24, 0, A({1, CONV_SHARPEN, 3}), M::Mode,
         DD_CONVOLUTION, P::Rows5, true, convolution},
    };
    const std::pair<const char *, HDIB (*)(HDIB, const Args &, Outcome &)> dithers[] = {
        {"DitherFS4", Dither<DitherFS4>}, {"DitherBurkes", Dither<DitherBurkes>}, {"DitherSierra", Dither<DitherSierra>},
        {"DitherJJN", Dither<DitherJJN>}, {"DitherStucki", Dither<DitherStucki>}, {"DitherSA", Dither<DitherSA>},
        {"DitherSharp", Dither<DitherSharp>}, {"DitherSmooth", Dither<DitherSmooth>}};
    for (const auto &d : dithers)
        t.push_back({d.first, d.second, C::ImageStatus, 24, 0, A({4}), M::None, -1, P::None, false, ims});
    // Its own refusals write nothing; DitherSierra, which it ends with, does.
    t.push_back({"DitherOrdered", Dither<DitherOrdered>, C::ImageStatus, 8, 0, A({3}), M::None, -1, P::None, false,
                 {kUntouched, IMS_NOMEMORY, IMS_LOCKFAILED}});
    // Two more shapes of the image conversion: into CMYK, and from it.
    t.push_back({"ConvertDIBColorSpace/RGB-CMYK", Convert, C::ConvertError, 24, 0, A({MODEL_RGB, MODEL_CMYK}),
                 M::ProgressFlag, -1, P::Bytes1500, false, {CCE_NONE, CCE_NOCMYKIMAGE}});
    t.push_back({"ConvertDIBColorSpace/CMYK-LAB", Convert, C::ConvertError, 32, 12, A({MODEL_CMYK, MODEL_LAB}),
                 M::ProgressFlag, -1, P::Bytes1500, false, {CCE_NONE}});
    return t;
}

} // namespace

Args A(std::initializer_list<int32_t> values) {
    Args g;
    std::copy(values.begin(), values.end(), g.a);
    return g;
}

const std::vector<ImageExport> &ImageExports() {
    static const std::vector<ImageExport> table = Build();
    return table;
}

Outcome Invoke(const ImageExport &e, HDIB image, const Args &args) {
    Outcome o;
    o.errorCode = 12345;
    HDIB r = e.invoke(image, args, o);
    o.convertError = GetLastColorConvertError();
    if (r && r == image) o.returnedCaller = true;
    else if (r) o.results.push_back(r);
    return o;
}

Args WithMode(const ImageExport &e, int mode, HWND owner) {
    Args g = e.typical;
    g.owner = owner;
    g.mode = e.modeArg == ModeArg::Mode           ? mode
             : e.modeArg == ModeArg::ProgressFlag ? mode & 1
             : e.modeArg == ModeArg::DialogFlag   ? (mode >> 1) & 1
                                                  : 0;
    return g;
}

HGLOBAL MakeImageFor(const ImageExport &e, int w, int h, uint32_t seed, int entries) {
    Rng rng(0x9E3779B9u * (seed | 1));
    return MakeDib(w, h, e.depth, [&](int, int, int) { return rng.Byte(); }, entries, 0, e.compression);
}

uint64_t BlockDigest(HGLOBAL block) {
    uint64_t h = 1469598103934665603ull;
    for (BYTE b : BlockBytes(block)) h = (h ^ b) * 1099511628211ull;
    return h;
}

void FreeResults(const Outcome &o) {
    for (HGLOBAL r : o.results) GlobalFree(r);
}

} // namespace paxtest
