// The library's export table as a host sees it: the built library is loaded
// at run time and every function is looked up by name (and on Windows by
// ordinal). The full table of 93 names and ordinals is written out here and
// the module definition must equal it exactly. On Windows the version record,
// the manifest and the progress dialog's template are read back as well.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <unistd.h>
#endif

namespace {

struct Export {
    int ordinal;
    const char *name;
};

// Every export of PAXIMGUser.dll; ordinals 1 and 77 are not assigned.
const Export kFullTable[] = {
    {2, "ConvertDIBColorSpace"}, {3, "ConvertColorSpace"},  {4, "GetLastColorConvertError"},
    {5, "RGBtoHSV"},   {6, "HSVtoRGB"},   {7, "RGBtoHSI"},   {8, "HSItoRGB"},
    {9, "RGBtoCMY"},   {10, "CMYtoRGB"},  {11, "RGBtoYIQ"},  {12, "YIQtoRGB"},
    {13, "YIQtoYUV"},  {14, "YUVtoYIQ"},  {15, "CMYtoYIQ"},  {16, "CMYtoYUV"},
    {17, "YIQtoCMY"},  {18, "YUVtoCMY"},  {19, "CMYtoCMYK"}, {20, "CMYKtoCMY"},
    {21, "CMYKtoRGB"}, {22, "RGBtoCMYK"}, {23, "CMYKtoYUV"}, {24, "YUVtoCMYK"},
    {25, "CMYKtoYIQ"}, {26, "YIQtoCMYK"}, {27, "YUVtoHSV"},  {28, "HSVtoYUV"},
    {29, "HSVtoYIQ"},  {30, "YIQtoHSV"},  {31, "HSVtoCMY"},  {32, "CMYtoHSV"},
    {33, "HSVtoCMYK"}, {34, "CMYKtoHSV"}, {35, "XYZtoYUV"},  {36, "YUVtoXYZ"},
    {37, "XYZtoYIQ"},  {38, "YIQtoXYZ"},  {39, "CMYtoXYZ"},  {40, "XYZtoCMY"},
    {41, "XYZtoCMYK"}, {42, "CMYKtoXYZ"}, {43, "XYZtoHSV"},  {44, "HSVtoXYZ"},
    {45, "RGBtoLAB"},  {46, "LABtoRGB"},  {47, "LABtoYUV"},  {48, "YUVtoLAB"},
    {49, "LABtoYIQ"},  {50, "YIQtoLAB"},  {51, "HSVtoLAB"},  {52, "LABtoHSV"},
    {53, "LABtoCMY"},  {54, "CMYtoLAB"},  {55, "LABtoCMYK"}, {56, "CMYKtoLAB"},
    {57, "XYZtoLAB"},  {58, "LABtoXYZ"},  {59, "YIQtoHSI"},  {60, "HSItoYIQ"},
    {61, "YUVtoHSI"},  {62, "HSItoYUV"},  {63, "HSVtoHSI"},  {64, "HSItoHSV"},
    {65, "HSItoCMY"},  {66, "CMYtoHSI"},  {67, "CMYKtoHSI"}, {68, "HSItoCMYK"},
    {69, "HSItoXYZ"},  {70, "XYZtoHSI"},  {71, "HSItoLAB"},  {72, "LABtoHSI"},
    {73, "RGBtoYUV"},  {74, "RGBtoXYZ"},  {75, "YUVtoRGB"},  {76, "XYZtoRGB"},
    {78, "ColorConvolution"}, {79, "ColorBrightnessContrast"}, {80, "DitherFS4"},
    {81, "DitherJJN"}, {82, "DitherSmooth"}, {83, "DitherSharp"},
    {84, "ColorHueSaturation"}, {85, "ColorCMYKLevels"}, {86, "Desaturate"},
    {87, "ReplaceColor"}, {88, "DitherStucki"}, {89, "DitherBurkes"}, {90, "DitherSierra"},
    {91, "DitherOrdered"}, {92, "DitherSA"}, {93, "GammaCorrection"},
    {94, "SplitColorChannels"}, {95, "GetPaxImageVersion"},
};
constexpr size_t kFullCount = sizeof kFullTable / sizeof kFullTable[0];
static_assert(kFullCount == 93, "93 exports");

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

// The module definition as the build copied it beside this program: the
// LIBRARY name and the EXPORTS lines as (name, ordinal).
std::vector<std::pair<std::string, int>> ReadModuleDefinition(std::string &libraryName) {
    std::vector<std::pair<std::string, int>> exports;
    std::ifstream in(OwnFolder() + "PAXIMGUser.def");
    std::string line, first, at;
    bool inExports = false;
    while (std::getline(in, line)) {
        std::istringstream words(line.substr(0, line.find(';')));
        if (!(words >> first)) continue;
        if (first == "LIBRARY") words >> libraryName;
        else if (first == "EXPORTS") inExports = true;
        else if (inExports) {
            at.clear();
            words >> at;
            exports.push_back({first, at.size() > 1 && at[0] == '@' ? std::atoi(at.c_str() + 1) : -1});
        }
    }
    return exports;
}

#ifdef _WIN32
HMODULE g_library = nullptr;
void *ByName(const char *name) { return reinterpret_cast<void *>(GetProcAddress(g_library, name)); }
void *ByOrdinal(int ordinal) {
    return reinterpret_cast<void *>(GetProcAddress(g_library, MAKEINTRESOURCEA(ordinal)));
}
#else
void *g_library = nullptr;
void *ByName(const char *name) { return dlsym(g_library, name); }
#endif

class ExportTable : public testing::Test {
protected:
    static void SetUpTestSuite() {
#ifdef _WIN32
        g_library = LoadLibraryA((OwnFolder() + "PAXIMGUser.dll").c_str());
#else
        g_library = dlopen((OwnFolder() + "libPAXIMGUser.so").c_str(), RTLD_NOW | RTLD_LOCAL);
#endif
    }
    void SetUp() override { ASSERT_NE(g_library, nullptr); }
};

TEST_F(ExportTable, ModuleDefinitionIsTheFullTable) {
    std::string libraryName;
    const auto def = ReadModuleDefinition(libraryName);
    EXPECT_EQ(libraryName, "\"PAXIMGUser.dll\"");
    ASSERT_EQ(def.size(), kFullCount) << "PAXIMGUser.def missing or incomplete";
    for (size_t i = 0; i < kFullCount; ++i) {
        EXPECT_EQ(def[i].first, kFullTable[i].name);
        EXPECT_EQ(def[i].second, kFullTable[i].ordinal) << def[i].first;
    }
}

// Every name is exported undecorated and callable; no other spelling finds one.
TEST_F(ExportTable, EveryNameIsFoundExactly) {
    for (const Export &e : kFullTable) EXPECT_NE(ByName(e.name), nullptr) << e.name;
    for (const char *wrong : {"getlastcolorconverterror", "_GetPaxImageVersion", "GetPaxImageVersion@8"})
        EXPECT_EQ(ByName(wrong), nullptr) << wrong;
    auto version = reinterpret_cast<void (*)(char *, int)>(ByName("GetPaxImageVersion"));
    ASSERT_NE(version, nullptr);
    char text[32];
    std::memset(text, '#', sizeof text);
    version(text, 14);
    EXPECT_STREQ(text, "Version 12.08");
}

#ifdef _WIN32
// By ordinal each export is the same function as by name; 1, 77 and 96 find
// nothing, and the export directory names the module and holds only the table.
TEST_F(ExportTable, OrdinalsAndExportDirectory) {
    for (const Export &e : kFullTable) {
        EXPECT_NE(ByOrdinal(e.ordinal), nullptr) << e.name << " @" << e.ordinal;
        EXPECT_EQ(ByOrdinal(e.ordinal), ByName(e.name)) << e.name << " @" << e.ordinal;
    }
    for (int unassigned : {1, 77, 96}) EXPECT_EQ(ByOrdinal(unassigned), nullptr) << unassigned;
    auto version = reinterpret_cast<void(WINAPI *)(char *, int)>(ByOrdinal(95));
    char text[32] = {};
    version(text, 32);
    EXPECT_STREQ(text, "Version 12.08");

    auto *base = reinterpret_cast<const BYTE *>(g_library);
    auto *dos = reinterpret_cast<const IMAGE_DOS_HEADER *>(base);
    auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS64 *>(base + dos->e_lfanew);
    ASSERT_EQ(nt->Signature, (DWORD)IMAGE_NT_SIGNATURE);
    const IMAGE_DATA_DIRECTORY &dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    auto *exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY *>(base + dir.VirtualAddress);
    EXPECT_STREQ(reinterpret_cast<const char *>(base + exports->Name), "PAXIMGUser.dll");
    EXPECT_EQ(exports->NumberOfNames, kFullCount);
}

// A resource of language 1033 (U.S. English).
std::vector<BYTE> Resource(LPCSTR type, LPCSTR name) {
    HRSRC r = FindResourceExA(g_library, type, name, MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US));
    const BYTE *data = r ? static_cast<const BYTE *>(LockResource(LoadResource(g_library, r))) : nullptr;
    return data ? std::vector<BYTE>(data, data + SizeofResource(g_library, r)) : std::vector<BYTE>();
}

