// Small helpers shared by the dither tests.
#ifndef PAX_TESTS_DITHER_TEST_UTIL_H
#define PAX_TESTS_DITHER_TEST_UTIL_H

#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace dithertest {

using DitherFn = HDIB (*)(HDIB, int);

// Runs a dither and returns its result block (empty on failure).
inline std::vector<BYTE> Dither(DitherFn dither, HGLOBAL image, int arg) {
    HDIB out = dither(image, arg);
    if (!out) return {};
    std::vector<BYTE> bytes = paxtest::BlockBytes(out);
    EXPECT_EQ(paxtest::LockCount(out), 0);
    GlobalFree(out);
    return bytes;
}

inline DWORD Status() { return GetThreadState()->imageStatus; }
inline void SetStatus(DWORD v) { GetThreadState()->imageStatus = v; }

// Expects dither(image, arg) to fail with `code` and leave the image unlocked.
inline void ExpectFailure(DitherFn dither, HGLOBAL image, int arg, DWORD code, const std::string &what = "") {
    SetStatus(99);
    HDIB out = dither(image, arg);
    EXPECT_EQ(out, nullptr) << what << " arg " << arg;
    if (out) GlobalFree(out);
    EXPECT_EQ(paxtest::ImsName(Status()), paxtest::ImsName(code)) << what << " arg " << arg;
    if (image) {
        EXPECT_EQ(paxtest::LockCount(image), 0) << what;
    }
}

// A grey image of 24-bit pixels (g, g, g).
inline HGLOBAL Grey24(int w, int h, BYTE g) {
    return paxtest::MakeDib24(w, h, [g](int, int) { return paxtest::Rgb{g, g, g}; });
}

// A 24-bit one-column or one-row grey image: values in stored order.
inline HGLOBAL GreyLine(const std::vector<int> &stored, bool column) {
    const int n = static_cast<int>(stored.size());
    return paxtest::MakeDib24(column ? 1 : n, column ? n : 1, [stored, column, n](int x, int y) {
        BYTE v = static_cast<BYTE>(column ? stored[n - 1 - y] : stored[x]);
        return paxtest::Rgb{v, v, v};
    });
}

inline BITMAPINFOHEADER HeaderOf(const std::vector<BYTE> &block) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, block.data(), sizeof h);
    return h;
}

// The pixel bytes of a result (after its header and 2^bits-entry table).
inline std::vector<BYTE> PixelBytes(const std::vector<BYTE> &block) {
    size_t offset = 40 + 4 * (size_t{1} << HeaderOf(block).biBitCount);
    return std::vector<BYTE>(block.begin() + offset, block.end());
}

// Pixel x of stored row r of a 1-, 4- or 8-bit result.
inline int Pixel(const std::vector<BYTE> &block, int r, int x) {
    BITMAPINFOHEADER h = HeaderOf(block);
    const int bits = h.biBitCount;
    int64_t stride = ((static_cast<int64_t>(h.biWidth) * bits + 31) / 32) * 4;
    const BYTE *p = block.data() + 40 + (size_t{4} << bits) + r * stride;
    const int64_t bit = int64_t{x} * bits;
    return (p[bit / 8] >> (8 - bits - bit % 8)) & ((1 << bits) - 1);
}
inline int Bit(const std::vector<BYTE> &block, int r, int x) { return Pixel(block, r, x); }

// A header with the given fields, for hand-made blocks.
inline BITMAPINFOHEADER Header(LONG w, LONG h, WORD bits, DWORD clrUsed = 0, DWORD size = 40) {
    BITMAPINFOHEADER hd = {};
    hd.biSize = size;
    hd.biWidth = w;
    hd.biHeight = h;
    hd.biPlanes = 1;
    hd.biBitCount = bits;
    hd.biClrUsed = clrUsed;
    return hd;
}

// An image block of the given size that starts with (as much as fits of) h.
inline HGLOBAL RawBlock(size_t size, const BITMAPINFOHEADER &h) {
    HGLOBAL b = GlobalAlloc(GHND, size);
    BYTE *p = static_cast<BYTE *>(GlobalLock(b));
    std::memcpy(p, &h, size < sizeof h ? size : sizeof h);
    GlobalUnlock(b);
    return b;
}

// Flat white images give white (1 or 14) everywhere, flat black all-zero
// pixel bytes; on random images 4-bit indices are even and the bits and bytes
// after the last pixel of a 1-bit row are 0.
inline void CheckProperties(const std::string &name, DitherFn dither, std::vector<int> depths, int seed) {
    SCOPED_TRACE(name);
    for (int w : {1, 2, 7, 33}) {
        HGLOBAL white = Grey24(w, 6, 255), black = Grey24(w, 6, 0);
        for (int bits : depths) {
            std::vector<BYTE> wo = Dither(dither, white, bits);
            for (int r = 0; r < 6 && bits != 8; ++r)
                for (int x = 0; x < w; ++x) ASSERT_EQ(Pixel(wo, r, x), bits == 1 ? 1 : 14) << w;
            for (BYTE b : PixelBytes(Dither(dither, black, bits))) ASSERT_EQ(b, 0) << bits;
        }
        GlobalFree(white);
        GlobalFree(black);
    }
    paxtest::Rng rng(seed);
    for (int trial = 0; trial < 30; ++trial) {
        const int w = 1 + rng.Below(45), h = 1 + rng.Below(6);
        HGLOBAL image = paxtest::MakeRandomDib24(w, h, rng.Next());
        std::vector<BYTE> four = Dither(dither, image, 4), one = PixelBytes(Dither(dither, image, 1));
        const int s1 = ((w + 31) / 32) * 4;
        ASSERT_EQ(one.size(), size_t(s1 * h));
        for (int r = 0; r < h; ++r) {
            for (int x = 0; x < w; ++x) EXPECT_EQ(Pixel(four, r, x) % 2, 0) << x << "," << r;
            if (w % 8) {
                EXPECT_EQ(one[r * s1 + w / 8] & (0xFF >> (w % 8)), 0);
            }
            for (int i = (w + 7) / 8; i < s1; ++i) EXPECT_EQ(one[r * s1 + i], 0);
        }
        GlobalFree(image);
    }
}

// Injected allocation and lock failures: four allocation points (three
// working blocks and the result); the first run succeeds with IMS_OK, every
// later one fails, with `imageLockCode` when the caller's image (the first
// lock) fails and IMS_NOMEMORY otherwise.
inline void SweepDither(DitherFn dither, HGLOBAL image, int bits, DWORD imageLockCode) {
    std::vector<std::pair<bool, DWORD>> runs;
    paxtest::SweepCounts counts = paxtest::SweepFailures(
        [&]() -> HGLOBAL {
            SetStatus(99);
            HDIB out = dither(image, bits);
            runs.push_back({out != nullptr, Status()});
            return out;
        },
        {image});
    if (!paxtest::HaveCensus()) return;
    ASSERT_EQ(runs.size(), size_t(1 + counts.allocationPoints + counts.lockPoints));
    EXPECT_EQ(counts.allocationPoints, 4);
    EXPECT_TRUE(runs[0].first);
    EXPECT_EQ(paxtest::ImsName(runs[0].second), "IMS_OK");
    for (size_t i = 1; i < runs.size(); ++i) {
        EXPECT_FALSE(runs[i].first) << "run " << i;
        DWORD want = i == size_t(1 + counts.allocationPoints) ? imageLockCode : DWORD{IMS_NOMEMORY};
        EXPECT_EQ(paxtest::ImsName(runs[i].second), paxtest::ImsName(want)) << "run " << i;
    }
}

} // namespace dithertest

#endif
