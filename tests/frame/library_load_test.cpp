// The shared library as a host loads it: a thread that was running before the
// library was loaded gets its status record on its first call, and the
// library unloads cleanly. Links nothing of the library; everything is looked
// up at run time, as a host program would.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#ifdef _WIN32
#include <windows.h>
using Library = HMODULE;
static Library OpenLibrary() { return LoadLibraryA("PAXIMGUser.dll"); }
static void *Symbol(Library l, const char *name) {
    return reinterpret_cast<void *>(GetProcAddress(l, name));
}
static void CloseLibrary(Library l) { FreeLibrary(l); }
#else
#include <dlfcn.h>
#include <unistd.h>
using Library = void *;
static Library OpenLibrary() {
    char exe[4096];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    std::string dir = n > 0 ? std::string(exe, static_cast<size_t>(n)) : std::string("./x");
    dir = dir.substr(0, dir.find_last_of('/') + 1);
    return dlopen((dir + "libPAXIMGUser.so").c_str(), RTLD_NOW | RTLD_LOCAL);
}
static void *Symbol(Library l, const char *name) { return dlsym(l, name); }
static void CloseLibrary(Library l) { dlclose(l); }
#endif

namespace {

using GetErrorFn = unsigned (*)(void);
using VersionFn = void (*)(char *, int);
using ConvertBufferFn = int (*)(const unsigned char *, unsigned char *, int, int, int, int, void *);

// A thread that waits until the main thread has loaded the library, then calls it.
TEST(LibraryLoad, ThreadStartedBeforeLoadGetsItsRecordOnFirstCall) {
    std::mutex m;
    std::condition_variable cv;
    Library library = nullptr;
    bool loaded = false;
    unsigned firstRead = 99, afterFailure = 0;
    bool haveConversion = false;
    std::thread early([&] {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return loaded; });
        auto getError = reinterpret_cast<GetErrorFn>(Symbol(library, "GetLastColorConvertError"));
        ASSERT_NE(getError, nullptr);
        firstRead = getError();
        // A failing call stores its code in this thread's new record.
        auto convert = reinterpret_cast<ConvertBufferFn>(Symbol(library, "ConvertColorSpace"));
        if (convert) {
            haveConversion = true;
            unsigned char buffer[3] = {};
            EXPECT_EQ(convert(buffer, buffer, 3, 0, 1, 0, nullptr), -1);
            afterFailure = getError();
        }
    });
    {
        std::lock_guard<std::mutex> lock(m);
        library = OpenLibrary();
        loaded = true;
    }
    cv.notify_all();
    early.join();
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(firstRead, 0u);
    if (haveConversion) {
        EXPECT_EQ(afterFailure, 2u) << "CCE_BADMODEL expected";
    }
    CloseLibrary(library);
}

TEST(LibraryLoad, VersionThroughTheLoadedLibrary) {
    Library library = OpenLibrary();
    ASSERT_NE(library, nullptr);
    auto version = reinterpret_cast<VersionFn>(Symbol(library, "GetPaxImageVersion"));
    ASSERT_NE(version, nullptr);
    char text[32] = {};
    version(text, sizeof text);
    EXPECT_STREQ(text, "Version 12.08");
    CloseLibrary(library);
}

TEST(LibraryLoad, LoadsAndUnloadsRepeatedly) {
    for (int i = 0; i < 5; ++i) {
        Library library = OpenLibrary();
        ASSERT_NE(library, nullptr);
        auto getError = reinterpret_cast<GetErrorFn>(Symbol(library, "GetLastColorConvertError"));
        ASSERT_NE(getError, nullptr);
        EXPECT_EQ(getError(), 0u);
        std::thread t([&] { EXPECT_EQ(getError(), 0u); });
        t.join();
        CloseLibrary(library);
    }
}

} // namespace
