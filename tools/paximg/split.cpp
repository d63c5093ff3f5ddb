// `paximg split`: one grey image per component of a colour model
// (SplitColorChannels).
#include "paximg.h"

#include <cstdio>

namespace paximg {
namespace {

// Names of the outputs in the order the library returns them: the components
// of the model, except that CMYK comes as M, Y, K, C and a 32-bit RGB image
// adds its fourth byte.
std::vector<std::string> ChannelNames(int model, int count) {
    std::vector<std::string> names;
    if (model == MODEL_CMYK) return {"m", "y", "k", "c"};
    for (const char *c = ModelComponents(model); *c; ++c) names.push_back(std::string(1, *c));
    if (model == MODEL_LAB) names[0] = "l";
    if (count == 4 && names.size() == 3) names.push_back("x");
    return names;
}

std::string ChannelPath(const std::string &out, const std::string &channel) {
    const std::string ext = Extension(out);
    return out.substr(0, out.size() - ext.size()) + "-" + channel + ext;
}

// Runs the split; the caller owns every output handle.
std::vector<Dib> Split(HGLOBAL image, int model) {
    try {
        std::vector<Dib> out = pax::Split(image, (pax::Model)model);
        if (out.size() < 3) Fail("SplitColorChannels returned " + std::to_string(out.size()) + " images");
        return out;
    } catch (const pax::Error &e) {
        FailFrom(e, false);
    }
}

int RunSplit(const std::vector<std::string> &args) {
    Options options(args, {{"model", true}});
    options.ExpectPositional({"INPUT", "OUTPUT"});
    const std::string out = options.Positional()[1];
    CheckOutputName(out);
    if (!options.Has("model")) UsageError("option --model is required");
    const int model = ModelByName(options.Get("model"));
    if (!model) UsageError("--model takes one of rgb yuv cmy cmyk yiq hsv hsi xyz lab, not '" + options.Get("model") + "'");
    Dib image = ReadImage(options.Positional()[0]);
    {
        DibView v(image.get());
        bool expand = v.Tag() == 0 && v.Bits() != 24 && !(v.Bits() == 32 && model == MODEL_RGB);
        if (expand) {
            Dib expanded = ExpandTo24(image.get());
            image = std::move(expanded);
        }
    }
    std::vector<Dib> channels = Split(image.get(), model);
    const std::vector<std::string> names = ChannelNames(model, (int)channels.size());
    // Everything is encoded before the first file is written; a failed write
    // removes the files of this run that were already in place.
    std::vector<std::pair<std::string, std::vector<uint8_t>>> files;
    for (size_t k = 0; k < channels.size(); ++k) {
        const std::string path = ChannelPath(out, names[k]);
        // A channel comes back as a 24-bit image with R = G = B; a PNG is
        // written with one grey channel (the luma of a grey is that grey).
        files.emplace_back(path, Extension(out) == ".png" ? EncodePng(ToGrey8(channels[k].get()).get())
                                                          : EncodeBmp(channels[k].get()));
    }
    for (size_t k = 0; k < files.size(); ++k) {
        try {
            WriteFileAtomically(files[k].first, files[k].second);
        } catch (...) {
            for (size_t j = 0; j < k; ++j) std::remove(files[j].first.c_str());
            throw;
        }
    }
    for (const auto &f : files) std::printf("%s\n", f.first.c_str());
    return kExitOk;
}

const Registrar kSplit(Command{
    "split", "split an image into one grey image per component of a colour model",
    "Usage: paximg split --model MODEL INPUT OUTPUT\n"
    "\n"
    "Converts INPUT (rgb) to MODEL and writes one grey image per component, named\n"
    "after OUTPUT with the component's letter: `--model hsv in.png out.png` writes\n"
    "out-h.png, out-s.png and out-v.png. cmyk gives four images in the order\n"
    "m, y, k, c; a 32-bit rgb image split as rgb gives a fourth, -x, with its\n"
    "fourth byte.\n"
    "Models: rgb yuv cmy cmyk yiq hsv hsi xyz lab. Each output is an 8-bit grey\n"
    "image of one byte of the value:\n"
    "\n" PAXIMG_MODEL_BYTES,
    30, RunSplit});

void Demo(DemoContext &context) {
    std::vector<Dib> channels = Split(context.Chart(), MODEL_HSV);
    const char *names[] = {"hue", "saturation", "value"};
    for (size_t k = 0; k < channels.size() && k < 3; ++k)
        context.Add(std::string("split-hsv-") + "hsv"[k], std::string("split --model hsv: ") + names[k],
                    channels[k].get(), "Channel splitting");
}

const Registrar kSplitDemo(DemoStep{30, Demo});

} // namespace
} // namespace paximg
