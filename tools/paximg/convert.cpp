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
    try {
        return pax::Convert(image, (pax::Model)from, (pax::Model)to, progress);
    } catch (const pax::Error &e) {
        FailFrom(e, progress);
    }
}

int RunConvert(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"from", true}, {"to", true}, {"progress", false}}));
    if (!options.Has("to")) UsageError("option --to is required");
    const int to = ModelOption(options, "to");
    for (const ImageJob &job : ImageJobs(options))
        if (to != MODEL_RGB && job.format != ".bmp" && job.format != ".dib")
            UsageError("a " + std::string(ModelName(to)) + " image cannot be a " +
                       (job.format == ".png" ? "PNG" : "JPEG") + "; name the output .bmp");
    const int given = options.Has("from") ? ModelOption(options, "from") : 0;
    return ForEachImage(options, [&](Dib image, const std::string &) {
        int tagModel, bits;
        {
            DibView v(image.get());
            tagModel = ModelOfTag(v.Tag());
            bits = v.Bits();
        }
        const int from = given ? given : tagModel;
        // Palette and 32-bit RGB images become 24-bit RGB, the depth the library converts.
        if (tagModel == MODEL_RGB && from == MODEL_RGB && bits != 24) image = ExpandTo24(image.get());
        return Convert(image, from, to, ProgressOption(options));
    });
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
    "others at 24), so `paximg convert --from lab --to rgb` reads it back.\n"
    "\n" PAXIMG_MODEL_BYTES,
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
