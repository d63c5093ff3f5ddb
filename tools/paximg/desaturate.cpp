// `paximg desaturate` (Desaturate).
#include "paximg.h"

namespace paximg {
namespace {

Dib Run(HGLOBAL image, int mode) {
    HGLOBAL result = Desaturate(image, mode, nullptr);
    if (!result) {
        if (GetLastColorConvertError() == CCE_NONE && (mode == 2 || mode == 3)) Cancelled("Desaturate");
        FailWithConvertError("Desaturate", mode == 1 || mode == 3);
    }
    NoteDialogEntry(mode == 2 || mode == 3);
    return Dib(result);
}

int RunCommand(const std::vector<std::string> &args) {
    Options options(args, {{"progress", false}, {"dialog", false}});
    options.ExpectPositional({"INPUT", "OUTPUT"});
    CheckOutputName(options.Positional()[1]);
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    Dib image = LoadImage24(options.Positional()[0]);
    Dib result = Run(image.get(), mode);
    WriteImage(result.get(), options.Positional()[1]);
    return kExitOk;
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
