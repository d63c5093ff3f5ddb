// Thread-local storage, the version query, thread exit, modules and files.
#include "win32lite.h"
#include "win32lite_test.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>

namespace win32lite {
void ResetMemoryFaults();
namespace {
std::atomic<long> g_fileOpenCalls{0};
std::atomic<long> g_failFileOpenAt{0};
} // namespace

long FileOpenCalls() { return g_fileOpenCalls.load(); }
void FailFileOpenAt(long n) { g_failFileOpenAt.store(n); }
void ResetFaults() {
    ResetMemoryFaults();
    g_fileOpenCalls.store(0);
    g_failFileOpenAt.store(0);
}
} // namespace win32lite

extern "C" {

// A slot is a pthread key with no destructor: as on Windows, whoever stores a
// value frees it (the library does so from its own thread-exit hook).
DWORD TlsAlloc(void) {
    pthread_key_t key;
    if (pthread_key_create(&key, nullptr) != 0) return TLS_OUT_OF_INDEXES;
    return static_cast<DWORD>(key);
}

LPVOID TlsGetValue(DWORD index) { return pthread_getspecific(static_cast<pthread_key_t>(index)); }

BOOL TlsSetValue(DWORD index, LPVOID value) {
    return pthread_setspecific(static_cast<pthread_key_t>(index), value) == 0;
}

BOOL TlsFree(DWORD index) { return pthread_key_delete(static_cast<pthread_key_t>(index)) == 0; }

// Bit 31 clear: a system of the NT line.
DWORD GetVersion(void) { return 0x00000206u; }

void ExitThread(DWORD code) {
    pthread_exit(reinterpret_cast<void *>(static_cast<uintptr_t>(code)));
}

LPSTR lstrcpyA(LPSTR dst, LPCSTR src) { return std::strcpy(dst, src); }

} // extern "C"

namespace {

// "dir/Name.dll" -> "dir/libName.so"; other names are left alone.
std::string LinuxFileName(const char *name) {
    std::string s(name);
    if (s.size() > 4 && strcasecmp(s.c_str() + s.size() - 4, ".dll") == 0) {
        size_t slash = s.find_last_of('/');
        size_t base = slash == std::string::npos ? 0 : slash + 1;
        s = s.substr(0, base) + "lib" + s.substr(base, s.size() - 4 - base) + ".so";
    }
    return s;
}

} // namespace

extern "C" {

HMODULE GetModuleHandleA(LPCSTR name) {
    if (!name) return reinterpret_cast<HMODULE>(dlopen(nullptr, RTLD_LAZY | RTLD_NOLOAD));
    void *h = dlopen(LinuxFileName(name).c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (h) dlclose(h); // a lookup takes no reference; the module stays loaded
    return reinterpret_cast<HMODULE>(h);
}

DWORD GetModuleFileNameA(HMODULE module, LPSTR path, DWORD size) {
    if (!path || size == 0) return 0;
    std::string file;
    struct link_map *map = nullptr;
    if (module && dlinfo(module, RTLD_DI_LINKMAP, &map) == 0 && map && map->l_name &&
        map->l_name[0]) {
        file = map->l_name;
    } else {
        char buf[4096];
        ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
        if (n <= 0) return 0;
        file.assign(buf, static_cast<size_t>(n));
    }
    // As on Windows: a path that does not fit is truncated and terminated, and
    // the result is then the buffer's whole size.
    if (file.size() >= size) {
        std::memcpy(path, file.data(), size - 1);
        path[size - 1] = '\0';
        return size;
    }
    std::memcpy(path, file.data(), file.size() + 1);
    return static_cast<DWORD>(file.size());
}

HMODULE LoadLibraryA(LPCSTR name) {
    if (!name) return nullptr;
    return reinterpret_cast<HMODULE>(dlopen(LinuxFileName(name).c_str(), RTLD_NOW | RTLD_LOCAL));
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
    if (!module || !name) return nullptr;
    return reinterpret_cast<FARPROC>(dlsym(module, name));
}

BOOL FreeLibrary(HMODULE module) { return module && dlclose(module) == 0; }

HFILE OpenFile(LPCSTR path, OFSTRUCT *info, UINT style) {
    ++win32lite::g_fileOpenCalls;
    if (win32lite::g_failFileOpenAt.load() > 0 && --win32lite::g_failFileOpenAt == 0)
        return HFILE_ERROR;
    if (info) std::memset(info, 0, sizeof *info);
    if (!path || style != OF_READ) return HFILE_ERROR;
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return HFILE_ERROR;
    if (fd == 0) {
        // Standard input was closed, so the file got descriptor 0; callers
        // take a handle of 0 for a failure, so it is moved to a higher one.
        int moved = fcntl(fd, F_DUPFD_CLOEXEC, 1);
        close(fd);
        if (moved < 0) return HFILE_ERROR;
        fd = moved;
    }
    if (info) {
        info->cBytes = sizeof *info;
        std::strncpy(info->szPathName, path, sizeof info->szPathName - 1);
    }
    return fd;
}

UINT _lread(HFILE file, LPVOID buffer, UINT bytes) {
    UINT done = 0;
    while (done < bytes) {
        ssize_t n = read(file, static_cast<char *>(buffer) + done, bytes - done);
        if (n < 0) return done == 0 ? static_cast<UINT>(HFILE_ERROR) : done;
        if (n == 0) break;
        done += static_cast<UINT>(n);
    }
    return done;
}

HFILE _lclose(HFILE file) { return close(file) == 0 ? 0 : HFILE_ERROR; }

} // extern "C"
