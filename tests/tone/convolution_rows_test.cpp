// The row engines one feed at a time, against the kernels of convolution.txt
// (and random grids for the general engine): a single pixel spreads its
// kernel row into every ring row and piles up at the border, the last ring
// row is overwritten, the intensities travel with the centre row; sizes an
// engine does not serve change nothing; the quotient of every sum.
#include "adjust_support.h"
#include "convolution.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace paxtest;
using Engine = std::function<void(const BYTE *, int, int16_t, int16_t **, int16_t)>;

Engine EngineOf(int type, const KernelGrid &grid) {
    switch (type) {
    case CONV_MEAN: return ConvolveRowMean;
    case CONV_SMOOTH: return ConvolveRowSmooth;
    case CONV_SHARPEN: return ConvolveRowSharpen;
    case CONV_SHARPEN_FULL: return ConvolveRowSharpenFull;
    default: return [&grid](const BYTE *r, int m, int16_t w, int16_t **ring, int16_t n) {
        ConvolveRowKernel(r, m, w, ring, n, grid, 1);
    };
    }
}

// n ring rows of 2 x width values, all `fill`.
struct Ring {
    std::vector<std::vector<int16_t>> rows;
    int16_t *r[kMaxKernel] = {};
    Ring(int n, int w, int16_t fill) : rows(static_cast<size_t>(n), std::vector<int16_t>(2 * w, fill)) {
        for (int a = 0; a < n; ++a) r[a] = rows[a].data();
    }
};

TEST(ConvolutionRows, OnePixelSpreadsItsKernelRows) {
    std::vector<Example> kernels = ReadExamples("convolution.txt", "kernel");
    Rng rng(3);
    for (int n : {3, 5, 7}) { // random grids for the general engine
        Example e{"kernel", "random grid", {}, {double(CONV_KERNEL), double(n)}};
        for (int i = 0; i < n * n; ++i) e.v.push_back(rng.Below(19) - 9);
        kernels.push_back(e);
    }
    const int w = 9, I = 90, base = 1000;
    for (const Example &e : kernels) {
        SCOPED_TRACE(e.line);
        const int n = e.I(1), h = n / 2;
        ASSERT_EQ(e.v.size(), size_t(2 + n * n));
        auto K = [&](int a, int b) { return e.I(2 + a * n + b); };
        KernelGrid grid = {};
        for (int a = 0; a < n; ++a)
            for (int b = 0; b < n; ++b) grid[a][b] = static_cast<int16_t>(K(a, b));
        for (int x : {4, 0}) {
            std::vector<BYTE> row(3 * w, 0);
            row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = I;
            Ring ring(n, w, base);
            EngineOf(e.I(0), grid)(row.data(), 0, w, ring.r, static_cast<int16_t>(n));
            for (int a = 0; a < n; ++a)
                for (int c = 0; c < w; ++c) {
                    int t = 0; // K[a][c + h - x] I; at the border, every b that reaches past it
                    for (int b = 0; b < n; ++b) t += (x == 0 ? b >= c + h : b == c + h - x) ? K(a, b) * I : 0;
                    EXPECT_EQ(ring.rows[a][c], (a < n - 1 ? base : 0) + t) << "a " << a << " c " << c << " x " << x;
                    EXPECT_EQ(ring.rows[a][w + c], a == h ? (c == x ? I : 0) : base) << "intensity " << a << " " << c;
                }
        }
    }
}

TEST(ConvolutionRows, UnservedSizesChangeNothing) {
    const KernelGrid grid = {{3}};
    const std::vector<BYTE> row(3 * 6, 200);
    for (int type : {CONV_KERNEL, CONV_MEAN, CONV_SMOOTH, CONV_SHARPEN, CONV_SHARPEN_FULL})
        for (int n : {1, 2, 4, 6, 7}) {
            if (n == 7 && type <= CONV_MEAN) continue; // the general and the mean engine serve 7
            Ring ring(n, 6, 1234);
            const auto before = ring.rows;
            EngineOf(type, grid)(row.data(), 0, 6, ring.r, static_cast<int16_t>(n));
            EXPECT_TRUE(ring.rows == before) << "type " << type << " n " << n;
        }
}

// Every sum a row can hold, against plain division: floor for 2, 4, .. 64,
// truncation for every other divisor.
TEST(ConvolutionRows, QuotientOfEverySum) {
    std::vector<int> divisors = {32767, 32768};
    for (int d = 1; d <= 1024; ++d) divisors.push_back(d);
    for (int d = 1025; d < 32767; d += 97) divisors.push_back(d);
    for (int d : divisors) {
        const SumQuotient q(d);
        const bool floors = d == 2 || d == 4 || d == 8 || d == 16 || d == 32 || d == 64;
        for (int s = -32768; s <= 32767; ++s)
            if (q(s) != s / d - (floors && s % d != 0 && s < 0)) {
                ADD_FAILURE() << "S " << s << " d " << d << ": " << q(s);
                return;
            }
    }
}

} // namespace
