// paximg end to end: the test starts the built tool as a user would and
// checks its files, messages and exit statuses. Expected images come from the
// library itself, loaded at run time the way a host loads it and called on
// the same packed DIB that the tool is given, so the test proves that the
// tool hands its images and arguments over exactly. A subcommand is expected
// exactly when the exports it needs are in the module definition.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#define STBI_WRITE_NO_STDIO
#include "stb_image_write.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<uint8_t>;

std::string OwnFolder() {
    char path[4096] = {};
#ifdef _WIN32
    DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    std::string p(path, n);
    return p.substr(0, p.find_last_of("\\/") + 1);
#else
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    std::string p = n > 0 ? std::string(path, (size_t)n) : std::string("./x");
    return p.substr(0, p.find_last_of('/') + 1);
#endif
}

// ---------------------------------------------------------------------------
// The library, loaded as a host loads it.

#ifdef _WIN32
#define PAX_CALL WINAPI
using Handle = HGLOBAL;
#else
#define PAX_CALL
using Handle = void *;
#endif

class Library {
public:
    Library() {
#ifdef _WIN32
        module_ = LoadLibraryA((OwnFolder() + "PAXIMGUser.dll").c_str());
        alloc_ = GlobalAlloc;
        lock_ = GlobalLock;
        unlock_ = GlobalUnlock;
        free_ = GlobalFree;
        size_ = GlobalSize;
#else
        module_ = dlopen((OwnFolder() + "libPAXIMGUser.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        alloc_ = Get<AllocFn>("GlobalAlloc");
        lock_ = Get<LockFn>("GlobalLock");
        unlock_ = Get<UnlockFn>("GlobalUnlock");
        free_ = Get<FreeFn>("GlobalFree");
        size_ = Get<SizeFn>("GlobalSize");
#endif
    }
    bool Loaded() const { return module_ && alloc_ && lock_ && unlock_ && free_ && size_; }
    template <typename F> F Get(const char *name) const {
        if (!module_) return nullptr;
#ifdef _WIN32
        return reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(module_, name)));
#else
        return reinterpret_cast<F>(dlsym(module_, name));
#endif
    }
    // A GHND block holding these bytes.
    Handle ToBlock(const Bytes &bytes) const {
        Handle h = alloc_(0x0042, bytes.size());
        if (!h) return nullptr;
        void *p = lock_(h);
        std::memcpy(p, bytes.data(), bytes.size());
        unlock_(h);
        return h;
    }
    Bytes FromBlock(Handle h) const {
        Bytes out(size_(h));
        void *p = lock_(h);
        if (p) std::memcpy(out.data(), p, out.size());
        unlock_(h);
        return out;
    }
    void Free(Handle h) const {
        if (h) free_(h);
    }

private:
    using AllocFn = Handle(PAX_CALL *)(unsigned, size_t);
    using LockFn = void *(PAX_CALL *)(Handle);
    using UnlockFn = int(PAX_CALL *)(Handle);
    using FreeFn = Handle(PAX_CALL *)(Handle);
    using SizeFn = size_t(PAX_CALL *)(Handle);
#ifdef _WIN32
    HMODULE module_ = nullptr;
#else
    void *module_ = nullptr;
#endif
    AllocFn alloc_ = nullptr;
    LockFn lock_ = nullptr;
    UnlockFn unlock_ = nullptr;
    FreeFn free_ = nullptr;
    SizeFn size_ = nullptr;
};

const Library &Lib() {
    static Library library;
    return library;
}

std::set<std::string> DefinedExports() {
    std::set<std::string> names;
    std::ifstream in(OwnFolder() + "PAXIMGUser.def");
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line.substr(0, line.find(';')));
        std::string name, at;
        if (words >> name >> at && !at.empty() && at[0] == '@') names.insert(name);
    }
    return names;
}

bool Have(const std::string &name) {
    static const std::set<std::string> names = DefinedExports();
    return names.count(name) != 0;
}

// ---------------------------------------------------------------------------
// Packed DIBs and BMP files, written out plainly.

uint32_t Le32(const uint8_t *p) { return p[0] | p[1] << 8 | p[2] << 16 | (uint32_t)p[3] << 24; }
void Put32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = (uint8_t)(v >> (8 * i));
}
void Put16(uint8_t *p, uint32_t v) {
    p[0] = (uint8_t)v;
    p[1] = (uint8_t)(v >> 8);
}
size_t Stride(int width, int bits) { return ((size_t)width * bits + 31) / 32 * 4; }

struct Rgb {
    uint8_t r, g, b;
};

// A packed DIB: 40-byte header, `table`, rows bottom-up. pixel(x, y) gives the
// stored bytes of one pixel (y = 0 the top row), or its palette index.
Bytes MakeDib(int w, int h, int bits, const std::vector<Rgb> &table,
              const std::function<uint32_t(int x, int y)> &pixel, uint32_t compression = 0) {
    const size_t stride = Stride(w, bits);
    Bytes d(40 + table.size() * 4 + stride * h);
    Put32(&d[0], 40);
    Put32(&d[4], (uint32_t)w);
    Put32(&d[8], (uint32_t)h);
    Put16(&d[12], 1);
    Put16(&d[14], (uint32_t)bits);
    Put32(&d[16], compression);
    Put32(&d[20], (uint32_t)(stride * h));
    Put32(&d[24], 2835);
    Put32(&d[28], 2835);
    Put32(&d[32], bits <= 8 && table.size() != (1u << bits) ? (uint32_t)table.size() : 0);
    for (size_t i = 0; i < table.size(); ++i) {
        d[40 + 4 * i] = table[i].b;
        d[41 + 4 * i] = table[i].g;
        d[42 + 4 * i] = table[i].r;
    }
    uint8_t *pixels = &d[40 + table.size() * 4];
    for (int y = 0; y < h; ++y) {
        uint8_t *row = pixels + (size_t)(h - 1 - y) * stride;
        for (int x = 0; x < w; ++x) {
            uint32_t v = pixel(x, y);
            if (bits >= 24)
                for (int k = 0; k < bits / 8; ++k) row[x * (bits / 8) + k] = (uint8_t)(v >> (8 * k));
            else if (bits == 8) row[x] = (uint8_t)v;
            else if (bits == 4) row[x / 2] |= (uint8_t)(v << (x % 2 ? 0 : 4));
            else row[x / 8] |= (uint8_t)(v << (7 - x % 8));
        }
    }
    return d;
}

