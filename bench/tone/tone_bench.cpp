// Tone and filters on a 4096 x 4096 24-bit image, in megapixels per second,
// beside a memcpy of the same pixel bytes. Each iteration makes and frees its
// result, as a caller would.
#include "bench_util.h"
#include "paximage.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

constexpr int kSide = 4096;
constexpr int64_t kPixels = int64_t{kSide} * kSide;
constexpr int64_t kStride = (int64_t{kSide} * 3 + 3) / 4 * 4;

HGLOBAL Image() {
    static HGLOBAL image = paxbench::MakeBenchImage(kSide, 24, paxbench::Content::Noise);
    return image;
}

void Finish(benchmark::State &state, HDIB result) {
    if (!result) state.SkipWithError("the operation failed");
    GlobalFree(result);
}

void BM_Memcpy(benchmark::State &state) { paxbench::MemcpyBaseline(state, kStride * kSide, kPixels); }

// General engine: a kernel with no zero coefficient, from the caller's array.
void BM_ConvolutionKernel(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    std::vector<short> k(static_cast<size_t>(n * n + 1), 1);
    k[static_cast<size_t>(n * n / 2)] = 60;
    for (int i = 0; i < n * n; i += 3) k[static_cast<size_t>(i)] = -1;
    k[static_cast<size_t>(n * n)] = 0;
    HGLOBAL image = Image();
    for (auto _ : state) {
        int code = 0;
        Finish(state, ColorConvolution(image, 1, 1, CONV_KERNEL, static_cast<short>(n), nullptr,
                                       k.data(), &code, 0, nullptr));
    }
    paxbench::SetMegapixelRate(state, kPixels);
}

void BM_ConvolutionBuiltIn(benchmark::State &state) {
    const short type = static_cast<short>(state.range(0));
    const short n = static_cast<short>(state.range(1));
    HGLOBAL image = Image();
    for (auto _ : state) {
        int code = 0;
        Finish(state, ColorConvolution(image, 1, 1, type, n, nullptr, nullptr, &code, 0, nullptr));
    }
    paxbench::SetMegapixelRate(state, kPixels);
}

void BM_ConvolutionInPlace(benchmark::State &state) {
    HGLOBAL image = Image();
    for (auto _ : state) {
        int code = 0;
        if (!ColorConvolution(image, 0, 1, CONV_SMOOTH, 3, nullptr, nullptr, &code, 0, nullptr))
            state.SkipWithError("the operation failed");
    }
    paxbench::SetMegapixelRate(state, kPixels);
}

void BM_Gamma(benchmark::State &state) {
    HGLOBAL image = Image();
    for (auto _ : state) Finish(state, GammaCorrection(image, 45, 100, 220, 0, nullptr));
    paxbench::SetMegapixelRate(state, kPixels);
}

void BM_BrightnessContrast(benchmark::State &state) {
    HGLOBAL image = Image();
    for (auto _ : state) Finish(state, ColorBrightnessContrast(image, 20, 35, 0));
    paxbench::SetMegapixelRate(state, kPixels);
}

} // namespace

BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConvolutionKernel)->ArgName("n")->Arg(3)->Arg(5)->Arg(7)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConvolutionBuiltIn)
    ->ArgNames({"type", "n"})
    ->Args({CONV_MEAN, 3})
    ->Args({CONV_MEAN, 5})
    ->Args({CONV_MEAN, 7})
    ->Args({CONV_SMOOTH, 3})
    ->Args({CONV_SMOOTH, 5})
    ->Args({CONV_SHARPEN, 3})
    ->Args({CONV_SHARPEN, 5})
    ->Args({CONV_SHARPEN_FULL, 3})
    ->Args({CONV_SHARPEN_FULL, 5})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConvolutionInPlace)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Gamma)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BrightnessContrast)->Unit(benchmark::kMillisecond);
