// The library's export table as a host sees it: the built library is loaded
// at run time and every function is looked up by name (and on Windows by
// ordinal). The full table of 93 names and ordinals is written out here; the
// module definition says which of them this build exports, and once it lists
// all 93 it must equal the full table exactly. On Windows the version record,
// the manifest and the progress dialog's template are read back as well.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
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
    DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    std::string p(path, n);
    return p.substr(0, p.find_last_of("\\/") + 1);
#else
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    std::string p = n > 0 ? std::string(path, (size_t)n) : std::string("./x");
    return p.substr(0, p.find_last_of('/') + 1);
#endif
}

struct DefEntry {
    std::string name;
    int ordinal;
};

// The module definition as the build copied it beside this program.
struct ModuleDefinition {
    std::string libraryName;
    std::vector<DefEntry> exports;
};

ModuleDefinition ReadModuleDefinition() {
    ModuleDefinition def;
    std::ifstream in(OwnFolder() + "PAXIMGUser.def");
    std::string line;
    bool inExports = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        std::string code = line.substr(0, line.find(';'));
        std::istringstream words(code);
        std::string first;
        if (!(words >> first)) continue;
        if (first == "LIBRARY") {
            words >> def.libraryName;
            continue;
        }
        if (first == "EXPORTS") {
            inExports = true;
            continue;
        }
        if (!inExports) continue;
        std::string at;
        words >> at;
        DefEntry e{first, -1};
        if (at.size() > 1 && at[0] == '@') e.ordinal = std::atoi(at.c_str() + 1);
        else if (at == "@") words >> e.ordinal;
        def.exports.push_back(e);
    }
    return def;
}

const Export *FindInFullTable(const std::string &name) {
    for (const Export &e : kFullTable)
        if (name == e.name) return &e;
    return nullptr;
}

class ExportTable : public testing::Test {
protected:
    static void SetUpTestSuite() {
        def_ = new ModuleDefinition(ReadModuleDefinition());
#ifdef _WIN32
        library_ = LoadLibraryA((OwnFolder() + "PAXIMGUser.dll").c_str());
#else
        library_ = dlopen((OwnFolder() + "libPAXIMGUser.so").c_str(), RTLD_NOW | RTLD_LOCAL);
#endif
    }
    static void TearDownTestSuite() {
#ifdef _WIN32
        if (library_) FreeLibrary(library_);
#else
        if (library_) dlclose(library_);
#endif
        delete def_;
        library_ = nullptr;
        def_ = nullptr;
    }
    static void *ByName(const char *name) {
#ifdef _WIN32
        return reinterpret_cast<void *>(GetProcAddress(library_, name));
#else
        return dlsym(library_, name);
#endif
    }
#ifdef _WIN32
    static void *ByOrdinal(int ordinal) {
        return reinterpret_cast<void *>(GetProcAddress(library_, MAKEINTRESOURCEA(ordinal)));
    }
    static HMODULE library_;
#else
    static void *library_;
#endif
    static ModuleDefinition *def_;

    std::set<std::string> DefinedNames() const {
        std::set<std::string> names;
        for (const DefEntry &e : def_->exports) names.insert(e.name);
        return names;
    }
};
#ifdef _WIN32
HMODULE ExportTable::library_ = nullptr;
#else
void *ExportTable::library_ = nullptr;
#endif
ModuleDefinition *ExportTable::def_ = nullptr;

TEST_F(ExportTable, ModuleDefinitionFollowsTheFullTable) {
    ASSERT_FALSE(def_->exports.empty()) << "PAXIMGUser.def not found beside the test";
    EXPECT_EQ(def_->libraryName, "\"PAXIMGUser.dll\"");
    std::set<std::string> seen;
    int previous = 0;
    for (const DefEntry &e : def_->exports) {
        const Export *full = FindInFullTable(e.name);
        ASSERT_NE(full, nullptr) << e.name << " is not an export of the library";
        EXPECT_EQ(e.ordinal, full->ordinal) << e.name;
        EXPECT_TRUE(seen.insert(e.name).second) << e.name << " listed twice";
        EXPECT_GT(e.ordinal, previous) << e.name << " out of ordinal order";
        previous = e.ordinal;
    }
    // Once every family has landed the definition is the full table, exactly.
    if (def_->exports.size() == kFullCount) {
        for (size_t i = 0; i < kFullCount; ++i) {
            EXPECT_EQ(def_->exports[i].name, kFullTable[i].name);
            EXPECT_EQ(def_->exports[i].ordinal, kFullTable[i].ordinal);
        }
    }
    // The status and version exports are there from the start.
    EXPECT_EQ(seen.count("GetLastColorConvertError"), 1u);
    EXPECT_EQ(seen.count("GetPaxImageVersion"), 1u);
}