// The colours used by the small test image: asymmetric, with a few pixels near
// skin and pure red, in an odd width so every depth pads its rows.
Rgb TestColour(int x, int y) {
    if (x == 2 && y == 1) return {200, 100, 50};
    if (x == 3 && y == 1) return {210, 95, 45};
    if (x == 4 && y == 2) return {255, 0, 0};
    return {(uint8_t)(x * 19 + 7), (uint8_t)(y * 37 + 3), (uint8_t)((x * y * 11 + 50) % 256)};
}
constexpr int kW = 13, kH = 7;

Bytes TestDib24() {
    return MakeDib(kW, kH, 24, {}, [](int x, int y) {
        Rgb c = TestColour(x, y);
        return (uint32_t)c.b | (uint32_t)c.g << 8 | (uint32_t)c.r << 16;
    });
}

std::vector<Rgb> GreyTable(int entries) {
    std::vector<Rgb> t;
    for (int i = 0; i < entries; ++i) {
        uint8_t v = (uint8_t)(i * 255 / (entries - 1));
        t.push_back({v, v, v});
    }
    return t;
}

Bytes TestDibGrey8() {
    return MakeDib(kW, kH, 8, GreyTable(256), [](int x, int y) { return (uint32_t)((x * 23 + y * 41) % 256); });
}

Bytes BmpFile(const Bytes &dib) {
    Bytes f(14 + dib.size());
    f[0] = 'B';
    f[1] = 'M';
    Put32(&f[2], (uint32_t)(14 + dib.size()));
    uint32_t clrUsed = Le32(&dib[32]);
    uint32_t bits = dib[14] | dib[15] << 8;
    uint32_t entries = bits <= 8 ? (clrUsed ? clrUsed : 1u << bits) : 0;
    Put32(&f[10], 14 + 40 + entries * 4);
    std::copy(dib.begin(), dib.end(), f.begin() + 14);
    return f;
}

struct Dib {
    int width = 0, height = 0, bits = 0;
    uint32_t compression = 0, clrUsed = 0;
    std::vector<Rgb> table;
    Bytes pixels; // stride x height, bottom-up, as stored
    bool operator==(const Dib &o) const {
        if (table.size() != o.table.size()) return false;
        for (size_t i = 0; i < table.size(); ++i)
            if (table[i].r != o.table[i].r || table[i].g != o.table[i].g || table[i].b != o.table[i].b)
                return false;
        return width == o.width && height == o.height && bits == o.bits &&
               compression == o.compression && pixels == o.pixels;
    }
    Rgb At(int x, int y) const {
        const uint8_t *row = &pixels[(size_t)(height - 1 - y) * Stride(width, bits)];
        if (bits >= 24) {
            const uint8_t *p = row + x * (bits / 8);
            return {p[2], p[1], p[0]};
        }
        unsigned i = bits == 8 ? row[x] : bits == 4 ? (row[x / 2] >> (x % 2 ? 0 : 4)) & 15 : (row[x / 8] >> (7 - x % 8)) & 1;
        return i < table.size() ? table[i] : Rgb{0, 0, 0};
    }
};
std::ostream &operator<<(std::ostream &o, const Dib &d) {
    return o << d.width << "x" << d.height << "x" << d.bits << " tag " << d.compression;
}

// A packed DIB (40-byte header) as a Dib; `ok` false when it does not hold one.
Dib ParseDib(const uint8_t *d, size_t size, bool &ok) {
    Dib out;
    ok = false;
    if (size < 40 || Le32(d) != 40) return out;
    out.width = (int32_t)Le32(d + 4);
    out.height = (int32_t)Le32(d + 8);
    out.bits = d[14] | d[15] << 8;
    out.compression = Le32(d + 16);
    out.clrUsed = Le32(d + 32);
    if (out.width <= 0 || out.height <= 0) return out;
    uint32_t entries = out.clrUsed ? out.clrUsed : (out.bits <= 8 ? 1u << out.bits : 0);
    size_t at = 40 + entries * 4, need = at + Stride(out.width, out.bits) * out.height;
    if (need > size) return out;
    for (uint32_t i = 0; i < entries; ++i) out.table.push_back({d[42 + 4 * i], d[41 + 4 * i], d[40 + 4 * i]});
    out.pixels.assign(d + at, d + need);
    ok = true;
    return out;
}

void Append(Bytes &to, const void *data, int size) {
    if (size <= 0) return;
    const size_t at = to.size();
    to.resize(at + (size_t)size);
    std::memcpy(&to[at], data, (size_t)size);
}

Bytes ReadFile(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
void WriteFile(const fs::path &path, const Bytes &bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char *>(bytes.data()), (std::streamsize)bytes.size());
}

// A BMP file written by the tool: file header, then a packed DIB.
Dib ReadBmp(const fs::path &path) {
    Bytes f = ReadFile(path);
    bool ok = false;
    Dib d;
    if (f.size() >= 14 && f[0] == 'B' && f[1] == 'M') {
        d = ParseDib(f.data() + 14, f.size() - 14, ok);
        if (ok) {
            uint32_t entries = (uint32_t)d.table.size();
            EXPECT_EQ(Le32(&f[10]), 14 + 40 + entries * 4) << path;
            EXPECT_EQ(Le32(&f[2]), f.size()) << path;
        }
    }
    EXPECT_TRUE(ok) << path << " is not a BMP file";
    return d;
}

// The result block of a library call, as a Dib; frees the block.
Dib TakeResult(Handle h) {
    EXPECT_NE(h, nullptr) << "the library refused the reference call";
    if (!h) return {};
    Bytes b = Lib().FromBlock(h);
    Lib().Free(h);
    bool ok = false;
    Dib d = ParseDib(b.data(), b.size(), ok);
    EXPECT_TRUE(ok);
    return d;
}

// ---------------------------------------------------------------------------
// Running the tool.

struct ToolRun {
    int status = -1;
    bool crashed = false;
    std::string output; // stdout and stderr together
};

fs::path g_dir; // the test's scratch folder

std::string ToolPath() {
#ifdef _WIN32
    return OwnFolder() + "paximg.exe";
#else
    return OwnFolder() + "paximg";
#endif
}

