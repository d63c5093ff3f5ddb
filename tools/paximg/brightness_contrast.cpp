// `paximg brightness-contrast` (ColorBrightnessContrast).
#include "paximg.h"

namespace paximg {
namespace {

// The operation reports through a status field that no export returns, so
// the checks a user can get wrong are made here first, in its own terms.
Dib Adjust(HGLOBAL image, int brightness, int contrast, bool dialog) {
    {
        DibView v(image);
        if (v.Tag() != 0) Fail("the image holds " + std::string(ModelName(ModelOfTag(v.Tag()))) + " values; convert it to rgb first");
        if (v.Bits() == 1) Fail("ColorBrightnessContrast does not take 1-bit images");
    }
    try {
        Dib result = pax::BrightnessContrast(image, (short)brightness, (short)contrast, dialog);
        NoteDialogEntry(dialog);
        return result;
    } catch (const pax::Error &e) {
        if (dialog && e.code().value != CCE_NODIALOGENTRY) Cancelled(e.operation());
        Fail("ColorBrightnessContrast returned no image");
    }
}

int Run(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"brightness", true}, {"contrast", true}, {"dialog", false}}));
    const int brightness = (int)options.Int("brightness", -100, 100, 0);
    const int contrast = (int)options.Int("contrast", -100, 100, 0);
    return ForEachImage(options, [&](Dib image, const std::string &) {
        bool expand;
        {
            DibView v(image.get());
            expand = v.Bits() == 32 && v.Tag() == 0;
        }
        if (expand) image = ExpandTo24(image.get());
        return Adjust(image.get(), brightness, contrast, options.Has("dialog"));
    });
}

const Registrar kCommand(Command{
    "brightness-contrast", "change brightness and contrast",
    "Usage: paximg brightness-contrast [--brightness B] [--contrast C] [--dialog] INPUT OUTPUT\n"
    "\n"
    "Passes every colour component through one tone table. Palette images (4 and\n"
    "8 bits) keep their pixels and get a new colour table; 1-bit images are not\n"
    "taken.\n"
    "  --brightness B  -100..100, 0 leaves brightness alone (default 0)\n"
    "  --contrast C    -100..100, 0 leaves contrast alone (default 0)\n"
    "  --dialog        ask for the values in the parameter dialog (PAXDlgs)\n",
    60, Run});

void Demo(DemoContext &context) {
    const struct {
        int b, c;
    } steps[] = {{40, 0}, {0, 50}, {-30, -40}};
    for (const auto &s : steps) {
        Dib r = Adjust(context.Chart(), s.b, s.c, false);
        context.Add("brightness" + std::to_string(s.b) + "-contrast" + std::to_string(s.c),
                    "brightness-contrast --brightness " + std::to_string(s.b) + " --contrast " +
                        std::to_string(s.c),
                    r.get(), "Brightness, contrast and gamma");
    }
}

const Registrar kDemo(DemoStep{60, Demo});

} // namespace
} // namespace paximg