using Resources = ExportTable;

TEST_F(Resources, VersionRecord) {
    char path[MAX_PATH] = {};
    GetModuleFileNameA(g_library, path, MAX_PATH);
    DWORD ignored = 0, size = GetFileVersionInfoSizeA(path, &ignored);
    ASSERT_GT(size, 0u);
    std::vector<BYTE> info(size);
    ASSERT_TRUE(GetFileVersionInfoA(path, 0, size, info.data()));
    VS_FIXEDFILEINFO *f = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueA(info.data(), "\\", reinterpret_cast<void **>(&f), &length));
    ASSERT_GE(length, sizeof(VS_FIXEDFILEINFO));
    const DWORD v12_0 = 12u << 16, v8_30 = (8u << 16) | 30u;
    EXPECT_EQ(std::vector<DWORD>({f->dwSignature, f->dwFileVersionMS, f->dwFileVersionLS, f->dwProductVersionMS,
                                  f->dwProductVersionLS, f->dwFileType, f->dwFileFlags & f->dwFileFlagsMask}),
              std::vector<DWORD>({0xFEEF04BDu, v12_0, v8_30, v12_0, v8_30, (DWORD)VFT_DLL, 0u}));

    WORD *translation = nullptr; // language, code page
    ASSERT_TRUE(VerQueryValueA(info.data(), "\\VarFileInfo\\Translation",
                               reinterpret_cast<void **>(&translation), &length));
    ASSERT_GE(length, 4u);
    EXPECT_EQ(translation[0], 1033);
    char block[64];
    std::snprintf(block, sizeof block, "\\StringFileInfo\\%04x%04x\\", translation[0], translation[1]);
    const std::map<std::string, std::string> expected = {
        {"FileDescription", "PaxImgUser"},   {"InternalName", "PaxImgUser"},
        {"OriginalFilename", "PaxImgUser.dll"}, {"ProductName", "PaxImgUser.dll"},
        {"FileVersion", "12, 0, 8, 30"},     {"ProductVersion", "12, 0, 8, 30"},
        {"Comments", "Release version"},
    };
    for (const auto &kv : expected) {
        char *value = nullptr;
        const std::string query = block + kv.first;
        ASSERT_TRUE(VerQueryValueA(info.data(), query.c_str(), reinterpret_cast<void **>(&value), &length))
            << kv.first;
        EXPECT_STREQ(value, kv.second.c_str()) << kv.first;
    }
}

