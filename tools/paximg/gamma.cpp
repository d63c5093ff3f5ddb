// `paximg gamma` (GammaCorrection).
#include "paximg.h"

namespace paximg {
namespace {

Dib Correct(HGLOBAL image, int red, int green, int blue, int mode) {
    try {
        Dib result = pax::Gamma(image, red, green, blue, mode);
        NoteDialogEntry(mode == 2 || mode == 3);
        return result;
    } catch (const pax::Error &e) {
        FailFrom(e, mode != 0);
    }
}

int Run(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"gamma", true}, {"gamma-red", true}, {"gamma-green", true},
                           {"gamma-blue", true}, {"progress", false}, {"dialog", false}}));
    const int all = (int)options.Int("gamma", 10, 500, 100);
    const int red = (int)options.Int("gamma-red", 10, 500, all);
    const int green = (int)options.Int("gamma-green", 10, 500, all);
    const int blue = (int)options.Int("gamma-blue", 10, 500, all);
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    return ForEachImage(options, [&](Dib image, const std::string &path) {
        image = LoadImage24(std::move(image), path);
        return Correct(image.get(), red, green, blue, mode);
    });
}

const Registrar kCommand(Command{
    "gamma", "gamma correction per colour component",
    "Usage: paximg gamma [--gamma G] [--gamma-red R] [--gamma-green G] [--gamma-blue B]\n"
    "                    [--progress] [--dialog] INPUT OUTPUT\n"
    "\n"
    "Each component v (the byte 0..255 itself, not scaled to 0..1) becomes\n"
    "    trunc(v ^ (ln g / ln 100)),  limited to 0..255,\n"
    "for a gamma g of 10..500. 100 leaves a component unchanged; above 100 it\n"
    "brightens strongly, below 100 it darkens toward black. For example:\n"
    "    g 150:  64 ^ 1.0880 = 92.3  -> 92   (128 -> 196)\n"
    "    g 50:  255 ^ 0.8495 = 110.7 -> 110\n"
    "    g 10:  255 ^ 0.5    = 15.97 -> 15   (nearly black)\n"
    "\n"
    "  --gamma G        the value for all three components (default 100)\n"
    "  --gamma-red R, --gamma-green G, --gamma-blue B   one component each\n"
    "  --progress       show the progress dialog (on Linux a bar on a terminal)\n"
    "  --dialog         ask for the values in the parameter dialog (PAXDlgs)\n"
    "Palette and 32-bit images are taken as 24-bit RGB.\n",
    70, Run});

void Demo(DemoContext &context) {
    const int values[] = {50, 200};
    for (int g : values) {
        Dib r = Correct(context.Chart(), g, g, g, 0);
        context.Add("gamma" + std::to_string(g), "gamma --gamma " + std::to_string(g), r.get(),
                    "Brightness, contrast and gamma");
    }
    Dib r = Correct(context.Chart(), 100, 100, 250, 0);
    context.Add("gamma-blue250", "gamma --gamma-blue 250", r.get(), "Brightness, contrast and gamma");
}

const Registrar kDemo(DemoStep{70, Demo});

} // namespace
} // namespace paximg
