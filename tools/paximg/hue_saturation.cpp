// `paximg hue-saturation` (ColorHueSaturation).
#include "paximg.h"

namespace paximg {
namespace {

Dib Adjust(HGLOBAL image, int hue, int saturation, int lightness, unsigned from, unsigned to,
           int mode) {
    try {
        Dib result = pax::HueSaturation(image, hue, saturation, lightness, from, to, mode);
        NoteDialogEntry(mode == 2 || mode == 3);
        return result;
    } catch (const pax::Error &e) {
        FailFrom(e, mode != 0);
    }
}

int Run(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"hue", true}, {"saturation", true}, {"lightness", true},
                           {"hue-from", true}, {"hue-to", true}, {"progress", false},
                           {"dialog", false}}));
    const int hue = (int)options.Int("hue", -180, 180, 0);
    const int saturation = (int)options.Int("saturation", -255, 255, 0);
    const int lightness = (int)options.Int("lightness", -255, 255, 0);
    const unsigned from = (unsigned)options.Int("hue-from", 0, 360, 0);
    const unsigned to = (unsigned)options.Int("hue-to", 0, 360, 0);
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    return ForEachImage(options, [&](Dib image, const std::string &path) {
        image = LoadImage24(std::move(image), path);
        return Adjust(image.get(), hue, saturation, lightness, from, to, mode);
    });
}

const Registrar kCommand(Command{
    "hue-saturation", "shift hue, saturation and lightness within a hue range",
    "Usage: paximg hue-saturation [--hue H] [--saturation S] [--lightness L]\n"
    "                             [--hue-from A --hue-to B] [--progress] [--dialog]\n"
    "                             INPUT OUTPUT\n"
    "\n"
    "  --hue H         hue shift in degrees, -180..180 (default 0)\n"
    "  --saturation S  added to the saturation byte, -255..255 (default 0)\n"
    "  --lightness L   added to the lightness byte, -255..255 (default 0)\n"
    "  --hue-from A, --hue-to B   the hue range to change, in degrees 0..360;\n"
    "                  both 0 (the default) changes every hue\n"
    "  --progress      show the progress dialog (on Linux a bar on a terminal)\n"
    "  --dialog        ask for the values in the parameter dialog (PAXDlgs)\n"
    "Palette and 32-bit images are taken as 24-bit RGB.\n",
    40, Run});

void Demo(DemoContext &context) {
    const char *section = "Hue-based adjustments";
    Dib a = Adjust(context.Chart(), 120, 0, 0, 0, 0, 0);
    context.Add("hue-saturation-hue120", "hue-saturation --hue 120", a.get(), section);
    Dib b = Adjust(context.Chart(), 0, -128, 0, 0, 0, 0);
    context.Add("hue-saturation-sat-128", "hue-saturation --saturation -128", b.get(), section);
    Dib c = Adjust(context.Chart(), 180, 60, 0, 0, 60, 0);
    context.Add("hue-saturation-range", "hue-saturation --hue 180 --saturation 60 --hue-from 0 --hue-to 60",
                c.get(), section);
}

const Registrar kDemo(DemoStep{40, Demo});

} // namespace
} // namespace paximg
