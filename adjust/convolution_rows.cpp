// The convolution's row engines and the turning of the accumulator ring.
//
// One driver, FeedRow, serves every engine: it stores the row's intensities
// in R[h] and scatters each kernel row's response into the ring. The built-in
// kernels are constexpr grids given to the driver as template arguments, so
// their zeros and ones fold away; the general engine hands it the caller's
// grid. Border columns (closer than h to either edge) read the row through a
// clamped index, the interior reads it directly; both evaluate the same sum.
//
// Sums are signed 16-bit values. The coefficient limits of the caller's
// kernels and the built-in kernels keep every partial sum of a real output
// row within +-32385 (127 x 255), so they are computed in int and stored
// back without loss. Rows that only gather sums for rows above the image
// during the first n - 1 feeds may wrap; they are overwritten before use.
#include "convolution.h"

#include <cstdint>

namespace {

constexpr KernelGrid kMean = {{1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1, 1},
                              {1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1, 1},
                              {1, 1, 1, 1, 1, 1, 1}};
constexpr KernelGrid kSmooth3 = {{1, 2, 1}, {2, 4, 2}, {1, 2, 1}};
constexpr KernelGrid kSmooth5 = {
    {0, 1, 1, 1, 0}, {1, 2, 4, 2, 1}, {1, 4, 8, 4, 1}, {1, 2, 4, 2, 1}, {0, 1, 1, 1, 0}};
constexpr KernelGrid kSharpen3 = {{0, -1, 0}, {-1, 5, -1}, {0, -1, 0}};
constexpr KernelGrid kSharpen5 = {{-1, -2, -1, -2, -1},
                                  {-2, 1, 3, 1, -2},
                                  {-1, 3, 9, 3, -1},
                                  {-2, 1, 3, 1, -2},
                                  {-1, -2, -1, -2, -1}};
constexpr KernelGrid kSharpenFull3 = {{-1, -1, -1}, {-1, 9, -1}, {-1, -1, -1}};
constexpr KernelGrid kSharpenFull5 = {{-1, -2, -4, -2, -1},
                                      {-2, 1, 4, 1, -2},
                                      {-4, 4, 17, 4, -4},
                                      {-2, 1, 4, 1, -2},
                                      {-1, -2, -4, -2, -1}};

constexpr int KernelSum(const KernelGrid &k, int n) {
    int s = 0;
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < n; ++b) s += k[a][b];
    return s;
}
// The divisors of the built-in types are these sums.
static_assert(KernelSum(kMean, 3) == 9 && KernelSum(kMean, 5) == 25 && KernelSum(kMean, 7) == 49);
static_assert(KernelSum(kSmooth3, 3) == 16 && KernelSum(kSmooth5, 5) == 44);
static_assert(KernelSum(kSharpen3, 3) == 1 && KernelSum(kSharpen5, 5) == 1);
static_assert(KernelSum(kSharpenFull3, 3) == 1 && KernelSum(kSharpenFull5, 5) == 1);

// Coefficients known at compile time.
template <const KernelGrid &K> struct FixedKernel {
    static constexpr int At(int a, int b) { return K[a][b]; }
};
// The caller's grid, copied to ints.
struct GridKernel {
    int k[kMaxKernel][kMaxKernel];
    explicit GridKernel(const KernelGrid &grid) {
        for (int a = 0; a < kMaxKernel; ++a)
            for (int b = 0; b < kMaxKernel; ++b) k[a][b] = grid[a][b];
    }
    int At(int a, int b) const { return k[a][b]; }
};

inline int Clamp(int i, int hi) { return i < 0 ? 0 : i > hi ? hi : i; }

// Column c of every ring row, for the border columns. in(i) reads the
// intensity at index i, clamped to the row.
template <int N, typename Kernel, typename Read>
inline void ScatterColumn(int16_t *const *rows, const Kernel &kernel, int c, Read in) {
    constexpr int h = N / 2;
#pragma GCC unroll 7
    for (int a = 0; a < N; ++a) {
        int t = 0;
#pragma GCC unroll 7
        for (int b = 0; b < N; ++b) t += kernel.At(a, b) * in(c + h - b);
        if (a < N - 1)
            rows[a][c] = static_cast<int16_t>(rows[a][c] + t);
        else
            rows[a][c] = static_cast<int16_t>(t);
    }
}

// Ring row a over the interior columns [begin, end), where every index
// c + h - b lies inside the row. The sums are taken modulo 2^16, which stores
// the same 16-bit value as summing in int and truncating once, and lets the
// loop run on 16-bit lanes. The sum half of a ring row never overlaps the
// intensity half of any row, so the two pointers do not alias.
template <int N, typename Kernel>
inline void InteriorRow(int16_t *__restrict sums, const int16_t *__restrict in, int begin, int end,
                        const Kernel &kernel, int a, bool overwrite) {
    constexpr int h = N / 2;
    uint16_t k[N];
    for (int b = 0; b < N; ++b) k[b] = static_cast<uint16_t>(kernel.At(a, b));
    if (overwrite) {
        for (int c = begin; c < end; ++c) {
            uint16_t t = 0;
#pragma GCC unroll 7
            for (int b = 0; b < N; ++b)
                t = static_cast<uint16_t>(t + k[b] * static_cast<uint16_t>(in[c + h - b]));
            sums[c] = static_cast<int16_t>(t);
        }
    } else {
        for (int c = begin; c < end; ++c) {
            uint16_t t = static_cast<uint16_t>(sums[c]);
#pragma GCC unroll 7
            for (int b = 0; b < N; ++b)
                t = static_cast<uint16_t>(t + k[b] * static_cast<uint16_t>(in[c + h - b]));
            sums[c] = static_cast<int16_t>(t);
        }
    }
}

