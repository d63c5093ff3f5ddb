// paximg end to end: the test starts the built tool as a user would and
// checks its files, messages and exit statuses. Expected images come from the
// library itself, loaded at run time the way a host loads it and called on
// the same packed DIB that the tool is given, so the test proves that the
// tool hands its images and arguments over exactly.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <string>
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
    std::string p(path, GetModuleFileNameA(nullptr, path, sizeof path));
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
HMODULE g_module = LoadLibraryA((OwnFolder() + "PAXIMGUser.dll").c_str());
template <typename F> F Get(const char *name) {
    return reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(g_module, name)));
}
#else
#define PAX_CALL
using Handle = void *;
void *g_module = dlopen((OwnFolder() + "libPAXIMGUser.so").c_str(), RTLD_NOW | RTLD_LOCAL);
template <typename F> F Get(const char *name) { return g_module ? reinterpret_cast<F>(dlsym(g_module, name)) : nullptr; }
#endif

struct Memory {
    Handle(PAX_CALL *alloc)(unsigned, size_t);
    void *(PAX_CALL *lock)(Handle);
    int(PAX_CALL *unlock)(Handle);
    Handle(PAX_CALL *free)(Handle);
    size_t(PAX_CALL *size)(Handle);
};
#ifdef _WIN32
const Memory g_mem = {GlobalAlloc, GlobalLock, GlobalUnlock, GlobalFree, GlobalSize};
#else
const Memory g_mem = {Get<decltype(Memory::alloc)>("GlobalAlloc"), Get<decltype(Memory::lock)>("GlobalLock"),
                      Get<decltype(Memory::unlock)>("GlobalUnlock"), Get<decltype(Memory::free)>("GlobalFree"),
                      Get<decltype(Memory::size)>("GlobalSize")};
#endif

// A GHND block holding these bytes.
Handle ToBlock(const Bytes &bytes) {
    Handle h = g_mem.alloc(0x0042, bytes.size());
    std::memcpy(g_mem.lock(h), bytes.data(), bytes.size());
    g_mem.unlock(h);
    return h;
}

// ---------------------------------------------------------------------------
// Packed DIBs and BMP files, written out plainly.

uint32_t Le32(const uint8_t *p) { return p[0] | p[1] << 8 | p[2] << 16 | (uint32_t)p[3] << 24; }
void Put(uint8_t *p, uint32_t v, int bytes = 4) {
    for (int i = 0; i < bytes; ++i) p[i] = (uint8_t)(v >> (8 * i));
}
size_t Stride(int width, int bits) { return ((size_t)width * bits + 31) / 32 * 4; }

struct Rgb {
    uint8_t r, g, b;
    bool operator==(const Rgb &o) const { return r == o.r && g == o.g && b == o.b; }
};