TEST_F(Resources, ManifestAsksToRunAsInvoker) {
    std::vector<BYTE> manifest = Resource(MAKEINTRESOURCEA(24), MAKEINTRESOURCEA(2));
    const std::string text(manifest.begin(), manifest.end());
    for (const char *part : {"requestedExecutionLevel", "level=\"asInvoker\"", "uiAccess=\"false\""})
        EXPECT_NE(text.find(part), std::string::npos) << part;
}

// Reads a DLGTEMPLATE back field by field; past the end every word is 0xEEEE.
class TemplateReader {
public:
    explicit TemplateReader(const std::vector<BYTE> &data) : data_(data) {}
    WORD Word() {
        if (at_ + 2 > data_.size()) return ended_ = true, 0xEEEE;
        at_ += 2;
        return (WORD)(data_[at_ - 2] | data_[at_ - 1] << 8);
    }
    DWORD Dword() { return Word() | (DWORD)Word() << 16; }
    // A string or, after 0xFFFF, an ordinal (given back as "#n").
    std::string Text() {
        WORD first = Word();
        if (first == 0xFFFF) return "#" + std::to_string(Word());
        std::string s;
        for (WORD c = first; c && !ended_; c = Word()) s += (char)c;
        return s;
    }
    void AlignDword() { at_ = (at_ + 3) & ~(size_t)3; }
    bool ended_ = false;

private:
    const std::vector<BYTE> &data_;
    size_t at_ = 0;
};

