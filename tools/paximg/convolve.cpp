// `paximg convolve` (ColorConvolution): a kernel given on the command line,
// a filter file, or one of the built-in filters.
#include "paximg.h"

#include <cmath>
#include <cstdio>

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
    try {
        Dib result = pax::Convolve(image, (pax::Filter)f.type, f.size,
                                   f.type == CONV_KERNEL ? f.coefficients.data() : nullptr,
                                   f.type == CONV_FILE ? f.file.c_str() : nullptr,
                                   (pax::Intensity)f.intensity, !f.inPlace, mode);
        NoteDialogEntry(mode == 2 || mode == 3);
        return result;
    } catch (const pax::Error &e) {
        if (e.code().name && e.code().name[0] == 'I') Fail(e.what()); // the filter's own status
        if (mode != 0 && e.code().value != CCE_NODIALOGENTRY) Cancelled(e.operation());
        Fail("ColorConvolution returned no image");
    }
}

// The library's list goes by columns from the right, each column from the
// bottom row up: value i * n + j weights the pixel h - i columns to the right
// and h - j rows up (h = n / 2). People type a kernel as they see it, row by
// row from the top, each row from the left, and the weight at (row a, column
// b) falls on the pixel a - h rows below and b - h columns right of the one
// computed (laid over the picture, not mirrored). So seen[a][b] goes to list
// place (n - 1 - b) * n + a. The divisor stays last.
std::vector<short> LibraryOrder(const std::vector<long> &seen, int n) {
    std::vector<short> list((size_t)n * n + 1);
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < n; ++b) list[(size_t)(n - 1 - b) * n + a] = (short)seen[(size_t)a * n + b];
    list[(size_t)n * n] = (short)seen[(size_t)n * n];
    return list;
}

// The library's limits on weights, checked here so that a refusal names the
// rule: every weight within -127..127, the positive weights summing to at
// most 127 and the negative ones to at least -127 (the sums of 16-bit
// arithmetic stay in range).
void CheckWeights(const std::vector<short> &list, int n, const std::string &what) {
    long positive = 0, negative = 0;
    for (int i = 0; i < n * n; ++i) {
        const long w = list[(size_t)i];
        if (w > 127 || w < -127)
            UsageError(what + ": weight " + std::to_string(w) + " is outside -127..127");
        (w > 0 ? positive : negative) += w;
    }
    if (positive > 127) UsageError(what + ": the positive weights add up to " + std::to_string(positive) + "; at most 127 is allowed");
    if (negative < -127) UsageError(what + ": the negative weights add up to " + std::to_string(negative) + "; at least -127 is allowed");
}

// A filter file: 2 * n * n + 2 bytes of little-endian 16-bit values, in the
// library's own order (read as it is).
void CheckFilterFile(const std::string &path, int n) {
    std::FILE *file = std::fopen(path.c_str(), "rb");
    if (!file) Fail("cannot open the filter file '" + path + "'");
    std::vector<uint8_t> bytes(2 * 49 + 2);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
    std::fclose(file);
    const size_t need = 2 * (size_t)n * n + 2;
    if (bytes.size() < need)
        UsageError("the filter file '" + path + "' holds " + std::to_string(bytes.size()) + " bytes; a " +
                   std::to_string(n) + " x " + std::to_string(n) + " filter needs " + std::to_string(need) +
                   " (n * n weights and a divisor, 16 bits each)");
    std::vector<short> list;
    for (size_t i = 0; i + 1 < need; i += 2) list.push_back((short)(bytes[i] | bytes[i + 1] << 8));
    CheckWeights(list, n, "the filter file '" + path + "'");
}

