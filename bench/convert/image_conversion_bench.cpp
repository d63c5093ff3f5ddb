// ConvertDIBColorSpace on a 4096 x 4096 image: RGB into each model and back,
// beside memcpy of the same 24-bit image. The plain byte walk is measured too
// for two pairs, to show what walking by rows saves.
#include "bench_util.h"
#include "convert_internal.h"
#include "dib.h"

#include <cstdint>
#include <string>

namespace {

constexpr int kSide = 4096;
constexpr int64_t kPixels = int64_t{kSide} * kSide;

HDIB RgbImage() {
    static HDIB image = paxbench::MakeBenchImage(kSide, 24, paxbench::Content::Noise);
    return image;
}

// The image converted into each model once, as the source of the way back.
HDIB ModelImage(int model) {
    static HDIB images[10] = {};
    if (!images[model]) images[model] = ConvertDIBColorSpace(RgbImage(), MODEL_RGB, model, 0, nullptr);
    return images[model];
}

void Convert(benchmark::State &state, int from, int to, pax::WalkKind kind) {
    HDIB source = from == MODEL_RGB ? RgbImage() : ModelImage(from);
    paxbench::RunImageOperation(state, kPixels, [&] {
        return pax::ConvertDIBColorSpaceWith(kind, source, from, to, 0, nullptr);
    });
}

void BM_Memcpy(benchmark::State &state) {
    paxbench::MemcpyBaseline(state, Stride24(kSide) * kSide, kPixels);
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

const char *const kNames[] = {"", "RGB", "YUV", "CMY", "CMYK", "YIQ", "HSV", "HSI", "XYZ", "LAB"};

const bool kRegistered = [] {
    for (int model = MODEL_YUV; model <= MODEL_LAB; ++model) {
        benchmark::RegisterBenchmark((std::string("RGBto") + kNames[model]).c_str(),
                                     [model](benchmark::State &s) {
                                         Convert(s, MODEL_RGB, model, pax::WalkKind::Rows);
                                     })
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string(kNames[model]) + "toRGB").c_str(),
                                     [model](benchmark::State &s) {
                                         Convert(s, model, MODEL_RGB, pax::WalkKind::Rows);
                                     })
            ->Unit(benchmark::kMillisecond);
    }
    for (int model : {MODEL_CMY, MODEL_LAB})
        benchmark::RegisterBenchmark((std::string("RGBto") + kNames[model] + "/byte_walk").c_str(),
                                     [model](benchmark::State &s) {
                                         Convert(s, MODEL_RGB, model, pax::WalkKind::Bytes);
                                     })
            ->Unit(benchmark::kMillisecond);
    return true;
}();

} // namespace