TEST_F(Resources, ProgressDialogTemplate) {
    std::vector<BYTE> data = Resource(MAKEINTRESOURCEA(5) /* RT_DIALOG */, "PROGRESSDLG");
    ASSERT_FALSE(data.empty()) << "no dialog PROGRESSDLG";
    TemplateReader r(data);
    // A plain template (not extended), no caption, not visible, no extended style.
    EXPECT_EQ(r.Dword(), (DWORD)(WS_POPUP | DS_MODALFRAME | DS_CENTER | DS_SETFONT));
    EXPECT_EQ(r.Dword(), 0u);
    // Items, x, y, cx, cy, then menu, class, title, font size and face.
    std::vector<int> header;
    for (int i = 0; i < 5; ++i) header.push_back((short)r.Word());
    EXPECT_EQ(header, std::vector<int>({3, 0, 0, 186, 62}));
    std::vector<std::string> texts;
    for (int i = 0; i < 3; ++i) texts.push_back(r.Text());
    texts.push_back(std::to_string(r.Word()));
    texts.push_back(r.Text());
    EXPECT_EQ(texts, std::vector<std::string>({"", "", "", "8", "MS Sans Serif"}));

    // Each control: style, extended style, x, y, cx, cy, id, class, text, extra bytes.
    const std::string expected[3] = {
        std::to_string(WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON) + " 0 67 41 50 14 2 #128 &Cancel 0",
        std::to_string(WS_CHILD | WS_VISIBLE | WS_BORDER | 0x01 /* PBS_SMOOTH */) +
            " 0 7 20 172 14 1000 msctls_progress32 Progress1 0",
        std::to_string(WS_CHILD | WS_VISIBLE | WS_GROUP | SS_LEFT) + " 0 7 7 54 8 65535 #130 Process Image... 0",
    };
    for (const std::string &want : expected) {
        r.AlignDword();
        std::string got = std::to_string(r.Dword());
        got += " " + std::to_string(r.Dword());
        for (int i = 0; i < 4; ++i) got += " " + std::to_string((short)r.Word());
        got += " " + std::to_string(r.Word());
        std::string cls = r.Text(); // compared without regard to case, as the system does
        for (char &c : cls) c = (char)tolower((unsigned char)c);
        got += " " + cls + " " + r.Text();
        got += " " + std::to_string(r.Word());
        EXPECT_EQ(got, want);
        EXPECT_FALSE(r.ended_) << "template ends early";
    }
}
#endif

} // namespace