ToolRun RunTool(const std::vector<std::string> &args) {
    ToolRun result;
    const fs::path log = g_dir / "tool-output.txt";
#ifdef _WIN32
    std::string command = "\"" + ToolPath() + "\"";
    for (const std::string &a : args) command += " \"" + a + "\"";
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE out = CreateFileA(log.string().c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    HANDLE in = CreateFileA("NUL", GENERIC_READ, 0, &inherit, OPEN_EXISTING, 0, nullptr);
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = in;
    si.hStdOutput = out;
    si.hStdError = out;
    PROCESS_INFORMATION pi = {};
    std::vector<char> line(command.begin(), command.end());
    line.push_back(0);
    if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi)) {
        WaitForSingleObject(pi.hProcess, INFINITE);
        DWORD code = 0;
        GetExitCodeProcess(pi.hProcess, &code);
        result.status = (int)code;
        result.crashed = code >= 0xC0000000u;
        CloseHandle(pi.hProcess);
        CloseHandle(pi.hThread);
    }
    CloseHandle(out);
    if (in != INVALID_HANDLE_VALUE) CloseHandle(in);
#else
    std::vector<std::string> all = {ToolPath()};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        FILE *f = std::fopen(log.c_str(), "wb");
        if (f) {
            dup2(fileno(f), 1);
            dup2(fileno(f), 2);
        }
        FILE *null = std::fopen("/dev/null", "rb");
        if (null) dup2(fileno(null), 0);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    else result.crashed = true, result.status = 128 + WTERMSIG(status);
#endif
    Bytes text = ReadFile(log);
    result.output.assign(text.begin(), text.end());
    return result;
}

std::string Describe(const ToolRun &r) {
    return "status " + std::to_string(r.status) + ", output:\n" + r.output;
}

fs::path Path(const std::string &name) { return g_dir / name; }
std::string P(const std::string &name) { return Path(name).string(); }

// No file of the folder is a left-over temporary.
void ExpectNoTemporaries() {
    for (const auto &e : fs::directory_iterator(g_dir))
        EXPECT_EQ(e.path().filename().string().find(".partial-"), std::string::npos) << e.path();
}

class ScratchFolder : public testing::Environment {
public:
    void SetUp() override {
#ifdef _WIN32
        const std::string id = std::to_string(GetCurrentProcessId());
#else
        const std::string id = std::to_string(getpid());
#endif
        g_dir = fs::temp_directory_path() / ("paximg-tests-" + id);
        fs::remove_all(g_dir);
        fs::create_directories(g_dir);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(g_dir, ignored);
    }
};
const testing::Environment *const kScratch = testing::AddGlobalTestEnvironment(new ScratchFolder);

class Paximg : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(fs::exists(ToolPath())) << ToolPath();
        ASSERT_TRUE(Lib().Loaded());
    }
    // Runs the tool and expects success.
    static void Ok(const std::vector<std::string> &args) {
        ToolRun r = RunTool(args);
        EXPECT_EQ(r.status, 0) << Describe(r);
    }
    // Runs the tool and expects a message, the status, and no file at `output`.
    static ToolRun Refused(const std::vector<std::string> &args, int status, const std::string &message,
                       const std::string &output) {
        fs::remove(Path(output));
        ToolRun r = RunTool(args);
        EXPECT_FALSE(r.crashed) << Describe(r);
        EXPECT_EQ(r.status, status) << Describe(r);
        EXPECT_NE(r.output.find(message), std::string::npos) << "wanted '" << message << "'; " << Describe(r);
        EXPECT_FALSE(fs::exists(Path(output))) << output;
        ExpectNoTemporaries();
        return r;
    }
    static void WriteInput(const std::string &name, const Bytes &dib) { WriteFile(Path(name), BmpFile(dib)); }
};

// ---------------------------------------------------------------------------

TEST_F(Paximg, HelpListsTheCommandsOfTheBuild) {
    ToolRun r = RunTool({"--help"});
    ASSERT_EQ(r.status, 0) << Describe(r);
    const std::map<std::string, bool> commands = {
        {"version", true},
        {"demo", true},
        {"color", Have("RGBtoLAB")},
        {"convert", Have("ConvertDIBColorSpace")},
        {"split", Have("SplitColorChannels")},
        {"hue-saturation", Have("ColorHueSaturation")},
        {"desaturate", Have("Desaturate")},
        {"replace-color", Have("ReplaceColor")},
        {"cmyk-levels", Have("ColorCMYKLevels")},
        {"brightness-contrast", Have("ColorBrightnessContrast")},
        {"gamma", Have("GammaCorrection")},
        {"convolve", Have("ColorConvolution")},
        {"dither", Have("DitherFS4")},
        {"ordered", Have("DitherOrdered")},
    };
    for (const auto &c : commands) {
        EXPECT_EQ(r.output.find("\n  " + c.first + " ") != std::string::npos, c.second) << c.first;
        if (!c.second) continue;
        ToolRun help = RunTool({c.first, "--help"});
        EXPECT_EQ(help.status, 0) << c.first;
        EXPECT_NE(help.output.find("Usage: paximg " + c.first), std::string::npos) << help.output;
    }
    ToolRun none = RunTool({});
    EXPECT_EQ(none.status, 2);
    EXPECT_NE(none.output.find("Usage:"), std::string::npos);
}

