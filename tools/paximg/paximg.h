// paximg: the command-line front end of PaxImage.
//
// Shared pieces of the tool: an owning handle for packed DIBs in global
// memory, image reading and writing, option parsing, the translation of the
// library's codes into messages, and the registries through which each
// operation family adds its subcommands and its part of the demo.
#ifndef PAXIMG_PAXIMG_H
#define PAXIMG_PAXIMG_H

#include "paximage.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

// What the bytes of each colour model mean (help of convert, split, color).
#define PAXIMG_MODEL_BYTES                                                                      \
    "Byte encodings (a value's bytes in the order of the letters; a BMP pixel\n"               \
    "stores them last letter first, as it stores B, G, R):\n"                                 \
    "  rgb   R G B     intensity 0..255\n"                                                     \
    "  cmy   C M Y     255 - R, 255 - G, 255 - B\n"                                            \
    "  cmyk  C M Y K   K = min(C, M, Y) of the cmy value; C, M, Y minus K (32-bit)\n"         \
    "  hsv   H S V     H = hue angle x 255 / 360: 0 red, 85 green, 170 blue, and\n"           \
    "                  255 is 360 degrees, red again (hue wraps around); S =\n"               \
    "                  saturation x 255; V = max(R, G, B)\n"                                  \
    "  hsi   H S I     H as hsv; S = lightness-model saturation x 255;\n"                     \
    "                  I = (max + min) / 2 of R, G, B\n"                                      \
    "  yiq   Y I Q     Y = 0.299 R + 0.587 G + 0.114 B; I, Q = chroma + 127.5\n"              \
    "                  (127 or 128 is no colour)\n"                                            \
    "  yuv   Y U V     Y as yiq; U, V = blue and red difference + 127.5\n"                    \
    "  xyz   X Y Z     tristimulus x 255, white point 0.981, 1, 0.182: white is\n"            \
    "                  about 250, 254, 46 (Z never exceeds 46)\n"                             \
    "  lab   L a b     L = L* x 255 / 100; a = 0..255 for a* -137.7..96.1;\n"                \
    "                  b = 0..255 for b* -75.1..49.5\n"                                       \
    "Every value is truncated toward zero and limited to 0..255.\n"

namespace paximg {

// Exit statuses. A cancelled run exits like a program stopped by Ctrl-C.
enum ExitStatus { kExitOk = 0, kExitFailed = 1, kExitUsage = 2, kExitCancelled = 130 };

// Every failure of the tool is one of these; main() prints it and exits.
struct ToolError : std::runtime_error {
    int status;
    ToolError(int exitStatus, const std::string &message)
        : std::runtime_error(message), status(exitStatus) {}
};
[[noreturn]] void Fail(const std::string &message);       // status 1
[[noreturn]] void UsageError(const std::string &message); // status 2
[[noreturn]] void Cancelled(const std::string &operation); // status 130

// Owns one global memory block (a packed DIB as the library takes it).
using Dib = pax::Image;

// A locked, checked view of a packed DIB. Throws ToolError when the block is
// too small for what its header declares.
class DibView {
public:
    explicit DibView(HGLOBAL block);
    DibView(const DibView &) = delete;
    DibView &operator=(const DibView &) = delete;

