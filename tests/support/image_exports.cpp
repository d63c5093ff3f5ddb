#include "image_exports.h"

#include "dib_builder.h"
#include "thread_state.h"

namespace paxtest {

namespace {

bool Progress(int mode) { return mode == 1 || mode == 3; }
bool Dialog(int mode) { return mode == 2 || mode == 3; }

// The outcome of an export that returns one handle and codes in the thread.
CallOutcome One(HDIB result, CodeChannel channel) {
    CallOutcome o;
    if (result) o.results.push_back(result);
    ThreadState *state = GetThreadState();
    o.code = channel == CodeChannel::ImageStatus ? state->imageStatus : state->convertError;
    return o;
}

using Call = std::function<CallOutcome(HGLOBAL, int, HWND)>;

Call Conversion(int from, int to) {
    return [=](HGLOBAL image, int mode, HWND owner) {
        return One(ConvertDIBColorSpace(image, from, to, Progress(mode), owner), CodeChannel::ConvertError);
    };
}

Call Convolution(int newImage) {
    return [=](HGLOBAL image, int mode, HWND owner) {
        int code = -1;
        CallOutcome o;
        if (HDIB r = ColorConvolution(image, newImage, 1, CONV_SHARPEN, 3, nullptr, nullptr, &code,
                                      mode, owner))
            o.results.push_back(r);
        o.code = static_cast<DWORD>(code);
        return o;
    };
}

Call Dither(HDIB (*dither)(HDIB, int), int bits) {
    return [=](HGLOBAL image, int, HWND) { return One(dither(image, bits), CodeChannel::ImageStatus); };
}

std::vector<ImageExport> Build() {
    using C = CodeChannel;
    using P = ProgressShape;
    // Codes of a refused image (an unlockable block included); the hue-based
    // adjustments, gamma and the conversions leave none for a lock failure.
    const std::vector<DWORD> cce = {CCE_NONE, CCE_BADARGUMENT};
    const std::vector<DWORD> tone = {IMS_BADPARAM, IMS_EMPTYIMAGE, IMS_LOCKFAILED};
    const std::vector<DWORD> dither = {IMS_BADPARAM, IMS_NOMEMORY, IMS_LOCKFAILED};
    std::vector<ImageExport> t = {
        {"ConvertDIBColorSpace RGB to HSV", C::ConvertError, 24, 0, Conversion(MODEL_RGB, MODEL_HSV),
         nullptr, P::Bytes1500, false, cce},
        {"ConvertDIBColorSpace RGB to CMYK", C::ConvertError, 24, 0, Conversion(MODEL_RGB, MODEL_CMYK),
         nullptr, P::Bytes1500, false, cce},
        {"ConvertDIBColorSpace CMYK to LAB", C::ConvertError, 32, 12, Conversion(MODEL_CMYK, MODEL_LAB),
         nullptr, P::Bytes1500, false, cce},
        {"SplitColorChannels", C::ConvertError, 24, 0,
         [](HGLOBAL image, int, HWND) {
             HGLOBAL channels[4] = {};
             CallOutcome o;
             const int n = SplitColorChannels(image, channels, MODEL_HSI);
             for (int k = 0; k < n; ++k) o.results.push_back(channels[k]);
             o.code = GetThreadState()->convertError;
             return o;
         },
         nullptr, P::None, false, {CCE_NONE, CCE_BADARGUMENT, CCE_BADMODEL}},
        {"ColorHueSaturation", C::ConvertError, 24, 0,
         [](HGLOBAL image, int mode, HWND owner) {
             return One(ColorHueSaturation(image, 40, 20, -10, 0, 0, mode, owner), C::ConvertError);
         },
         "ColorHueSaturationUI", P::Columns5, false, cce},
        {"Desaturate", C::ConvertError, 24, 0,
         [](HGLOBAL image, int mode, HWND owner) { return One(Desaturate(image, mode, owner), C::ConvertError); },
         "DesaturateUI", P::Columns5, false, cce},
        {"ReplaceColor", C::ConvertError, 24, 0,
         [](HGLOBAL image, int mode, HWND owner) {
             static const BYTE target[3] = {200, 100, 50}, tolerance[3] = {60, 60, 60};
             return One(ReplaceColor(image, target, tolerance, 60, 10, 5, mode, owner), C::ConvertError);
         },
         "ReplaceColorUI", P::Columns5, false, cce},
        {"ColorCMYKLevels", C::ConvertError, 24, 0,
         [](HGLOBAL image, int mode, HWND owner) {
             return One(ColorCMYKLevels(image, 20, -10, 5, -30, mode, owner), C::ConvertError);
         },
         "ColorCMYKLevelsUI", P::Columns5, false, cce},
        {"ColorBrightnessContrast", C::ImageStatus, 24, 0,
         [](HGLOBAL image, int mode, HWND) {
             return One(ColorBrightnessContrast(image, 25, -15, Dialog(mode)), C::ImageStatus);
         },
         "CONTRASTUI", P::None, false, tone},
        {"GammaCorrection", C::ConvertError, 24, 0,
         [](HGLOBAL image, int mode, HWND owner) {
             return One(GammaCorrection(image, 150, 80, 120, mode, owner), C::ConvertError);
         },
         "GammaCorrectionUI", P::Columns5, false, cce},
        {"ColorConvolution new image", C::ErrorVariable, 24, 0, Convolution(1), "ColorConvUI", P::Rows5,
         false, tone},
        {"ColorConvolution in place", C::ErrorVariable, 24, 0, Convolution(0), "ColorConvUI", P::Rows5,
         true, tone},
    };
    const struct {
        const char *name;
        HDIB (*dither)(HDIB, int);
    } dithers[] = {{"DitherFS4", DitherFS4},       {"DitherBurkes", DitherBurkes}, {"DitherSierra", DitherSierra},
                   {"DitherJJN", DitherJJN},       {"DitherStucki", DitherStucki}, {"DitherSA", DitherSA},
                   {"DitherSharp", DitherSharp},   {"DitherSmooth", DitherSmooth}};
    for (const auto &d : dithers)
        t.push_back({d.name, C::ImageStatus, 24, 0, Dither(d.dither, 4), nullptr, P::None, false, dither});
    // Its own refusals leave the status as it was; DitherSierra's are those of a dither.
    std::vector<DWORD> ordered = dither;
    ordered.push_back(IMS_OK);
    t.push_back({"DitherOrdered", C::ImageStatus, 8, 0,
                 [](HGLOBAL image, int, HWND) { return One(DitherOrdered(image, 3), C::ImageStatus); },
                 nullptr, P::None, false, ordered});
    return t;
}

} // namespace

const std::vector<ImageExport> &ImageExports() {
    static const std::vector<ImageExport> table = Build();
    return table;
}

HGLOBAL MakeImageFor(const ImageExport &e, int w, int h) {
    return MakeDib(w, h, e.depth, [](int x, int y, int k) { return static_cast<BYTE>(37 * x + 11 * y + 91 * k); },
                   -1, 0, e.compression);
}

void FreeResults(const CallOutcome &o, HGLOBAL caller) {
    for (HGLOBAL r : o.results)
        if (r && r != caller) GlobalFree(r);
}

} // namespace paxtest
