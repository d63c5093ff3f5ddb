// The row engines one feed at a time: what each ring row gains, what the last
// row becomes, where the intensities go, and what sizes an engine ignores.
#include "convolution.h"
#include "tone_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>

namespace {

using namespace tonetest;

struct Ring {
    int width;
    std::vector<std::vector<int16_t>> storage;
    int16_t *rows[kMaxKernel] = {};
    Ring(int n, int w, paxtest::Rng &rng) : width(w), storage(static_cast<size_t>(n)) {
        for (int a = 0; a < n; ++a) {
            storage[a].resize(static_cast<size_t>(2 * w));
            for (auto &v : storage[a]) v = static_cast<int16_t>(rng.Below(20001) - 10000);
            rows[a] = storage[a].data();
        }
    }
};

using Engine = std::function<void(const BYTE *, int, int16_t, int16_t **, int16_t)>;

// One feed of a random row into a ring of distinct rows holding random values,
// compared with: R[a] += T[a] for a < n - 1, R[n - 1] = T[n - 1], R[h][W ..] =
// I, the other intensity halves unchanged.
void ExpectFeed(const Engine &engine, const std::vector<int> &k, int n, int w, int mode,
                paxtest::Rng &rng) {
    std::vector<BYTE> row(static_cast<size_t>(3 * w));
    for (auto &b : row) b = rng.Byte();
    Ring ring(n, w, rng);
    auto before = ring.storage;
    engine(row.data(), mode, static_cast<int16_t>(w), ring.rows, static_cast<int16_t>(n));
    const int h = n / 2;
    std::vector<int> in(static_cast<size_t>(w));
    for (int x = 0; x < w; ++x) in[x] = Intensity(&row[3 * x], mode);
    for (int a = 0; a < n; ++a)
        for (int c = 0; c < w; ++c) {
            int t = 0;
            for (int b = 0; b < n; ++b) t += k[a * n + b] * in[Clamp(c + h - b, 0, w - 1)];
            int expected = a < n - 1 ? before[a][c] + t : t;
            ASSERT_EQ(ring.storage[a][c], static_cast<int16_t>(expected))
                << "row " << a << " column " << c << " n " << n << " width " << w;
        }
    for (int a = 0; a < n; ++a)
        for (int x = 0; x < w; ++x)
            ASSERT_EQ(ring.storage[a][w + x], a == h ? in[x] : before[a][w + x]) << "row " << a;
}

const Engine kBuiltInEngines[] = {ConvolveRowMean, ConvolveRowSmooth, ConvolveRowSharpen,
                                  ConvolveRowSharpenFull};
const Engine &EngineOf(const BuiltIn &b) { return kBuiltInEngines[b.type - CONV_MEAN]; }

std::vector<int> GridRows(const KernelGrid &g, int n) {
    std::vector<int> k(static_cast<size_t>(n * n));
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < n; ++b) k[a * n + b] = g[a][b];
    return k;
}

TEST(ConvolutionRows, IntensityWeightsBlueEightAndRedThree) {
    const BYTE blue[3] = {255, 0, 0}, red[3] = {0, 0, 255};
    struct {
        const BYTE *pixel;
        int mode, intensity;
    } rows[] = {{blue, 1, 78}, {red, 1, 29}, {blue, 0, 85}, {red, 0, 85}, {red, 2, 85}};
    for (auto row : rows) EXPECT_EQ(PixelIntensity(row.pixel, row.mode), row.intensity) << row.mode;
}

// Every sum a row can hold, against plain division: floor for 2, 4, .. 64,
// truncation for every other divisor.
TEST(ConvolutionRows, QuotientOfEverySumEqualsPlainDivision) {
    std::vector<int> divisors;
    for (int d = 1; d <= 1024; ++d) divisors.push_back(d);
    for (int d = 1025; d < 32767; d += 97) divisors.push_back(d);
    divisors.push_back(32767);
    divisors.push_back(32768);
    long checked = 0;
    for (int d : divisors) {
        SumQuotient q(d);
        bool floors = d == 2 || d == 4 || d == 8 || d == 16 || d == 32 || d == 64;
        for (int s = -32768; s <= 32767; ++s) {
            int expected = s / d;
            if (floors && s % d != 0 && s < 0) expected -= 1;
            if (q(s) != expected) {
                ADD_FAILURE() << "S " << s << " d " << d << ": " << q(s) << " not " << expected;
                return;
            }
            ++checked;
        }
    }
    EXPECT_EQ(checked, static_cast<long>(divisors.size()) * 65536);
}