// A packed DIB: 40-byte header, `table`, rows bottom-up. pixel(x, y) gives the
// stored bytes of one pixel (y = 0 the top row), or its palette index.
Bytes MakeDib(int w, int h, int bits, const std::vector<Rgb> &table, const std::function<uint32_t(int, int)> &pixel) {
    const size_t stride = Stride(w, bits);
    Bytes d(40 + table.size() * 4 + stride * h);
    const uint32_t header[] = {40, (uint32_t)w, (uint32_t)h, 1u | (uint32_t)bits << 16, 0, (uint32_t)(stride * h),
                               2835, 2835, bits <= 8 && table.size() != (1u << bits) ? (uint32_t)table.size() : 0};
    for (int i = 0; i < 9; ++i) Put(&d[4 * i], header[i]);
    for (size_t i = 0; i < table.size(); ++i) Put(&d[40 + 4 * i], table[i].b | table[i].g << 8 | table[i].r << 16);
    uint8_t *pixels = &d[40 + table.size() * 4];
    for (int y = 0; y < h; ++y) {
        uint8_t *row = pixels + (size_t)(h - 1 - y) * stride;
        for (int x = 0; x < w; ++x) {
            uint32_t v = pixel(x, y);
            if (bits >= 8) Put(row + x * (bits / 8), v, bits / 8);
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
uint32_t Bgr(Rgb c) { return (uint32_t)c.b | (uint32_t)c.g << 8 | (uint32_t)c.r << 16; }

Bytes TestDib24() { return MakeDib(kW, kH, 24, {}, [](int x, int y) { return Bgr(TestColour(x, y)); }); }

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
    std::copy(dib.begin(), dib.end(), f.begin() + 14);
    f[0] = 'B';
    f[1] = 'M';
    Put(&f[2], (uint32_t)f.size());
    uint32_t clrUsed = Le32(&dib[32]), bits = dib[14];
    Put(&f[10], 14 + 40 + (bits <= 8 ? (clrUsed ? clrUsed : 1u << bits) : 0) * 4);
    return f;
}

struct Dib {
    int width = 0, height = 0, bits = 0;
    uint32_t compression = 0;
    std::vector<Rgb> table;
    Bytes pixels; // stride x height, bottom-up, as stored
    bool operator==(const Dib &o) const {
        return width == o.width && height == o.height && bits == o.bits && compression == o.compression &&
               table == o.table && pixels == o.pixels;
    }
    Rgb At(int x, int y) const {
        const uint8_t *row = &pixels[(size_t)(height - 1 - y) * Stride(width, bits)];
        if (bits >= 24) return {row[x * (bits / 8) + 2], row[x * (bits / 8) + 1], row[x * (bits / 8)]};
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
    uint32_t clrUsed = Le32(d + 32), entries = clrUsed ? clrUsed : (out.bits <= 8 ? 1u << out.bits : 0);
    size_t at = 40 + entries * 4, need = at + Stride(out.width, out.bits) * out.height;
    if (out.width <= 0 || out.height <= 0 || need > size) return out;
    for (uint32_t i = 0; i < entries; ++i) out.table.push_back({d[42 + 4 * i], d[41 + 4 * i], d[40 + 4 * i]});
    out.pixels.assign(d + at, d + need);
    ok = true;
    return out;
}

Bytes ReadFile(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
void WriteFile(const fs::path &path, const Bytes &bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()), (std::streamsize)bytes.size());
}

// A BMP file written by the tool: file header, then a packed DIB.
Dib ReadBmp(const fs::path &path) {
    Bytes f = ReadFile(path);
    bool ok = false;
    Dib d;
    if (f.size() >= 14 && f[0] == 'B' && f[1] == 'M') d = ParseDib(f.data() + 14, f.size() - 14, ok);
    EXPECT_TRUE(ok) << path << " is not a BMP file";
    if (ok) {
        EXPECT_EQ(Le32(&f[10]), 14 + 40 + d.table.size() * 4) << path;
        EXPECT_EQ(Le32(&f[2]), f.size()) << path;
    }
    return d;
}

// The result block of a library call, as a Dib; frees the block.
Dib TakeResult(Handle h) {
    EXPECT_NE(h, nullptr) << "the library refused the reference call";
    if (!h) return {};
    Bytes b(g_mem.size(h));
    std::memcpy(b.data(), g_mem.lock(h), b.size());
    g_mem.unlock(h);
    g_mem.free(h);
    bool ok = false;
    Dib d = ParseDib(b.data(), b.size(), ok);
    EXPECT_TRUE(ok);
    return d;
}

// An image encoded by stb (PNG when `quality` is 0, else JPEG).
Bytes Encode(int channels, const Bytes &pixels, int quality, int w = kW, int h = kH) {
    Bytes out;
    auto sink = [](void *context, void *data, int size) {
        auto *to = static_cast<Bytes *>(context);
        to->insert(to->end(), static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + size);
    };
    if (quality) stbi_write_jpg_to_func(sink, &out, w, h, channels, pixels.data(), quality);
    else stbi_write_png_to_func(sink, &out, w, h, channels, pixels.data(), w * channels);
    return out;
}

// ---------------------------------------------------------------------------
// Running the tool.

struct ToolRun {
    int status = -1;
    bool crashed = false;
    std::string output; // stdout and stderr together
};

fs::path g_dir; // the test's scratch folder

#ifdef _WIN32
std::string ToolPath() { return OwnFolder() + "paximg.exe"; }
#else
std::string ToolPath() { return OwnFolder() + "paximg"; }
#endif

// Standard input from `in` (else empty), standard output into `out` (else
// with the messages).
ToolRun RunTool(const std::vector<std::string> &args, const std::string &in = "", const std::string &out = "") {
    ToolRun result;
    const fs::path log = g_dir / "tool-output.txt";
#ifdef _WIN32
    std::string command = "\"" + ToolPath() + "\"";
    for (const std::string &a : args) command += " \"" + a + "\"";
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE messages = CreateFileA(log.string().c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    HANDLE input = CreateFileA(in.empty() ? "NUL" : in.c_str(), GENERIC_READ, FILE_SHARE_READ, &inherit, OPEN_EXISTING, 0, nullptr);
    HANDLE output = out.empty() ? messages : CreateFileA(out.c_str(), GENERIC_WRITE, 0, &inherit, CREATE_ALWAYS, 0, nullptr);
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = input;
    si.hStdOutput = output;
    si.hStdError = messages;
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
    CloseHandle(messages);
    if (output != messages) CloseHandle(output);
    if (input != INVALID_HANDLE_VALUE) CloseHandle(input);
#else
    std::vector<std::string> all = {ToolPath()};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        FILE *f = std::fopen(log.c_str(), "wb"), *o = out.empty() ? f : std::fopen(out.c_str(), "wb");
        if (f && o) dup2(fileno(o), 1), dup2(fileno(f), 2);
        FILE *i = std::fopen(in.empty() ? "/dev/null" : in.c_str(), "rb");
        if (i) dup2(fileno(i), 0);
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

std::string Describe(const ToolRun &r) { return "status " + std::to_string(r.status) + ", output:\n" + r.output; }

fs::path Path(const std::string &name) { return g_dir / name; }
std::string P(const std::string &name) { return Path(name).string(); }

// No file of the folder is a left-over temporary.
void ExpectNoTemporaries() {
    for (const auto &e : fs::directory_iterator(g_dir))
        EXPECT_EQ(e.path().filename().string().find(".partial-"), std::string::npos) << e.path();
}

class Paximg : public testing::Test {
protected:
    static void SetUpTestSuite() {
#ifdef _WIN32
        g_dir = fs::temp_directory_path() / ("paximg-tests-" + std::to_string(GetCurrentProcessId()));
#else
        g_dir = fs::temp_directory_path() / ("paximg-tests-" + std::to_string(getpid()));
#endif
        fs::remove_all(g_dir);
        fs::create_directories(g_dir);
    }
    static void TearDownTestSuite() {
        std::error_code ignored;
        fs::remove_all(g_dir, ignored);
    }
    void SetUp() override {
        ASSERT_TRUE(fs::exists(ToolPath())) << ToolPath();
        ASSERT_TRUE(g_module && g_mem.alloc && g_mem.lock && g_mem.unlock && g_mem.free && g_mem.size);
        WriteInput("in.bmp", TestDib24());
        WriteInput("grey.bmp", TestDibGrey8());
    }
    // Runs the tool and expects success.
    static void Ok(const std::vector<std::string> &args) {
        ToolRun r = RunTool(args);
        EXPECT_EQ(r.status, 0) << Describe(r);
    }
    // Runs the tool and expects a message, the status, and no file at `output`.
    static void Refused(const std::vector<std::string> &args, int status, const std::string &message,
                        const std::string &output = "out.bmp") {
        fs::remove(Path(output));
        ToolRun r = RunTool(args);
        EXPECT_FALSE(r.crashed) << Describe(r);
        EXPECT_EQ(r.status, status) << Describe(r);
        EXPECT_NE(r.output.find(message), std::string::npos) << "wanted '" << message << "'; " << Describe(r);
        EXPECT_FALSE(fs::exists(Path(output))) << output;
        ExpectNoTemporaries();
    }
    static void WriteInput(const std::string &name, const Bytes &dib) { WriteFile(Path(name), BmpFile(dib)); }
    // Runs the tool on `inputFile` and the reference call on the same DIB.
    static void Compare(const std::vector<std::string> &options, const std::function<Handle(Handle)> &call,
                        const Bytes &input = TestDib24(), const std::string &inputFile = "in.bmp") {
        std::vector<std::string> args = options;
        args.insert(args.end(), {P(inputFile), P("out.bmp")});
        fs::remove(Path("out.bmp"));
        ToolRun r = RunTool(args);
        ASSERT_EQ(r.status, 0) << options[0] << ": " << Describe(r);
        Handle source = ToBlock(input);
        Dib expected = TakeResult(call(source));
        g_mem.free(source);
        EXPECT_EQ(ReadBmp(Path("out.bmp")), expected) << options[0];
    }
};

// ---------------------------------------------------------------------------

const char *const kCommands[] = {"version", "demo", "color", "convert", "split", "hue-saturation", "desaturate",
                                 "replace-color", "cmyk-levels", "brightness-contrast", "gamma", "convolve",
                                 "dither", "ordered"};

TEST_F(Paximg, HelpListsEveryCommandAndVersionIsTheLibrarys) {
    ToolRun r = RunTool({"--help"});
    ASSERT_EQ(r.status, 0) << Describe(r);
    for (const char *c : kCommands) {
        EXPECT_NE(r.output.find("\n  " + std::string(c) + " "), std::string::npos) << c;
        ToolRun help = RunTool({c, "--help"});
        EXPECT_EQ(help.status, 0) << c;
        EXPECT_NE(help.output.find("Usage: paximg " + std::string(c)), std::string::npos) << help.output;
    }
    // What a user needs to read the results: byte encodings, the gamma
    // formula, the 8-bit wrap, intensity-only filtering.
    const std::pair<const char *, const char *> explained[] = {
        {"convert", "  hsv   H S V"}, {"split", "  lab   L a b"}, {"gamma", "255 ^ 0.5    = 15.97 -> 15"},
        {"dither", "wrap around"}, {"convolve", "Only the intensity is filtered"}};
    for (const auto &e : explained) EXPECT_NE(RunTool({e.first, "--help"}).output.find(e.second), std::string::npos) << e.first;
    ToolRun none = RunTool({});
    EXPECT_EQ(none.status, 2);
    EXPECT_NE(none.output.find("Usage:"), std::string::npos);
    ToolRun version = RunTool({"version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_NE(version.output.find("Version 12.08"), std::string::npos) << version.output;
}

TEST_F(Paximg, DemoWritesEveryExpectedFile) {
    const fs::path dir = Path("demo");
    ToolRun r = RunTool({"demo", dir.string()});
    ASSERT_EQ(r.status, 0) << Describe(r);
    std::vector<std::string> expected = {
        "chart", "convert-lab", "convert-lab-rgb", "convert-hsv", "convert-hsv-rgb", "convert-yiq",
        "convert-yiq-rgb", "convert-cmyk", "convert-cmyk-rgb", "split-hsv-h", "split-hsv-s", "split-hsv-v",
        "hue-saturation-hue120", "hue-saturation-sat-128", "hue-saturation-range", "desaturate",
        "replace-color-skin", "replace-color-red", "cmyk-levels-cyan60", "cmyk-levels-magenta-100",
        "cmyk-levels-black50", "brightness40-contrast0", "brightness0-contrast50", "brightness-30-contrast-40",
        "gamma50", "gamma200", "gamma-blue250", "convolve-sharpen3", "convolve-sharpen-full3", "convolve-mean5",
        "convolve-smooth5", "convolve-edges", "convolve-emboss", "dither-fs4-4", "dither-fs4-8", "dither-sharp-4"};
    for (const char *m : {"fs4", "burkes", "sierra", "jjn", "stucki", "sa", "sharp", "smooth"})
        expected.push_back(std::string("dither-") + m + "-1");
    for (int t = 0; t <= 6; ++t) expected.push_back("ordered-" + std::to_string(t));

    Bytes html = ReadFile(dir / "index.html");
    const std::string page(html.begin(), html.end());
    EXPECT_NE(page.find("<html"), std::string::npos);
    std::set<std::string> files;
    for (const auto &e : fs::directory_iterator(dir)) files.insert(e.path().filename().string());
    for (const std::string &name : expected) {
        const std::string file = name + ".png";
        EXPECT_TRUE(files.count(file)) << file;
        EXPECT_NE(page.find("src=\"" + file + "\""), std::string::npos) << file << " not on the sheet";
        Bytes png = ReadFile(dir / file);
        EXPECT_TRUE(png.size() >= 8 && std::memcmp(png.data(), "\x89PNG\r\n\x1a\n", 8) == 0) << file;
    }
    // Nothing else: every file is an expected image or the sheet, with one caption each.
    EXPECT_EQ(files.size(), expected.size() + 1);
    size_t captions = 0;
    for (size_t at = page.find("<figcaption>"); at != std::string::npos; at = page.find("<figcaption>", at + 1))
        ++captions;
    EXPECT_EQ(captions, expected.size());
}

// Every depth the library takes, palettes, top-down rows, old core headers,
// PNG and JPEG are read into the same pixels; the tool writes 24-bit RGB.
TEST_F(Paximg, ReadsEveryInputFormat) {
    std::vector<Rgb> table16;
    for (int i = 0; i < 16; ++i) table16.push_back({(uint8_t)(i * 16), (uint8_t)(255 - i * 9), (uint8_t)(i * i)});
    // A core header with 3-byte entries (red, then blue) and entry 1 in each row's leftmost pixel.
    Bytes core(14 + 12 + 2 * 3 + Stride(kW, 1) * kH);
    core[0] = 'B';
    core[1] = 'M';
    Put(&core[10], 14 + 12 + 6);
    Put(&core[14], 12);
    Put(&core[18], kW | kH << 16);
    Put(&core[22], 1 | 1 << 16);
    Put(&core[26], 0xFFFF0000); // B, G, R of red, then of blue
    for (int y = 0; y < kH; ++y) core[32 + y * Stride(kW, 1)] = 0x80;
    // Top-down rows (negative height).
    Bytes topDown = TestDib24();
    Put(&topDown[8], (uint32_t)-kH);
    const Bytes bottomUp = TestDib24();
    const size_t stride = Stride(kW, 24);
    for (int y = 0; y < kH; ++y) std::memcpy(&topDown[40 + y * stride], &bottomUp[40 + (kH - 1 - y) * stride], stride);

    // Run-length files (8 and 4 bits): each stored row a run of 4, a literal
    // of the other 9 pixels padded to 2 bytes, end of row; the top row only its
    // run, a jump to its end and the end of the picture (skipped pixels: index 0).
    auto rleIndex = [](int x, int y) { return y == 0 && x >= 4 ? 0 : x < 4 ? y + 1 : (x * 3 + y) % 16; };
    auto rle = [&](int bits) {
        Bytes data;
        for (int y = kH - 1; y >= 0; --y) {
            data.insert(data.end(), {4, (uint8_t)(bits == 8 ? y + 1 : (y + 1) * 17)});
            if (y == 0) break;
            Bytes literal = {0, kW - 4};
            for (int x = 4; x < kW; ++x)
                if (bits == 8 || x % 2 == 0) literal.push_back((uint8_t)(rleIndex(x, y) << (bits == 8 ? 0 : 4)));
                else literal.back() |= (uint8_t)rleIndex(x, y);
            if (literal.size() % 2) literal.push_back(0);
            data.insert(data.end(), literal.begin(), literal.end());
            data.insert(data.end(), {0, 0});
        }
        data.insert(data.end(), {0, 2, kW - 4, 0, 0, 1});
        Bytes f = BmpFile(MakeDib(kW, kH, bits, table16, [](int, int) { return 0u; }));
        f.resize(14 + 40 + 16 * 4);
        Put(&f[14 + 16], bits == 8 ? 1 : 2);
        Put(&f[14 + 20], (uint32_t)data.size());
        f.insert(f.end(), data.begin(), data.end());
        return f;
    };
    // 32-bit bit fields: R, G, B masks after a 40-byte header, pixels after them.
    Bytes fields = BmpFile(MakeDib(kW, kH, 32, {}, [](int x, int y) { return Bgr(TestColour(x, y)); }));
    const Bytes masks = {0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0};
    fields.insert(fields.begin() + 54, masks.begin(), masks.end());
    Put(&fields[10], 54 + 12);
    Put(&fields[14 + 16], 3);
    struct Case {
        std::string name;
        Bytes file;
        std::function<Rgb(int, int)> colour;
    };
    const Case cases[] = {
        {"d1.bmp", BmpFile(MakeDib(kW, kH, 1, {{10, 20, 30}, {200, 150, 100}}, [](int x, int y) { return (uint32_t)((x + 2 * y) % 3 == 0); })),
         [](int x, int y) { return (x + 2 * y) % 3 == 0 ? Rgb{200, 150, 100} : Rgb{10, 20, 30}; }},
        {"d4.bmp", BmpFile(MakeDib(kW, kH, 4, table16, [](int x, int y) { return (uint32_t)((x * 3 + y) % 16); })),
         [&](int x, int y) { return table16[(x * 3 + y) % 16]; }},
        {"d32.bmp", BmpFile(MakeDib(kW, kH, 32, {}, [](int x, int y) { return Bgr(TestColour(x, y)) | 0x7Fu << 24; })),
         TestColour},
        {"topdown.bmp", BmpFile(topDown), TestColour},
        {"fields.bmp", fields, TestColour},
        {"core.bmp", core, [](int x, int) { return x == 0 ? Rgb{0, 0, 255} : Rgb{255, 0, 0}; }},
        {"rle8.bmp", rle(8), [&](int x, int y) { return table16[rleIndex(x, y)]; }},
        {"rle4.bmp", rle(4), [&](int x, int y) { return table16[rleIndex(x, y)]; }},
        // PNG is lossless.
        {"p.png", Bytes(), TestColour},
        // A grey PNG with alpha: grey x * 20; transparent pixels (x >= 6) laid over white.
        {"g.png", Bytes(), [](int x, int) { uint8_t v = x < 6 ? (uint8_t)(x * 20) : 255; return Rgb{v, v, v}; }},
    };
    Ok({"convert", "--to", "rgb", P("in.bmp"), P("p.png")});
    Bytes ga(kW * kH * 2);
    for (int i = 0; i < kW * kH; ++i) ga[2 * i] = (uint8_t)(i % kW * 20), ga[2 * i + 1] = i % kW < 6 ? 255 : 0;
    WriteFile(Path("g.png"), Encode(2, ga, 0));
    for (const Case &c : cases) {
        if (!c.file.empty()) WriteFile(Path(c.name), c.file);
        Ok({"convert", "--from", "rgb", "--to", "rgb", P(c.name), P("read.bmp")});
        Dib out = ReadBmp(Path("read.bmp"));
        ASSERT_EQ(out.bits, 24) << c.name;
        ASSERT_EQ(out.width, kW);
        ASSERT_EQ(out.height, kH);
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                const Rgb got = out.At(x, y), want = c.colour(x, y);
                ASSERT_TRUE(got == want) << c.name << " at " << x << "," << y << ": " << +got.r << "," << +got.g
                                         << "," << +got.b << " not " << +want.r << "," << +want.g << "," << +want.b;
            }
    }
    // A JPEG is lossy: only its size and depth are checked.
    Bytes rgb(kW * kH * 3);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = (uint8_t)(i * 7);
    WriteFile(Path("j.jpg"), Encode(3, rgb, 90));
    Ok({"convert", "--to", "rgb", P("j.jpg"), P("j.bmp")});
    Dib j = ReadBmp(Path("j.bmp"));
    EXPECT_EQ(std::vector<int>({j.width, j.height, j.bits}), std::vector<int>({kW, kH, 24}));
}

TEST_F(Paximg, RoundTripThroughLab) {
    Ok({"convert", "--from", "rgb", "--to", "lab", P("in.bmp"), P("rt-lab.bmp")});
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
    auto convert = Get<Handle(PAX_CALL *)(Handle, int, int, int, void *)>("ConvertDIBColorSpace");
    Handle source = ToBlock(TestDib24());
    Handle toLab = convert(source, 1, 9, 0, nullptr);
    ASSERT_NE(toLab, nullptr);
    Handle toRgb = convert(toLab, 9, 1, 0, nullptr);
    g_mem.free(source);
    EXPECT_EQ(lab, TakeResult(toLab));
    EXPECT_EQ(back, TakeResult(toRgb));

    // CMYK images are 32-bit and tagged 12.
    Ok({"convert", "--to", "cmyk", P("in.bmp"), P("rt-cmyk.bmp")});
    Dib cmyk = ReadBmp(Path("rt-cmyk.bmp"));
    EXPECT_EQ(cmyk.bits, 32);
    EXPECT_EQ(cmyk.compression, 12u);
    Ok({"convert", "--to", "rgb", P("rt-cmyk.bmp"), P("rt-cmyk-back.png")});
}

// Each image command, compared with the same call made here.
TEST_F(Paximg, AdjustmentsMatchTheLibrary) {
    auto hs = Get<Handle(PAX_CALL *)(Handle, int, int, int, unsigned, unsigned, int, void *)>("ColorHueSaturation");
    Compare({"hue-saturation", "--hue", "30", "--saturation", "40", "--lightness", "-10", "--hue-from", "10",
             "--hue-to", "200"},
            [&](Handle h) { return hs(h, 30, 40, -10, 10, 200, 0, nullptr); });
    auto desaturate = Get<Handle(PAX_CALL *)(Handle, int, void *)>("Desaturate");
    Compare({"desaturate"}, [&](Handle h) { return desaturate(h, 0, nullptr); });
    auto replace = Get<Handle(PAX_CALL *)(Handle, const uint8_t *, const uint8_t *, int, int, int, int, void *)>("ReplaceColor");
    // The target goes to the library in pixel order (B, G, R), the tolerance as R, G, B.
    const uint8_t target[3] = {50, 100, 200}, tolerance[3] = {30, 20, 10};
    for (const char *colour : {"200,100,50", "#C86432"})
        Compare({"replace-color", "--target", colour, "--tolerance", "30,20,10", "--hue", "90", "--saturation", "10",
                 "--lightness", "5"},
                [&](Handle h) { return replace(h, target, tolerance, 90, 10, 5, 0, nullptr); });
    auto levels = Get<Handle(PAX_CALL *)(Handle, int, int, int, int, int, void *)>("ColorCMYKLevels");
    Compare({"cmyk-levels", "--cyan", "20", "--magenta", "-30", "--yellow", "40", "--black", "-50"},
            [&](Handle h) { return levels(h, 20, -30, 40, -50, 0, nullptr); });
    auto bc = Get<Handle(PAX_CALL *)(Handle, short, short, int)>("ColorBrightnessContrast");
    // A palette image keeps its pixels and gets a new table.
    Compare({"brightness-contrast", "--brightness", "-40", "--contrast", "60"},
            [&](Handle h) { return bc(h, -40, 60, 0); }, TestDibGrey8(), "grey.bmp");
    auto gamma = Get<Handle(PAX_CALL *)(Handle, int, int, int, int, void *)>("GammaCorrection");
    Compare({"gamma", "--gamma-red", "80", "--gamma-green", "120", "--gamma-blue", "250"},
            [&](Handle h) { return gamma(h, 80, 120, 250, 0, nullptr); });
    Compare({"gamma", "--gamma", "45"}, [&](Handle h) { return gamma(h, 45, 45, 45, 0, nullptr); });

    auto convolve = Get<Handle(PAX_CALL *)(Handle, int, int, short, short, const char *, const short *, int *, int, void *)>("ColorConvolution");
    int status = -1;
    Compare({"convolve", "--type", "sharpen", "--size", "5"},
            [&](Handle h) { return convolve(h, 1, 0, 5, 5, nullptr, nullptr, &status, 0, nullptr); });
    const short kernel[10] = {1, 2, 1, 2, 4, 2, 1, 2, 1, 16};
    Compare({"convolve", "--kernel", "1,2,1,2,4,2,1,2,1,16", "--intensity", "weighted"},
            [&](Handle h) { return convolve(h, 1, 1, 1, 3, nullptr, kernel, &status, 0, nullptr); });
    // The same kind of list in a filter file: little-endian 16-bit values.
    Bytes file;
    for (short v : {0, -1, 0, -1, 5, -1, 0, -1, 0, 1}) file.insert(file.end(), {(uint8_t)(v & 0xFF), (uint8_t)((uint16_t)v >> 8)});
    WriteFile(Path("sharpen.flt"), file);
    const std::string path = P("sharpen.flt");
    Compare({"convolve", "--filter-file", path, "--size", "3"},
            [&](Handle h) { return convolve(h, 1, 0, 2, 3, path.c_str(), nullptr, &status, 0, nullptr); });
}

// Every dither method once, at each depth it takes across the table, on colour
// or grey input; ordered dithering on grey and (made grey first) colour input.
TEST_F(Paximg, DithersMatchTheLibrary) {
    using Fn = Handle(PAX_CALL *)(Handle, int);
    const struct {
        const char *name, *exportName;
        int bits;
        bool grey;
    } methods[] = {{"fs4", "DitherFS4", 8, false},     {"burkes", "DitherBurkes", 4, false},
                   {"sierra", "DitherSierra", 1, true}, {"jjn", "DitherJJN", 8, false},
                   {"stucki", "DitherStucki", 1, false}, {"sa", "DitherSA", 4, false},
                   {"sharp", "DitherSharp", 1, true},   {"smooth", "DitherSmooth", 4, false}};
    for (const auto &m : methods) {
        SCOPED_TRACE(m.name);
        auto fn = Get<Fn>(m.exportName);
        Compare({"dither", "--method", m.name, "--bits", std::to_string(m.bits)}, [&](Handle h) { return fn(h, m.bits); },
                m.grey ? TestDibGrey8() : TestDib24(), m.grey ? "grey.bmp" : "in.bmp");
        EXPECT_EQ(ReadBmp(Path("out.bmp")).bits, m.bits);
    }
    auto ordered = Get<Fn>("DitherOrdered");
    for (int type : {0, 6})
        Compare({"ordered", "--type", std::to_string(type)}, [&](Handle h) { return ordered(h, type); }, TestDibGrey8(),
                "grey.bmp");
    Ok({"ordered", "--type", "3", P("in.bmp"), P("ordered.bmp")});
    EXPECT_EQ(ReadBmp(Path("ordered.bmp")).bits, 1);
}

TEST_F(Paximg, SplitWritesOneFilePerComponent) {
    auto split = Get<int(PAX_CALL *)(Handle, Handle *, uint8_t)>("SplitColorChannels");
    Ok({"split", "--model", "cmyk", P("in.bmp"), P("ch.bmp")});
    Handle source = ToBlock(TestDib24());
    Handle outputs[4] = {};
    ASSERT_EQ(split(source, outputs, 4), 4);
    g_mem.free(source);
    const char *names[4] = {"m", "y", "k", "c"};
    for (int k = 0; k < 4; ++k) EXPECT_EQ(ReadBmp(Path(std::string("ch-") + names[k] + ".bmp")), TakeResult(outputs[k])) << names[k];
    Ok({"split", "--model", "rgb", P("in.bmp"), P("ch.png")});
    EXPECT_TRUE(fs::exists(Path("ch-r.png")));
    EXPECT_TRUE(fs::exists(Path("ch-b.png")));
}

TEST_F(Paximg, ColorValuesMatchTheLibrary) {
    const uint8_t orange[3] = {255, 128, 0};
    uint8_t h[3];
    Get<uint8_t *(PAX_CALL *)(uint8_t *, const uint8_t *)>("RGBtoHSV")(h, orange);
    const uint32_t q = Get<uint32_t(PAX_CALL *)(const uint8_t *)>("RGBtoCMYK")(orange);
    const std::string hsv = "hsv " + std::to_string(h[0]) + "," + std::to_string(h[1]) + "," + std::to_string(h[2]);
    const std::string cmyk = "cmyk " + std::to_string(q & 255) + "," + std::to_string(q >> 8 & 255) + "," +
                             std::to_string(q >> 16 & 255) + "," + std::to_string(q >> 24);
    const std::vector<std::string> rgb = {"color", "--from", "rgb", "--to"};
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"hsv", "255,128,0"}, hsv}, {{"hsv", "--buffer", "255,128,0"}, hsv}, {{"cmyk", "255,128,0"}, cmyk}};
    for (const auto &c : cases) {
        std::vector<std::string> args = rgb;
        args.insert(args.end(), c.first.begin(), c.first.end());
        ToolRun r = RunTool(args);
        EXPECT_EQ(r.status, 0);
        EXPECT_NE(r.output.find(c.second), std::string::npos) << c.second << "\n" << r.output;
    }
}

// A kernel is typed as it is seen: a single weight at (row a, column b) of an
// n x n kernel copies the pixel a - n/2 rows below and b - n/2 columns right
// of each output pixel (rows and columns beyond the edge repeat the last
// one), on a picture that is 200 where x >= 6 and y >= 3, else 50.
TEST_F(Paximg, KernelPointsAsSeen) {
    auto bright = [](int x, int y) { return x >= 6 && y >= 3; };
    WriteInput("corner.bmp", MakeDib(kW, kH, 24, {}, [&](int x, int y) { return bright(x, y) ? 0xC8C8C8u : 0x323232u; }));
    const struct {
        int n, a, b;
    } cases[] = {{3, 1, 2}, {3, 1, 0}, {3, 2, 1}, {3, 0, 1}, {5, 0, 4}, {7, 6, 0}};
    for (const auto &c : cases) {
        std::string kernel;
        for (int i = 0; i < c.n * c.n; ++i) kernel += (i == c.a * c.n + c.b ? "1," : "0,");
        Ok({"convolve", "--kernel", kernel + "1", P("corner.bmp"), P("dir.bmp")});
        const Dib out = ReadBmp(Path("dir.bmp"));
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                const int sx = std::clamp(x + c.b - c.n / 2, 0, kW - 1), sy = std::clamp(y + c.a - c.n / 2, 0, kH - 1);
                ASSERT_EQ(out.At(x, y).g, bright(sx, sy) ? 200 : 50) << kernel << " at " << x << "," << y;
            }
    }
}

// JPEG EXIF orientation on a 16 x 8 picture, black left and white right
// (rotated clockwise, the left side goes to the top); a 16-bit PNG is read
// with a note that its samples lose their low bytes.
TEST_F(Paximg, InputsAreTurnedUprightAndReducedWithANote) {
    Bytes halves(16 * 8 * 3);
    for (size_t i = 0; i < halves.size(); ++i) halves[i] = (i / 3) % 16 < 8 ? 0 : 255;
    const Bytes jpeg = Encode(3, halves, 95, 16, 8);
    const struct {
        int orientation, w, h, darkX, darkY, brightX, brightY;
    } cases[] = {{1, 16, 8, 2, 4, 13, 4}, {3, 16, 8, 13, 4, 2, 4}, {6, 8, 16, 4, 2, 4, 13}, {8, 8, 16, 4, 13, 4, 2}};
    for (const auto &c : cases) {
        // APP1 "Exif": a little-endian TIFF header, one directory entry 0x0112 (SHORT).
        Bytes exif = {0xFF, 0xE1, 0, 34, 'E', 'x', 'i', 'f', 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0,
                      0x12, 0x01, 3, 0, 1, 0, 0, 0, (uint8_t)c.orientation, 0, 0, 0, 0, 0, 0, 0};
        Bytes file(jpeg.begin(), jpeg.begin() + 2);
        file.insert(file.end(), exif.begin(), exif.end());
        file.insert(file.end(), jpeg.begin() + 2, jpeg.end());
        WriteFile(Path("exif.jpg"), file);
        Ok({"convert", "--to", "rgb", P("exif.jpg"), P("exif.bmp")});
        const Dib d = ReadBmp(Path("exif.bmp"));
        ASSERT_EQ(std::vector<int>({d.width, d.height}), std::vector<int>({c.w, c.h})) << c.orientation;
        EXPECT_LT(d.At(c.darkX, c.darkY).g, 64) << c.orientation;
        EXPECT_GT(d.At(c.brightX, c.brightY).g, 192) << c.orientation;
    }
    // A 16-bit grey PNG of one row, 0xAB00 + x * 0x0101, stored uncompressed.
    auto crc = [](const uint8_t *p, size_t n) {
        uint32_t c = 0xFFFFFFFF;
        for (size_t i = 0; i < n; ++i) {
            c ^= p[i];
            for (int k = 0; k < 8; ++k) c = c & 1 ? 0xEDB88320 ^ (c >> 1) : c >> 1;
        }
        return ~c;
    };
    Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    auto chunk = [&](const char *type, const Bytes &data) {
        Bytes c(4 + 4 + data.size());
        for (int i = 0; i < 4; ++i) c[i] = (uint8_t)(data.size() >> (24 - 8 * i)), c[4 + i] = (uint8_t)type[i];
        std::copy(data.begin(), data.end(), c.begin() + 8);
        const uint32_t sum = crc(&c[4], c.size() - 4);
        for (int i = 0; i < 4; ++i) c.push_back((uint8_t)(sum >> (24 - 8 * i)));
        png.insert(png.end(), c.begin(), c.end());
    };
    chunk("IHDR", {0, 0, 0, 4, 0, 0, 0, 1, 16, 0, 0, 0, 0});
    Bytes raw = {0};
    for (int x = 0; x < 4; ++x) raw.insert(raw.end(), {(uint8_t)(0xAB + x), (uint8_t)x});
    uint32_t a = 1, b = 0;
    for (uint8_t v : raw) a = (a + v) % 65521, b = (b + a) % 65521;
    Bytes z = {0x78, 0x01, 1, (uint8_t)raw.size(), 0, (uint8_t)~raw.size(), 0xFF};
    z.insert(z.end(), raw.begin(), raw.end());
    for (int i = 0; i < 4; ++i) z.push_back((uint8_t)((b << 16 | a) >> (24 - 8 * i)));
    chunk("IDAT", z);
    chunk("IEND", {});
    WriteFile(Path("deep.png"), png);
    ToolRun r = RunTool({"convert", "--to", "rgb", P("deep.png"), P("deep.bmp")});
    ASSERT_EQ(r.status, 0) << Describe(r);
    EXPECT_NE(r.output.find("16-bit samples"), std::string::npos) << r.output;
    for (int x = 0; x < 4; ++x) EXPECT_EQ(ReadBmp(Path("deep.bmp")).At(x, 0).r, 0xAB + x);
}

// JPEG output read back, grey results as grey PNG, several inputs into a
// folder, and the standard input and output: each file as a single run makes it.
TEST_F(Paximg, OutputsBatchesAndStreams) {
    Ok({"desaturate", P("in.bmp"), P("single.png")});
    Ok({"desaturate", P("in.bmp"), P("single.bmp")});
    Ok({"desaturate", "--quality", "95", P("in.bmp"), P("single.jpg")});
    Ok({"convert", "--to", "rgb", P("single.jpg"), P("back.bmp")});
    const Dib exact = ReadBmp(Path("single.bmp")), back = ReadBmp(Path("back.bmp"));
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) EXPECT_NEAR(back.At(x, y).g, exact.At(x, y).g, 12) << x << "," << y;
    // PNG header: bit depth at byte 24, colour type at 25 (0 grey, 2 RGB).
    Ok({"ordered", P("grey.bmp"), P("ordered.png")});
    Ok({"dither", "--bits", "8", P("in.bmp"), P("colour.png")});
    const Bytes grey = ReadFile(Path("ordered.png")), colour = ReadFile(Path("colour.png"));
    EXPECT_EQ(std::vector<int>({grey[24], grey[25], colour[24], colour[25]}), std::vector<int>({8, 0, 8, 2}));

    fs::create_directories(Path("batch"));
    WriteFile(Path("text.bmp"), Bytes{'h', 'i'});
    ToolRun r = RunTool({"desaturate", "--output-dir", P("batch"), "--format", "png", P("in.bmp"), P("text.bmp"), P("grey.bmp")});
    EXPECT_EQ(r.status, 1) << Describe(r);
    EXPECT_NE(r.output.find("1 of 3 images failed"), std::string::npos) << r.output;
    EXPECT_EQ(ReadFile(Path("batch/in.png")), ReadFile(Path("single.png")));
    EXPECT_TRUE(fs::exists(Path("batch/grey.png")));
    EXPECT_FALSE(fs::exists(Path("batch/text.png")));

    for (const char *format : {"bmp", "png"}) {
        r = RunTool({"desaturate", "--format", format, "-", "-"}, P("in.bmp"), P("piped.out"));
        EXPECT_EQ(r.status, 0) << Describe(r);
        EXPECT_EQ(ReadFile(Path("piped.out")), ReadFile(Path(std::string("single.") + format))) << format;
    }
}

