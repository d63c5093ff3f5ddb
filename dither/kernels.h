// The six error-diffusion kernels, as data. One driver (error_diffusion.cpp)
// runs every one of them; each kernel only says how far its error reaches and
// in what shares.
#ifndef PAX_DITHER_KERNELS_H
#define PAX_DITHER_KERNELS_H

// One share of a pixel's error: the cell dx columns right (negative: left) in
// the row dy rows further on in processing order receives (e * weight) / D.
struct KernelTap {
    int dx, dy, weight;
};

constexpr int kMaxTaps = 12;

struct DiffusionKernel {
    int rows;    // K: the row being dithered and the K - 1 rows after it
    int divisor; // D
    int tapCount;
    KernelTap taps[kMaxTaps];
};

// Error rows carry this many spare cells on each side, so that a tap may land
// beyond either edge without a test; those cells are never read back.
constexpr int kKernelMargin = 3;

// Floyd-Steinberg.
inline constexpr DiffusionKernel kKernelFS4{2, 16, 4, {{1, 0, 7}, {-1, 1, 3}, {0, 1, 5}, {1, 1, 1}}};

// Burkes, with the two left taps of the lower row exchanged (4 two columns
// left, 2 one column left), so that row is not symmetric.
inline constexpr DiffusionKernel kKernelBurkes{
    2, 32, 7, {{1, 0, 8}, {2, 0, 4}, {-2, 1, 4}, {-1, 1, 2}, {0, 1, 8}, {1, 1, 4}, {2, 1, 2}}};

// Sierra's two-row lite filter.
inline constexpr DiffusionKernel kKernelSierra{2, 4, 3, {{1, 0, 2}, {-1, 1, 1}, {0, 1, 1}}};

// Jarvis-Judice-Ninke.
inline constexpr DiffusionKernel kKernelJJN{3,
                                     48,
                                     12,
                                     {{1, 0, 7},
                                      {2, 0, 5},
                                      {-2, 1, 3},
                                      {-1, 1, 5},
                                      {0, 1, 7},
                                      {1, 1, 5},
                                      {2, 1, 3},
                                      {-2, 2, 1},
                                      {-1, 2, 3},
                                      {0, 2, 5},
                                      {1, 2, 3},
                                      {2, 2, 1}}};

// Stucki.
inline constexpr DiffusionKernel kKernelStucki{3,
                                        42,
                                        12,
                                        {{1, 0, 8},
                                         {2, 0, 4},
                                         {-2, 1, 2},
                                         {-1, 1, 4},
                                         {0, 1, 8},
                                         {1, 1, 4},
                                         {2, 1, 2},
                                         {-2, 2, 1},
                                         {-1, 2, 2},
                                         {0, 2, 4},
                                         {1, 2, 2},
                                         {2, 2, 1}}};

// Stevenson-Arce: no tap at x+1 in the current row, and rows alternate between
// odd and even column offsets.
inline constexpr DiffusionKernel kKernelSA{4,
                                    200,
                                    12,
                                    {{2, 0, 32},
                                     {-3, 1, 12},
                                     {-1, 1, 26},
                                     {1, 1, 30},
                                     {3, 1, 16},
                                     {-2, 2, 12},
                                     {0, 2, 26},
                                     {2, 2, 12},
                                     {-3, 3, 5},
                                     {-1, 3, 12},
                                     {1, 3, 12},
                                     {3, 3, 5}}};

constexpr int kMaxKernelRows = 4;

// What every kernel must satisfy for the driver: weights sum to D, taps stay
// within the K rows and the margins, and a tap in the current row points right
// (a pixel never feeds one already decided).
constexpr bool KernelIsWellFormed(const DiffusionKernel &k) {
    if (k.rows < 1 || k.rows > kMaxKernelRows || k.divisor < 1) return false;
    if (k.tapCount < 1 || k.tapCount > kMaxTaps) return false;
    int sum = 0;
    for (int i = 0; i < k.tapCount; ++i) {
        const KernelTap &t = k.taps[i];
        if (t.dy < 0 || t.dy >= k.rows) return false;
        if (t.dx < -kKernelMargin || t.dx > kKernelMargin) return false;
        if (t.dy == 0 && t.dx < 1) return false;
        if (t.weight < 1) return false;
        sum += t.weight;
    }
    return sum == k.divisor;
}

static_assert(KernelIsWellFormed(kKernelFS4), "FS4 kernel");
static_assert(KernelIsWellFormed(kKernelBurkes), "Burkes kernel");
static_assert(KernelIsWellFormed(kKernelSierra), "Sierra kernel");
static_assert(KernelIsWellFormed(kKernelJJN), "JJN kernel");
static_assert(KernelIsWellFormed(kKernelStucki), "Stucki kernel");
static_assert(KernelIsWellFormed(kKernelSA), "SA kernel");

#endif
