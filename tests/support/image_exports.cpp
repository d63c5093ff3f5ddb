#include "image_exports.h"

#include "dialog_double_control.h"

#include <algorithm>
#include <cstring>

namespace paxtest {

namespace {

using C = CodeChannel;
using D = Defect;
using M = ModeArg;
using P = ProgressShape;

HDIB Convert(HDIB im, const Args &g, Outcome &) {
    return ConvertDIBColorSpace(im, g.a[0], g.a[1], g.mode, g.owner);
}
HDIB Split(HDIB im, const Args &g, Outcome &o) {
    HGLOBAL channels[4] = {};
    o.value = SplitColorChannels(im, channels, static_cast<BYTE>(g.a[0]));
    for (long k = 0; k < o.value && k < 4; ++k) o.results.push_back(channels[k]);
    return nullptr;
}
HDIB HueSaturation(HDIB im, const Args &g, Outcome &) {
    return ColorHueSaturation(im, g.a[0], g.a[1], g.a[2], static_cast<UINT>(g.a[3]), static_cast<UINT>(g.a[4]),
                              g.mode, g.owner);
}
HDIB Desat(HDIB im, const Args &g, Outcome &) { return Desaturate(im, g.mode, g.owner); }
HDIB Replace(HDIB im, const Args &g, Outcome &) {
    BYTE target[3], tolerance[3];
    for (int i = 0; i < 3; ++i) {
        target[i] = static_cast<BYTE>(g.a[0] >> (8 * i));
        tolerance[i] = static_cast<BYTE>(g.a[1] >> (8 * i));
    }
    return ReplaceColor(im, g.a[5] & 1 ? nullptr : target, g.a[5] & 2 ? nullptr : tolerance, g.a[2], g.a[3],
                        g.a[4], g.mode, g.owner);
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

Args A(std::initializer_list<int32_t> values) {
    Args g;
    std::copy(values.begin(), values.end(), g.a);
    return g;
}

std::vector<ImageExport> Build() {
    const DWORD BADARG = CCE_BADARGUMENT, ACCEPT = kAccepted;
    // The hue-based adjustments and gamma: a null image, bad values and rows
    // past the block are refused with a code, what cannot be locked or is not
    // 24-bit without one.
    auto adjustment = [&](std::vector<Refusal> r) {
        r.insert(r.end(), {{-1, 0, D::NullImage, 0, BADARG}, {-1, 0, D::RowsPastTheBlock, 0, BADARG},
                           {-1, 0, D::Unlockable, 0, CCE_NONE},
                           {-1, 0, D::Depth, 8, CCE_NONE}, {-1, 0, D::Depth, 32, CCE_NONE}});
        return r;
    };
    const std::vector<DWORD> noCopy = {CCE_NONE, CCE_NOMEMORY};
    const std::vector<DWORD> ims = {IMS_NOMEMORY, IMS_LOCKFAILED};
    // The dithers: the requested depth first, then the image.
    auto dither = [&](DWORD nullCode, DWORD lockCode, std::vector<Refusal> r) {
        r.insert(r.end(), {{0, 3, D::None, 0, IMS_BADPARAM}, {0, 3, D::NullImage, 0, IMS_BADPARAM},
                           {0, -1, D::None, 0, IMS_BADPARAM}, {-1, 0, D::NullImage, 0, nullCode},
                           {-1, 0, D::Unlockable, 0, lockCode}, {0, 4, D::Depth, 4, IMS_BADBITS},
                           {0, 1, D::Depth, 1, IMS_BADBITS}, {0, 1, D::Depth, 32, IMS_BADBITS},
                           {0, 1, D::None, 0, ACCEPT}});
        return r;
    };
    std::vector<ImageExport> t = {
        {"ConvertDIBColorSpace RGB to HSV", Convert, C::ConvertError, 24, 0, A({MODEL_RGB, MODEL_HSV}),
         M::ProgressFlag, -1, P::Bytes1500, false,
         {{0, 0, D::None, 0, CCE_BADMODEL}, {1, 10, D::NullImage, 0, CCE_BADMODEL},
          {-1, 0, D::NullImage, 0, CCE_NONE}, {-1, 0, D::Unlockable, 0, CCE_NONE}, {-1, 0, D::Depth, 8, CCE_NONE},
          {-1, 0, D::Tag, 14, CCE_BADMODEL}, {1, MODEL_LAB, D::Depth, 32, ACCEPT}},
         noCopy},
        {"SplitColorChannels", Split, C::ConvertError, 24, 0, A({MODEL_HSI}), M::None, -1, P::None, false,
         {{0, 0, D::None, 0, BADARG}, {0, 10, D::Tag, 14, BADARG}, {-1, 0, D::NullImage, 0, BADARG},
          {-1, 0, D::Tag, 14, CCE_BADMODEL}, {-1, 0, D::Unlockable, 0, CCE_BADMODEL},
          {-1, 0, D::Depth, 8, CCE_NONE}, {0, MODEL_CMYK, D::None, 0, ACCEPT}},
         {CCE_NONE, CCE_NOMEMORY, CCE_BADMODEL, CCE_CONVERTFAILED}},
        {"ColorHueSaturation", HueSaturation, C::ConvertError, 24, 0, A({40, 20, -10, 0, 120}), M::Mode,
         DD_HUE_SATURATION, P::Columns5, false,
         adjustment({{0, 181, D::None, 0, BADARG},   {0, -181, D::None, 0, BADARG}, {1, 256, D::None, 0, BADARG},
                     {1, -256, D::None, 0, BADARG},  {2, 256, D::None, 0, BADARG},  {2, -256, D::None, 0, BADARG},
                     {3, 361, D::None, 0, BADARG},   {4, 361, D::None, 0, BADARG},  {3, 120, D::None, 0, BADARG},
                     {3, -1, D::None, 0, BADARG},    {0, 181, D::Depth, 8, BADARG}, {0, 180, D::None, 0, ACCEPT},
                     {0, -180, D::None, 0, ACCEPT},  {1, 255, D::None, 0, ACCEPT},  {2, -255, D::None, 0, ACCEPT},
                     {3, 360, D::None, 0, ACCEPT},   {4, 0, D::None, 0, ACCEPT}}),
         noCopy},
        {"Desaturate", Desat, C::ConvertError, 24, 0, Args(), M::Mode, DD_DESATURATE, P::Columns5, false,
         adjustment({}), noCopy},
        {"ReplaceColor", Replace, C::ConvertError, 24, 0, A({0x3264C8, 0x3C3C3C, 60, 10, 5, 0}), M::Mode,
         DD_REPLACE_COLOR, P::Columns5, false,
         adjustment({{5, 1, D::None, 0, BADARG},
                     {5, 2, D::None, 0, BADARG},
                     {2, 181, D::None, 0, BADARG},
                     {2, -181, D::None, 0, BADARG},
                     {3, 256, D::None, 0, BADARG},
                     {4, -256, D::None, 0, BADARG},
                     {2, 180, D::None, 0, ACCEPT},
                     {3, -255, D::None, 0, ACCEPT}}),
         noCopy},
        {"ColorCMYKLevels", Levels, C::ConvertError, 24, 0, A({20, -10, 5, -30}), M::Mode, DD_CMYK_LEVELS,
         P::Columns5, false,
         adjustment({{0, 101, D::None, 0, BADARG},  {0, -101, D::None, 0, BADARG}, {1, 101, D::None, 0, BADARG},
                     {1, -101, D::None, 0, BADARG}, {2, 101, D::None, 0, BADARG},  {2, -101, D::None, 0, BADARG},
                     {3, 101, D::None, 0, BADARG},  {3, -101, D::None, 0, BADARG}, {0, 100, D::None, 0, ACCEPT},
                     {3, -100, D::None, 0, ACCEPT}}),
         noCopy},
        {"ColorBrightnessContrast", Contrast, C::ImageStatus, 24, 0, A({25, -15}), M::DialogFlag, DD_CONTRAST,
         P::None, false,
         {{-1, 0, D::NullImage, 0, IMS_BADPARAM}, {-1, 0, D::Unlockable, 0, IMS_LOCKFAILED},
          {-1, 0, D::HeaderSize, 12, IMS_BADPARAM}, {-1, 0, D::Tag, 14, IMS_COMPRESSED},
          {-1, 0, D::Depth, 1, IMS_BADDEPTH}, {-1, 0, D::NoColumns, 0, IMS_EMPTYIMAGE},
          {0, 101, D::None, 0, IMS_BADPARAM}, {1, -101, D::None, 0, IMS_BADPARAM}, {0, 101, D::Depth, 1, IMS_BADDEPTH},
          {0, 100, D::None, 0, ACCEPT}, {1, -100, D::Depth, 8, ACCEPT}},
         ims},
        {"GammaCorrection", Gamma, C::ConvertError, 24, 0, A({150, 80, 120}), M::Mode, DD_GAMMA, P::Columns5Rounded, false,
         adjustment({{0, 9, D::None, 0, BADARG},
                     {1, 501, D::None, 0, BADARG},
                     {2, -1, D::None, 0, BADARG},
                     {0, 9, D::Depth, 8, BADARG},
                     {0, 10, D::None, 0, ACCEPT},
                     {2, 500, D::None, 0, ACCEPT}}),
         noCopy},
    };
    // The convolution: header, then arguments, then the coefficients.
    const std::vector<Refusal> convolution = {
        {-1, 0, D::NullImage, 0, IMS_BADPARAM}, {-1, 0, D::Unlockable, 0, IMS_LOCKFAILED},
        {-1, 0, D::HeaderSize, 12, IMS_BADPARAM}, {-1, 0, D::Tag, 14, IMS_COMPRESSED},
        {-1, 0, D::Depth, 8, IMS_BADDEPTH}, {-1, 0, D::NoColumns, 0, IMS_EMPTYIMAGE},
        {1, 7, D::None, 0, IMS_BADPARAM}, {1, 0, D::None, 0, IMS_BADPARAM}, {1, 2, D::None, 0, IMS_BADPARAM},
        {2, 9, D::None, 0, IMS_BADPARAM}, {2, 2, D::None, 0, IMS_BADPARAM}, {2, 7, D::None, 0, IMS_BADPARAM},
        {1, 7, D::Depth, 8, IMS_BADDEPTH}, {3, 3, D::None, 0, ACCEPT}, {2, 5, D::None, 0, ACCEPT}};
    const std::vector<DWORD> convolutionFailures = {IMS_NOMEMORY, IMS_LOCKFAILED, IMS_BADPARAM};
    t.push_back({"ColorConvolution new image", Convolve<1>, C::ErrorVariable, 24, 0, A({1, CONV_SHARPEN, 3}),
                 M::Mode, DD_CONVOLUTION, P::Rows5, false, convolution, convolutionFailures});
    t.push_back({"ColorConvolution in place", Convolve<0>, C::ErrorVariable, 24, 0, A({1, CONV_SHARPEN, 3}),
                 M::Mode, DD_CONVOLUTION, P::Rows5, true, convolution, convolutionFailures});
    const struct {
        const char *name;
        HDIB (*invoke)(HDIB, const Args &, Outcome &);
        DWORD nullCode, lockCode;
        bool sharp;
    } dithers[] = {{"DitherFS4", Dither<DitherFS4>, IMS_BADPARAM, IMS_LOCKFAILED, false},
                   {"DitherBurkes", Dither<DitherBurkes>, IMS_BADPARAM, IMS_LOCKFAILED, false},
                   {"DitherSierra", Dither<DitherSierra>, IMS_BADPARAM, IMS_LOCKFAILED, false},
                   {"DitherJJN", Dither<DitherJJN>, IMS_LOCKFAILED, IMS_NOMEMORY, false},
                   {"DitherStucki", Dither<DitherStucki>, IMS_LOCKFAILED, IMS_NOMEMORY, false},
                   {"DitherSA", Dither<DitherSA>, IMS_LOCKFAILED, IMS_NOMEMORY, false},
                   {"DitherSharp", Dither<DitherSharp>, IMS_LOCKFAILED, IMS_NOMEMORY, true},
                   {"DitherSmooth", Dither<DitherSmooth>, IMS_LOCKFAILED, IMS_NOMEMORY, true}};
    for (const auto &d : dithers)
        t.push_back({d.name, d.invoke, C::ImageStatus, 24, 0, A({4}), M::None, -1, P::None, false,
                     dither(d.nullCode, d.lockCode,
                            d.sharp ? std::vector<Refusal>{{0, 8, D::None, 0, IMS_BADPARAM}}
                                    : std::vector<Refusal>{{0, 8, D::None, 0, ACCEPT}}),
                     ims});
    // Its own refusals write nothing; DitherSierra, which it ends with, does.
    t.push_back({"DitherOrdered", Dither<DitherOrdered>, C::ImageStatus, 8, 0, A({3}), M::None, -1, P::None, false,
                 {{-1, 0, D::NullImage, 0, kUntouched}, {0, 7, D::None, 0, kUntouched},
                  {0, -1, D::None, 0, kUntouched}, {-1, 0, D::Unlockable, 0, kUntouched},
                  {-1, 0, D::Depth, 24, kUntouched}, {0, 0, D::None, 0, ACCEPT}, {0, 6, D::None, 0, ACCEPT}},
                 {kUntouched, IMS_NOMEMORY, IMS_LOCKFAILED}});
    // Two more shapes of the image conversion: into CMYK, and from it.
    t.push_back({"ConvertDIBColorSpace RGB to CMYK", Convert, C::ConvertError, 24, 0, A({MODEL_RGB, MODEL_CMYK}),
                 M::ProgressFlag, -1, P::Bytes1500, false,
                 {{-1, 0, D::Tag, 12, CCE_BADMODEL}, {-1, 0, D::NullImage, 0, CCE_NONE}},
                 {CCE_NONE, CCE_NOCMYKIMAGE}});
    t.push_back({"ConvertDIBColorSpace CMYK to LAB", Convert, C::ConvertError, 32, 12, A({MODEL_CMYK, MODEL_LAB}),
                 M::ProgressFlag, -1, P::Bytes1500, false,
                 {{-1, 0, D::Tag, 0, CCE_BADMODEL}, {0, 0, D::Tag, 0, CCE_BADMODEL},
                  {-1, 0, D::NullImage, 0, CCE_NONE}},
                 {CCE_NONE}});
    return t;
}

} // namespace

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

HGLOBAL MakeImageFor(const ImageExport &e, int w, int h, uint32_t seed) {
    const int64_t stride = (static_cast<int64_t>(w) * e.depth + 31) / 32 * 4;
    const int entries = e.depth <= 8 ? 1 << e.depth : 0;
    HGLOBAL block = GlobalAlloc(GHND, static_cast<SIZE_T>(40 + 4 * entries + stride * h));
    BYTE *p = static_cast<BYTE *>(GlobalLock(block));
    const BITMAPINFOHEADER hd = {40, w, h, 1, static_cast<WORD>(e.depth), e.compression,
                                 static_cast<DWORD>(stride * h), 0, 0, 0, 0};
    std::memcpy(p, &hd, sizeof hd);
    for (int i = 0; i < entries; ++i) std::memset(p + 40 + 4 * i, i * 255 / (entries - 1), 3);
    uint32_t s = 0x9E3779B9u * (seed | 1);
    for (int64_t i = 0; i < stride * h; ++i) {
        s ^= s << 13, s ^= s >> 17, s ^= s << 5;
        p[40 + 4 * entries + i] = static_cast<BYTE>(s >> 24);
    }
    GlobalUnlock(block);
    return block;
}

uint64_t BlockDigest(HGLOBAL block) {
    uint64_t h = 1469598103934665603ull;
    const BYTE *p = static_cast<const BYTE *>(GlobalLock(block));
    for (SIZE_T i = 0, n = p ? GlobalSize(block) : 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
    if (p) GlobalUnlock(block);
    return h;
}

void FreeResults(const Outcome &o) {
    for (HGLOBAL r : o.results) GlobalFree(r);
}

} // namespace paxtest
