// Shared pieces of the benchmarks: throughput counters and the memcpy baseline.
#ifndef PAX_BENCH_UTIL_H
#define PAX_BENCH_UTIL_H

#include <benchmark/benchmark.h>

#include "paximage.h"

#include <cstdint>

namespace paxbench {

// Reports megapixels per second over all iterations.
inline void SetMegapixelRate(benchmark::State &state, int64_t pixelsPerIteration) {
    state.counters["MP/s"] = benchmark::Counter(
        static_cast<double>(pixelsPerIteration) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

// Times op(), which returns a new image, freeing each result; a null result
// stops the benchmark with an error. Reports megapixels per second.
template <typename Op>
void RunImageOperation(benchmark::State &state, int64_t pixelsPerIteration, Op op) {
    for (auto _ : state) {
        HGLOBAL out = op();
        if (!out) {
            state.SkipWithError("the operation returned no image");
            break;
        }
        benchmark::DoNotOptimize(out);
        GlobalFree(out);
    }
    SetMegapixelRate(state, pixelsPerIteration);
}

// memcpy of `bytes` bytes, reported in the same megapixels per second for an
// image of `pixels` pixels: the baseline every image benchmark stands beside.
void MemcpyBaseline(benchmark::State &state, int64_t bytes, int64_t pixels);

// What a benchmark image shows.
enum class Content {
    Noise, // seeded pseudo-random bytes: no two neighbours alike
    Ramps, // smooth colour ramps with a little noise: every hue and lightness
};

// A side x side image in a movable global block, 24 or 8 bits per pixel (the
// 8-bit one with a grey-ramp colour table), as a host would hand it over.
HGLOBAL MakeBenchImage(int side, int bits, Content content);

} // namespace paxbench

#endif
