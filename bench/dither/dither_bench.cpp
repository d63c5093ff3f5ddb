// Every dither on a 4096 x 4096 image, in megapixels per second beside a
// memcpy of the same image: the error-diffusion methods and the block dithers
// from 24 bits to each depth they offer, DitherOrdered from 8 bits (the only
// depth it takes).
#include "bench_util.h"
#include "paximage.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr int kSide = 4096;
constexpr int64_t kPixels = int64_t{kSide} * kSide;

// A smooth colour picture with some fine detail, so every path of the row
// passes is taken.
HGLOBAL Image24() {
    static HGLOBAL image = paxbench::MakeBenchImage(kSide, 24, paxbench::Content::Ramps);
    return image;
}
HGLOBAL Image8() {
    static HGLOBAL image = paxbench::MakeBenchImage(kSide, 8, paxbench::Content::Ramps);
    return image;
}

void Run(benchmark::State &state, HDIB (*dither)(HDIB, int), HGLOBAL image, int arg) {
    paxbench::RunImageOperation(state, kPixels, [&] { return dither(image, arg); });
}

void BM_Memcpy24(benchmark::State &state) {
    paxbench::MemcpyBaseline(state, kPixels * 3, kPixels);
}
BENCHMARK(BM_Memcpy24)->Unit(benchmark::kMillisecond);

void BM_Memcpy8(benchmark::State &state) { paxbench::MemcpyBaseline(state, kPixels, kPixels); }
BENCHMARK(BM_Memcpy8)->Unit(benchmark::kMillisecond);

#define PAX_DIFFUSION_BENCH(name)                                                           \
    void BM_##name(benchmark::State &state) {                                              \
        Run(state, name, Image24(), static_cast<int>(state.range(0)));                      \
    }                                                                                       \
    BENCHMARK(BM_##name)->Arg(1)->Arg(4)->Arg(8)->Unit(benchmark::kMillisecond);

PAX_DIFFUSION_BENCH(DitherFS4)
PAX_DIFFUSION_BENCH(DitherBurkes)
PAX_DIFFUSION_BENCH(DitherSierra)
PAX_DIFFUSION_BENCH(DitherJJN)
PAX_DIFFUSION_BENCH(DitherStucki)
PAX_DIFFUSION_BENCH(DitherSA)

void BM_DitherSharp(benchmark::State &state) {
    Run(state, DitherSharp, Image24(), static_cast<int>(state.range(0)));
}
BENCHMARK(BM_DitherSharp)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

void BM_DitherSmooth(benchmark::State &state) {
    Run(state, DitherSmooth, Image24(), static_cast<int>(state.range(0)));
}
BENCHMARK(BM_DitherSmooth)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

// From an 8-bit image; the argument is the matrix type.
void BM_DitherOrdered(benchmark::State &state) {
    Run(state, DitherOrdered, Image8(), static_cast<int>(state.range(0)));
}
BENCHMARK(BM_DitherOrdered)->Arg(0)->Arg(4)->Arg(6)->Unit(benchmark::kMillisecond);

} // namespace
