// Small helpers shared by the dither tests.
#ifndef PAX_TESTS_DITHER_TEST_UTIL_H
#define PAX_TESTS_DITHER_TEST_UTIL_H

#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace dithertest {

// Runs a dither and returns its result block (empty on failure).
inline std::vector<BYTE> Dither(HDIB (*dither)(HDIB, int), HGLOBAL image, int arg) {
    HDIB out = dither(image, arg);
    if (!out) return {};
    std::vector<BYTE> bytes = paxtest::BlockBytes(out);
    EXPECT_EQ(paxtest::LockCount(out), 0);
    GlobalFree(out);
    return bytes;
}

inline DWORD Status() { return GetThreadState()->imageStatus; }
inline void SetStatus(DWORD v) { GetThreadState()->imageStatus = v; }

// A grey image of 24-bit pixels (g, g, g).
inline HGLOBAL Grey24(int w, int h, BYTE g) {
    return paxtest::MakeDib24(w, h, [g](int, int) { return paxtest::Rgb{g, g, g}; });
}

// Bit x of stored row r of a 1-bit result.
inline int Bit(const std::vector<BYTE> &block, int r, int x) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, block.data(), sizeof h);
    int64_t stride = ((static_cast<int64_t>(h.biWidth) + 31) / 32) * 4;
    const BYTE *p = block.data() + 40 + 8 + r * stride;
    return (p[x / 8] >> (7 - x % 8)) & 1;
}

// The pixel bytes of a result (after its header and 2^bits-entry table).
inline std::vector<BYTE> PixelBytes(const std::vector<BYTE> &block) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, block.data(), sizeof h);
    size_t offset = 40 + 4 * (size_t{1} << h.biBitCount);
    return std::vector<BYTE>(block.begin() + offset, block.end());
}

// An image block of the given size whose header says what `fill` writes.
inline HGLOBAL RawBlock(size_t size, const BITMAPINFOHEADER &h) {
    HGLOBAL b = GlobalAlloc(GHND, size);
    BYTE *p = static_cast<BYTE *>(GlobalLock(b));
    std::memcpy(p, &h, size < sizeof h ? size : sizeof h);
    GlobalUnlock(b);
    return b;
}

} // namespace dithertest

#endif
