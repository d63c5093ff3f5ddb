// The convolution's accumulator ring and its five row engines.
//
// The ring is 7 row pointers R[0..6], of which R[0..n-1] are used; each points
// to one work row of 2 x width signed 16-bit values: the kernel sums of one
// output row at [0, width) and that row's unfiltered intensities at
// [width, 2 x width). Feeding one source row adds, for every ring row a and
// column c, T[a][c] = sum over b of K[a][b] x I[clamp(c + h - b)] into
// R[a][c] (a < n - 1), overwrites R[n - 1][c] with it, and stores the row's
// intensities in R[h][width ..]. h = n / 2.
#ifndef PAX_ADJUST_CONVOLUTION_H
#define PAX_ADJUST_CONVOLUTION_H

#include "paximage.h"

#include <cstdint>

constexpr int kMaxKernel = 7;

using KernelGrid = int16_t[kMaxKernel][kMaxKernel]; // grid[a][b], row a, column b

// Intensity of a stored pixel (blue, green, red): mode 1 weights blue 8,
// green 15, red 3 out of 26; any other mode takes the plain mean. Unsigned
// integer division, truncated.
inline int PixelIntensity(const BYTE *p, int intensityMode) {
    unsigned b0 = p[0], b1 = p[1], b2 = p[2];
    return intensityMode == 1 ? static_cast<int>((8 * b0 + 15 * b1 + 3 * b2) / 26)
                              : static_cast<int>((b0 + b1 + b2) / 3);
}

// Q = S / d for a kernel sum S (|S| <= 32768) and a divisor d from 1 to
// 32768: an arithmetic shift for d = 2, 4, .. 64, which rounds toward minus
// infinity; truncation toward zero for every other d, done by multiplying
// |S| by ceil(2^32 / d) and keeping the high 32 bits. That product is exact:
// with m d = 2^32 + r, r < d, the error |S| r / 2^32 stays below 1 / 4 and
// never carries |S| / d past the next integer.
class SumQuotient {
public:
    explicit SumQuotient(int d) : d_(d) {
        for (int s = 1; s <= 6; ++s)
            if (d == (1 << s)) shift_ = s;
        magic_ = ((uint64_t{1} << 32) + static_cast<uint64_t>(d) - 1) / static_cast<uint64_t>(d);
    }
    int divisor() const { return d_; }
    // Calls body once with the divisor's rule as a function of the sum, so
    // that a caller can run a whole row with the rule chosen once.
    template <typename Body> auto WithRule(Body body) const {
        if (shift_) {
            const int shift = shift_;
            return body([shift](int s) { return s >> shift; });
        }
        if (d_ == 1) return body([](int s) { return s; });
        const uint64_t magic = magic_;
        return body([magic](int s) { return Truncated(s, magic); });
    }
    int operator()(int s) const {
        return WithRule([s](auto quotient) { return quotient(s); });
    }
    // |s| x magic >> 32 with the sign of s put back, without a branch.
    static int Truncated(int s, uint64_t magic) {
        uint32_t sign = static_cast<uint32_t>(s >> 31); // all ones below zero
        uint32_t magnitude = (static_cast<uint32_t>(s) ^ sign) - sign;
        uint32_t q = static_cast<uint32_t>((magnitude * magic) >> 32);
        return static_cast<int>((q ^ sign) - sign);
    }

private:
    int d_;
    int shift_ = 0;
    uint64_t magic_;
};

// The engines. row: width pixels of 3 bytes; ring: the 7 row pointers. An
// engine called with a size it does not serve changes nothing. The general
// engine serves 3, 5 and 7 and ignores the divisor; mean serves 3, 5 and 7;
// smooth and both sharpens serve 3 and 5.
void ConvolveRowKernel(const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
                       int16_t n, const KernelGrid &grid, int16_t divisor);
void ConvolveRowMean(const BYTE *row, int intensityMode, int16_t width, int16_t **ring, int16_t n);
void ConvolveRowSmooth(const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
                       int16_t n);
void ConvolveRowSharpen(const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
                        int16_t n);
void ConvolveRowSharpenFull(const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
                            int16_t n);

// Turns the ring before the engine call of loop step y (from -h): sets it up
// over the work rows at y = -h, shifts in a fresh row during the first n - 1
// steps, and rotates by one from y = h on.
void TurnRing(int16_t **ring, int16_t *const *workRows, int n, int y);

#endif