int RunConvolve(const std::vector<std::string> &args) {
    Options options(args, ImageOptions({{"type", true}, {"size", true}, {"filter-file", true}, {"kernel", true},
                           {"intensity", true}, {"in-place", false}, {"progress", false},
                           {"dialog", false}}));
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
        if (v.size() < 10 || (size_t)(n * n + 1) != v.size() || n > 7 || n % 2 == 0)
            UsageError("--kernel takes n*n weights and a divisor, n = 3, 5 or 7 (10, 26 or 50 numbers), got " +
                       std::to_string(v.size()));
        if (options.Has("size") && options.Int("size", 3, 7, 3) != n)
            UsageError("--size " + options.Get("size") + " does not match a kernel of " + std::to_string(v.size()) + " numbers");
        f.size = (short)n;
        f.coefficients = LibraryOrder(v, (int)n);
        CheckWeights(f.coefficients, (int)n, "--kernel");
    } else {
        f.size = (short)options.Int("size", 3, 7, 3);
    }
    if (f.size % 2 == 0) UsageError("--size must be odd (3, 5 or 7): a kernel needs a centre pixel");
    if (f.size == 7 && f.type != CONV_KERNEL && f.type != CONV_MEAN)
        UsageError("--size 7 is taken only by --type kernel and mean; the others take 3 or 5");
    if (f.type == CONV_FILE) {
        if (!options.Has("filter-file")) UsageError("--type file needs --filter-file FILE");
        f.file = options.Get("filter-file");
        CheckFilterFile(f.file, f.size);
    }
    const std::string intensity = options.Get("intensity", "mean");
    if (intensity != "mean" && intensity != "weighted")
        UsageError("--intensity takes mean or weighted, not '" + intensity + "'");
    f.intensity = intensity == "weighted" ? 1 : 0;
    f.inPlace = options.Has("in-place");
    const int mode = (ProgressOption(options) ? 1 : 0) | (options.Has("dialog") ? 2 : 0);
    return ForEachImage(options, [&](Dib image, const std::string &path) {
        image = LoadImage24(std::move(image), path);
        return Run(image, f, mode);
    });
}

const Registrar kCommand(Command{
    "convolve", "filter with a kernel, a filter file or a built-in filter",
    "Usage: paximg convolve [--type TYPE] [--size N] [--kernel W,...,D | --filter-file FILE]\n"
    "                       [--intensity mean|weighted] [--in-place] [--progress] [--dialog]\n"
    "                       INPUT OUTPUT\n"
    "\n"
    "  --type TYPE      kernel (1), file (2), mean (3), smooth (4), sharpen (5),\n"
    "                   sharpen-full (6); default sharpen\n"
    "  --size N         kernel size 3 or 5, and 7 for kernel and mean (default 3)\n"
    "  --kernel W,...,D n*n weights as the kernel is seen, row by row from the top,\n"
    "                   each row from the left, then the divisor (type kernel).\n"
    "                   The weight at row a, column b falls on the pixel a - n/2 rows\n"
    "                   below and b - n/2 columns right of the one computed:\n"
    "                   -1,0,1,-2,0,2,-1,0,1,1 brightens where the picture gets\n"
    "                   brighter to the right (a vertical edge).\n"
    "  --filter-file F  2*n*n+2 bytes of little-endian 16-bit values in the library's\n"
    "                   own order: by columns from the right, each from the bottom\n"
    "                   row up, then the divisor (type file)\n"
    "  --intensity      how the intensity is measured: mean of R, G, B (default) or\n"
    "                   weighted\n"
    "  --in-place       filter the pixels of the loaded image instead of a new one\n"
    "  --progress       show the progress dialog (on Linux a bar on a terminal)\n"
    "  --dialog         ask for the filter in the parameter dialog (PAXDlgs)\n"
    "\n"
    "Only the intensity is filtered: the filtered intensity minus the pixel's own\n"
    "is added to its blue, green and red bytes alike (limited to 0..255), so hue\n"
    "and saturation stay until a byte clips.\n"
    "Limits (checked before the library is called, exit 2): every weight within\n"
    "-127..127; positive weights adding up to at most 127, negative ones to at\n"
    "least -127; odd sizes only. Divisor 0 means the sum of the weights (1 when\n"
    "that is 0); a negative divisor negates the weights. Divisors 2, 4 ... 64\n"
    "round toward minus infinity, others toward zero.\n"
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
        if (!s.kernel.empty())
            f.coefficients = LibraryOrder(std::vector<long>(s.kernel.begin(), s.kernel.end()), s.size);
        // The chart stays the demo's input: filter a copy of it.
        Dib copy = ExpandTo24(context.Chart());
        Dib r = Run(copy, f, 0);
        context.Add(s.name, s.caption, r.get(), section);
    }
}

const Registrar kDemo(DemoStep{80, Demo});

} // namespace
} // namespace paximg
