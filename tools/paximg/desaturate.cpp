// `paximg desaturate` (Desaturate).
#include "paximg.h"

namespace paximg {
namespace {

Dib Run(HGLOBAL image, int mode) {
    try {
        Dib result = pax::Desaturate(image, mode);
        NoteDialogEntry(mode == 2 || mode == 3);
        return result;
    } catch (const pax::Error &e) {
        FailFrom(e, mode != 0);
    }
}

int RunCommand(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"progress", false}, {"dialog", false}}));
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    return ForEachImage(options, [&](Dib image, const std::string &path) {
        image = LoadImage24(std::move(image), path);
        return Run(image.get(), mode);
    });
}

const Registrar kCommand(Command{
    "desaturate", "remove the colour, keeping lightness",
    "Usage: paximg desaturate [--progress] [--dialog] INPUT OUTPUT\n"
    "\n"
    "  --progress  show the progress dialog (on Linux a bar on a terminal)\n"
    "  --dialog    show the parameter dialog (PAXDlgs) first\n"
    "Palette and 32-bit images are taken as 24-bit RGB.\n",
    41, RunCommand});

void Demo(DemoContext &context) {
    Dib r = Run(context.Chart(), 0);
    context.Add("desaturate", "desaturate", r.get(), "Hue-based adjustments");
}

const Registrar kDemo(DemoStep{41, Demo});

} // namespace
} // namespace paximg