TEST(ConvolutionRows, GeneralEngineFollowsItsGridForEverySizeAndWidth) {
    paxtest::Rng rng(3);
    for (int n : {3, 5, 7})
        for (int w = 1; w <= 20; ++w)
            for (int round = 0; round < 4; ++round) {
                KernelGrid grid = {};
                for (int a = 0; a < n; ++a)
                    for (int b = 0; b < n; ++b) grid[a][b] = static_cast<int16_t>(rng.Below(19) - 9);
                Engine engine = [&](const BYTE *r, int m, int16_t wd, int16_t **ring, int16_t nn) {
                    ConvolveRowKernel(r, m, wd, ring, nn, grid, 1);
                };
                ExpectFeed(engine, GridRows(grid, n), n, w, round % 2, rng);
            }
}

TEST(ConvolutionRows, BuiltInEnginesFollowTheirKernels) {
    paxtest::Rng rng(4);
    for (const BuiltIn &b : BuiltIns())
        for (int w = 1; w <= 16; ++w) ExpectFeed(EngineOf(b), b.rows, b.n, w, w % 2, rng);
}

TEST(ConvolutionRows, UnservedSizesChangeNothing) {
    paxtest::Rng rng(5);
    KernelGrid grid = {};
    grid[0][0] = 3;
    std::vector<BYTE> row(3 * 6, 200);
    std::vector<Engine> engines = {[&](const BYTE *r, int m, int16_t w, int16_t **ring, int16_t n) {
        ConvolveRowKernel(r, m, w, ring, n, grid, 1);
    }};
    engines.insert(engines.end(), std::begin(kBuiltInEngines), std::end(kBuiltInEngines));
    for (size_t e = 0; e < engines.size(); ++e)
        for (int n : {1, 2, 4, 6, 7}) {
            if (n == 7 && e < 2) continue; // the general and mean engines serve 7
            Ring ring(n, 6, rng);
            auto before = ring.storage;
            engines[e](row.data(), 0, 6, ring.rows, static_cast<int16_t>(n));
            EXPECT_TRUE(ring.storage == before) << "engine " << e << " n " << n;
        }
}

TEST(ConvolutionRows, OnePixelSpreadsTheKernelRowAndPilesUpAtTheBorder) {
    paxtest::Rng rng(6);
    const int w = 9;
    for (const BuiltIn &b : BuiltIns()) {
        const int h = b.n / 2;
        for (int x : {4, 0}) {
            std::vector<BYTE> row(3 * w, 0);
            row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = 90; // intensity 90
            Ring ring(b.n, w, rng);
            for (auto &r : ring.storage) std::fill(r.begin(), r.end(), 0);
            EngineOf(b)(row.data(), 0, w, ring.rows, static_cast<int16_t>(b.n));
            for (int a = 0; a < b.n; ++a) {
                if (x == 4) {
                    for (int c = 0; c < w; ++c) {
                        int expected = (c >= x - h && c <= x + h) ? b.rows[a * b.n + c + h - x] * 90 : 0;
                        EXPECT_EQ(ring.storage[a][c], expected) << "a " << a << " c " << c;
                    }
                } else {
                    int sum = 0;
                    for (int col = h; col < b.n; ++col) sum += b.rows[a * b.n + col];
                    EXPECT_EQ(ring.storage[a][0], sum * 90) << "a " << a;
                }
            }
        }
    }
}

TEST(ConvolutionRows, TheRingSettlesOnDistinctRowsAndRotates) {
    for (int n : {3, 5, 7}) {
        std::vector<int16_t> storage(static_cast<size_t>(n));
        int16_t *work[kMaxKernel] = {};
        for (int k = 0; k < n; ++k) work[k] = &storage[k];
        int16_t *ring[kMaxKernel] = {};
        const int h = n / 2;
        int16_t *previous[kMaxKernel] = {};
        for (int y = -h; y < h + 2 * n; ++y) {
            std::copy(ring, ring + n, previous);
            TurnRing(ring, work, n, y);
            if (y < h) {
                EXPECT_EQ(ring[n - 1], work[y + h]) << "a fresh row for feed " << y + h;
            }
            if (y >= h) {
                std::vector<int16_t *> seen(ring, ring + n);
                std::sort(seen.begin(), seen.end());
                EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end()) << "n " << n << " y " << y;
                for (int a = 0; a < n - 1; ++a) EXPECT_EQ(ring[a], previous[a + 1]);
                EXPECT_EQ(ring[n - 1], previous[0]);
            }
        }
    }
}

} // namespace
