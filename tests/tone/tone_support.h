// Helpers of the tone and filter tests: straightforward reference evaluations
// written from the rules, images with odd layouts, and block edits.
#ifndef PAX_TESTS_TONE_SUPPORT_H
#define PAX_TESTS_TONE_SUPPORT_H

#include "dib_builder.h"
#include "paximage.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tonetest {

inline BITMAPINFOHEADER *Header(std::vector<BYTE> &bytes) {
    return reinterpret_cast<BITMAPINFOHEADER *>(bytes.data());
}

// A new GHND block holding exactly these bytes.
inline HGLOBAL BlockFrom(const std::vector<BYTE> &bytes) {
    HGLOBAL block = GlobalAlloc(GHND, bytes.size());
    BYTE *p = static_cast<BYTE *>(GlobalLock(block));
    std::memcpy(p, bytes.data(), bytes.size());
    GlobalUnlock(block);
    return block;
}

// Rewrites one header field of a block in place.
template <typename F> void EditHeader(HGLOBAL block, F edit) {
    auto *h = static_cast<BITMAPINFOHEADER *>(GlobalLock(block));
    edit(h);
    GlobalUnlock(block);
}

// A copy of `bytes` with one header field rewritten.
template <typename F> std::vector<BYTE> Edited(std::vector<BYTE> bytes, F edit) {
    edit(Header(bytes));
    return bytes;
}

// Writes `bytes` back over a block of the same size.
inline void Refill(HGLOBAL block, const std::vector<BYTE> &bytes) {
    std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
    GlobalUnlock(block);
}

// The bytes of a block, which is then freed; none for a null handle.
inline std::vector<BYTE> Consume(HGLOBAL block) {
    if (!block) return {};
    std::vector<BYTE> bytes = paxtest::BlockBytes(block);
    GlobalFree(block);
    return bytes;
}

inline int64_t Stride24(int64_t w) { return (w * 24 + 31) / 32 * 4; }

inline int Clamp(int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; }

// Intensity of stored bytes blue, green, red.
inline int Intensity(const BYTE *p, int mode) {
    return mode == 1 ? (8 * p[0] + 15 * p[1] + 3 * p[2]) / 26 : (p[0] + p[1] + p[2]) / 3;
}

// The convolution of a bottom-up 24-bit image (rows right after the 40-byte
// header, whatever biClrUsed says), evaluated as the plain double sum per output pixel with
// replicated edges. k is the coefficient list: n x n values, then D. Returns
// the caller's block as filtering in place leaves it.
inline std::vector<BYTE> ReferenceConvolution(const std::vector<BYTE> &block, int mode, int n,
                                              std::vector<int> k) {
    std::vector<BYTE> out = block;
    BITMAPINFOHEADER hd;
    std::memcpy(&hd, block.data(), sizeof hd);
    const int w = hd.biWidth, rows = hd.biHeight, h = n / 2;
    const int64_t stride = Stride24(w);
    const BYTE *pix = block.data() + 40;
    std::vector<int> in(static_cast<size_t>(w) * rows);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < w; ++c) in[r * w + c] = Intensity(pix + r * stride + 3 * c, mode);
    int pos = 0, neg = 0;
    for (int i = 0; i < n * n; ++i) (k[i] > 0 ? pos : neg) += k[i] > 0 ? k[i] : -k[i];
    int d = k[n * n] != 0 ? k[n * n] : pos - neg;
    if (d == 0) d = 1;
    if (d < 0) {
        d = -d;
        for (int i = 0; i < n * n; ++i) k[i] = -k[i];
    }
    const bool floorDivide = d == 2 || d == 4 || d == 8 || d == 16 || d == 32 || d == 64;
    BYTE *dst = out.data() + (pix - block.data());
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < w; ++c) {
            int s = 0;
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                    s += k[i * n + j] *
                         in[Clamp(r + h - j, 0, rows - 1) * w + Clamp(c + h - i, 0, w - 1)];
            int q = floorDivide ? static_cast<int>(std::floor(static_cast<double>(s) / d)) : s / d;
            int delta = q - in[r * w + c];
            for (int b = 0; b < 3; ++b) {
                size_t at = static_cast<size_t>(r * stride + 3 * c + b);
                dst[at] = static_cast<BYTE>(Clamp(pix[at] + delta, 0, 255));
            }
        }
    return out;
}

