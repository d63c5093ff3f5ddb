// `paximg gamma` (GammaCorrection).
#include "paximg.h"

namespace paximg {
namespace {

Dib Correct(HGLOBAL image, int red, int green, int blue, int mode) {
    HGLOBAL result = GammaCorrection(image, red, green, blue, mode, nullptr);
    if (!result) {
        DWORD code = GetLastColorConvertError();
        if (code == CCE_NONE && (mode == 2 || mode == 3)) Cancelled("GammaCorrection");
        FailWithConvertError("GammaCorrection", mode == 1 || mode == 3);
    }
    NoteDialogEntry(mode == 2 || mode == 3);
    return Dib(result);
}

int Run(const std::vector<std::string> &args) {
    Options options(args, {{"gamma", true}, {"gamma-red", true}, {"gamma-green", true},
                           {"gamma-blue", true}, {"progress", false}, {"dialog", false}});
    options.ExpectPositional({"INPUT", "OUTPUT"});
    CheckOutputName(options.Positional()[1]);
    const int all = (int)options.Int("gamma", 10, 500, 100);
    const int red = (int)options.Int("gamma-red", 10, 500, all);
    const int green = (int)options.Int("gamma-green", 10, 500, all);
    const int blue = (int)options.Int("gamma-blue", 10, 500, all);
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    Dib image = LoadImage24(options.Positional()[0]);
    Dib result = Correct(image.get(), red, green, blue, mode);
    WriteImage(result.get(), options.Positional()[1]);
    return kExitOk;
}

const Registrar kCommand(Command{
    "gamma", "gamma correction per colour component",
    "Usage: paximg gamma [--gamma G] [--gamma-red R] [--gamma-green G] [--gamma-blue B]\n"
    "                    [--progress] [--dialog] INPUT OUTPUT\n"
    "\n"
    "Gamma values are hundredths, 10..500; 100 leaves a component unchanged.\n"
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
