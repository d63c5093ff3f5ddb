// Options, messages, colour-model names and the command registries.
#include "paximg.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace paximg {

void Fail(const std::string &message) { throw ToolError(kExitFailed, message); }
void UsageError(const std::string &message) { throw ToolError(kExitUsage, message); }
void Cancelled(const std::string &operation) {
    throw ToolError(kExitCancelled, operation + " cancelled; nothing was written");
}

namespace {

struct ModelInfo {
    const char *name;
    const char *components;
};
// Indexed by colour-model code; the tag of code m is 0 for RGB, m + 8 otherwise.
constexpr ModelInfo kModels[10] = {
    {"", ""},       {"rgb", "rgb"}, {"yuv", "yuv"}, {"cmy", "cmy"}, {"cmyk", "cmyk"},
    {"yiq", "yiq"}, {"hsv", "hsv"}, {"hsi", "hsi"}, {"xyz", "xyz"}, {"lab", "lab"},
};

} // namespace

int ModelByName(const std::string &name) {
    std::string n = name;
    std::transform(n.begin(), n.end(), n.begin(), [](unsigned char c) { return (char)std::tolower(c); });
    for (int m = 1; m <= 9; ++m)
        if (n == kModels[m].name) return m;
    return 0;
}
const char *ModelName(int code) { return code >= 1 && code <= 9 ? kModels[code].name : "?"; }
const char *ModelComponents(int code) {
    return code >= 1 && code <= 9 ? kModels[code].components : "";
}
int ModelOfTag(uint32_t tag) {
    if (tag == 0) return MODEL_RGB;
    if (tag >= 10 && tag <= 17) return (int)tag - 8;
    return 0;
}

std::string DescribeConvertError(DWORD code) {
#define PAX_CCE_TEXT(name, value, text) \
    if (code == value) return std::string(text) + " (" #name ", " #value ")";
    PAX_CCE_CODES(PAX_CCE_TEXT)
#undef PAX_CCE_TEXT
    return "unknown error code " + std::to_string(code);
}

std::string DescribeImageStatus(int code) {
#define PAX_IMS_TEXT(name, value, text) \
    if (code == value) return std::string(text) + " (" #name ", " #value ")";
    PAX_IMS_CODES(PAX_IMS_TEXT)
#undef PAX_IMS_TEXT
    return "unknown status code " + std::to_string(code);
}

void FailWithConvertError(const char *exportName, bool progressShown) {
    DWORD code = GetLastColorConvertError();
    if (code == CCE_NONE && progressShown) Cancelled(exportName);
    if (code == CCE_NONE) Fail(std::string(exportName) + " returned no result");
    Fail(std::string(exportName) + " failed: " + DescribeConvertError(code));
}

void FailFrom(const pax::Error &error, bool interactive) {
    if (interactive && error.code().value == 0) Cancelled(error.operation());
    Fail(error.what());
}

bool ProgressWanted(bool requested) {
#ifdef _WIN32
    return requested;
#else
    return requested || isatty(2);
#endif
}

Options::Options(const std::vector<std::string> &args, const std::vector<OptionSpec> &known) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
            std::string name = a.substr(2), value;
            size_t eq = name.find('=');
            bool inlineValue = eq != std::string::npos;
            if (inlineValue) {
                value = name.substr(eq + 1);
                name = name.substr(0, eq);
            }
            auto option = std::find_if(known.begin(), known.end(),
                                       [&](const OptionSpec &s) { return name == s.name; });
            if (option == known.end()) UsageError("unknown option --" + name);
            if (option->takesValue && !inlineValue) {
                if (i + 1 >= args.size()) UsageError("option --" + name + " needs a value");
                value = args[++i];
            } else if (!option->takesValue && inlineValue) {
                UsageError("option --" + name + " takes no value");
            }
            if (values_.count(name)) UsageError("option --" + name + " given twice");
            values_[name] = value;
        } else if (a.size() > 1 && a[0] == '-' && !(a[1] >= '0' && a[1] <= '9')) {
            UsageError("unknown option " + a);
        } else {
            positional_.push_back(a);
        }
    }
}

std::string Options::Get(const std::string &name, const std::string &fallback) const {
    auto it = values_.find(name);
    return it == values_.end() ? fallback : it->second;
}

long Options::Int(const std::string &name, long lo, long hi, long fallback) const {
    return Has(name) ? ParseInt(Get(name), "--" + name, lo, hi) : fallback;
}

long Options::RequiredInt(const std::string &name, long lo, long hi) const {
    if (!Has(name)) UsageError("option --" + name + " is required");
    return ParseInt(Get(name), "--" + name, lo, hi);
}

void Options::ExpectPositional(const std::vector<const char *> &names) const {
    if (positional_.size() == names.size()) return;
    std::string want;
    for (const char *n : names) want += std::string(want.empty() ? "" : " ") + n;
    if (positional_.size() < names.size())
        UsageError("expected " + want + " (" + std::to_string(names.size()) + " arguments)");
    UsageError("unexpected argument '" + positional_[names.size()] + "'");
}

long ParseInt(const std::string &text, const std::string &what, long lo, long hi) {
    errno = 0;
    char *end = nullptr;
    long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end || errno == ERANGE)
        UsageError(what + " takes a whole number, not '" + text + "'");
    if (v < lo || v > hi)
        UsageError(what + " must be between " + std::to_string(lo) + " and " + std::to_string(hi) +
                   " (got " + text + ")");
    return v;
}

std::vector<long> ParseIntList(const std::string &text, const std::string &what, long lo,
                               long hi) {
    std::vector<long> values;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        if (comma == std::string::npos) comma = text.size();
        values.push_back(ParseInt(text.substr(start, comma - start), what, lo, hi));
        start = comma + 1;
    }
    return values;
}