template <int N, typename Kernel>
void FeedRow(const BYTE *row, int intensityMode, int width, int16_t **ring, const Kernel &kernel) {
    constexpr int h = N / 2;
    int16_t *rows[N];
    for (int a = 0; a < N; ++a) rows[a] = ring[a];
    // The intensities go to R[h] first and are read from there: that half of
    // the row is never a sum, so the scatter below cannot disturb it.
    int16_t *intensity = rows[h] + width;
    if (intensityMode == 1) {
        for (int x = 0; x < width; ++x) intensity[x] = static_cast<int16_t>(PixelIntensity(row + 3 * x, 1));
    } else {
        for (int x = 0; x < width; ++x) intensity[x] = static_cast<int16_t>(PixelIntensity(row + 3 * x, 0));
    }

    const int16_t *I = intensity;
    const int last = width - 1;
    auto clamped = [I, last](int i) { return static_cast<int>(I[Clamp(i, last)]); };
    // Border columns (closer than h to an edge) one by one with clamped reads;
    // the interior row by row. Cells of different rows are separate values
    // (or, in rows that alias during the first feeds, sums in any order).
    const int interiorBegin = h < width ? h : width;
    const int interiorEnd = width - h > interiorBegin ? width - h : interiorBegin;
    for (int c = 0; c < interiorBegin; ++c) ScatterColumn<N>(rows, kernel, c, clamped);
    for (int c = interiorEnd; c < width; ++c) ScatterColumn<N>(rows, kernel, c, clamped);
    for (int a = 0; a < N; ++a)
        InteriorRow<N>(rows[a], I, interiorBegin, interiorEnd, kernel, a, a == N - 1);
}

// Runs FeedRow with the kernel of the size asked for; other sizes do nothing.
template <const KernelGrid &K3, const KernelGrid &K5, const KernelGrid *K7>
void FeedBuiltIn(const BYTE *row, int intensityMode, int16_t width, int16_t **ring, int16_t n) {
    if (width <= 0) return;
    switch (n) {
    case 3: FeedRow<3>(row, intensityMode, width, ring, FixedKernel<K3>{}); break;
    case 5: FeedRow<5>(row, intensityMode, width, ring, FixedKernel<K5>{}); break;
    case 7:
        if constexpr (K7 != nullptr) FeedRow<7>(row, intensityMode, width, ring, FixedKernel<*K7>{});
        break;
    default: break;
    }
}

} // namespace

void ConvolveRowKernel(const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
                       int16_t n, const KernelGrid &grid, int16_t /*divisor*/) {
    if (width <= 0) return;
    GridKernel kernel(grid);
    switch (n) {
    case 3: FeedRow<3>(row, intensityMode, width, ring, kernel); break;
    case 5: FeedRow<5>(row, intensityMode, width, ring, kernel); break;
    case 7: FeedRow<7>(row, intensityMode, width, ring, kernel); break;
    default: break;
    }
}

void ConvolveRowMean(const BYTE *row, int intensityMode, int16_t width, int16_t **ring, int16_t n) {
    FeedBuiltIn<kMean, kMean, &kMean>(row, intensityMode, width, ring, n);
}

void ConvolveRowSmooth(const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
                       int16_t n) {
    FeedBuiltIn<kSmooth3, kSmooth5, nullptr>(row, intensityMode, width, ring, n);
}

void ConvolveRowSharpen(const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
                        int16_t n) {
    FeedBuiltIn<kSharpen3, kSharpen5, nullptr>(row, intensityMode, width, ring, n);
}

void ConvolveRowSharpenFull(const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
                            int16_t n) {
    FeedBuiltIn<kSharpenFull3, kSharpenFull5, nullptr>(row, intensityMode, width, ring, n);
}

void TurnRing(int16_t **ring, int16_t *const *workRows, int n, int y) {
    const int h = n / 2;
    const int k = y + h; // feeds made so far
    if (k == 0) {
        // R[n - 1] takes the first work row; the rest alias the last one.
        ring[n - 1] = workRows[0];
        for (int a = 0; a < n - 1; ++a) ring[a] = workRows[n - 1];
    } else if (k <= n - 2) {
        for (int a = n - 1 - k; a <= n - 2; ++a) ring[a] = ring[a + 1];
        ring[n - 1] = workRows[k];
    } else {
        int16_t *first = ring[0];
        for (int a = 0; a < n - 1; ++a) ring[a] = ring[a + 1];
        ring[n - 1] = first;
    }
}
