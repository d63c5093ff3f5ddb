// The library's export table as a host sees it. export_table.txt holds the
// module's name and the full table of 93 names and ordinals; the module
// definition must list exactly that, and the built library, loaded at run
// time, must export each name (and on Windows each ordinal, the same
// function). On Windows the export directory, the version record, the
// manifest and the progress dialog's template are read back as well. Runs in
// the folder of the build's programs, where both tables are copied.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

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
    auto digest = [](const std::string &bytes) { // FNV-1a, 64 bits
        uint64_t h = 14695981039346656037ull;
        for (char c : bytes) h = (h ^ (uint8_t)c) * 1099511628211ull;
        return h;
    };
    EXPECT_EQ(digest(version), 0xcfbd1595fdbb73e9ull);
    EXPECT_EQ(digest(dialog), 0x68ce662cb99117e7ull);
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
