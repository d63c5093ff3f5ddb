// The convolution's fast row loop, beside the accumulator ring of
// convolution_rows.cpp (which UseReferencePaths() forces).
//
// Instead of scattering each source row into n ring rows, it keeps the last
// n rows of intensities, each padded by h copies of its first and last value,
// and gathers every output row from them when it is due. Sums are taken on
// 16-bit lanes modulo 2^16: the ring's sums are the same terms added in
// another order, and every real output sum lies within +-32385, so both give
// the same 16-bit value. Kernels whose coefficients are all equal (the mean)
// are summed down the n rows first and then across n columns; others tap by
// tap. The output pass takes Q = S / d by shift, by an exact multiply checked
// over every sum, or by truncating division, then delta = Q - O and the three
// clamped bytes.
//
// The row loop, its progress steps and its cancel test stay in the driver:
// Feed and Emit take the places of TurnRing with the engine call and of the
// output row, one loop step at a time, so a cancel stops at the same row.
#ifndef PAX_ADJUST_CONVOLUTION_FAST_H
#define PAX_ADJUST_CONVOLUTION_FAST_H

#include "convolution.h"

#include <cstdint>

namespace convfast {

// One tap of a kernel that is not a single repeated value.
struct Tap {
    int row;    // a: the feed a steps before the current one
    int offset; // 2h - b: where column c reads the padded row
    int16_t k;
};

// How Q = S / d is taken on 16-bit lanes.
enum class QuotientKind { Identity, Shift, Multiply, Zero, Divide };

struct Plan {
    int n = 0, h = 0, width = 0, intensityMode = 0;
    int padded = 0;          // width + 2h values per intensity row
    int16_t *slots[kMaxKernel] = {}; // padded intensity rows, feed f in slot f mod n
    int16_t *column = nullptr;       // box kernels: the sum down the n rows, padded
    int16_t *sums = nullptr;         // the output row's kernel sums
    bool box = false;                // every coefficient equals boxValue
    int16_t boxValue = 0;
    Tap taps[kMaxKernel * kMaxKernel];
    int tapCount = 0;
    QuotientKind quotient = QuotientKind::Identity;
    int divisor = 1;
    int shift = 0;           // Shift: the shift; Multiply: the shift after the high half
    uint16_t multiplier = 0; // Multiply
};

// Loop step y (from -h), for one instruction set.
struct Engine {
    void (*feed)(const Plan &plan, int y, const BYTE *row);
    void (*emit)(const Plan &plan, int y, const BYTE *src, BYTE *dst);
};

class FastConvolution {
public:
    // Lays the plan out in the driver's work block of `workValues` 16-bit
    // values; false when the image is too narrow for that layout (the ring
    // is used then).
    bool Prepare(const KernelGrid &grid, int n, int divisor, int intensityMode, int width,
                 int16_t *work, int64_t workValues);
    void Feed(int y, const BYTE *row) const { engine_.feed(plan_, y, row); }
    void Emit(int y, const BYTE *src, BYTE *dst) const { engine_.emit(plan_, y, src, dst); }

private:
    Plan plan_;
    Engine engine_{};
};

// The engines of the instruction sets, from convolution_fast_*.cpp.
Engine BaselineEngine();
Engine Avx2Engine();

// The multiplier for Q = |S| / d on 16-bit lanes: (|S| x multiplier) >> 16
// >> shift equals the truncated quotient for every |S| up to 32385. False
// when no 16-bit multiplier does.
bool FindMultiplier(int divisor, uint16_t *multiplier, int *shift);

} // namespace convfast

#endif