TEST_F(Paximg, VersionIsTheLibrarys) {
    ToolRun r = RunTool({"version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.output.find("Version 12.08"), std::string::npos) << r.output;
}

TEST_F(Paximg, DemoWritesEveryExpectedFile) {
    const fs::path dir = Path("demo");
    ToolRun r = RunTool({"demo", dir.string()});
    ASSERT_EQ(r.status, 0) << Describe(r);
    std::vector<std::string> expected = {"chart"};
    auto add = [&](bool have, std::vector<std::string> names) {
        if (have) expected.insert(expected.end(), names.begin(), names.end());
    };
    add(Have("ConvertDIBColorSpace"),
        {"convert-lab", "convert-lab-rgb", "convert-hsv", "convert-hsv-rgb", "convert-yiq",
         "convert-yiq-rgb", "convert-cmyk", "convert-cmyk-rgb"});
    add(Have("SplitColorChannels"), {"split-hsv-h", "split-hsv-s", "split-hsv-v"});
    add(Have("ColorHueSaturation"), {"hue-saturation-hue120", "hue-saturation-sat-128", "hue-saturation-range"});
    add(Have("Desaturate"), {"desaturate"});
    add(Have("ReplaceColor"), {"replace-color-skin", "replace-color-red"});
    add(Have("ColorCMYKLevels"), {"cmyk-levels-cyan60", "cmyk-levels-magenta-100", "cmyk-levels-black50"});
    add(Have("ColorBrightnessContrast"),
        {"brightness40-contrast0", "brightness0-contrast50", "brightness-30-contrast-40"});
    add(Have("GammaCorrection"), {"gamma50", "gamma200", "gamma-blue250"});
    add(Have("ColorConvolution"), {"convolve-sharpen3", "convolve-sharpen-full3", "convolve-mean5",
                                   "convolve-smooth5", "convolve-edges", "convolve-emboss"});
    for (const char *m : {"fs4", "burkes", "sierra", "jjn", "stucki", "sa", "sharp", "smooth"}) {
        const std::string name = std::string("Dither") + (std::string(m) == "fs4" ? "FS4" : std::string(m) == "jjn" ? "JJN" : std::string(m) == "sa" ? "SA" : std::string(1, (char)std::toupper(m[0])) + (m + 1));
        add(Have(name), {std::string("dither-") + m + "-1"});
    }
    add(Have("DitherFS4"), {"dither-fs4-4", "dither-fs4-8"});
    add(Have("DitherSharp"), {"dither-sharp-4"});
    if (Have("DitherOrdered"))
        for (int t = 0; t <= 6; ++t) expected.push_back("ordered-" + std::to_string(t));

    Bytes html = ReadFile(dir / "index.html");
    const std::string page(html.begin(), html.end());
    ASSERT_FALSE(page.empty());
    EXPECT_NE(page.find("<html"), std::string::npos);
    std::set<std::string> files;
    for (const auto &e : fs::directory_iterator(dir)) files.insert(e.path().filename().string());
    for (const std::string &name : expected) {
        const std::string file = name + ".png";
        EXPECT_TRUE(files.count(file)) << file;
        EXPECT_NE(page.find("src=\"" + file + "\""), std::string::npos) << file << " not on the sheet";
        Bytes png = ReadFile(dir / file);
        ASSERT_GE(png.size(), 8u) << file;
        EXPECT_EQ(std::memcmp(png.data(), "\x89PNG\r\n\x1a\n", 8), 0) << file;
    }
    // Nothing else: every file is an expected image or the sheet.
    EXPECT_EQ(files.size(), expected.size() + 1);
    // One caption per image.
    size_t captions = 0;
    for (size_t at = page.find("<figcaption>"); at != std::string::npos; at = page.find("<figcaption>", at + 1))
        ++captions;
    EXPECT_EQ(captions, expected.size());
}

// Every depth the library takes, palettes, top-down rows and old core headers
// are read into the same pixels; the tool writes them back as 24-bit RGB.
TEST_F(Paximg, ReadsEveryBmpDepth) {
    if (!Have("ConvertDIBColorSpace")) GTEST_SKIP() << "no image conversion in this build";
    std::vector<Rgb> table16;
    for (int i = 0; i < 16; ++i) table16.push_back({(uint8_t)(i * 16), (uint8_t)(255 - i * 9), (uint8_t)(i * i)});
    struct Case {
        std::string name;
        Bytes dib;
        std::function<Rgb(int, int)> colour;
    };
    std::vector<Case> cases = {
        {"d1", MakeDib(kW, kH, 1, {{10, 20, 30}, {200, 150, 100}}, [](int x, int y) { return (uint32_t)((x + 2 * y) % 3 == 0); }),
         [](int x, int y) { return (x + 2 * y) % 3 == 0 ? Rgb{200, 150, 100} : Rgb{10, 20, 30}; }},
        {"d4", MakeDib(kW, kH, 4, table16, [](int x, int y) { return (uint32_t)((x * 3 + y) % 16); }),
         [&](int x, int y) { return table16[(x * 3 + y) % 16]; }},
        {"d8", MakeDib(kW, kH, 8, GreyTable(200), [](int x, int y) { return (uint32_t)((x * 17 + y * 5) % 200); }),
         [](int x, int y) { return GreyTable(200)[(x * 17 + y * 5) % 200]; }},
        {"d32", MakeDib(kW, kH, 32, {}, [](int x, int y) { Rgb c = TestColour(x, y); return (uint32_t)c.b | c.g << 8 | c.r << 16 | 0x7Fu << 24; }),
         TestColour},
    };
    for (Case &c : cases) {
        WriteInput(c.name + ".bmp", c.dib);
        Ok({"convert", "--from", "rgb", "--to", "rgb", P(c.name + ".bmp"), P(c.name + "-out.bmp")});
        Dib out = ReadBmp(Path(c.name + "-out.bmp"));
        ASSERT_EQ(out.bits, 24) << c.name;
        ASSERT_EQ(out.width, kW);
        ASSERT_EQ(out.height, kH);
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                Rgb got = out.At(x, y), want = c.colour(x, y);
                ASSERT_TRUE(got.r == want.r && got.g == want.g && got.b == want.b) << c.name << " at " << x << "," << y;
            }
    }
    // Top-down rows (negative height) and a core header with 3-byte entries.
    Bytes dib = TestDib24();
    Bytes topDown = dib;
    Put32(&topDown[8], (uint32_t)-kH);
    const size_t stride = Stride(kW, 24);
    for (int y = 0; y < kH; ++y)
        std::memcpy(&topDown[40 + y * stride], &dib[40 + (kH - 1 - y) * stride], stride);
    WriteInput("topdown.bmp", topDown);
    Ok({"convert", "--to", "rgb", P("topdown.bmp"), P("topdown-out.bmp")});
    bool ok = false;
    EXPECT_EQ(ReadBmp(Path("topdown-out.bmp")), ParseDib(dib.data(), dib.size(), ok));

    Bytes core(14 + 12 + 2 * 3 + Stride(kW, 1) * kH);
    core[0] = 'B';
    core[1] = 'M';
    Put32(&core[10], 14 + 12 + 6);
    Put32(&core[14], 12);
    Put16(&core[18], kW);
    Put16(&core[20], kH);
    Put16(&core[22], 1);
    Put16(&core[24], 1);
    const uint8_t entries[6] = {0, 0, 255, 255, 0, 0}; // red, then blue, as B, G, R
    std::memcpy(&core[26], entries, 6);
    for (int y = 0; y < kH; ++y) core[32 + y * Stride(kW, 1)] = 0x80; // leftmost pixel of each row: entry 1
    WriteFile(Path("core.bmp"), core);
    Ok({"convert", "--to", "rgb", P("core.bmp"), P("core-out.bmp")});
    Dib c = ReadBmp(Path("core-out.bmp"));
    ASSERT_EQ(c.bits, 24);
    EXPECT_EQ(c.At(0, 3).b, 255);
    EXPECT_EQ(c.At(1, 3).r, 255);
}

TEST_F(Paximg, RoundTripThroughLab) {
    if (!Have("ConvertDIBColorSpace")) GTEST_SKIP();
    WriteInput("rt.bmp", TestDib24());
    Ok({"convert", "--from", "rgb", "--to", "lab", P("rt.bmp"), P("rt-lab.bmp")});
    Dib lab = ReadBmp(Path("rt-lab.bmp"));
    EXPECT_EQ(lab.compression, 17u) << "the Lab tag is kept in the BMP header";
    EXPECT_EQ(lab.bits, 24);
    // The tag alone says what the file holds: --from is not needed to go back.
    Ok({"convert", "--to", "rgb", P("rt-lab.bmp"), P("rt-back.bmp")});
    Ok({"convert", "--from", "lab", "--to", "rgb", P("rt-lab.bmp"), P("rt-back2.bmp")});
    Dib back = ReadBmp(Path("rt-back.bmp"));
    EXPECT_EQ(back.compression, 0u);
    EXPECT_EQ(back, ReadBmp(Path("rt-back2.bmp")));

    // The same two conversions made here through the library.
    using ConvertFn = Handle(PAX_CALL *)(Handle, int, int, int, void *);
    auto convert = Lib().Get<ConvertFn>("ConvertDIBColorSpace");
    Handle source = Lib().ToBlock(TestDib24());
    Handle toLab = convert(source, 1, 9, 0, nullptr);
    ASSERT_NE(toLab, nullptr);
    Handle toRgb = convert(toLab, 9, 1, 0, nullptr);
    Lib().Free(source);
    EXPECT_EQ(lab, TakeResult(toLab));
    EXPECT_EQ(back, TakeResult(toRgb));

    // A PNG cannot hold Lab values.
    Refused({"convert", "--to", "lab", P("rt.bmp"), P("rt-lab.png")}, 2, "cannot be a PNG", "rt-lab.png");
    // CMYK images are 32-bit and tagged 12.
    Ok({"convert", "--to", "cmyk", P("rt.bmp"), P("rt-cmyk.bmp")});
    Dib cmyk = ReadBmp(Path("rt-cmyk.bmp"));
    EXPECT_EQ(cmyk.bits, 32);
    EXPECT_EQ(cmyk.compression, 12u);
    Ok({"convert", "--to", "rgb", P("rt-cmyk.bmp"), P("rt-cmyk-back.png")});
}

TEST_F(Paximg, PngAndJpegInput) {
    if (!Have("ConvertDIBColorSpace")) GTEST_SKIP();
    WriteInput("p.bmp", TestDib24());
    Ok({"convert", "--to", "rgb", P("p.bmp"), P("p.png")});
    Ok({"convert", "--to", "rgb", P("p.png"), P("p-back.bmp")});
    bool ok = false;
    Bytes dib = TestDib24();
    EXPECT_EQ(ReadBmp(Path("p-back.bmp")), ParseDib(dib.data(), dib.size(), ok)) << "PNG is lossless";

    // A JPEG and a grey PNG with alpha, made here.
    std::vector<uint8_t> rgb(kW * kH * 3), ga(kW * kH * 2);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            Rgb c = TestColour(x, y);
            rgb[(y * kW + x) * 3] = c.r;
            rgb[(y * kW + x) * 3 + 1] = c.g;
            rgb[(y * kW + x) * 3 + 2] = c.b;
            ga[(y * kW + x) * 2] = (uint8_t)(x * 20);
            ga[(y * kW + x) * 2 + 1] = x < 6 ? 255 : 0;
        }
    Bytes jpeg, greyPng;
    auto sink = [](void *context, void *data, int size) { Append(*static_cast<Bytes *>(context), data, size); };
    ASSERT_TRUE(stbi_write_jpg_to_func(sink, &jpeg, kW, kH, 3, rgb.data(), 90));
    ASSERT_TRUE(stbi_write_png_to_func(sink, &greyPng, kW, kH, 2, ga.data(), kW * 2));
    WriteFile(Path("j.jpg"), jpeg);
    WriteFile(Path("g.png"), greyPng);
    Ok({"convert", "--to", "rgb", P("j.jpg"), P("j.bmp")});
    Dib j = ReadBmp(Path("j.bmp"));
    EXPECT_EQ(j.width, kW);
    EXPECT_EQ(j.height, kH);
    EXPECT_EQ(j.bits, 24);
    Ok({"convert", "--to", "rgb", P("g.png"), P("g.bmp")});
    Dib g = ReadBmp(Path("g.bmp"));
    ASSERT_EQ(g.bits, 24) << "grey images are given to the conversion as 24-bit RGB";
    EXPECT_EQ(g.At(3, 2).r, 60);
    EXPECT_EQ(g.At(3, 2).b, 60);
    EXPECT_EQ(g.At(10, 2).g, 255) << "transparent pixels are laid over white";
}

