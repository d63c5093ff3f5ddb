#include "exports.h"

#include <cstring>

namespace paxfuzz {

const char *const kExportNames[kExportCount] = {
    "ConvertDIBColorSpace", "SplitColorChannels", "ColorHueSaturation", "Desaturate",
    "ReplaceColor", "ColorCMYKLevels", "ColorBrightnessContrast", "GammaCorrection",
    "ColorConvolution(new)", "ColorConvolution(in place)", "DitherFS4", "DitherBurkes",
    "DitherSierra", "DitherJJN", "DitherStucki", "DitherSA", "DitherSharp", "DitherSmooth",
    "DitherOrdered"};

namespace {

using Dither = HDIB(PAXCALL *)(HDIB, int);
const Dither kDithers[] = {DitherFS4,    DitherBurkes, DitherSierra, DitherJJN,    DitherStucki,
                           DitherSA,     DitherSharp,  DitherSmooth, DitherOrdered};

// Built-in coefficient lists for the caller's-array type: a smoothing 3 x 3,
// a 5 x 5 with a negative divisor, a 7 x 7 summing to its own divisor, and
// one over the magnitude limit. Exactly n x n + 1 values are handed over.
std::vector<short> Coefficients(int list, int n) {
    if (n < 3 || n > 7) return std::vector<short>(1, 1);
    std::vector<short> k(static_cast<size_t>(n * n + 1), 0);
    for (int j = 0; j < n * n; ++j) k[j] = static_cast<short>((j * 7 + list * 3) % 5 - 1);
    k[n * n] = static_cast<short>(list == 1 ? -3 : list == 2 ? 0 : 7);
    if (list == 3) k[n * n / 2] = 128;
    return k;
}

} // namespace

Args TypicalArgs(int which) {
    Args g;
    switch (which) {
    case kConvert: g.a[0] = MODEL_RGB, g.a[1] = MODEL_LAB; break;
    case kSplit: g.a[0] = MODEL_HSV; break;
    case kHueSaturation: g.a[0] = 40, g.a[1] = -30, g.a[2] = 10, g.a[3] = 0, g.a[4] = 200; break;
    case kReplaceColor: g.a[0] = 0x604020, g.a[1] = 0x303030, g.a[2] = 90, g.a[3] = 20; break;
    case kCmykLevels: g.a[0] = 20, g.a[1] = -40, g.a[2] = 0, g.a[3] = 60; break;
    case kBrightnessContrast: g.a[0] = 25, g.a[1] = -15; break;
    case kGamma: g.a[0] = 80, g.a[1] = 150, g.a[2] = 220; break;
    case kConvolveNew: case kConvolveInPlace: g.a[0] = 1, g.a[1] = CONV_SHARPEN, g.a[2] = 3; break;
    case kDitherOrdered: g.a[0] = 3; break;
    default: g.a[0] = which == kDitherSharp || which == kDitherSmooth ? 1 : 4; break;
    }
    return g;
}

Outcome Invoke(int which, HDIB image, const Args &g) {
    Outcome o;
    HDIB r = nullptr;
    const int32_t *a = g.a;
    BYTE target[3], tolerance[3];
    for (int i = 0; i < 3; ++i) {
        target[i] = static_cast<BYTE>(a[0] >> (8 * i));
        tolerance[i] = static_cast<BYTE>(a[1] >> (8 * i));
    }
    switch (which) {
    case kConvert: r = ConvertDIBColorSpace(image, a[0], a[1], g.mode, g.owner); break;
    case kSplit: {
        HGLOBAL channels[4] = {};
        o.value = SplitColorChannels(image, channels, static_cast<BYTE>(a[0]));
        for (long k = 0; k < o.value && k < 4; ++k) o.results.push_back(channels[k]);
        break;
    }
    case kHueSaturation:
        r = ColorHueSaturation(image, a[0], a[1], a[2], static_cast<UINT>(a[3]), static_cast<UINT>(a[4]),
                               g.mode, g.owner);
        break;
    case kDesaturate: r = Desaturate(image, g.mode, g.owner); break;
    case kReplaceColor: r = ReplaceColor(image, target, tolerance, a[2], a[3], a[4], g.mode, g.owner); break;
    case kCmykLevels: r = ColorCMYKLevels(image, a[0], a[1], a[2], a[3], g.mode, g.owner); break;
    case kBrightnessContrast:
        r = ColorBrightnessContrast(image, static_cast<short>(a[0]), static_cast<short>(a[1]), g.mode);
        break;
    case kGamma: r = GammaCorrection(image, a[0], a[1], a[2], g.mode, g.owner); break;
    case kConvolveNew: case kConvolveInPlace: {
        std::vector<short> k = Coefficients(a[3] & 3, static_cast<short>(a[2]));
        o.errorCode = 12345;
        r = ColorConvolution(image, which == kConvolveNew, a[0], static_cast<short>(a[1]),
                             static_cast<short>(a[2]), g.filterFile, k.data(), &o.errorCode, g.mode,
                             g.owner);
        break;
    }
    default: r = kDithers[which - kDitherFS4](image, a[0]); break;
    }
    o.convertError = GetLastColorConvertError();
    if (r && r == image) o.returnedCaller = true;
    else if (r) o.results.push_back(r);
    return o;
}

uint64_t BlockDigest(HGLOBAL block) {
    uint64_t h = 1469598103934665603ull;
    const BYTE *p = static_cast<const BYTE *>(GlobalLock(block));
    for (SIZE_T i = 0, n = p ? GlobalSize(block) : 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
    if (p) GlobalUnlock(block);
    return h;
}

} // namespace paxfuzz
