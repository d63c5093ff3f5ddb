// The hue-based adjustments on a 4096 x 4096 24-bit image, without dialogs,
// in megapixels per second beside a memcpy of the same image.
#include "bench_util.h"
#include "paximage.h"

#include <cstdint>

namespace {

constexpr int kSide = 4096;
constexpr int64_t kPixels = int64_t{kSide} * kSide;

// Smooth colour ramps with a little noise: every hue, saturation and
// lightness occurs, and few neighbours are equal.
HGLOBAL Image() {
    static HGLOBAL image = paxbench::MakeBenchImage(kSide, 24, paxbench::Content::Ramps);
    return image;
}

template <typename Op> void Run(benchmark::State &state, Op op) {
    HGLOBAL image = Image();
    paxbench::RunImageOperation(state, kPixels, [&] { return op(image); });
}

void BM_Memcpy24(benchmark::State &state) {
    paxbench::MemcpyBaseline(state, kPixels * 3, kPixels);
}
BENCHMARK(BM_Memcpy24)->Unit(benchmark::kMillisecond);

// Full hue range and a hue range of a third of the circle.
void BM_ColorHueSaturation(benchmark::State &state) {
    UINT to = static_cast<UINT>(state.range(0));
    Run(state, [to](HDIB im) { return ColorHueSaturation(im, 60, 20, -10, 0, to, 0, nullptr); });
}
BENCHMARK(BM_ColorHueSaturation)->Arg(0)->Arg(120)->Unit(benchmark::kMillisecond);

void BM_Desaturate(benchmark::State &state) {
    Run(state, [](HDIB im) { return Desaturate(im, 0, nullptr); });
}
BENCHMARK(BM_Desaturate)->Unit(benchmark::kMillisecond);

// Tolerance 255: every pixel matches; 40: some do.
void BM_ReplaceColor(benchmark::State &state) {
    BYTE tolerance = static_cast<BYTE>(state.range(0));
    Run(state, [tolerance](HDIB im) {
        const BYTE target[3] = {128, 128, 128}, tol[3] = {tolerance, tolerance, tolerance};
        return ReplaceColor(im, target, tol, 90, 10, 5, 0, nullptr);
    });
}
BENCHMARK(BM_ReplaceColor)->Arg(255)->Arg(40)->Unit(benchmark::kMillisecond);

void BM_ColorCMYKLevels(benchmark::State &state) {
    Run(state, [](HDIB im) { return ColorCMYKLevels(im, 30, -20, 10, 50, 0, nullptr); });
}
BENCHMARK(BM_ColorCMYKLevels)->Unit(benchmark::kMillisecond);

} // namespace
