// `paximg ordered` (DitherOrdered): threshold matrices on grey images.
#include "paximg.h"

namespace paximg {
namespace {

bool IsGrey8(const DibView &v) {
    if (v.Bits() != 8 || v.Tag() != 0 || v.TableEntries() != 256) return false;
    for (int i = 0; i < 256; ++i) {
        const RGBQUAD &q = v.Table()[i];
        if (q.rgbRed != i || q.rgbGreen != i || q.rgbBlue != i) return false;
    }
    return true;
}

Dib Ordered(HGLOBAL image, int type) {
    // The matrices work on 8-bit grey levels; other images are made grey first.
    Dib grey;
    {
        DibView v(image);
        if (v.Tag() != 0) Fail("the image holds " + std::string(ModelName(ModelOfTag(v.Tag()))) + " values; convert it to rgb first");
        if (!IsGrey8(v)) grey = ToGrey8(image);
    }
    try {
        return pax::Ordered(grey ? grey.get() : image, type);
    } catch (const pax::Error &e) {
        Fail(std::string(e.operation()) + " returned no image");
    }
}

int Run(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"type", true}}));
    const int type = (int)options.Int("type", 0, 6, 0);
    return ForEachImage(options, [&](Dib image, const std::string &) { return Ordered(image.get(), type); });
}

const Registrar kCommand(Command{
    "ordered", "ordered dithering to 1 bit with one of seven threshold matrices",
    "Usage: paximg ordered [--type 0..6] INPUT OUTPUT\n"
    "\n"
    "Reduces an image to black and white with a threshold matrix (--type 0..6,\n"
    "default 0). Colour and palette images are made 8-bit grey first (Rec. 601\n"
    "weights).\n",
    100, Run});

void Demo(DemoContext &context) {
    for (int type = 0; type <= 6; ++type) {
        Dib r = Ordered(context.Chart(), type);
        context.Add("ordered-" + std::to_string(type), "ordered --type " + std::to_string(type),
                    r.get(), "Ordered dithering");
    }
}

const Registrar kDemo(DemoStep{100, Demo});

} // namespace
} // namespace paximg