namespace {
std::vector<Command> &CommandList() {
    static std::vector<Command> list;
    return list;
}
std::vector<DemoStep> &DemoList() {
    static std::vector<DemoStep> list;
    return list;
}
} // namespace

void RegisterCommand(const Command &command) {
    auto &list = CommandList();
    list.push_back(command);
    std::stable_sort(list.begin(), list.end(),
                     [](const Command &a, const Command &b) { return a.order < b.order; });
}
const std::vector<Command> &Commands() { return CommandList(); }

void RegisterDemoStep(const DemoStep &step) {
    auto &list = DemoList();
    list.push_back(step);
    std::stable_sort(list.begin(), list.end(),
                     [](const DemoStep &a, const DemoStep &b) { return a.order < b.order; });
}
const std::vector<DemoStep> &DemoSteps() { return DemoList(); }

bool WantsHelp(const std::vector<std::string> &args) {
    return std::any_of(args.begin(), args.end(),
                       [](const std::string &a) { return a == "--help" || a == "-h"; });
}

int PrintHelp(const char *commandName) {
    for (const Command &c : Commands())
        if (std::strcmp(c.name, commandName) == 0) {
            std::fputs(c.help, stdout);
            return kExitOk;
        }
    return kExitUsage;
}

} // namespace paximg

namespace paximg {

namespace {
std::string g_commandName;
}
void SetCommandName(const std::string &name) { g_commandName = name; }
const std::string &CommandName() { return g_commandName; }

void CheckOutputName(const std::string &path) {
    if (!WritableExtension(Extension(path)))
        UsageError("cannot tell the format of '" + path + "': name it .bmp, .png or .jpg");
}

std::vector<OptionSpec> ImageOptions(std::vector<OptionSpec> own) {
    own.insert(own.end(), {{"output-dir", true}, {"format", true}, {"quality", true}});
    return own;
}

std::vector<ImageJob> ImageJobs(const Options &options) {
    const std::vector<std::string> &args = options.Positional();
    std::string format;
    if (options.Has("format")) {
        format = "." + options.Get("format");
        if (!WritableExtension(format))
            UsageError("--format takes bmp, png or jpg, not '" + options.Get("format") + "'");
    }
    SetJpegQuality((int)options.Int("quality", 1, 100, 90));
    std::vector<ImageJob> jobs;
    if (!options.Has("output-dir")) {
        options.ExpectPositional({"INPUT", "OUTPUT"});
        const std::string &out = args[1];
        if (out == "-") return {{args[0], out, format.empty() ? ".bmp" : format}};
        CheckOutputName(out);
        if (!format.empty() && format != Extension(out))
            UsageError("--format " + options.Get("format") + " does not match the output '" + out + "'");
        return {{args[0], out, Extension(out)}};
    }
    const std::string dir = options.Get("output-dir");
    if (args.empty()) UsageError("expected one or more INPUT files with --output-dir");
    std::map<std::string, std::string> seen;
    for (const std::string &in : args) {
        if (in == "-") UsageError("the standard input (-) cannot be used with --output-dir");
        const size_t slash = in.find_last_of("/\\");
        std::string name = slash == std::string::npos ? in : in.substr(slash + 1);
        const std::string ext = Extension(name);
        name = name.substr(0, name.size() - ext.size());
        // The input's own format is kept unless --format names another.
        const std::string f = !format.empty() ? format : WritableExtension(ext) ? ext : ".bmp";
        const std::string out = dir + "/" + name + f;
        if (seen.count(out)) UsageError("'" + seen[out] + "' and '" + in + "' would both be written to '" + out + "'");
        seen[out] = in;
        jobs.push_back({in, out, f});
    }
    return jobs;
}

int ForEachImage(const Options &options,
                 const std::function<Dib(Dib image, const std::string &path)> &operation) {
    const std::vector<ImageJob> jobs = ImageJobs(options);
    if (options.Has("output-dir")) {
        const std::string dir = options.Get("output-dir");
        struct stat info;
        if (stat(dir.c_str(), &info) != 0 || (info.st_mode & S_IFMT) != S_IFDIR)
            Fail("the output directory '" + dir + "' does not exist");
    }
    int failed = 0;
    for (const ImageJob &job : jobs) {
        try {
            Dib result = operation(ReadImage(job.input), job.input);
            WriteImage(result.get(), job.output, job.format.substr(1));
        } catch (const ToolError &e) {
            if (jobs.size() == 1 || e.status != kExitFailed) throw;
            std::fprintf(stderr, "paximg %s: %s\n", CommandName().c_str(), e.what());
            ++failed;
        }
    }
    if (failed) Fail(std::to_string(failed) + " of " + std::to_string(jobs.size()) + " images failed");
    return kExitOk;
}

Dib LoadImage24(Dib image, const std::string &path) {
    bool expand;
    {
        DibView v(image.get());
        if (v.Tag() != 0)
            Fail("'" + path + "' holds " + ModelName(ModelOfTag(v.Tag())) +
                 " values; convert it to rgb first");
        expand = v.Bits() != 24;
    }
    return expand ? ExpandTo24(image.get()) : std::move(image);
}

bool ProgressOption(const Options &options) { return ProgressWanted(options.Has("progress")); }

void NoteDialogEntry(bool dialogAsked) {
    if (dialogAsked && GetLastColorConvertError() == CCE_NODIALOGENTRY)
        std::fprintf(stderr, "paximg: note: the parameter dialog is not installed (%s); the "
                             "values given were used\n",
                     DescribeConvertError(CCE_NODIALOGENTRY).c_str());
}

} // namespace paximg
