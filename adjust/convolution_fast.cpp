// The plan of the convolution's fast row loop and the choice of engine.
#include "convolution_fast.h"
#include "simd_dispatch.h"

namespace convfast {

bool FindMultiplier(int divisor, uint16_t *multiplier, int *shift) {
    constexpr uint32_t kLargestSum = 32385; // 127 x 255
    for (int s = 0; s < 16; ++s) {
        const uint64_t m = ((uint64_t{1} << (16 + s)) + static_cast<uint64_t>(divisor) - 1) /
                           static_cast<uint64_t>(divisor);
        if (m > 0xFFFF) break;
        bool exact = true;
        for (uint32_t x = 0; x <= kLargestSum && exact; ++x)
            exact = ((x * static_cast<uint32_t>(m)) >> 16 >> s) == x / static_cast<uint32_t>(divisor);
        if (exact) {
            *multiplier = static_cast<uint16_t>(m);
            *shift = s;
            return true;
        }
    }
    return false;
}

bool FastConvolution::Prepare(const KernelGrid &grid, int n, int divisor, int intensityMode,
                              int width, int16_t *work, int64_t workValues) {
    Plan &p = plan_;
    p = Plan();
    p.n = n;
    p.h = n / 2;
    p.width = width;
    p.intensityMode = intensityMode;
    p.padded = width + 2 * p.h;
    // n padded rows, the column sums and the output sums in the work block.
    if (width < 16 || int64_t{n} * p.padded + p.padded + width > workValues) return false;
    for (int a = 0; a < n; ++a) p.slots[a] = work + int64_t{a} * p.padded;
    p.column = work + int64_t{n} * p.padded;
    p.sums = p.column + p.padded;

    // grid[a][b] weighs row a (the feed a steps back) and column c + h - b,
    // that is padded index c + 2h - b.
    p.box = true;
    p.boxValue = grid[0][0];
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < n; ++b) {
            if (grid[a][b] != p.boxValue) p.box = false;
            if (grid[a][b] != 0) p.taps[p.tapCount++] = Tap{a, 2 * p.h - b, grid[a][b]};
        }

    p.divisor = divisor;
    if (divisor == 1) {
        p.quotient = QuotientKind::Identity;
    } else if (divisor > 32385) {
        p.quotient = QuotientKind::Zero; // every sum is smaller in magnitude
    } else {
        for (int s = 1; s <= 6; ++s)
            if (divisor == (1 << s)) {
                p.quotient = QuotientKind::Shift;
                p.shift = s;
            }
        if (p.quotient != QuotientKind::Shift)
            p.quotient = FindMultiplier(divisor, &p.multiplier, &p.shift) ? QuotientKind::Multiply
                                                                          : QuotientKind::Divide;
    }
    engine_ = CpuHasAvx2() ? Avx2Engine() : BaselineEngine();
    return true;
}

} // namespace convfast
