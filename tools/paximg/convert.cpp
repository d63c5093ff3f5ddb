// `paximg convert`: whole images from one colour model to another
// (ConvertDIBColorSpace). Results in another model than RGB are written as BMP
// with the model tag in the header, so that they can be converted back.
#include "paximg.h"

#include <cstdio>

namespace paximg {
namespace {

int ModelOption(const Options &options, const char *name) {
    int model = ModelByName(options.Get(name));
    if (!model)
        UsageError("--" + std::string(name) + " takes one of rgb yuv cmy cmyk yiq hsv hsi xyz lab, not '" +
                   options.Get(name) + "'");
    return model;
}

// Runs the conversion; the library hands back the caller's own handle when
// both models are the same, and that handle must not be freed twice.
Dib Convert(Dib &image, int from, int to, bool progress) {
    HGLOBAL result = ConvertDIBColorSpace(image.get(), from, to, progress ? 1 : 0, nullptr);
    if (!result) FailWithConvertError("ConvertDIBColorSpace", progress);
    if (result == image.get()) return std::move(image);
    return Dib(result);
}

int RunConvert(const std::vector<std::string> &args) {
    Options options(args, {{"from", true}, {"to", true}, {"progress", false}});
    options.ExpectPositional({"INPUT", "OUTPUT"});
    const std::string out = options.Positional()[1];
    CheckOutputName(out);
    if (!options.Has("to")) UsageError("option --to is required");
    const int to = ModelOption(options, "to");
    if (to != MODEL_RGB && Extension(out) == ".png")
        UsageError("a " + std::string(ModelName(to)) + " image cannot be a PNG; name the output .bmp");
    Dib image = ReadImage(options.Positional()[0]);
    int tagModel, bits;
    {
        DibView v(image.get());
        tagModel = ModelOfTag(v.Tag());
        bits = v.Bits();
    }
    const int from = options.Has("from") ? ModelOption(options, "from") : tagModel;
    // Palette and 32-bit RGB images become 24-bit RGB, the depth the library converts.
    if (tagModel == MODEL_RGB && from == MODEL_RGB && bits != 24) image = ExpandTo24(image.get());
    Dib result = Convert(image, from, to, ProgressOption(options));
    WriteImage(result.get(), out);
    return kExitOk;
}

const Registrar kConvert(Command{
    "convert", "convert an image between colour models (rgb, lab, hsv, cmyk, ...)",
    "Usage: paximg convert [--from MODEL] --to MODEL [--progress] INPUT OUTPUT\n"
    "\n"
    "Converts every pixel of INPUT from one colour model to another.\n"
    "  --from MODEL  the model of INPUT; by default the one its BMP header records\n"
    "                (plain images are rgb)\n"
    "  --to MODEL    the model of OUTPUT\n"
    "  --progress    show the progress dialog (on Linux a bar on a terminal)\n"
    "Models: rgb yuv cmy cmyk yiq hsv hsi xyz lab. An image in another model than\n"
    "rgb is written as BMP with its model in the header (cmyk at 32 bits, the\n"
    "others at 24), so `paximg convert --from lab --to rgb` reads it back.\n",
    20, RunConvert});

void Demo(DemoContext &context) {
    const char *section = "Colour-model conversion";
    HGLOBAL source = context.Chart();
    struct Step {
        int model;
        const char *name;
        const char *raw;
    } steps[] = {
        {MODEL_LAB, "lab", "L*a*b* bytes shown as R, G, B"},
        {MODEL_HSV, "hsv", "HSV bytes shown as R, G, B"},
        {MODEL_YIQ, "yiq", "YIQ bytes shown as R, G, B"},
        {MODEL_CMYK, "cmyk", "CMYK: M, Y, K bytes shown as R, G, B"},
    };
    for (const Step &s : steps) {
        Dib converted(ConvertDIBColorSpace(source, MODEL_RGB, s.model, 0, nullptr));
        if (!converted) FailWithConvertError("ConvertDIBColorSpace", false);
        context.AddRawBytes(std::string("convert-") + s.name, std::string("convert --to ") + s.name + ": " + s.raw,
                            converted.get(), section);
        Dib back(ConvertDIBColorSpace(converted.get(), s.model, MODEL_RGB, 0, nullptr));
        if (!back) FailWithConvertError("ConvertDIBColorSpace", false);
        context.Add(std::string("convert-") + s.name + "-rgb",
                    std::string("rgb -> ") + s.name + " -> rgb round trip", back.get(), section);
    }
}

const Registrar kConvertDemo(DemoStep{20, Demo});

} // namespace
} // namespace paximg
