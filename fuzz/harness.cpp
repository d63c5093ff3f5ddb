#include "harness.h"

#include "dialogs.h"
#include "dib_builder.h"

#include "thread_state.h"
#include "win32lite_test.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace paxfuzz {

namespace {
HWND g_owner = nullptr;
std::string g_filterPath, g_scratchPath;
int g_scratchFd = -1;

std::string MemoryFile(const char *name, int *fd) {
    *fd = memfd_create(name, 0);
    Require(*fd >= 0, "memfd_create failed");
    return "/proc/self/fd/" + std::to_string(*fd);
}

bool Mul(uint64_t a, uint64_t b, uint64_t *r) { return !__builtin_mul_overflow(a, b, r); }
uint64_t Magnitude(int64_t v) { return v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v); }
uint64_t Columns(int64_t width) { return width < 0 ? 0 : static_cast<uint64_t>(width); }

// Bytes from the start of the rows to their end, as the header describes
// them (a negative width has no pixels; a negative height counts rows
// top-down): the convolution reads 16-bit dimensions and rows right after the
// header; every other operation full dimensions after the colour table.
// False when that size does not even fit 64 bits.
bool PixelEnd(const BYTE *p, bool convolution, uint64_t *end) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, p, sizeof h);
    if (convolution) {
        uint64_t w = Columns(static_cast<int16_t>(h.biWidth));
        uint64_t stride = ((24 * w + 31) / 32 * 4) & 0xffff;
        return Mul(stride, Magnitude(static_cast<int16_t>(h.biHeight)), end) && (*end += 40, true);
    }
    uint64_t entries = h.biSize == 40 && h.biClrUsed ? h.biClrUsed
                     : h.biBitCount == 1 ? 2 : h.biBitCount == 4 ? 16 : h.biBitCount == 8 ? 256 : 0;
    uint64_t bits, stride, rows;
    if (!Mul(Columns(h.biWidth), h.biBitCount, &bits) || !Mul((bits + 31) / 32, 4, &stride) ||
        !Mul(stride, Magnitude(h.biHeight), &rows))
        return false;
    *end = 40 + entries * (h.biSize == 40 ? 4 : 3) + rows;
    return true;
}
} // namespace

void Fail(const char *what, const char *detail) {
    std::fprintf(stderr, "\n*** paxfuzz check failed: %s %s\n", what, detail);
    std::fflush(stderr);
    std::abort();
}

void Setup() {
    static bool done = false;
    if (std::exchange(done, true)) return;
    GetThreadState();
    g_owner = win32lite::CreateTestWindow();
    win32lite::LimitBlockSize(64u << 20);
    int fd;
    g_filterPath = MemoryFile("filter", &fd);
    short list[50] = {1, 2, 1, 2, 4, 2, 1, 2, 1, 16};
    Require(write(fd, list, sizeof list) == sizeof list, "writing the filter file");
    g_scratchPath = MemoryFile("scratch", &g_scratchFd);
}

HWND OwnerWindow() { return g_owner; }

const char *WriteScratchFile(const uint8_t *data, size_t size) {
    Require(ftruncate(g_scratchFd, 0) == 0 && pwrite(g_scratchFd, data, size, 0) == ssize_t(size),
            "writing the scratch file");
    return g_scratchPath.c_str();
}

HGLOBAL MakeBlock(const uint8_t *bytes, size_t size, size_t zeros, bool fixed) {
    HGLOBAL block = GlobalAlloc(fixed ? GPTR : GHND, size + zeros);
    Require(block != nullptr, "the caller's block could not be made");
    if (size) {
        std::memcpy(GlobalLock(block), bytes, size);
        GlobalUnlock(block);
    }
    return block;
}