// Each image command, compared with the same call made here.
class Commands : public Paximg {
protected:
    void SetUp() override {
        Paximg::SetUp();
        WriteInput("in.bmp", TestDib24());
        WriteInput("grey.bmp", TestDibGrey8());
    }
    // Runs the tool on in.bmp and the reference on the same DIB.
    void Compare(const std::vector<std::string> &options, const std::function<Handle(Handle)> &call,
                 const Bytes &input = TestDib24(), const std::string &inputFile = "in.bmp") {
        std::vector<std::string> args = options;
        args.push_back(P(inputFile));
        args.push_back(P("out.bmp"));
        fs::remove(Path("out.bmp"));
        ToolRun r = RunTool(args);
        ASSERT_EQ(r.status, 0) << options[0] << ": " << Describe(r);
        Handle source = Lib().ToBlock(input);
        Dib expected = TakeResult(call(source));
        Lib().Free(source);
        EXPECT_EQ(ReadBmp(Path("out.bmp")), expected) << options[0];
    }
};

TEST_F(Commands, HueBasedAdjustments) {
    if (Have("ColorHueSaturation")) {
        using Fn = Handle(PAX_CALL *)(Handle, int, int, int, unsigned, unsigned, int, void *);
        auto fn = Lib().Get<Fn>("ColorHueSaturation");
        Compare({"hue-saturation", "--hue", "30", "--saturation", "40", "--lightness", "-10",
                 "--hue-from", "10", "--hue-to", "200"},
                [&](Handle h) { return fn(h, 30, 40, -10, 10, 200, 0, nullptr); });
    }
    if (Have("Desaturate")) {
        using Fn = Handle(PAX_CALL *)(Handle, int, void *);
        auto fn = Lib().Get<Fn>("Desaturate");
        Compare({"desaturate"}, [&](Handle h) { return fn(h, 0, nullptr); });
    }
    if (Have("ReplaceColor")) {
        using Fn = Handle(PAX_CALL *)(Handle, const uint8_t *, const uint8_t *, int, int, int, int, void *);
        auto fn = Lib().Get<Fn>("ReplaceColor");
        // The target goes to the library in pixel order (B, G, R), the tolerance as R, G, B.
        const uint8_t target[3] = {50, 100, 200}, tolerance[3] = {30, 20, 10};
        Compare({"replace-color", "--target", "200,100,50", "--tolerance", "30,20,10", "--hue", "90",
                 "--saturation", "10", "--lightness", "5"},
                [&](Handle h) { return fn(h, target, tolerance, 90, 10, 5, 0, nullptr); });
        Compare({"replace-color", "--target", "#C86432", "--tolerance", "30,20,10", "--hue", "90",
                 "--saturation", "10", "--lightness", "5"},
                [&](Handle h) { return fn(h, target, tolerance, 90, 10, 5, 0, nullptr); });
    }
    if (Have("ColorCMYKLevels")) {
        using Fn = Handle(PAX_CALL *)(Handle, int, int, int, int, int, void *);
        auto fn = Lib().Get<Fn>("ColorCMYKLevels");
        Compare({"cmyk-levels", "--cyan", "20", "--magenta", "-30", "--yellow", "40", "--black", "-50"},
                [&](Handle h) { return fn(h, 20, -30, 40, -50, 0, nullptr); });
    }
}

