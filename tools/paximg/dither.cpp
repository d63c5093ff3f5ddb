// `paximg dither`: error diffusion (six kernels) and the 2x2 block dithers.
#include "paximg.h"

namespace paximg {
namespace {

struct Method {
    const char *name, *description;
    pax::DitherMethod method;
    bool takes8; // the block dithers offer 1 and 4 bits only
};

// The methods, in the order of the help text.
const Method kMethods[] = {
    {"fs4", "Floyd-Steinberg", pax::DitherMethod::FS4, true},
    {"burkes", "Burkes, lower left taps exchanged", pax::DitherMethod::Burkes, true},
    {"sierra", "Sierra lite, two rows", pax::DitherMethod::Sierra, true},
    {"jjn", "Jarvis-Judice-Ninke", pax::DitherMethod::JJN, true},
    {"stucki", "Stucki", pax::DitherMethod::Stucki, true},
    {"sa", "Stevenson-Arce", pax::DitherMethod::SA, true},
    {"sharp", "2x2 blocks, sharp", pax::DitherMethod::Sharp, false},
    {"smooth", "2x2 blocks, smooth", pax::DitherMethod::Smooth, false},
};

// The dithers keep their status where no export returns it, so the checks a
// user can get wrong are made here, with their reasons.
Dib Dither(const Method &m, HGLOBAL image, int bits) {
    {
        DibView v(image);
        if (v.Tag() != 0) Fail("the image holds " + std::string(ModelName(ModelOfTag(v.Tag()))) + " values; convert it to rgb first");
        if (v.Bits() != 4 && v.Bits() != 8 && v.Bits() != 24)
            Fail("the dithers take 4-, 8- and 24-bit images, not " + std::to_string(v.Bits()) + "-bit ones");
        if (bits >= v.Bits())
            Fail("--bits " + std::to_string(bits) + " is not below the image's " + std::to_string(v.Bits()) + " bits per pixel");
    }
    try {
        return pax::Dither(image, m.method, bits);
    } catch (const pax::Error &e) {
        Fail(std::string(e.operation()) + " returned no image");
    }
}

const Method &MethodByName(const std::string &name) {
    for (const Method &m : kMethods)
        if (name == m.name) return m;
    std::string all;
    for (const Method &m : kMethods) all += std::string(all.empty() ? "" : ", ") + m.name;
    UsageError("--method takes one of " + all + ", not '" + name + "'");
}

int Run(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"method", true}, {"bits", true}}));
    const Method &m = MethodByName(options.Get("method", kMethods[0].name));
    const int bits = (int)options.Int("bits", 1, 8, 1);
    if (bits != 1 && bits != 4 && (bits != 8 || !m.takes8))
        UsageError(std::string("--bits for ") + m.name + " is " + (m.takes8 ? "1, 4 or 8" : "1 or 4") +
                   ", not " + std::to_string(bits));
    return ForEachImage(options, [&](Dib image, const std::string &) {
        bool expand;
        {
            DibView v(image.get());
            expand = v.Bits() == 32 && v.Tag() == 0;
        }
        if (expand) image = ExpandTo24(image.get());
        return Dither(m, image.get(), bits);
    });
}

std::string HelpText() {
    std::string s =
        "Usage: paximg dither [--method METHOD] [--bits 1|4|8] INPUT OUTPUT\n"
        "\n"
        "Reduces a 4-, 8- or 24-bit image to 1, 4 or 8 bits per pixel (below its own\n"
        "depth). 1 bit: black and white; 4 bits: the eight corners of the colour cube\n"
        "(one bit per component); 8 bits: 3-3-2 colours.\n"
        "  --bits N         1 (default), 4 or 8\n"
        "  --method METHOD  one of:\n";
    for (const Method &m : kMethods)
        s += std::string("      ") + m.name + std::string(8 - std::string(m.name).size(), ' ') +
             m.description + (m.takes8 ? "" : " (1 or 4 bits)") + "\n";
    s += "\n"
         "The error-diffusion methods keep the error of each colour in 16-bit cells.\n"
         "At 8 bits a bright area drives them past 32767: they wrap around to\n"
         "negative values, and a large white area shows scattered dark pixels. Use\n"
         "4 bits, or darken the image slightly first, where that matters.\n"
         "Outputs whose palette is grey (1 bit) are written as grey PNG or JPEG.\n";
    return s;
}
const std::string kHelp = HelpText();

const Registrar kCommand(Command{"dither", "reduce to 1, 4 or 8 bits by error diffusion or 2x2 blocks",
                                 kHelp.c_str(), 90, Run});

void Demo(DemoContext &context) {
    const char *section = "Dithering";
    for (const Method &m : kMethods) {
        Dib r = Dither(m, context.Chart(), 1);
        context.Add(std::string("dither-") + m.name + "-1", std::string("dither --method ") + m.name + " --bits 1",
                    r.get(), section);
    }
    for (const Method &m : kMethods) {
        if (m.name != std::string("fs4") && m.name != std::string("sharp")) continue;
        for (int bits : {4, 8}) {
            if (bits == 8 && !m.takes8) continue;
            Dib r = Dither(m, context.Chart(), bits);
            context.Add(std::string("dither-") + m.name + "-" + std::to_string(bits),
                        std::string("dither --method ") + m.name + " --bits " + std::to_string(bits),
                        r.get(), section);
        }
    }
}

const Registrar kDemo(DemoStep{90, Demo});

} // namespace
} // namespace paximg
