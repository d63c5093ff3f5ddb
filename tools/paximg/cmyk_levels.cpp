// `paximg cmyk-levels` (ColorCMYKLevels).
#include "paximg.h"

namespace paximg {
namespace {

Dib Levels(HGLOBAL image, int c, int m, int y, int k, int mode) {
    try {
        Dib result = pax::CMYKLevels(image, c, m, y, k, mode);
        NoteDialogEntry(mode == 2 || mode == 3);
        return result;
    } catch (const pax::Error &e) {
        FailFrom(e, mode != 0);
    }
}

int Run(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"cyan", true}, {"magenta", true}, {"yellow", true}, {"black", true},
                           {"progress", false}, {"dialog", false}}));
    const int c = (int)options.Int("cyan", -100, 100, 0);
    const int m = (int)options.Int("magenta", -100, 100, 0);
    const int y = (int)options.Int("yellow", -100, 100, 0);
    const int k = (int)options.Int("black", -100, 100, 0);
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    return ForEachImage(options, [&](Dib image, const std::string &path) {
        image = LoadImage24(std::move(image), path);
        return Levels(image.get(), c, m, y, k, mode);
    });
}

const Registrar kCommand(Command{
    "cmyk-levels", "change the amount of each ink (cyan, magenta, yellow, black)",
    "Usage: paximg cmyk-levels [--cyan C] [--magenta M] [--yellow Y] [--black K]\n"
    "                          [--progress] [--dialog] INPUT OUTPUT\n"
    "\n"
    "Each level is -100..100: 0 leaves that ink alone, -100 removes it, 100\n"
    "doubles it (default 0).\n"
    "  --progress  show the progress dialog (on Linux a bar on a terminal)\n"
    "  --dialog    ask for the values in the parameter dialog (PAXDlgs)\n"
    "Palette and 32-bit images are taken as 24-bit RGB.\n",
    43, Run});

void Demo(DemoContext &context) {
    Dib a = Levels(context.Chart(), 60, 0, 0, 0, 0);
    context.Add("cmyk-levels-cyan60", "cmyk-levels --cyan 60", a.get(), "Hue-based adjustments");
    Dib b = Levels(context.Chart(), 0, -100, 0, 0, 0);
    context.Add("cmyk-levels-magenta-100", "cmyk-levels --magenta -100", b.get(), "Hue-based adjustments");
    Dib c = Levels(context.Chart(), 0, 0, 0, 50, 0);
    context.Add("cmyk-levels-black50", "cmyk-levels --black 50", c.get(), "Hue-based adjustments");
}

const Registrar kDemo(DemoStep{43, Demo});

} // namespace
} // namespace paximg