TEST_F(Commands, ToneAndFilters) {
    if (Have("ColorBrightnessContrast")) {
        using Fn = Handle(PAX_CALL *)(Handle, short, short, int);
        auto fn = Lib().Get<Fn>("ColorBrightnessContrast");
        Compare({"brightness-contrast", "--brightness", "25", "--contrast", "-15"},
                [&](Handle h) { return fn(h, 25, -15, 0); });
        // A palette image keeps its pixels and gets a new table.
        Compare({"brightness-contrast", "--brightness", "-40", "--contrast", "60"},
                [&](Handle h) { return fn(h, -40, 60, 0); }, TestDibGrey8(), "grey.bmp");
    }
    if (Have("GammaCorrection")) {
        using Fn = Handle(PAX_CALL *)(Handle, int, int, int, int, void *);
        auto fn = Lib().Get<Fn>("GammaCorrection");
        Compare({"gamma", "--gamma-red", "80", "--gamma-green", "120", "--gamma-blue", "250"},
                [&](Handle h) { return fn(h, 80, 120, 250, 0, nullptr); });
        Compare({"gamma", "--gamma", "45"}, [&](Handle h) { return fn(h, 45, 45, 45, 0, nullptr); });
    }
    if (Have("ColorConvolution")) {
        using Fn = Handle(PAX_CALL *)(Handle, int, int, short, short, const char *, const short *, int *, int, void *);
        auto fn = Lib().Get<Fn>("ColorConvolution");
        int status = -1;
        Compare({"convolve", "--type", "sharpen", "--size", "5"},
                [&](Handle h) { return fn(h, 1, 0, 5, 5, nullptr, nullptr, &status, 0, nullptr); });
        Compare({"convolve", "--type", "smooth", "--size", "3", "--in-place"},
                [&](Handle h) { return fn(h, 1, 0, 4, 3, nullptr, nullptr, &status, 0, nullptr); });
        const short kernel[10] = {1, 2, 1, 2, 4, 2, 1, 2, 1, 16};
        Compare({"convolve", "--kernel", "1,2,1,2,4,2,1,2,1,16", "--intensity", "weighted"},
                [&](Handle h) { return fn(h, 1, 1, 1, 3, nullptr, kernel, &status, 0, nullptr); });
        // The same list in a filter file: little-endian 16-bit values.
        const short sharpen[10] = {0, -1, 0, -1, 5, -1, 0, -1, 0, 1};
        Bytes file;
        for (short v : sharpen) {
            file.push_back((uint8_t)(v & 0xFF));
            file.push_back((uint8_t)((uint16_t)v >> 8));
        }
        WriteFile(Path("sharpen.flt"), file);
        const std::string path = P("sharpen.flt");
        Compare({"convolve", "--filter-file", path, "--size", "3"},
                [&](Handle h) { return fn(h, 1, 0, 2, 3, path.c_str(), nullptr, &status, 0, nullptr); });
        // The library's own refusal comes back in words: size 4 is not a built-in size.
        Refused({"convolve", "--type", "mean", "--size", "4", P("in.bmp"), P("bad.bmp")}, 1,
                "IMS_BADPARAM", "bad.bmp");
    }
}

TEST_F(Commands, Dithers) {
    using Fn = Handle(PAX_CALL *)(Handle, int);
    struct Method {
        const char *name, *exportName;
        std::vector<int> bits;
    };
    const Method methods[] = {{"fs4", "DitherFS4", {1, 4, 8}},       {"burkes", "DitherBurkes", {1, 4, 8}},
                              {"sierra", "DitherSierra", {1, 4, 8}}, {"jjn", "DitherJJN", {1, 4, 8}},
                              {"stucki", "DitherStucki", {1, 4, 8}}, {"sa", "DitherSA", {1, 4, 8}},
                              {"sharp", "DitherSharp", {1, 4}},      {"smooth", "DitherSmooth", {1, 4}}};
    for (const Method &m : methods) {
        if (!Have(m.exportName)) continue;
        auto fn = Lib().Get<Fn>(m.exportName);
        for (int bits : m.bits) {
            SCOPED_TRACE(std::string(m.name) + " " + std::to_string(bits));
            Compare({"dither", "--method", m.name, "--bits", std::to_string(bits)},
                    [&](Handle h) { return fn(h, bits); });
            EXPECT_EQ(ReadBmp(Path("out.bmp")).bits, bits);
        }
        Compare({"dither", "--method", m.name, "--bits", "1"}, [&](Handle h) { return fn(h, 1); },
                TestDibGrey8(), "grey.bmp");
    }
    if (Have("DitherSharp"))
        Refused({"dither", "--method", "sharp", "--bits", "8", P("in.bmp"), P("bad.bmp")}, 2,
                "--bits for sharp is 1 or 4", "bad.bmp");
    if (Have("DitherFS4"))
        Refused({"dither", "--bits", "8", P("grey.bmp"), P("bad.bmp")}, 1,
                "not below the image's 8 bits", "bad.bmp");
    if (Have("DitherOrdered")) {
        auto fn = Lib().Get<Fn>("DitherOrdered");
        for (int type = 0; type <= 6; ++type)
            Compare({"ordered", "--type", std::to_string(type)}, [&](Handle h) { return fn(h, type); },
                    TestDibGrey8(), "grey.bmp");
        // A colour image is made grey first; the result is still 1 bit.
        Ok({"ordered", "--type", "3", P("in.bmp"), P("ordered.bmp")});
        EXPECT_EQ(ReadBmp(Path("ordered.bmp")).bits, 1);
    }
}

