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
    std::thread early([&] {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return loaded; });
        ASSERT_NE(library, nullptr);
        auto getError = reinterpret_cast<GetErrorFn>(Symbol(library, "GetLastColorConvertError"));
        auto convert = reinterpret_cast<ConvertBufferFn>(Symbol(library, "ConvertColorSpace"));
        ASSERT_TRUE(getError && convert);
        EXPECT_EQ(getError(), 0u);
        // A failing call stores its code (CCE_BADMODEL) in this thread's new record.
        unsigned char buffer[3] = {};
        EXPECT_EQ(convert(buffer, buffer, 3, 0, 1, 0, nullptr), -1);
        EXPECT_EQ(getError(), 2u);
    });
    {
        std::lock_guard<std::mutex> lock(m);
        library = OpenLibrary();
        loaded = true;
    }
    cv.notify_all();
    early.join();
    if (library) CloseLibrary(library);
}

// Each load gives a working library: its version text, and a zero code on
// the loading thread and on a new one.
TEST(LibraryLoad, LoadsAndUnloadsRepeatedly) {
    for (int i = 0; i < 5; ++i) {
        Library library = OpenLibrary();
        ASSERT_NE(library, nullptr);
        auto getError = reinterpret_cast<GetErrorFn>(Symbol(library, "GetLastColorConvertError"));
        auto version = reinterpret_cast<VersionFn>(Symbol(library, "GetPaxImageVersion"));
        ASSERT_TRUE(getError && version);
        char text[32] = {};
        version(text, sizeof text);
        EXPECT_STREQ(text, "Version 12.08");
        EXPECT_EQ(getError(), 0u);
        std::thread t([&] { EXPECT_EQ(getError(), 0u); });
        t.join();
        CloseLibrary(library);
    }
}

} // namespace
