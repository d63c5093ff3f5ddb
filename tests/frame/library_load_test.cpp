// The shared library as a host loads it: a thread that was running before the
// library was loaded gets its status record on its first call, and the
// library unloads cleanly. Links nothing of the library; everything is looked
// up at run time, as a host program would.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
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
using Library = void *;
static Library OpenLibrary() { return dlopen("./libPAXIMGUser.so", RTLD_NOW | RTLD_LOCAL); } // run in bin/
static void *Symbol(Library l, const char *name) { return dlsym(l, name); }
static void CloseLibrary(Library l) { dlclose(l); }
#endif

namespace {

using GetErrorFn = unsigned (*)(void);
using VersionFn = void (*)(char *, int);
using ConvertBufferFn = int (*)(const unsigned char *, unsigned char *, int, int, int, int, void *);

// Five loads and unloads. A thread started before the load waits for it,
// then finds a zeroed record on its first call, keeps a failing call's code
// there and reads the version text; the loading thread and a thread started
// after the load have records of their own.
TEST(LibraryLoad, ThreadStartedBeforeLoadGetsItsRecordOnFirstCall) {
    for (int round = 0; round < 5; ++round) {
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
            auto version = reinterpret_cast<VersionFn>(Symbol(library, "GetPaxImageVersion"));
            ASSERT_TRUE(getError && convert && version);
            EXPECT_EQ(getError(), 0u);
            unsigned char buffer[3] = {};
            EXPECT_EQ(convert(buffer, buffer, 3, 0, 1, 0, nullptr), -1);
            EXPECT_EQ(getError(), 2u) << "CCE_BADMODEL";
            char text[32] = {};
            version(text, sizeof text);
            EXPECT_STREQ(text, "Version 12.08");
        });
        {
            std::lock_guard<std::mutex> lock(m);
            library = OpenLibrary();
            loaded = true;
        }
        cv.notify_all();
        early.join();
        ASSERT_NE(library, nullptr);
        auto getError = reinterpret_cast<GetErrorFn>(Symbol(library, "GetLastColorConvertError"));
        EXPECT_EQ(getError(), 0u);
        std::thread([&] { EXPECT_EQ(getError(), 0u); }).join();
        CloseLibrary(library);
    }
}

} // namespace