Outcome CheckedInvoke(size_t which, HGLOBAL image, const Args &args, void (*arm)(long), long nth) {
    const ImageExport &e = paxtest::ImageExports()[which];
    const char *name = e.name;
    const SIZE_T size = GlobalSize(image);
    const std::vector<BYTE> before = paxtest::BlockBytes(image);
    // The in-place convolution may write its pixel rows, and nothing else.
    uint64_t rowsEnd = 40;
    if (which == paxtest::kConvolveInPlaceExport && size >= 40 && !PixelEnd(before.data(), true, &rowsEnd)) rowsEnd = 40;
    const win32lite::Census census = win32lite::TakeCensus();
    const long windows = win32lite::LiveWindows();

    if (arm) arm(nth);
    Outcome o = paxtest::Invoke(e, image, args);
    win32lite::ResetFaults();

    Require(win32lite::LockCountOf(image) == 0, "caller's block locked or freed after", name);
    Require(GlobalSize(image) == size, "caller's block resized after", name);
    const std::vector<BYTE> now = paxtest::BlockBytes(image);
    for (SIZE_T i = 0; i < size; ++i)
        Require(now[i] == before[i] || (i >= 40 && i < rowsEnd), "caller's block changed by", name);
    win32lite::Census withResults = win32lite::TakeCensus();
    const long n = static_cast<long>(o.results.size());
    Require(withResults.liveBlocks == census.liveBlocks + n &&
                withResults.movableBlocks == census.movableBlocks + n &&
                withResults.outstandingLocks == census.outstandingLocks,
            "blocks leaked, locked or fixed after", name);
    for (HGLOBAL r : o.results) {
        Require(r != image && win32lite::LockCountOf(r) == 0, "a result is locked or not new:", name);
        const std::vector<BYTE> bytes = paxtest::BlockBytes(r);
        uint64_t end;
        Require(bytes.size() >= 40, "a result is shorter than its header:", name);
        // An unchanged copy of the caller's block (an image with no pixels to
        // visit) is held to nothing more than the caller's own block was.
        Require(bytes == before || (PixelEnd(bytes.data(), which == paxtest::kConvolveNewExport, &end) && end <= bytes.size()),
                "a result's rows do not fit its block:", name);
        GlobalFree(r);
    }
    Require(win32lite::TakeCensus() == census, "census differs after freeing the results of", name);
    Require(win32lite::LiveWindows() == windows && !GetThreadState()->progressDialog,
            "a dialog was left open by", name);
    Require(IsWindowEnabled(g_owner), "the owner window was left disabled by", name);
    return o;
}

void RunImageExport(Bytes in, bool faults) {
    Setup();
    static paxtest::DialogDouble dialogs; // the parameter dialogs' stand-in, when built
    int kind = 0, nth = 0;
    if (faults) {
        kind = in.U8() % 4;
        nth = in.U8();
        uint8_t script = in.U8();
        win32lite::ScriptDialogs({(script & 1) != 0, script >> 1});
        bool cancel = in.U8() & 1;
        for (int e = 0; dialogs.loaded() && e < DD_ENTRY_COUNT; ++e) dialogs.SetResult(e, !cancel);
    }
    const size_t which = in.U8() % paxtest::ImageExports().size();
    const uint8_t flags = in.U8();
    Args args;
    for (int32_t &a : args.a) a = in.I32();
    args.mode = in.I32();
    if (faults) args.mode = 1 + static_cast<int32_t>(static_cast<uint32_t>(args.mode) % 3);
    args.owner = flags & 2 ? g_owner : nullptr;
    args.filterFile = g_filterPath.c_str();
    HGLOBAL image = MakeBlock(in.p, in.n, static_cast<size_t>(flags >> 2) * 256, flags & 1);
    void (*const arms[])(long) = {nullptr, win32lite::FailAllocationAt, win32lite::FailLockAt,
                                  win32lite::FailFileOpenAt};
    win32lite::ResetFaults();
    CheckedInvoke(which, image, args, arms[kind], nth);
    win32lite::ScriptDialogs({});
    GlobalFree(image);
}

} // namespace paxfuzz