    BITMAPINFOHEADER &Header() const { return *reinterpret_cast<BITMAPINFOHEADER *>(base_); }
    int Width() const { return Header().biWidth; }
    int Height() const { return Header().biHeight; }
    int Bits() const { return Header().biBitCount; }
    uint32_t Tag() const { return Header().biCompression; }
    uint32_t TableEntries() const { return entries_; }
    RGBQUAD *Table() const { return reinterpret_cast<RGBQUAD *>(base_ + 40); }
    size_t Stride() const { return stride_; }
    // Row y counted from the top of the picture.
    uint8_t *Row(int y) const { return pixels_ + (size_t)(Height() - 1 - y) * stride_; }
    uint8_t *Base() const { return base_; }
    size_t UsedBytes() const { return used_; }
    // The colour of pixel (x, y) as the picture shows it, for RGB images.
    void PixelRGB(int x, int y, uint8_t rgb[3]) const;

private:
    pax::Lock lock_;
    uint8_t *base_;
    uint8_t *pixels_ = nullptr;
    uint32_t entries_ = 0;
    size_t stride_ = 0;
    size_t used_ = 0;
};

size_t RowStride(int width, int bits);
// A new GHND block with a 40-byte header, `entries` table entries and zeroed rows.
Dib NewDib(int width, int height, int bits, uint32_t entries);

// Images on disk. Reading takes BMP (1, 4, 8, 24, 32 bits, palettes, model
// tags in biCompression), PNG and JPEG. Writing picks the format from the
// extension: .bmp keeps depth, palette and model tag; .png takes RGB images.
// "-" is the standard input or output; written there, the format is `format`
// ("bmp", "png", "jpg").
Dib ReadImage(const std::string &path);
void WriteImage(HGLOBAL dib, const std::string &path, const std::string &format = "bmp");
void SetJpegQuality(int quality); // 1..100, default 90
bool WritableExtension(const std::string &ext);
std::vector<uint8_t> EncodeBmp(HGLOBAL dib);
std::vector<uint8_t> EncodePng(HGLOBAL dib);
// Writes to a temporary name beside the target and renames it into place, so
// a failed or interrupted run never leaves a partial file.
void WriteFileAtomically(const std::string &path, const std::vector<uint8_t> &bytes);
std::string Extension(const std::string &path); // lower case, with the dot
bool FileExists(const std::string &path);

// Conversions between depths for operations that take only some depths.
Dib ExpandTo24(HGLOBAL dib);   // 1/4/8/32-bit RGB image to 24 bits (palette applied)
Dib ToGrey8(HGLOBAL dib);      // any RGB image to 8 bits with a grey palette

// Colour models by name ("rgb", "lab", ...), code 1..9 and model tag.
int ModelByName(const std::string &name); // 0 when unknown
const char *ModelName(int code);           // "rgb" ...
const char *ModelComponents(int code);     // "rgb", "cmyk", "hsv" ... one letter each
int ModelOfTag(uint32_t tag);              // 0 when the value is no model tag

// The library's codes in words.
std::string DescribeConvertError(DWORD code);
std::string DescribeImageStatus(int code);
// Failure of an export that reports through GetLastColorConvertError: code 0
// with a null result after a progress dialog means the user cancelled.
[[noreturn]] void FailWithConvertError(const char *exportName, bool progressShown);
// A failed call through the C++ layer: no code after an interactive call
// (progress or parameter dialog) means the user cancelled.
[[noreturn]] void FailFrom(const pax::Error &error, bool interactive);

// Progress: on Windows only when --progress is given; on Linux when it is
// given or stderr is a terminal (the stand-in then draws a text bar and turns
// Ctrl-C into Cancel).
bool ProgressWanted(bool requested);

// Options. Every option is "--name value" or "--name=value"; flags take no value.
struct OptionSpec {
    const char *name;
    bool takesValue;
};
class Options {
public:
    Options(const std::vector<std::string> &args, const std::vector<OptionSpec> &known);
    bool Has(const std::string &name) const { return values_.count(name) != 0; }
    std::string Get(const std::string &name, const std::string &fallback = "") const;
    long Int(const std::string &name, long lo, long hi, long fallback) const;
    long RequiredInt(const std::string &name, long lo, long hi) const;
    const std::vector<std::string> &Positional() const { return positional_; }
    // Exactly `count` positional arguments, named for the message.
    void ExpectPositional(const std::vector<const char *> &names) const;

private:
    std::map<std::string, std::string> values_;
    std::vector<std::string> positional_;
};
long ParseInt(const std::string &text, const std::string &what, long lo, long hi);
std::vector<long> ParseIntList(const std::string &text, const std::string &what, long lo,
                               long hi);

// Subcommands. Each family's source file registers its own.
struct Command {
    const char *name;
    const char *summary;
    const char *help; // full text printed by --help
    int order;        // place in the command list
    int (*run)(const std::vector<std::string> &args);
};
void RegisterCommand(const Command &command);
const std::vector<Command> &Commands();

// The demo: each family adds images made from the built-in chart.
class DemoContext {
public:
    DemoContext(std::string dir, HGLOBAL chart) : dir_(std::move(dir)), chart_(chart) {}
    HGLOBAL Chart() const { return chart_; } // 24-bit RGB
    // Writes `dib` as <name>.png (RGB images only) and lists it on the sheet.
    void Add(const std::string &name, const std::string &caption, HGLOBAL dib,
             const std::string &section);
    // Lists an image that shows the raw bytes of a converted image as RGB.
    void AddRawBytes(const std::string &name, const std::string &caption, HGLOBAL dib,
                     const std::string &section);
    struct Entry {
        std::string file, caption, section;
    };
    const std::vector<Entry> &Entries() const { return entries_; }
    const std::string &Dir() const { return dir_; }

private:
    std::string dir_;
    HGLOBAL chart_;
    std::vector<Entry> entries_;
};
struct DemoStep {
    int order;
    void (*run)(DemoContext &context);
};
void RegisterDemoStep(const DemoStep &step);
const std::vector<DemoStep> &DemoSteps();

struct Registrar {
    explicit Registrar(const Command &c) { RegisterCommand(c); }
    explicit Registrar(const DemoStep &s) { RegisterDemoStep(s); }
};

// Helpers shared by the subcommands: "IN OUT" plus options, help handling.
bool WantsHelp(const std::vector<std::string> &args);
int PrintHelp(const char *commandName);

} // namespace paximg

#endif

namespace paximg {
// The usual shape of an image command: read INPUT, write OUTPUT; or several
// inputs into --output-dir DIR, each named as its input with the extension
// of --format. "-" is the standard input or output (--format, default bmp).
// Every image command takes --output-dir, --format and --quality (JPEG).
std::vector<OptionSpec> ImageOptions(std::vector<OptionSpec> own);
struct ImageJob {
    std::string input, output, format; // format: ".bmp", ".png", ".jpg" ...
};
std::vector<ImageJob> ImageJobs(const Options &options); // checked before any work
// Runs `operation` on every input and writes its result. In a batch a file
// that fails is reported and the others go on (exit 1 at the end); a usage
// error or Cancel stops at once.
int ForEachImage(const Options &options,
                 const std::function<Dib(Dib image, const std::string &path)> &operation);
void CheckOutputName(const std::string &path); // .bmp, .png or .jpg, before any work
Dib LoadImage24(Dib image, const std::string &path); // RGB at 24 bits (palettes applied)
// The command being run, for messages ("convert").
void SetCommandName(const std::string &name);
const std::string &CommandName();
// Progress request: --progress on Windows; on Linux also a terminal on stderr.
bool ProgressOption(const Options &options);
// Warns when the parameter dialog was asked for but is not installed.
void NoteDialogEntry(bool dialogAsked);
} // namespace paximg
