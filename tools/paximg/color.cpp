// `paximg color`: single colour values through the 72 conversions, and
// through the buffer conversion when it is there.
#include "paximg.h"

#include <cstdio>

namespace paximg {
namespace {

using ToThree = BYTE *(PAXCALL *)(BYTE *, const BYTE *);
using ToCmyk = CMYKQUAD(PAXCALL *)(const BYTE *);

struct Conversion {
    int from, to;
    ToThree three; // conversions into a 3-byte model
    ToCmyk cmyk;   // conversions into CMYK
};

#define PAX_T(a, b) {MODEL_##a, MODEL_##b, a##to##b, nullptr}
#define PAX_K(a) {MODEL_##a, MODEL_CMYK, nullptr, a##toCMYK}
// Every ordered pair of the nine models, by source model.
const Conversion kConversions[] = {
    PAX_T(RGB, YUV), PAX_T(RGB, CMY), PAX_K(RGB),      PAX_T(RGB, YIQ), PAX_T(RGB, HSV),
    PAX_T(RGB, HSI), PAX_T(RGB, XYZ), PAX_T(RGB, LAB), PAX_T(YUV, RGB), PAX_T(YUV, CMY),
    PAX_K(YUV),      PAX_T(YUV, YIQ), PAX_T(YUV, HSV), PAX_T(YUV, HSI), PAX_T(YUV, XYZ),
    PAX_T(YUV, LAB), PAX_T(CMY, RGB), PAX_T(CMY, YUV), PAX_K(CMY),      PAX_T(CMY, YIQ),
    PAX_T(CMY, HSV), PAX_T(CMY, HSI), PAX_T(CMY, XYZ), PAX_T(CMY, LAB), PAX_T(CMYK, RGB),
    PAX_T(CMYK, YUV), PAX_T(CMYK, CMY), PAX_T(CMYK, YIQ), PAX_T(CMYK, HSV), PAX_T(CMYK, HSI),
    PAX_T(CMYK, XYZ), PAX_T(CMYK, LAB), PAX_T(YIQ, RGB), PAX_T(YIQ, YUV), PAX_T(YIQ, CMY),
    PAX_K(YIQ),      PAX_T(YIQ, HSV), PAX_T(YIQ, HSI), PAX_T(YIQ, XYZ), PAX_T(YIQ, LAB),
    PAX_T(HSV, RGB), PAX_T(HSV, YUV), PAX_T(HSV, CMY), PAX_K(HSV),      PAX_T(HSV, YIQ),
    PAX_T(HSV, HSI), PAX_T(HSV, XYZ), PAX_T(HSV, LAB), PAX_T(HSI, RGB), PAX_T(HSI, YUV),
    PAX_T(HSI, CMY), PAX_K(HSI),      PAX_T(HSI, YIQ), PAX_T(HSI, HSV), PAX_T(HSI, XYZ),
    PAX_T(HSI, LAB), PAX_T(XYZ, RGB), PAX_T(XYZ, YUV), PAX_T(XYZ, CMY), PAX_K(XYZ),
    PAX_T(XYZ, YIQ), PAX_T(XYZ, HSV), PAX_T(XYZ, HSI), PAX_T(XYZ, LAB), PAX_T(LAB, RGB),
    PAX_T(LAB, YUV), PAX_T(LAB, CMY), PAX_K(LAB),      PAX_T(LAB, YIQ), PAX_T(LAB, HSV),
    PAX_T(LAB, HSI), PAX_T(LAB, XYZ),
};
#undef PAX_T
#undef PAX_K
static_assert(sizeof kConversions / sizeof kConversions[0] == 72, "one entry per ordered pair");

int Components(int model) { return model == MODEL_CMYK ? 4 : 3; }

std::string Format(const BYTE *v, int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s += (i ? "," : "") + std::to_string(v[i]);
    return s;
}

int RunColor(const std::vector<std::string> &args) {
    Options options(args, {{"from", true}, {"to", true}, {"buffer", false}});
    if (!options.Has("from") || !options.Has("to")) UsageError("--from and --to are required");
    const int from = ModelByName(options.Get("from")), to = ModelByName(options.Get("to"));
    if (!from) UsageError("unknown colour model '" + options.Get("from") + "'");
    if (!to) UsageError("unknown colour model '" + options.Get("to") + "'");
    if (options.Positional().empty()) UsageError("expected one or more values such as 255,128,0");
    const int n = Components(from), m = Components(to);
    std::vector<BYTE> source;
    for (const std::string &text : options.Positional()) {
        std::vector<long> v = ParseIntList(text, "a value", 0, 255);
        if ((int)v.size() != n)
            UsageError("a " + std::string(ModelName(from)) + " value has " + std::to_string(n) +
                       " components, not " + std::to_string(v.size()) + " ('" + text + "')");
        for (long c : v) source.push_back((BYTE)c);
    }
    const size_t count = source.size() / n;
    std::vector<BYTE> result(count * m);
    if (options.Has("buffer")) {
        // The buffer conversion walks count source bytes; the destination
        // holds the converted values in component order.
        int done = ConvertColorSpace(source.data(), result.data(), (int)source.size(), from, to,
                                     0, nullptr);
        if (done < 0) FailWithConvertError("ConvertColorSpace", false);
    } else if (from == to) {
        result = source;
    } else {
        const Conversion *c = nullptr;
        for (const Conversion &k : kConversions)
            if (k.from == from && k.to == to) c = &k;
        for (size_t i = 0; i < count; ++i) {
            if (c->cmyk) {
                CMYKQUAD q = c->cmyk(&source[i * n]);
                BYTE *d = &result[i * m];
                d[0] = q.c;
                d[1] = q.m;
                d[2] = q.y;
                d[3] = q.k;
            } else {
                c->three(&result[i * m], &source[i * n]);
            }
        }
    }
    for (size_t i = 0; i < count; ++i)
        std::printf("%s %s -> %s %s\n", ModelName(from), Format(&source[i * n], n).c_str(),
                    ModelName(to), Format(&result[i * m], m).c_str());
    return kExitOk;
}

const Registrar kColor(Command{
    "color", "convert single colour values between the nine colour models",
    "Usage: paximg color --from MODEL --to MODEL [--buffer] VALUE...\n"
    "\n"
    "Converts each VALUE (components 0..255 separated by commas, four for cmyk,\n"
    "three otherwise) with the library's single-value conversion, for example\n"
    "`paximg color --from rgb --to hsv 255,128,0`.\n"
    "\n"
    "Models: rgb yuv cmy cmyk yiq hsv hsi xyz lab.\n"
    "  --buffer   convert all values as one pixel buffer (ConvertColorSpace)\n",
    10, RunColor});

} // namespace
} // namespace paximg
