// Small helpers shared by the dither tests: images made from data, results
// read back as bytes and pixels.
#ifndef PAX_TESTS_DITHER_TEST_UTIL_H
#define PAX_TESTS_DITHER_TEST_UTIL_H

#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace dithertest {

using DitherFn = HDIB (*)(HDIB, int);

// Grey g as a 0xRRGGBB colour.
constexpr int G(int g) { return g * 0x010101; }

inline DWORD &Status() { return GetThreadState()->imageStatus; }

// Runs a dither and returns its result block (empty on failure); the result
// must come back unlocked.
inline std::vector<BYTE> Dither(DitherFn dither, HGLOBAL image, int arg) {
    HDIB out = dither(image, arg);
    if (!out) return {};
    std::vector<BYTE> bytes = paxtest::BlockBytes(out);
    EXPECT_EQ(paxtest::LockCount(out), 0);
    GlobalFree(out);
    return bytes;
}

// An image from data. Pixels are listed in stored order, the first stored row
// first (one value fills the image): 0xRRGGBB at 24 bits, indices at 4 and 8
// bits. The colour table is given as 0xRRGGBB values and sets biClrUsed; when
// it is empty the table is a full grey ramp. The pixels-per-metre fields are
// 1234 and 5678. A negative h stores the same picture top-down (the rows in
// the other order).
inline HGLOBAL Image(int depth, int w, int h, const std::vector<int> &pixels, const std::vector<int> &table = {}) {
    const int rows = h < 0 ? -h : h;
    auto fill = [&](int x, int y, int k) {
        const int v = pixels.size() == 1 ? pixels[0] : pixels[size_t(rows - 1 - y) * w + x];
        return static_cast<BYTE>(depth == 24 ? v >> (8 * k) : v);
    };
    HGLOBAL image = paxtest::MakeDib(w, rows, depth, fill, table.empty() ? -1 : int(table.size()));
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    for (size_t i = 0; i < 4 * table.size(); ++i) p[40 + i] = static_cast<BYTE>(table[i / 4] >> (8 * (i % 4)));
    auto *header = reinterpret_cast<BITMAPINFOHEADER *>(p);
    header->biXPelsPerMeter = 1234;
    header->biYPelsPerMeter = 5678;
    if (h < 0) { // the same picture stored top-down: reverse the rows
        const size_t stride = size_t(((int64_t{w} * depth + 31) / 32) * 4);
        BYTE *rowsStart = p + 40 + 4 * (!table.empty() ? table.size() : depth <= 8 ? size_t{1} << depth : 0);
        std::vector<BYTE> copy(rowsStart, rowsStart + stride * rows);
        for (int r = 0; r < rows; ++r) std::memcpy(rowsStart + r * stride, &copy[(rows - 1 - r) * stride], stride);
        header->biHeight = h;
    }
    GlobalUnlock(image);
    return image;
}

// Pixel x of stored row r of a 1-, 4- or 8-bit result.
inline int Pixel(const std::vector<BYTE> &block, int r, int x) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, block.data(), sizeof h);
    const int bits = h.biBitCount;
    const int64_t stride = ((int64_t{h.biWidth} * bits + 31) / 32) * 4, bit = int64_t{x} * bits;
    const BYTE *row = block.data() + 40 + (size_t{4} << bits) + r * stride;
    return (row[bit / 8] >> (8 - bits - bit % 8)) & ((1 << bits) - 1);
}

} // namespace dithertest

#endif