// ---------------------------------------------------------------------------
// Errors: a message, a status, and no output file.

TEST_F(Paximg, ErrorsSayWhatWentWrong) {
    const Bytes good = BmpFile(TestDib24());
    // The good file with 32-bit fields of the header changed: {offset, value}.
    auto patched = [&](std::vector<std::pair<int, uint32_t>> fields) {
        Bytes b = good;
        for (const auto &f : fields) Put(&b[14 + f.first], f.second);
        return b;
    };
    WriteFile(Path("text.bmp"), Bytes{'h', 'e', 'l', 'l', 'o', '\n'});
    WriteFile(Path("empty.bmp"), Bytes{});
    WriteFile(Path("cut.bmp"), Bytes(good.begin(), good.begin() + good.size() / 2));
    WriteFile(Path("deep.bmp"), patched({{12, 1 | 16 << 16}}));
    WriteFile(Path("rle.bmp"), patched({{16, 1}}));
    WriteFile(Path("huge.bmp"), patched({{4, 40000}}));
    WriteFile(Path("toomuch.bmp"), patched({{4, 30000}, {8, 30000}, {12, 1 | 32 << 16}})); // 3.6 GB of pixels
    const std::string in = P("in.bmp"), out = P("out.bmp"), d = "desaturate";
    const struct {
        std::vector<std::string> args;
        int status;
        const char *message, *output;
    } cases[] = {
        {{d, P("missing.bmp"), out}, 1, "cannot open", "out.bmp"},
        {{d, P("text.bmp"), out}, 1, "not a BMP, PNG or JPEG file", "out.bmp"},
        {{d, P("empty.bmp"), out}, 1, "is empty", "out.bmp"},
        {{d, P("cut.bmp"), out}, 1, "truncated", "out.bmp"},
        {{d, P("deep.bmp"), out}, 1, "16 bits per pixel", "out.bmp"},
        {{d, P("rle.bmp"), out}, 1, "compressed BMP", "out.bmp"},
        {{d, P("huge.bmp"), out}, 1, "at most 32767 pixels a side", "out.bmp"},
        {{d, P("toomuch.bmp"), out}, 1, "too large for memory", "out.bmp"},
        {{d, "--bogus", in, out}, 2, "unknown option --bogus", "out.bmp"},
        {{d, in}, 2, "expected INPUT OUTPUT", "out.bmp"},
        {{d, in, P("out.gif")}, 2, "name it .bmp, .png or .jpg", "out.gif"},
        {{d, "--format", "gif", in, "-"}, 2, "--format takes bmp, png or jpg", "out.bmp"},
        {{d, "--format", "png", in, out}, 2, "does not match the output", "out.bmp"},
        {{d, g_dir.string(), out}, 1, "is a directory", "out.bmp"},
        {{d, in, "--output-dir", P("no-such-folder")}, 1, "does not exist", "no-such-folder/in.bmp"},
        {{d, in, P("no-such-folder/out.bmp")}, 1, "cannot write", "no-such-folder/out.bmp"},
        {{"no-such-command"}, 2, "unknown command", "out.bmp"},
        {{"hue-saturation", "--hue", "400", in, out}, 2, "--hue must be between -180 and 180", "out.bmp"},
        {{"hue-saturation", "--hue", "ten", in, out}, 2, "takes a whole number", "out.bmp"},
        {{"gamma", "--gamma", "5", in, out}, 2, "between 10 and 500", "out.bmp"},
        // The library's code, translated: the image is plain RGB, not Lab.
        {{"convert", "--from", "lab", "--to", "rgb", in, out}, 1, "CCE_BADMODEL, 2", "out.bmp"},
        {{"convert", "--to", "purple", in, out}, 2, "--to takes one of", "out.bmp"},
        {{"convert", "--to", "lab", in, P("lab.png")}, 2, "cannot be a PNG", "lab.png"},
        {{"color", "--from", "cmyk", "--to", "rgb", "1,2,3"}, 2, "has 4 components", "out.bmp"},
        {{"dither", "--method", "sharp", "--bits", "8", in, out}, 2, "--bits for sharp is 1 or 4", "out.bmp"},
        {{"dither", "--bits", "8", P("grey.bmp"), out}, 1, "not below the image's 8 bits", "out.bmp"},
        // The convolution's limits, named before the library is called.
        {{"convolve", "--type", "mean", "--size", "4", in, out}, 2, "--size must be odd", "out.bmp"},
        {{"convolve", "--type", "sharpen", "--size", "7", in, out}, 2, "--size 7 is taken only by", "out.bmp"},
        {{"convolve", "--kernel", "128,0,0,0,0,0,0,0,0,1", in, out}, 2, "outside -127..127", "out.bmp"},
        {{"convolve", "--kernel", "0,100,0,0,0,0,0,0,28,1", in, out}, 2, "positive weights add up to 128", "out.bmp"},
        {{"convolve", "--kernel", "-100,0,0,0,0,0,0,0,-28,0", in, out}, 2, "negative weights add up to -128", "out.bmp"},
        {{"convolve", "--filter-file", P("short.flt"), in, out}, 2, "holds 19 bytes; a 3 x 3 filter needs 20", "out.bmp"},
        {{"convolve", "--filter-file", P("big.flt"), in, out}, 2, "weight -200 is outside", "out.bmp"},
    };
    WriteFile(Path("short.flt"), Bytes(19, 0));
    Bytes big(20, 0);
    Put(&big[8], (uint16_t)-200, 2);
    WriteFile(Path("big.flt"), big);
    for (const auto &c : cases) Refused(c.args, c.status, c.message, c.output);
    EXPECT_EQ(RunTool({"bogus"}).output.find("bogus --help"), std::string::npos);
    // An existing output is replaced only by a finished file.
    WriteFile(Path("keep.bmp"), Bytes{'o', 'l', 'd'});
    EXPECT_EQ(RunTool({"desaturate", P("cut.bmp"), P("keep.bmp")}).status, 1);
    EXPECT_EQ(ReadFile(Path("keep.bmp")), (Bytes{'o', 'l', 'd'}));
}

