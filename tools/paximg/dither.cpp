// `paximg dither`: error diffusion (six kernels) and the 2x2 block dithers.
#include "paximg.h"

namespace paximg {
namespace {

using DitherFn = HDIB(PAXCALL *)(HDIB, int);

struct Method {
    const char *name, *exportName, *description;
    DitherFn fn;
    bool takes8; // the block dithers offer 1 and 4 bits only
};

// The methods, in the order of the help text.
const Method kMethods[] = {
    {"fs4", "DitherFS4", "Floyd-Steinberg", DitherFS4, true},
    {"burkes", "DitherBurkes", "Burkes, lower left taps exchanged", DitherBurkes, true},
    {"sierra", "DitherSierra", "Sierra lite, two rows", DitherSierra, true},
    {"jjn", "DitherJJN", "Jarvis-Judice-Ninke", DitherJJN, true},
    {"stucki", "DitherStucki", "Stucki", DitherStucki, true},
    {"sa", "DitherSA", "Stevenson-Arce", DitherSA, true},
    {"sharp", "DitherSharp", "2x2 blocks, sharp", DitherSharp, false},
    {"smooth", "DitherSmooth", "2x2 blocks, smooth", DitherSmooth, false},
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
    HGLOBAL result = m.fn(image, bits);
    if (!result) Fail(std::string(m.exportName) + " returned no image");
    return Dib(result);
}

const Method &MethodByName(const std::string &name) {
    for (const Method &m : kMethods)
        if (name == m.name) return m;
    std::string all;
    for (const Method &m : kMethods) all += std::string(all.empty() ? "" : ", ") + m.name;
    UsageError("--method takes one of " + all + ", not '" + name + "'");
}

int Run(const std::vector<std::string> &args) {
    Options options(args, {{"method", true}, {"bits", true}});
    options.ExpectPositional({"INPUT", "OUTPUT"});
    CheckOutputName(options.Positional()[1]);
    const Method &m = MethodByName(options.Get("method", kMethods[0].name));
    const int bits = (int)options.Int("bits", 1, 8, 1);
    if (bits != 1 && bits != 4 && (bits != 8 || !m.takes8))
        UsageError(std::string("--bits for ") + m.name + " is " + (m.takes8 ? "1, 4 or 8" : "1 or 4") +
                   ", not " + std::to_string(bits));
    Dib image = ReadImage(options.Positional()[0]);
    {
        DibView v(image.get());
        if (v.Bits() == 32 && v.Tag() == 0) image = ExpandTo24(image.get());
    }
    Dib result = Dither(m, image.get(), bits);
    WriteImage(result.get(), options.Positional()[1]);
    return kExitOk;
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
