// `paximg convolve` (ColorConvolution): a kernel given on the command line,
// a filter file, or one of the built-in filters.
#include "paximg.h"

#include <cmath>

namespace paximg {
namespace {

struct FilterName {
    const char *name;
    short type;
};
const FilterName kTypes[] = {{"kernel", CONV_KERNEL}, {"file", CONV_FILE},
                             {"mean", CONV_MEAN},     {"smooth", CONV_SMOOTH},
                             {"sharpen", CONV_SHARPEN}, {"sharpen-full", CONV_SHARPEN_FULL}};

struct Filter {
    short type = CONV_SHARPEN;
    short size = 3;
    std::string file;
    std::vector<short> coefficients; // n * n weights, then the divisor
    int intensity = 0;               // 1: weighted intensity
    bool inPlace = false;
};

Dib Run(Dib &image, const Filter &f, int mode) {
    int status = 0;
    HGLOBAL result = ColorConvolution(image.get(), f.inPlace ? 0 : 1, f.intensity, f.type, f.size,
                                      f.type == CONV_FILE ? f.file.c_str() : nullptr,
                                      f.type == CONV_KERNEL ? f.coefficients.data() : nullptr,
                                      &status, mode, nullptr);
    if (!result) {
        if (status != 0) Fail("ColorConvolution failed: " + DescribeImageStatus(status));
        if (mode != 0 && GetLastColorConvertError() != CCE_NODIALOGENTRY) Cancelled("ColorConvolution");
        Fail("ColorConvolution returned no image");
    }
    NoteDialogEntry(mode == 2 || mode == 3);
    // Filtered in place, the result is the caller's own block.
    if (result == image.get()) return std::move(image);
    return Dib(result);
}

int RunConvolve(const std::vector<std::string> &args) {
    Options options(args, {{"type", true}, {"size", true}, {"filter-file", true}, {"kernel", true},
                           {"intensity", true}, {"in-place", false}, {"progress", false},
                           {"dialog", false}});
    options.ExpectPositional({"INPUT", "OUTPUT"});
    CheckOutputName(options.Positional()[1]);
    Filter f;
    if (options.Has("filter-file")) f.type = CONV_FILE;
    if (options.Has("kernel")) f.type = CONV_KERNEL;
    if (options.Has("filter-file") && options.Has("kernel"))
        UsageError("give either --filter-file or --kernel, not both");
    if (options.Has("type")) {
        const std::string t = options.Get("type");
        short type = 0;
        for (const FilterName &n : kTypes)
            if (t == n.name || t == std::to_string(n.type)) type = n.type;
        if (!type)
            UsageError("--type takes kernel, file, mean, smooth, sharpen or sharpen-full (or 1..6), not '" + t + "'");
        if ((options.Has("kernel") && type != CONV_KERNEL) || (options.Has("filter-file") && type != CONV_FILE))
            UsageError("--type " + t + " does not go with --kernel or --filter-file");
        f.type = type;
    }
    if (f.type == CONV_KERNEL) {
        if (!options.Has("kernel")) UsageError("--type kernel needs --kernel W1,W2,...,DIVISOR");
        std::vector<long> v = ParseIntList(options.Get("kernel"), "--kernel", -32768, 32767);
        long n = std::lround(std::sqrt((double)v.size() - 1));
        if (v.size() < 10 || (size_t)(n * n + 1) != v.size() || n > 7)
            UsageError("--kernel takes n*n weights and a divisor (10, 17, 26, 37 or 50 numbers), got " +
                       std::to_string(v.size()));
        if (options.Has("size") && options.Int("size", 3, 7, 3) != n)
            UsageError("--size " + options.Get("size") + " does not match a kernel of " + std::to_string(v.size()) + " numbers");
        f.size = (short)n;
        for (long c : v) f.coefficients.push_back((short)c);
    } else {
        f.size = (short)options.Int("size", 3, 7, 3);
    }
    if (f.type == CONV_FILE) {
        if (!options.Has("filter-file")) UsageError("--type file needs --filter-file FILE");
        f.file = options.Get("filter-file");
        if (!FileExists(f.file)) Fail("cannot open the filter file '" + f.file + "'");
    }
    const std::string intensity = options.Get("intensity", "mean");
    if (intensity != "mean" && intensity != "weighted")
        UsageError("--intensity takes mean or weighted, not '" + intensity + "'");
    f.intensity = intensity == "weighted" ? 1 : 0;
    f.inPlace = options.Has("in-place");
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    Dib image = LoadImage24(options.Positional()[0]);
    Dib result = Run(image, f, mode);
    WriteImage(result.get(), options.Positional()[1]);
    return kExitOk;
}

const Registrar kCommand(Command{
    "convolve", "filter with a kernel, a filter file or a built-in filter",
    "Usage: paximg convolve [--type TYPE] [--size N] [--kernel W,...,D | --filter-file FILE]\n"
    "                       [--intensity mean|weighted] [--in-place] [--progress] [--dialog]\n"
    "                       INPUT OUTPUT\n"
    "\n"
    "  --type TYPE      kernel (1), file (2), mean (3), smooth (4), sharpen (5),\n"
    "                   sharpen-full (6); default sharpen\n"
    "  --size N         kernel size, 3..7 (default 3)\n"
    "  --kernel W,...,D n*n weights, row by row, then the divisor (type kernel)\n"
    "  --filter-file F  2*n*n+2 bytes of little-endian 16-bit values (type file)\n"
    "  --intensity      how the filters that work on intensity measure it:\n"
    "                   mean of R, G, B (default) or weighted\n"
    "  --in-place       filter the pixels of the loaded image instead of a new one\n"
    "  --progress       show the progress dialog (on Linux a bar on a terminal)\n"
    "  --dialog         ask for the filter in the parameter dialog (PAXDlgs)\n"
    "Palette and 32-bit images are taken as 24-bit RGB.\n",
    80, RunConvolve});

void Demo(DemoContext &context) {
    const char *section = "Convolution";
    struct Step {
        const char *name, *caption;
        short type, size;
        std::vector<short> kernel;
    } steps[] = {
        {"convolve-sharpen3", "convolve --type sharpen --size 3", CONV_SHARPEN, 3, {}},
        {"convolve-sharpen-full3", "convolve --type sharpen-full --size 3", CONV_SHARPEN_FULL, 3, {}},
        {"convolve-mean5", "convolve --type mean --size 5", CONV_MEAN, 5, {}},
        {"convolve-smooth5", "convolve --type smooth --size 5", CONV_SMOOTH, 5, {}},
        {"convolve-edges", "convolve --kernel -1,-1,-1,-1,8,-1,-1,-1,-1,1 (edges)", CONV_KERNEL, 3,
         {-1, -1, -1, -1, 8, -1, -1, -1, -1, 1}},
        {"convolve-emboss", "convolve --kernel -2,-1,0,-1,1,1,0,1,2,1 (emboss)", CONV_KERNEL, 3,
         {-2, -1, 0, -1, 1, 1, 0, 1, 2, 1}},
    };
    for (const Step &s : steps) {
        Filter f;
        f.type = s.type;
        f.size = s.size;
        f.coefficients = s.kernel;
        // The chart stays the demo's input: filter a copy of it.
        Dib copy = ExpandTo24(context.Chart());
        Dib r = Run(copy, f, 0);
        context.Add(s.name, s.caption, r.get(), section);
    }
}

const Registrar kDemo(DemoStep{80, Demo});

} // namespace
} // namespace paximg