TEST_F(Commands, SplitWritesOneFilePerComponent) {
    if (!Have("SplitColorChannels")) GTEST_SKIP();
    using Fn = int(PAX_CALL *)(Handle, Handle *, uint8_t);
    auto fn = Lib().Get<Fn>("SplitColorChannels");
    struct Case {
        const char *model;
        int code;
        std::vector<std::string> names;
    } cases[] = {{"hsv", 6, {"h", "s", "v"}}, {"cmyk", 4, {"m", "y", "k", "c"}}, {"lab", 9, {"l", "a", "b"}}};
    for (const Case &c : cases) {
        ToolRun r = RunTool({"split", "--model", c.model, P("in.bmp"), P("ch.bmp")});
        ASSERT_EQ(r.status, 0) << Describe(r);
        Handle source = Lib().ToBlock(TestDib24());
        Handle outputs[4] = {};
        ASSERT_EQ(fn(source, outputs, (uint8_t)c.code), (int)c.names.size());
        Lib().Free(source);
        for (size_t k = 0; k < c.names.size(); ++k) {
            const fs::path file = Path("ch-" + c.names[k] + ".bmp");
            EXPECT_EQ(ReadBmp(file), TakeResult(outputs[k])) << file;
            fs::remove(file);
        }
    }
    Ok({"split", "--model", "rgb", P("in.bmp"), P("ch.png")});
    EXPECT_TRUE(fs::exists(Path("ch-r.png")));
    EXPECT_TRUE(fs::exists(Path("ch-b.png")));
}