TEST_F(ExportTable, EveryDefinedNameIsFoundAndNoOtherNameOfTheTable) {
    ASSERT_NE(library_, nullptr);
    const std::set<std::string> defined = DefinedNames();
    ASSERT_FALSE(defined.empty());
    size_t found = 0;
    for (const Export &e : kFullTable) {
        void *address = ByName(e.name);
        if (defined.count(e.name)) {
            EXPECT_NE(address, nullptr) << e.name << " is in the module definition but not exported";
            found += address != nullptr;
        } else {
            EXPECT_EQ(address, nullptr) << e.name << " is exported but not in the module definition";
        }
    }
    EXPECT_EQ(found, defined.size());
    // Names are undecorated and exact: no other spelling finds them.
    EXPECT_EQ(ByName("getlastcolorconverterror"), nullptr);
    EXPECT_EQ(ByName("_GetPaxImageVersion"), nullptr);
    EXPECT_EQ(ByName("GetPaxImageVersion@8"), nullptr);
}

TEST_F(ExportTable, ExportsCanBeCalledThroughTheTable) {
    ASSERT_NE(library_, nullptr);
    using VersionFn = void (*)(char *, int);
    auto version = reinterpret_cast<VersionFn>(ByName("GetPaxImageVersion"));
    ASSERT_NE(version, nullptr);
    char text[32];
    std::memset(text, '#', sizeof text);
    version(text, 14);
    EXPECT_STREQ(text, "Version 12.08");
}

#ifdef _WIN32
TEST_F(ExportTable, EveryDefinedExportIsFoundByOrdinalAtTheSameAddress) {
    ASSERT_NE(library_, nullptr);
    const std::set<std::string> defined = DefinedNames();
    for (const Export &e : kFullTable) {
        void *byOrdinal = ByOrdinal(e.ordinal);
        if (defined.count(e.name)) {
            EXPECT_NE(byOrdinal, nullptr) << e.name << " @" << e.ordinal;
            EXPECT_EQ(byOrdinal, ByName(e.name)) << e.name << " @" << e.ordinal;
        } else {
            EXPECT_EQ(byOrdinal, nullptr) << "ordinal " << e.ordinal << " of " << e.name;
        }
    }
    // Importing by ordinal reaches the functions.
    using VersionFn = void(WINAPI *)(char *, int);
    auto version = reinterpret_cast<VersionFn>(ByOrdinal(95));
    ASSERT_NE(version, nullptr);
    char text[32] = {};
    version(text, 32);
    EXPECT_STREQ(text, "Version 12.08");
}

TEST_F(ExportTable, UnassignedOrdinalsFindNothing) {
    ASSERT_NE(library_, nullptr);
    EXPECT_EQ(ByOrdinal(1), nullptr);
    EXPECT_EQ(ByOrdinal(77), nullptr);
    EXPECT_EQ(ByOrdinal(96), nullptr);
}

// The export directory itself: module name, ordinal base, counts.
TEST_F(ExportTable, ExportDirectoryNamesTheModule) {
    ASSERT_NE(library_, nullptr);
    auto *base = reinterpret_cast<const BYTE *>(library_);
    auto *dos = reinterpret_cast<const IMAGE_DOS_HEADER *>(base);
    ASSERT_EQ(dos->e_magic, IMAGE_DOS_SIGNATURE);
    auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS64 *>(base + dos->e_lfanew);
    ASSERT_EQ(nt->Signature, (DWORD)IMAGE_NT_SIGNATURE);
    const IMAGE_DATA_DIRECTORY &dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    ASSERT_NE(dir.VirtualAddress, 0u);
    auto *exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY *>(base + dir.VirtualAddress);
    EXPECT_STREQ(reinterpret_cast<const char *>(base + exports->Name), "PAXIMGUser.dll");
    EXPECT_EQ(exports->NumberOfNames, def_->exports.size());
    // Every name in the table points at code: no data is exported.
    auto *names = reinterpret_cast<const DWORD *>(base + exports->AddressOfNames);
    for (DWORD i = 0; i < exports->NumberOfNames; ++i)
        EXPECT_NE(FindInFullTable(reinterpret_cast<const char *>(base + names[i])), nullptr)
            << reinterpret_cast<const char *>(base + names[i]);
}

