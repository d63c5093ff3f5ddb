// paximg end to end: the test starts the built tool as a user would and
// checks its exit statuses, messages and files. The runs are data, in
// paximg_cases.txt beside this file (its head explains the notation); they
// pin each output with a digest beside worked examples computed by hand.
// Ctrl-C on a terminal is tried here in code.
//
// The library's export table as a host sees it. export_table.txt holds the
// module's name and the full table of 93 names and ordinals; the module
// definition must list exactly that, and the built library, loaded at run
// time, must export each name (and on Windows each ordinal, the same
// function). On Windows the export directory, the version record, the
// manifest and the progress dialog's template are read back as well. Runs in
// the folder of the build's programs, where both tables are copied.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
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

namespace fs = std::filesystem;

namespace {


using Bytes = std::vector<uint8_t>;

// The test runs in the folder of the build's programs (the shell finds
// paximg.exe on Windows). The tool runs in the scratch folder made there; the
// cases name their files relative to it.
const fs::path g_tool = fs::absolute("paximg");
const fs::path g_dir =
    fs::absolute("paximg-tests-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));

Bytes ReadFile(const fs::path &name) {
    std::ifstream in(g_dir / name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
uint32_t Le(const uint8_t *p, int bytes = 4) {
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | p[i];
    return v;
}
size_t Stride(int width, int bits) { return ((size_t)width * bits + 31) / 32 * 4; }

// Runs the tool in the scratch folder through the shell with `args` (shell
// words, redirections among them); gives back the exit status and the
// messages: standard error, and standard output unless redirected.
std::pair<int, std::string> RunTool(const std::string &args) {
    static int runs = 0;
    const std::string log = "run" + std::to_string(++runs) + ".txt";
    std::string line = "cd \"" + g_dir.string() + "\" && \"" + g_tool.string() + "\"" + args;
    line += args.find(" >") == std::string::npos ? " >" + log + " 2>&1" : " 2>" + log;
    int status = std::system(line.c_str());
    // -1: the command shell did not start at all (seen now and then under
    // Wine on a loaded machine), which says nothing about the tool.
    for (int retry = 0; status == -1 && retry < 2; ++retry) status = std::system(line.c_str());
#ifndef _WIN32
    status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
#endif
    const Bytes text = ReadFile(log);
    const std::string output(text.begin(), text.end());
    // A sanitizer's report would also end with status 1.
    EXPECT_TRUE(output.find("Sanitizer") == std::string::npos && output.find("runtime error") == std::string::npos)
        << output;
    for (const auto &e : fs::recursive_directory_iterator(g_dir)) // no temporary file is left behind
        EXPECT_EQ(e.path().filename().string().find(".partial-"), std::string::npos) << e.path();
    return {status, output};
}

template <class Text>
uint64_t Digest(const Text &bytes) { // FNV-1a, 64 bits
    uint64_t h = 14695981039346656037ull;
    for (uint8_t v : bytes) h = (h ^ v) * 1099511628211ull;
    return h;
}

// A whole BMP file: its sizes agree and every row is there.
bool IsBmp(const Bytes &f) {
    if (f.size() < 54 || f[0] != 'B' || f[1] != 'M' || Le(&f[2]) != f.size() || Le(&f[14]) != 40) return false;
    const int w = (int)Le(&f[18]), h = (int)Le(&f[22]), bits = (int)Le(&f[28], 2);
    const uint32_t entries = bits > 8 ? 0 : Le(&f[46]) ? Le(&f[46]) : 1u << bits;
    return w > 0 && h > 0 && Le(&f[10]) == 54 + entries * 4 && Le(&f[10]) + Stride(w, bits) * h <= f.size();
}
// The colour 0xRRGGBB of pixel (x, y), y = 0 the top row.
uint32_t Pixel(const Bytes &f, int x, int y) {
    const int w = (int)Le(&f[18]), h = (int)Le(&f[22]), bits = (int)Le(&f[28], 2);
    const uint8_t *row = &f[Le(&f[10]) + (h - 1 - y) * Stride(w, bits)];
    if (bits >= 24) return Le(row + x * bits / 8, 3);
    const uint32_t index = row[x * bits / 8] >> (8 - bits - x * bits % 8) & ((1u << bits) - 1);
    return Le(&f[54 + 4 * index], 3);
}
int Distance(uint32_t a, uint32_t b) { // the largest difference of a component
    int d = 0;
    for (int shift : {0, 8, 16}) d = std::max(d, std::abs((int)(a >> shift & 255) - (int)(b >> shift & 255)));
    return d;
}

// One check of a file after a run; the notation is explained at the head
// of paximg_cases.txt.
void Check(const std::string &c) {
    SCOPED_TRACE(c);
    const size_t at = c.find_first_of("#=~:@");
    if (c[0] == '-' || at == std::string::npos) {
        EXPECT_TRUE(c[0] == '-' && !fs::exists(g_dir / c.substr(1)));
        return;
    }
    const fs::path name = c.substr(0, at);
    const std::string arg = c.substr(at + 1);
    if (fs::is_directory(g_dir / name)) {
        EXPECT_EQ(std::distance(fs::directory_iterator(g_dir / name), {}), std::stoi(arg));
        return;
    }
    const Bytes f = ReadFile(name);
    if (c[at] == '#') {
        EXPECT_EQ(Digest(f), std::stoull(arg, nullptr, 16)) << std::hex << Digest(f);
    } else if (c[at] == '=') {
        EXPECT_TRUE(f == ReadFile(arg)) << "not the bytes of " << arg;
    } else if (arg.rfind("png", 0) == 0) {
        ASSERT_TRUE(f.size() > 26 && std::memcmp(f.data(), "\x89PNG\r\n\x1a\n", 8) == 0);
        EXPECT_TRUE(arg == "png" || arg == "png=" + std::to_string(f[24]) + "," + std::to_string(f[25]))
            << +f[24] << "," << +f[25];
    } else if (!IsBmp(f)) {
        ADD_FAILURE() << "not a whole BMP file";
    } else if (c[at] == ':') { // width, height, depth, tag and resolution (x, y)
        std::string header;
        for (int at : {18, 22, 28, 30, 38, 42}) header += "," + std::to_string((int)Le(&f[at], at == 28 ? 2 : 4));
        EXPECT_EQ(header.substr(1), arg);
    } else if (c[at] == '@') {
        int x = 0, y = 0, d = 0;
        unsigned rgb = 0;
        ASSERT_GE(std::sscanf(arg.c_str(), "%d,%d=%x~%d", &x, &y, &rgb, &d), 3);
        ASSERT_TRUE(x < (int)Le(&f[18]) && y < (int)Le(&f[22]));
        EXPECT_LE(Distance(Pixel(f, x, y), rgb), d) << std::hex << Pixel(f, x, y);
    } else {
        const Bytes other = ReadFile(arg.substr(0, arg.rfind(',')));
        ASSERT_TRUE(IsBmp(other) && Le(&f[18]) == Le(&other[18]) && Le(&f[22]) == Le(&other[22])) << arg;
        const int d = std::stoi(arg.substr(arg.rfind(',') + 1));
        for (int y = 0; y < (int)Le(&f[22]); ++y)
            for (int x = 0; x < (int)Le(&f[18]); ++x)
                ASSERT_LE(Distance(Pixel(f, x, y), Pixel(other, x, y)), d) << x << "," << y;
    }
}

// "file NAME PART...": a file of hexadecimal bytes (HEX*N: N times) and
// slices SOURCE[a:b] (b empty: to the end) of files made before.
void MakeFile(std::istream &words) {
    std::string name, part;
    Bytes f;
    for (words >> name; words >> part;) {
        const size_t open = part.find('['), colon = part.find(':');
        if (open == std::string::npos) {
            Bytes bytes;
            for (size_t i = 0; i + 1 < part.size() && part[i] != '*'; i += 2)
                bytes.push_back((uint8_t)std::stoul(part.substr(i, 2), nullptr, 16));
            for (size_t n = part.find('*') == std::string::npos ? 1 : std::stoul(part.substr(part.find('*') + 1)); n--;)
                f.insert(f.end(), bytes.begin(), bytes.end());
            continue;
        }
        const Bytes source = ReadFile(part.substr(0, open));
        const size_t a = std::stoul(part.substr(open + 1)),
                     b = part[colon + 1] == ']' ? source.size() : std::stoul(part.substr(colon + 1));
        ASSERT_TRUE(a <= b && b <= source.size()) << part;
        f.insert(f.end(), source.begin() + a, source.begin() + b);
    }
    std::ofstream(g_dir / name, std::ios::binary)
        .write(reinterpret_cast<const char *>(f.data()), (std::streamsize)f.size());
}

// The scratch folder, with the empty folder batch/ the cases expect; removed
// when the tests end.
struct Scratch {
    Scratch() { fs::create_directories(g_dir / "batch"); }
    ~Scratch() { fs::remove_all(g_dir, ignored); }
    std::error_code ignored;
} g_scratch;

// The runs of paximg_cases.txt, in order: each line a file made or
// "STATUS ARGS... | CHECKS...".
TEST(Paximg, Cases) {
    std::ifstream file("paximg_cases.txt");
    std::string text; // a line that starts with a blank goes on the one before
    for (std::string line; std::getline(file, line); text += (line[0] == ' ' ? " " : "\n") + line)
        if (!line.empty() && line.back() == '\r') line.pop_back();
    std::istringstream lines(text);
    int checks = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') continue;
        SCOPED_TRACE(line);
        std::istringstream words(line);
        std::string word, args;
        if (words >> word && word == "file") {
            MakeFile(words);
            continue;
        }
        const int status = std::stoi(word);
        while (words >> std::quoted(word) && word != "|")
            args += word[0] == '<' || word[0] == '>' ? " " + word : " \"" + word + "\"";
        const auto [got, output] = RunTool(args);
        EXPECT_EQ(got, status) << output;
        for (; words >> std::ws && !words.eof(); ++checks) {
            const bool quoted = words.peek() == '"';
            words >> std::quoted(word);
            const bool negated = quoted && word[0] == '!';
            if (quoted)
                EXPECT_EQ(output.find(word.substr(negated)) == std::string::npos, negated) << output;
            else
                Check(word);
        }
    }
    EXPECT_GT(checks, 200) << "paximg_cases.txt missing or cut short";
}

#ifndef _WIN32
// On a terminal the tool shows the stand-in's text bar, and Ctrl-C cancels:
// the operation stops, nothing is written, and the status says so.
TEST(Paximg, CtrlCOnATerminalCancels) {
    std::istringstream big("big.bmp 424D76548900000000003600000028000000D0070000DC050000010018 00*25 102030*3000000");
    MakeFile(big); // 2000 x 1500 at 24 bits
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        if (chdir(g_dir.c_str()) == 0)
            execl(g_tool.c_str(), "paximg", "convert", "--to", "lab", "big.bmp", "big-lab.bmp", nullptr);
        _exit(127);
    }
    // Wait for the bar, press Ctrl-C, and read the terminal until the program ends.
    std::string screen;
    char buffer[256];
    for (ssize_t n;
         screen.find("Process Image...") == std::string::npos && (n = read(master, buffer, sizeof buffer)) > 0;)
        screen.append(buffer, (size_t)n);
    ASSERT_NE(screen.find("Process Image..."), std::string::npos) << screen;
    kill(pid, SIGINT);
    for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) screen.append(buffer, (size_t)n);
    int status = 0;
    waitpid(pid, &status, 0);
    close(master);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << "status " << status << " (130: cancelled)";
    EXPECT_NE(screen.find("cancelled"), std::string::npos) << screen;
    for (const auto &e : fs::directory_iterator(g_dir)) // neither the output nor a temporary
        EXPECT_EQ(e.path().filename().string().rfind("big-lab", 0), std::string::npos) << e.path();
}
#endif

// ---- The export table ------------------------------------------------------

// The lines "LIBRARY NAME" and "NAME @ORDINAL" of a module definition, each
// with any further word joined on.
std::vector<std::pair<std::string, std::string>> ReadDefinition(const char *file) {
    std::vector<std::pair<std::string, std::string>> lines;
    std::ifstream in(file);
    for (std::string line, first, second, rest; std::getline(in, line);) {
        std::istringstream words(line.substr(0, line.find(';')));
        if (words >> first >> second) lines.push_back({first, second + (words >> rest ? " " + rest : "")});
    }
    return lines;
}

#ifdef _WIN32
const HMODULE g_library = LoadLibraryA("PAXIMGUser.dll");
void *Find(LPCSTR nameOrOrdinal) { return reinterpret_cast<void *>(GetProcAddress(g_library, nameOrOrdinal)); }
#else
void *const g_library = dlopen("./libPAXIMGUser.so", RTLD_NOW | RTLD_LOCAL);
void *Find(const char *name) { return dlsym(g_library, name); }
#endif

TEST(ExportTable, EveryExportByNameAndOrdinal) {
    ASSERT_NE(g_library, nullptr);
    const auto table = ReadDefinition("export_table.txt");
    ASSERT_EQ(table.size(), 94u) << "export_table.txt: the module's name and 93 exports";
    EXPECT_EQ(ReadDefinition("PAXIMGUser.def"), table) << "the module definition is not the full table";
    for (const auto &e : table) {
        if (e.first == "LIBRARY") continue;
        EXPECT_NE(Find(e.first.c_str()), nullptr) << e.first;
#ifdef _WIN32
        EXPECT_EQ(Find(MAKEINTRESOURCEA(std::stoi(e.second.substr(1)))), Find(e.first.c_str()))
            << e.first << " " << e.second;
#endif
    }
    // Names are undecorated and exact: no other spelling finds one.
    for (const char *wrong : {"getlastcolorconverterror", "_GetPaxImageVersion", "GetPaxImageVersion@8"})
        EXPECT_EQ(Find(wrong), nullptr) << wrong;
#ifdef _WIN32
    for (int unassigned : {1, 77, 96}) EXPECT_EQ(Find(MAKEINTRESOURCEA(unassigned)), nullptr) << unassigned;
    // The export directory names the module and holds only the table.
    auto *base = reinterpret_cast<const BYTE *>(g_library);
    auto *nt =
        reinterpret_cast<const IMAGE_NT_HEADERS64 *>(base + reinterpret_cast<const IMAGE_DOS_HEADER *>(base)->e_lfanew);
    auto *dir = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY *>(
        base + nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
    EXPECT_STREQ(reinterpret_cast<const char *>(base + dir->Name), "PAXIMGUser.dll");
    EXPECT_EQ(dir->NumberOfNames, table.size() - 1);
#endif
}

#ifdef _WIN32
// A resource of language 1033 (U.S. English), or nothing.
std::string Resource(LPCSTR type, LPCSTR name) {
    HRSRC r = FindResourceExA(g_library, type, name, MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US));
    const char *data = r ? static_cast<const char *>(LockResource(LoadResource(g_library, r))) : nullptr;
    return data ? std::string(data, SizeofResource(g_library, r)) : std::string();
}
std::string Utf16(const char *text) {
    std::string wide;
    for (; *text; ++text) wide += {*text, '\0'};
    return wide;
}

// The version record and the progress dialog's template are pinned whole by
// their FNV-1a digests, beside the fields a host reads.
TEST(ExportTable, Resources) {
    ASSERT_NE(g_library, nullptr);
    const std::string version = Resource(RT_VERSION, MAKEINTRESOURCEA(1)), dialog = Resource(RT_DIALOG, "PROGRESSDLG"),
                      manifest = Resource(MAKEINTRESOURCEA(24), MAKEINTRESOURCEA(2));
    EXPECT_EQ(Digest(version), 0xcfbd1595fdbb73e9ull);
    EXPECT_EQ(Digest(dialog), 0x68ce662cb99117e7ull);
    // The fixed part after "VS_VERSION_INFO": file and product version
    // 12.0.8.30 of a dynamic-link library without flags; the strings in
    // U.S. English, Unicode.
    ASSERT_GE(version.size(), 40 + sizeof(VS_FIXEDFILEINFO));
    const auto *f = reinterpret_cast<const VS_FIXEDFILEINFO *>(version.data() + 40);
    const DWORD v12_0 = 12u << 16, v8_30 = (8u << 16) | 30u;
    EXPECT_EQ(std::vector<DWORD>({f->dwSignature, f->dwFileVersionMS, f->dwFileVersionLS, f->dwProductVersionMS,
                                  f->dwProductVersionLS, f->dwFileType, f->dwFileFlags & f->dwFileFlagsMask}),
              std::vector<DWORD>({0xFEEF04BDu, v12_0, v8_30, v12_0, v8_30, (DWORD)VFT_DLL, 0u}));
    for (const char *text : {"040904b0", "FileDescription", "PaxImgUser", "OriginalFilename", "PaxImgUser.dll",
                             "FileVersion", "12, 0, 8, 30", "Comments", "Release version"})
        EXPECT_NE(version.find(Utf16(text)), std::string::npos) << text;
    // The dialog: popup, modal frame, centred, with a font; 3 items in 186 x
    // 62 units; the texts.
    ASSERT_GE(dialog.size(), 18u);
    EXPECT_EQ(*reinterpret_cast<const DWORD *>(dialog.data()),
              (DWORD)(WS_POPUP | DS_MODALFRAME | DS_CENTER | DS_SETFONT));
    EXPECT_EQ(std::string(dialog, 8, 10), std::string("\3\0\0\0\0\0\xBA\0\x3E\0", 10));
    for (const char *text : {"MS Sans Serif", "&Cancel", "Progress1", "Process Image..."})
        EXPECT_NE(dialog.find(Utf16(text)), std::string::npos) << text;
    // The manifest asks to run as the invoker.
    for (const char *part : {"requestedExecutionLevel", "level=\"asInvoker\"", "uiAccess=\"false\""})
        EXPECT_NE(manifest.find(part), std::string::npos) << part;
}
#endif

} // namespace