// Truncated and corrupted BMP, PNG and JPEG files: never a crash, and never a
// file written after a failure.
TEST_F(Paximg, MalformedFilesNeverCrash) {
    Ok({"convert", "--to", "rgb", P("in.bmp"), P("src.png")});
    Bytes rgb(kW * kH * 3);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = (uint8_t)(i * 7);
    const std::pair<std::string, Bytes> sources[] = {
        {"bmp", BmpFile(TestDib24())}, {"png", ReadFile(Path("src.png"))}, {"jpg", Encode(3, rgb, 80)}};
#ifdef _WIN32
    const int variants = 6; // each run starts a Windows process under Wine
#else
    const int variants = 16;
#endif
    std::mt19937 rng(20261123);
    int runs = 0, refused = 0;
    for (const auto &source : sources) {
        const Bytes &good = source.second;
        for (int v = 0; v < variants; ++v, ++runs) {
            Bytes bad = good;
            if (v % 2 == 0) bad.resize(rng() % good.size()); // truncated
            else
                for (int k = 0; k < 4; ++k) bad[rng() % std::min<size_t>(bad.size(), 80)] = (uint8_t)rng();
            const std::string in = "bad." + source.first;
            WriteFile(Path(in), bad);
            fs::remove(Path("bad-out.bmp"));
            ToolRun r = RunTool({"convert", "--to", "rgb", P(in), P("bad-out.bmp")});
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
    if (!std::getenv("DISPLAY")) GTEST_SKIP() << "no display";
    WriteInput("pg.bmp", MakeDib(300, 200, 24, {}, [](int x, int y) { return (uint32_t)(x * 977 + y * 131); }));
    Ok({"convert", "--progress", "--to", "hsv", P("pg.bmp"), P("pg-hsv.bmp")});
    EXPECT_EQ(ReadBmp(Path("pg-hsv.bmp")).compression, 14u);
}
#else
// On a terminal the tool shows the stand-in's text bar, and Ctrl-C cancels:
// the operation stops, nothing is written, and the status says so.
TEST_F(Paximg, CtrlCOnATerminalCancels) {
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