class Resources : public ExportTable {
protected:
    static std::string LibraryPath() {
        char path[MAX_PATH] = {};
        GetModuleFileNameA(library_, path, MAX_PATH);
        return path;
    }
    // A resource of language 1033 (U.S. English).
    static std::vector<BYTE> Resource(LPCSTR type, LPCSTR name) {
        HRSRC r = FindResourceExA(library_, type, name, MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US));
        if (!r) return {};
        HGLOBAL loaded = LoadResource(library_, r);
        const BYTE *data = static_cast<const BYTE *>(LockResource(loaded));
        if (!data) return {};
        return std::vector<BYTE>(data, data + SizeofResource(library_, r));
    }
};

TEST_F(Resources, VersionRecord) {
    ASSERT_NE(library_, nullptr);
    const std::string path = LibraryPath();
    DWORD ignored = 0;
    DWORD size = GetFileVersionInfoSizeA(path.c_str(), &ignored);
    ASSERT_GT(size, 0u);
    std::vector<BYTE> info(size);
    ASSERT_TRUE(GetFileVersionInfoA(path.c_str(), 0, size, info.data()));
    VS_FIXEDFILEINFO *fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueA(info.data(), "\\", reinterpret_cast<void **>(&fixed), &length));
    ASSERT_GE(length, sizeof(VS_FIXEDFILEINFO));
    EXPECT_EQ(fixed->dwSignature, 0xFEEF04BDu);
    EXPECT_EQ(fixed->dwFileVersionMS, (12u << 16) | 0u);
    EXPECT_EQ(fixed->dwFileVersionLS, (8u << 16) | 30u);
    EXPECT_EQ(fixed->dwProductVersionMS, (12u << 16) | 0u);
    EXPECT_EQ(fixed->dwProductVersionLS, (8u << 16) | 30u);
    EXPECT_EQ(fixed->dwFileType, (DWORD)VFT_DLL);
    EXPECT_EQ(fixed->dwFileFlags & fixed->dwFileFlagsMask, 0u);

    struct Translation {
        WORD language, codePage;
    } *translation = nullptr;
    ASSERT_TRUE(VerQueryValueA(info.data(), "\\VarFileInfo\\Translation",
                               reinterpret_cast<void **>(&translation), &length));
    ASSERT_GE(length, sizeof(Translation));
    EXPECT_EQ(translation->language, 1033);
    char block[64];
    std::snprintf(block, sizeof block, "\\StringFileInfo\\%04x%04x\\", translation->language,
                  translation->codePage);
    const std::map<std::string, std::string> expected = {
        {"FileDescription", "PaxImgUser"},   {"InternalName", "PaxImgUser"},
        {"OriginalFilename", "PaxImgUser.dll"}, {"ProductName", "PaxImgUser.dll"},
        {"FileVersion", "12, 0, 8, 30"},     {"ProductVersion", "12, 0, 8, 30"},
        {"Comments", "Release version"},
    };
    for (const auto &kv : expected) {
        char *value = nullptr;
        UINT chars = 0;
        std::string query = block + kv.first;
        ASSERT_TRUE(VerQueryValueA(info.data(), query.c_str(), reinterpret_cast<void **>(&value), &chars))
            << kv.first;
        EXPECT_STREQ(value, kv.second.c_str()) << kv.first;
    }
}

TEST_F(Resources, ManifestAsksToRunAsInvoker) {
    ASSERT_NE(library_, nullptr);
    std::vector<BYTE> manifest = Resource(MAKEINTRESOURCEA(24), MAKEINTRESOURCEA(2));
    ASSERT_FALSE(manifest.empty()) << "no manifest resource 2";
    std::string text(manifest.begin(), manifest.end());
    EXPECT_NE(text.find("requestedExecutionLevel"), std::string::npos);
    EXPECT_NE(text.find("level=\"asInvoker\""), std::string::npos);
    EXPECT_NE(text.find("uiAccess=\"false\""), std::string::npos);
}

