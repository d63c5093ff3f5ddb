// Throughput on 1 and 2 threads: each thread converts, adjusts and dithers
// its own 4096 x 4096 image. The library shares nothing between threads, so
// the items-per-second of /threads:2 over /threads:1 is the speed-up.
#include "bench_util.h"

namespace {

void BM_ConvertAdjustDither(benchmark::State &state) {
    constexpr int kSide = 4096;
    HGLOBAL image = paxbench::MakeBenchImage(kSide, 24, paxbench::Content::Ramps);
    for (auto _ : state) {
        HGLOBAL results[] = {ConvertDIBColorSpace(image, MODEL_RGB, MODEL_HSV, 0, nullptr),
                             ColorHueSaturation(image, 30, 20, 0, 0, 0, 0, nullptr),
                             DitherFS4(image, 1)};
        for (HGLOBAL r : results) {
            if (!r) state.SkipWithError("an operation returned no image");
            GlobalFree(r);
        }
    }
    state.SetItemsProcessed(state.iterations() * 3 * int64_t{kSide} * kSide);
    GlobalFree(image);
}
BENCHMARK(BM_ConvertAdjustDither)->Threads(1)->Threads(2)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