TEST_F(Commands, ColorValues) {
    if (!Have("RGBtoHSV")) GTEST_SKIP();
    using Fn = uint8_t *(PAX_CALL *)(uint8_t *, const uint8_t *);
    uint8_t hsv[3];
    const uint8_t orange[3] = {255, 128, 0};
    Lib().Get<Fn>("RGBtoHSV")(hsv, orange);
    const std::string want = "hsv " + std::to_string(hsv[0]) + "," + std::to_string(hsv[1]) + "," + std::to_string(hsv[2]);
    ToolRun r = RunTool({"color", "--from", "rgb", "--to", "hsv", "255,128,0"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.output.find(want), std::string::npos) << want << "\n" << r.output;
    if (Have("ConvertColorSpace")) {
        ToolRun b = RunTool({"color", "--from", "rgb", "--to", "hsv", "--buffer", "255,128,0"});
        EXPECT_NE(b.output.find(want), std::string::npos) << b.output;
    }
    using CmykFn = uint32_t(PAX_CALL *)(const uint8_t *);
    if (Have("RGBtoCMYK")) {
        uint32_t q = Lib().Get<CmykFn>("RGBtoCMYK")(orange);
        ToolRun c = RunTool({"color", "--from", "rgb", "--to", "cmyk", "255,128,0"});
        const std::string cmyk = "cmyk " + std::to_string(q & 255) + "," + std::to_string(q >> 8 & 255) + "," +
                                 std::to_string(q >> 16 & 255) + "," + std::to_string(q >> 24);
        EXPECT_NE(c.output.find(cmyk), std::string::npos) << cmyk << "\n" << c.output;
    }
    Refused({"color", "--from", "cmyk", "--to", "rgb", "1,2,3"}, 2, "has 4 components", "none");
}

// ---------------------------------------------------------------------------
// Errors: a message, a status, and no output file.

TEST_F(Paximg, ErrorsSayWhatWentWrong) {
    const std::string cmd = Have("Desaturate") ? "desaturate" : Have("ConvertDIBColorSpace") ? "convert" : "";
    if (cmd.empty()) GTEST_SKIP();
    auto args = [&](std::vector<std::string> extra) {
        std::vector<std::string> a = {cmd};
        if (cmd == "convert") a.insert(a.end(), {"--to", "rgb"});
        a.insert(a.end(), extra.begin(), extra.end());
        return a;
    };
    WriteInput("good.bmp", TestDib24());
    Refused(args({P("missing.bmp"), P("out.bmp")}), 1, "cannot open", "out.bmp");
    WriteFile(Path("text.bmp"), Bytes{'h', 'e', 'l', 'l', 'o', '\n'});
    Refused(args({P("text.bmp"), P("out.bmp")}), 1, "not a BMP, PNG or JPEG file", "out.bmp");
    WriteFile(Path("empty.bmp"), Bytes{});
    Refused(args({P("empty.bmp"), P("out.bmp")}), 1, "is empty", "out.bmp");
    Bytes good = BmpFile(TestDib24());
    WriteFile(Path("cut.bmp"), Bytes(good.begin(), good.begin() + good.size() / 2));
    Refused(args({P("cut.bmp"), P("out.bmp")}), 1, "truncated", "out.bmp");
    Refused(args({"--bogus", P("good.bmp"), P("out.bmp")}), 2, "unknown option --bogus", "out.bmp");
    Refused(args({P("good.bmp")}), 2, "expected INPUT OUTPUT", "out.bmp");
    Refused(args({P("good.bmp"), P("out.gif")}), 2, "name it .bmp or .png", "out.gif");
    Refused(args({P("good.bmp"), P("no-such-folder/out.bmp")}), 1, "cannot write", "no-such-folder/out.bmp");
    Refused({"no-such-command"}, 2, "unknown command", "out.bmp");
    // 16 bits per pixel, run-length compression, too large for the library.
    Bytes deep = good;
    Put16(&deep[14 + 14], 16);
    WriteFile(Path("deep.bmp"), deep);
    Refused(args({P("deep.bmp"), P("out.bmp")}), 1, "16 bits per pixel", "out.bmp");
    Bytes rle = good;
    Put32(&rle[14 + 16], 1);
    WriteFile(Path("rle.bmp"), rle);
    Refused(args({P("rle.bmp"), P("out.bmp")}), 1, "compressed BMP", "out.bmp");
    Bytes huge = good;
    Put32(&huge[14 + 4], 40000);
    WriteFile(Path("huge.bmp"), huge);
    Refused(args({P("huge.bmp"), P("out.bmp")}), 1, "at most 32767 pixels a side", "out.bmp");
    Bytes tooMuch = good; // 30000 x 30000 at 32 bits: 3.6 GB of pixels
    Put32(&tooMuch[14 + 4], 30000);
    Put32(&tooMuch[14 + 8], 30000);
    Put16(&tooMuch[14 + 14], 32);
    WriteFile(Path("toomuch.bmp"), tooMuch);
    Refused(args({P("toomuch.bmp"), P("out.bmp")}), 1, "too large for memory", "out.bmp");

    if (Have("ColorHueSaturation")) {
        Refused({"hue-saturation", "--hue", "400", P("good.bmp"), P("out.bmp")}, 2,
                "--hue must be between -180 and 180", "out.bmp");
        Refused({"hue-saturation", "--hue", "ten", P("good.bmp"), P("out.bmp")}, 2,
                "takes a whole number", "out.bmp");
    }
    if (Have("GammaCorrection"))
        Refused({"gamma", "--gamma", "5", P("good.bmp"), P("out.bmp")}, 2, "between 10 and 500", "out.bmp");
    if (Have("ConvertDIBColorSpace")) {
        // The library's code, translated: the image is plain RGB, not Lab.
        Refused({"convert", "--from", "lab", "--to", "rgb", P("good.bmp"), P("out.bmp")}, 1,
                "CCE_BADMODEL, 2", "out.bmp");
        Refused({"convert", "--to", "purple", P("good.bmp"), P("out.bmp")}, 2, "--to takes one of", "out.bmp");
    }
    // An existing output is replaced only by a finished file.
    WriteFile(Path("keep.bmp"), Bytes{'o', 'l', 'd'});
    ToolRun r = RunTool(args({P("cut.bmp"), P("keep.bmp")}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(ReadFile(Path("keep.bmp")), (Bytes{'o', 'l', 'd'}));
}

// Truncated and corrupted BMP, PNG and JPEG files: never a crash, and never a
// file written after a failure.
TEST_F(Paximg, MalformedFilesNeverCrash) {
    const std::string cmd = Have("ConvertDIBColorSpace") ? "convert" : "";
    if (cmd.empty()) GTEST_SKIP();
    WriteInput("src.bmp", TestDib24());
    Ok({"convert", "--to", "rgb", P("src.bmp"), P("src.png")});
    std::vector<uint8_t> rgb(kW * kH * 3, 0);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = (uint8_t)(i * 7);
    Bytes jpeg;
    auto sink = [](void *context, void *data, int size) { Append(*static_cast<Bytes *>(context), data, size); };
    ASSERT_TRUE(stbi_write_jpg_to_func(sink, &jpeg, kW, kH, 3, rgb.data(), 80));
    const std::vector<std::pair<std::string, Bytes>> sources = {
        {"bmp", BmpFile(TestDib24())}, {"png", ReadFile(Path("src.png"))}, {"jpg", jpeg}};
#ifdef _WIN32
    const int variants = 10; // each run starts a Windows process under Wine
#else
    const int variants = 40;
#endif
    std::mt19937 rng(20261123);
    int runs = 0, refused = 0;
    for (const auto &source : sources) {
        const Bytes &good = source.second;
        for (int v = 0; v < variants; ++v) {
            Bytes bad = good;
            if (v % 2 == 0) {
                bad.resize(rng() % good.size()); // truncated
            } else {
                for (int k = 0; k < 4; ++k) bad[rng() % std::min<size_t>(bad.size(), 80)] = (uint8_t)rng();
            }
            const std::string in = "bad." + source.first;
            WriteFile(Path(in), bad);
            fs::remove(Path("bad-out.bmp"));
            ToolRun r = RunTool({"convert", "--to", "rgb", P(in), P("bad-out.bmp")});
            ++runs;
            ASSERT_FALSE(r.crashed) << source.first << " variant " << v << ": " << Describe(r);
            ASSERT_TRUE(r.status == 0 || r.status == 1) << Describe(r);
            // A sanitizer's report would also end with status 1.
            ASSERT_EQ(r.output.find("Sanitizer"), std::string::npos) << Describe(r);
            ASSERT_EQ(r.output.find("runtime error"), std::string::npos) << Describe(r);
            if (r.status != 0) {
                ++refused;
                EXPECT_FALSE(fs::exists(Path("bad-out.bmp")));
                EXPECT_NE(r.output.find("paximg convert: "), std::string::npos) << r.output;
            }
        }
    }
    ExpectNoTemporaries();
    EXPECT_GT(refused, runs / 3) << "the corruptions should mostly be refused";
}

#ifdef _WIN32
// The library's own progress dialog, on a display.
TEST_F(Paximg, ProgressDialogOnWindows) {
    if (!Have("ConvertDIBColorSpace") || !std::getenv("DISPLAY")) GTEST_SKIP() << "no display";
    WriteInput("pg.bmp", MakeDib(300, 200, 24, {}, [](int x, int y) { return (uint32_t)(x * 977 + y * 131); }));
    Ok({"convert", "--progress", "--to", "hsv", P("pg.bmp"), P("pg-hsv.bmp")});
    EXPECT_EQ(ReadBmp(Path("pg-hsv.bmp")).compression, 14u);
}
#else
// On a terminal the tool shows the stand-in's text bar, and Ctrl-C cancels:
// the operation stops, nothing is written, and the status says so.
TEST_F(Paximg, CtrlCOnATerminalCancels) {
    if (!Have("ConvertDIBColorSpace")) GTEST_SKIP();
    WriteInput("big.bmp", MakeDib(2000, 1500, 24, {}, [](int x, int y) { return (uint32_t)(x * 977 + y * 131); }));
    const std::string tool = ToolPath(), in = P("big.bmp"), out = P("big-lab.bmp");
    int master = -1;
    pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        execl(tool.c_str(), tool.c_str(), "convert", "--to", "lab", in.c_str(), out.c_str(), (char *)nullptr);
        _exit(127);
    }
    // Wait for the bar, then press Ctrl-C.
    std::string screen;
    char buffer[256];
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (screen.find("Process Image...") == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        ssize_t n = read(master, buffer, sizeof buffer);
        if (n <= 0) break;
        screen.append(buffer, (size_t)n);
    }
    ASSERT_NE(screen.find("Process Image..."), std::string::npos) << screen;
    kill(pid, SIGINT);
    // Drain the terminal until the program ends.
    for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) screen.append(buffer, (size_t)n);
    int status = 0;
    waitpid(pid, &status, 0);
    close(master);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by a signal";
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_NE(screen.find("cancelled"), std::string::npos) << screen;
    EXPECT_FALSE(fs::exists(out));
    ExpectNoTemporaries();
}
#endif

} // namespace