// What a new image holds for the same filtering: the 40 header bytes, the
// filtered pixels, zero padding; `size` pixel bytes (biSizeImage or rows).
inline std::vector<BYTE> AsNewImage(const std::vector<BYTE> &filtered, int64_t size) {
    BITMAPINFOHEADER hd;
    std::memcpy(&hd, filtered.data(), sizeof hd);
    const int64_t offset = 40;
    std::vector<BYTE> out(static_cast<size_t>(offset + size), 0);
    std::memcpy(out.data(), filtered.data(), static_cast<size_t>(offset));
    int64_t stride = Stride24(hd.biWidth);
    int64_t rows = hd.biHeight < 0 ? -static_cast<int64_t>(hd.biHeight) : hd.biHeight;
    for (int64_t r = 0; r < rows; ++r)
        std::memcpy(out.data() + offset + r * stride, filtered.data() + offset + r * stride,
                    static_cast<size_t>(3 * hd.biWidth));
    return out;
}

// Built-in kernels as rows K[a][b], and their divisors.
struct BuiltIn {
    int type, n, divisor;
    std::vector<int> rows;
};
inline std::vector<BuiltIn> BuiltIns() {
    std::vector<BuiltIn> list;
    for (int n : {3, 5, 7}) list.push_back({CONV_MEAN, n, n * n, std::vector<int>(n * n, 1)});
    list.push_back({CONV_SMOOTH, 3, 16, {1, 2, 1, 2, 4, 2, 1, 2, 1}});
    list.push_back({CONV_SMOOTH, 5, 44, {0, 1, 1, 1, 0, 1, 2, 4, 2, 1, 1, 4, 8, 4, 1, 1, 2, 4, 2, 1, 0, 1, 1, 1, 0}});
    list.push_back({CONV_SHARPEN, 3, 1, {0, -1, 0, -1, 5, -1, 0, -1, 0}});
    list.push_back({CONV_SHARPEN, 5, 1,
                    {-1, -2, -1, -2, -1, -2, 1, 3, 1, -2, -1, 3, 9, 3, -1, -2, 1, 3, 1, -2, -1, -2, -1, -2, -1}});
    list.push_back({CONV_SHARPEN_FULL, 3, 1, {-1, -1, -1, -1, 9, -1, -1, -1, -1}});
    list.push_back({CONV_SHARPEN_FULL, 5, 1,
                    {-1, -2, -4, -2, -1, -2, 1, 4, 1, -2, -4, 4, 17, 4, -4, -2, 1, 4, 1, -2, -1, -2, -4, -2, -1}});
    return list;
}

// The coefficient list of a built-in kernel (its grid transposed; they are
// symmetric, but the list is built by the rule anyway).
inline std::vector<int> ListOf(const BuiltIn &b) {
    std::vector<int> k(static_cast<size_t>(b.n * b.n + 1));
    for (int i = 0; i < b.n; ++i)
        for (int j = 0; j < b.n; ++j) k[i * b.n + j] = b.rows[j * b.n + i];
    k[b.n * b.n] = b.divisor;
    return k;
}

// A random coefficient list inside the limits: magnitudes, positive sum and
// negative sum each at most 127; D drawn from 0, powers of two, their
// negatives and other values.
inline std::vector<int> RandomKernel(paxtest::Rng &rng, int n) {
    std::vector<int> k(static_cast<size_t>(n * n + 1), 0);
    int left[2] = {127, 127}; // what the positive and the negative sums may still take
    for (int picks = 1 + rng.Below(n * n); picks > 0; --picks) {
        int at = rng.Below(n * n), sign = rng.Below(2) ? 1 : -1;
        int &budget = left[sign < 0];
        if (budget == 0 || k[at] * sign < 0) continue;
        int v = 1 + rng.Below(budget < 60 ? budget : 60);
        k[at] += sign * v;
        budget -= v;
    }
    static const int kDivisors[] = {0, 0, 0, 1, 2, 3, 4, 7, 8, 16, 32, 44, 64, 100, -1, -2, -8, -9, -64, 127, 128};
    k[n * n] = kDivisors[rng.Below(static_cast<int>(sizeof kDivisors / sizeof kDivisors[0]))];
    return k;
}

inline std::vector<short> AsShorts(const std::vector<int> &k) {
    return std::vector<short>(k.begin(), k.end());
}

// The same image with its rows stored in the other order and biHeight negated.
inline std::vector<BYTE> FlipStorage(const std::vector<BYTE> &block) {
    std::vector<BYTE> out = block;
    BITMAPINFOHEADER hd;
    std::memcpy(&hd, block.data(), sizeof hd);
    int64_t rows = hd.biHeight < 0 ? -static_cast<int64_t>(hd.biHeight) : hd.biHeight;
    int64_t stride = Stride24(hd.biWidth);
    int64_t offset = 40 + 4 * static_cast<int64_t>(hd.biClrUsed);
    for (int64_t r = 0; r < rows; ++r)
        std::memcpy(out.data() + offset + r * stride, block.data() + offset + (rows - 1 - r) * stride,
                    static_cast<size_t>(stride));
    Header(out)->biHeight = -hd.biHeight;
    return out;
}

} // namespace tonetest

#endif
