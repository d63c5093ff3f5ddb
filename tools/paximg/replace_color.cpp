// `paximg replace-color` (ReplaceColor).
#include "paximg.h"

namespace paximg {
namespace {

struct Replacement {
    BYTE target[3];    // red, green, blue as given by the user
    BYTE tolerance[3]; // red, green, blue
    int hue = 0, saturation = 0, lightness = 0;
};

Dib Replace(HGLOBAL image, const Replacement &r, int mode) {
    // The library takes the target in pixel order (blue, green, red) and the
    // tolerance in red, green, blue order.
    const BYTE target[3] = {r.target[2], r.target[1], r.target[0]};
    try {
        Dib result = pax::ReplaceColor(image, target, r.tolerance, r.hue, r.saturation, r.lightness, mode);
        NoteDialogEntry(mode == 2 || mode == 3);
        return result;
    } catch (const pax::Error &e) {
        FailFrom(e, mode != 0);
    }
}

// "R,G,B", "#RRGGBB" or a single value for all three.
void ParseRgb(const std::string &text, const std::string &what, BYTE out[3]) {
    if (text.size() == 7 && text[0] == '#') {
        for (int i = 0; i < 3; ++i) {
            const std::string hex = text.substr(1 + 2 * i, 2);
            char *end = nullptr;
            long v = std::strtol(hex.c_str(), &end, 16);
            if (*end) UsageError(what + " takes R,G,B or #RRGGBB, not '" + text + "'");
            out[i] = (BYTE)v;
        }
        return;
    }
    std::vector<long> v = ParseIntList(text, what, 0, 255);
    if (v.size() == 1) v.assign(3, v[0]);
    if (v.size() != 3) UsageError(what + " takes R,G,B or #RRGGBB, not '" + text + "'");
    for (int i = 0; i < 3; ++i) out[i] = (BYTE)v[i];
}

int Run(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"target", true}, {"tolerance", true}, {"hue", true},
                           {"saturation", true}, {"lightness", true}, {"progress", false},
                           {"dialog", false}}));
    Replacement r;
    if (!options.Has("target")) UsageError("option --target is required");
    ParseRgb(options.Get("target"), "--target", r.target);
    ParseRgb(options.Get("tolerance", "0"), "--tolerance", r.tolerance);
    r.hue = (int)options.Int("hue", -180, 180, 0);
    r.saturation = (int)options.Int("saturation", -255, 255, 0);
    r.lightness = (int)options.Int("lightness", -255, 255, 0);
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    return ForEachImage(options, [&](Dib image, const std::string &path) {
        image = LoadImage24(std::move(image), path);
        return Replace(image.get(), r, mode);
    });
}

const Registrar kCommand(Command{
    "replace-color", "shift hue, saturation and lightness of the pixels near one colour",
    "Usage: paximg replace-color --target R,G,B [--tolerance R,G,B] [--hue H]\n"
    "                            [--saturation S] [--lightness L] [--progress] [--dialog]\n"
    "                            INPUT OUTPUT\n"
    "\n"
    "  --target R,G,B     the colour to find (or #RRGGBB)\n"
    "  --tolerance R,G,B  largest difference per component, 0..255 (one value for\n"
    "                     all three; default 0)\n"
    "  --hue H            hue shift in degrees, -180..180\n"
    "  --saturation S     added to the saturation byte, -255..255\n"
    "  --lightness L      added to the lightness byte, -255..255\n"
    "  --progress         show the progress dialog (on Linux a bar on a terminal)\n"
    "  --dialog           ask for the values in the parameter dialog (PAXDlgs)\n"
    "Palette and 32-bit images are taken as 24-bit RGB.\n",
    42, Run});

void Demo(DemoContext &context) {
    Replacement skin{{224, 172, 138}, {40, 40, 40}, 120, 0, 0};
    Dib a = Replace(context.Chart(), skin, 0);
    context.Add("replace-color-skin", "replace-color --target 224,172,138 --tolerance 40 --hue 120",
                a.get(), "Hue-based adjustments");
    Replacement red{{255, 0, 0}, {80, 80, 80}, -120, 0, 0};
    Dib b = Replace(context.Chart(), red, 0);
    context.Add("replace-color-red", "replace-color --target 255,0,0 --tolerance 80 --hue -120",
                b.get(), "Hue-based adjustments");
}

const Registrar kDemo(DemoStep{42, Demo});

} // namespace
} // namespace paximg
