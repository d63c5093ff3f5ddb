// ConvertDIBColorSpace on a 4096 x 4096 image: RGB into each model and back,
// and SplitColorChannels into HSV, beside memcpy of the same 24-bit image and,
// when OpenCV is present, its nearest operation on one thread (NAME/opencv):
// cvtColor for HSV (HSV_FULL), HSI (HLS_FULL), XYZ, LAB and, for YUV and YIQ,
// YCrCb; bitwise_not for CMY and CMYK. Each call makes a new result on both
// sides. The plain byte walk is measured too for two pairs, to show what
// walking by rows saves.
#include "bench_util.h"
#include "convert_internal.h"
#include "dib.h"

#ifdef PAX_BENCH_OPENCV
#include "opencv_anchor.h"

#include <opencv2/imgproc.hpp>
#endif

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

void SplitHsv(benchmark::State &state) {
    HGLOBAL channels[4] = {};
    for (auto _ : state) {
        if (SplitColorChannels(RgbImage(), channels, MODEL_HSV) != 3) {
            state.SkipWithError("SplitColorChannels failed");
            break;
        }
        benchmark::DoNotOptimize(channels[0]);
        for (int k = 0; k < 3; ++k) GlobalFree(channels[k]);
    }
    paxbench::SetMegapixelRate(state, kPixels);
}

void BM_Memcpy(benchmark::State &state) {
    paxbench::MemcpyBaseline(state, Stride24(kSide) * kSide, kPixels);
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

const char *const kNames[] = {"", "RGB", "YUV", "CMY", "CMYK", "YIQ", "HSV", "HSI", "XYZ", "LAB"};

#ifdef PAX_BENCH_OPENCV
// OpenCV's codes into and out of the nearest model; -1: bitwise_not.
struct Anchor {
    int forward, backward;
};
Anchor AnchorOf(int model) {
    switch (model) {
    case MODEL_HSV: return {cv::COLOR_BGR2HSV_FULL, cv::COLOR_HSV2BGR_FULL};
    case MODEL_HSI: return {cv::COLOR_BGR2HLS_FULL, cv::COLOR_HLS2BGR_FULL};
    case MODEL_XYZ: return {cv::COLOR_BGR2XYZ, cv::COLOR_XYZ2BGR};
    case MODEL_LAB: return {cv::COLOR_BGR2Lab, cv::COLOR_Lab2BGR};
    case MODEL_YUV:
    case MODEL_YIQ: return {cv::COLOR_BGR2YCrCb, cv::COLOR_YCrCb2BGR};
    default: return {-1, -1};
    }
}

const cv::Mat &RgbMat() {
    static const cv::Mat mat = paxbench::MatFromImage(RgbImage(), kSide);
    return mat;
}

void OpenCv(benchmark::State &state, int code, bool back) {
    cv::Mat source = RgbMat();
    if (code >= 0 && back) {
        // The way back starts from OpenCV's own forward result.
        const int forward = code == cv::COLOR_HSV2BGR_FULL   ? cv::COLOR_BGR2HSV_FULL
                            : code == cv::COLOR_HLS2BGR_FULL ? cv::COLOR_BGR2HLS_FULL
                            : code == cv::COLOR_XYZ2BGR      ? cv::COLOR_BGR2XYZ
                            : code == cv::COLOR_Lab2BGR      ? cv::COLOR_BGR2Lab
                                                             : cv::COLOR_BGR2YCrCb;
        cv::setNumThreads(1);
        cv::cvtColor(RgbMat(), source, forward);
    }
    paxbench::RunOpenCvAnchor(state, kPixels, [&] {
        cv::Mat out;
        if (code < 0)
            cv::bitwise_not(source, out);
        else
            cv::cvtColor(source, out, code);
        return out;
    });
}
#endif

const bool kRegistered = [] {
    for (int model = MODEL_YUV; model <= MODEL_LAB; ++model) {
        const std::string to = std::string("RGBto") + kNames[model];
        const std::string back = std::string(kNames[model]) + "toRGB";
        benchmark::RegisterBenchmark(to.c_str(), [model](benchmark::State &s) {
            Convert(s, MODEL_RGB, model, pax::WalkKind::Rows);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(back.c_str(), [model](benchmark::State &s) {
            Convert(s, model, MODEL_RGB, pax::WalkKind::Rows);
        })->Unit(benchmark::kMillisecond);
#ifdef PAX_BENCH_OPENCV
        const Anchor anchor = AnchorOf(model);
        benchmark::RegisterBenchmark((to + "/opencv").c_str(), [anchor](benchmark::State &s) {
            OpenCv(s, anchor.forward, false);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((back + "/opencv").c_str(), [anchor](benchmark::State &s) {
            OpenCv(s, anchor.backward, true);
        })->Unit(benchmark::kMillisecond);
#endif
    }
    benchmark::RegisterBenchmark("SplitHSV", SplitHsv)->Unit(benchmark::kMillisecond);
#ifdef PAX_BENCH_OPENCV
    benchmark::RegisterBenchmark("SplitHSV/opencv", [](benchmark::State &s) {
        OpenCv(s, cv::COLOR_BGR2HSV_FULL, false);
    })->Unit(benchmark::kMillisecond);
#endif
    for (int model : {MODEL_CMY, MODEL_LAB})
        benchmark::RegisterBenchmark((std::string("RGBto") + kNames[model] + "/byte_walk").c_str(),
                                     [model](benchmark::State &s) {
                                         Convert(s, MODEL_RGB, model, pax::WalkKind::Bytes);
                                     })
            ->Unit(benchmark::kMillisecond);
    return true;
}();

} // namespace