// Reads a DLGTEMPLATE back field by field.
class TemplateReader {
public:
    explicit TemplateReader(const std::vector<BYTE> &data) : data_(data) {}
    bool ok() const { return ok_; }
    DWORD Dword() {
        DWORD v = Word();
        return v | (DWORD)Word() << 16;
    }
    WORD Word() {
        if (at_ + 2 > data_.size()) {
            ok_ = false;
            return 0;
        }
        WORD v = (WORD)(data_[at_] | data_[at_ + 1] << 8);
        at_ += 2;
        return v;
    }
    short Short() { return (short)Word(); }
    // A string or, after 0xFFFF, an ordinal (given back as "#n").
    std::string StringOrOrdinal() {
        WORD first = Word();
        if (first == 0xFFFF) return "#" + std::to_string(Word());
        std::string s;
        for (WORD c = first; c && ok_; c = Word()) s += (char)c;
        return s;
    }
    void AlignDword() { at_ = (at_ + 3) & ~(size_t)3; }

private:
    const std::vector<BYTE> &data_;
    size_t at_ = 0;
    bool ok_ = true;
};

TEST_F(Resources, ProgressDialogTemplate) {
    ASSERT_NE(library_, nullptr);
    std::vector<BYTE> data = Resource(MAKEINTRESOURCEA(5) /* RT_DIALOG */, "PROGRESSDLG");
    ASSERT_FALSE(data.empty()) << "no dialog PROGRESSDLG";
    TemplateReader r(data);
    const DWORD style = r.Dword();
    EXPECT_NE(style >> 16, 0xFFFFu) << "a plain template, not an extended one";
    EXPECT_EQ(style, (DWORD)(WS_POPUP | DS_MODALFRAME | DS_CENTER | DS_SETFONT));
    EXPECT_EQ(style & (WS_CAPTION | WS_VISIBLE), 0u);
    EXPECT_EQ(r.Dword(), 0u) << "extended style";
    const WORD items = r.Word();
    EXPECT_EQ(items, 3);
    EXPECT_EQ(r.Short(), 0);
    EXPECT_EQ(r.Short(), 0);
    EXPECT_EQ(r.Short(), 186);
    EXPECT_EQ(r.Short(), 62);
    EXPECT_EQ(r.StringOrOrdinal(), "") << "menu";
    EXPECT_EQ(r.StringOrOrdinal(), "") << "class";
    EXPECT_EQ(r.StringOrOrdinal(), "") << "title";
    EXPECT_EQ(r.Word(), 8) << "font size";
    EXPECT_EQ(r.StringOrOrdinal(), "MS Sans Serif");

    struct Control {
        WORD id;
        std::string cls, text;
        DWORD style;
        short x, y, cx, cy;
    };
    const Control expected[] = {
        {IDCANCEL, "#128", "&Cancel", WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON, 67, 41, 50, 14},
        {1000, "msctls_progress32", "Progress1", WS_CHILD | WS_VISIBLE | WS_BORDER | 0x01 /* PBS_SMOOTH */,
         7, 20, 172, 14},
        {0xFFFF, "#130", "Process Image...", WS_CHILD | WS_VISIBLE | WS_GROUP | SS_LEFT, 7, 7, 54, 8},
    };
    for (size_t i = 0; i < 3 && i < items; ++i) {
        const Control &want = expected[i];
        r.AlignDword();
        const DWORD cStyle = r.Dword();
        const DWORD cExStyle = r.Dword();
        const short x = r.Short(), y = r.Short(), cx = r.Short(), cy = r.Short();
        const WORD id = r.Word();
        std::string cls = r.StringOrOrdinal();
        std::string text = r.StringOrOrdinal();
        const WORD extra = r.Word();
        ASSERT_TRUE(r.ok()) << "template ends early at control " << i;
        SCOPED_TRACE("control " + std::to_string(i) + " (" + want.text + ")");
        // Class names are compared without regard to case, as the system does.
        for (char &c : cls) c = (char)tolower((unsigned char)c);
        EXPECT_EQ(id, want.id);
        EXPECT_EQ(cls, want.cls);
        EXPECT_EQ(text, want.text);
        EXPECT_EQ(cStyle, want.style);
        EXPECT_EQ(cExStyle, 0u);
        EXPECT_EQ(x, want.x);
        EXPECT_EQ(y, want.y);
        EXPECT_EQ(cx, want.cx);
        EXPECT_EQ(cy, want.cy);
        EXPECT_EQ(extra, 0);
    }
}
#endif

} // namespace
