// Finding and loading the parameter-dialog library.
//
// On Linux the same rule runs over the stand-in's module layer: the library
// file is "libPAXDlgs.so", a path's folder ends at its last '/', and the bare
// name goes through the dynamic loader's normal search.
#include "param_dialog.h"
#include "thread_state.h"

#include <cstring>

namespace {

#ifdef _WIN32
constexpr char kSeparator = '\\';
#else
constexpr char kSeparator = '/';
#endif
constexpr char kLibraryName[] = "PAXDlgs.dll";

HMODULE LoadBesideOwnModule() {
    char path[MAX_PATH];
    HMODULE self = GetModuleHandleA("PaxImage.dll"); // null: the executable
    DWORD length = GetModuleFileNameA(self, path, sizeof path);
    if (length == 0 || length >= sizeof path) return nullptr;
    char *slash = std::strrchr(path, kSeparator);
    if (!slash) return nullptr;
    size_t folder = static_cast<size_t>(slash - path) + 1;
    if (folder + sizeof kLibraryName > sizeof path) return nullptr;
    std::memcpy(path + folder, kLibraryName, sizeof kLibraryName);
    return LoadLibraryA(path);
}

} // namespace

DialogLibrary::DialogLibrary(const char *entryName) {
    library_ = LoadBesideOwnModule();
    if (!library_) library_ = LoadLibraryA(kLibraryName);
    if (library_) entry_ = GetProcAddress(library_, entryName);
    if (!entry_) GetThreadState()->convertError = CCE_NODIALOGENTRY;
}

DialogLibrary::~DialogLibrary() {
    if (library_) FreeLibrary(library_);
}
