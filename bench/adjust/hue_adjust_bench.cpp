// The hue-based adjustments on a 4096 x 4096 24-bit image, without dialogs,
// in megapixels per second beside a memcpy of the same image and, when
// OpenCV is present, beside its anchor NAME/opencv: the HLS round trip for
// the hue adjustments, a 256-entry table lookup for the others.
#include "bench_util.h"
#include "paximage.h"
#ifdef PAX_BENCH_OPENCV
#include "opencv_anchor.h"
#include <opencv2/imgproc.hpp>
#endif

#include <cstdint>
#include <functional>
#include <string>

namespace {

constexpr int kSide = 4096;
constexpr int64_t kPixels = int64_t{kSide} * kSide;

// Smooth colour ramps with a little noise: every hue, saturation and
// lightness occurs, and few neighbours are equal.
HGLOBAL Image() {
    static HGLOBAL image = paxbench::MakeBenchImage(kSide, 24, paxbench::Content::Ramps);
    return image;
}

enum class Anchor { HlsRoundTrip, Lut };

#ifdef PAX_BENCH_OPENCV
void RunAnchor(benchmark::State &state, Anchor anchor) {
    static cv::Mat mat = paxbench::MatFromImage(Image(), kSide);
    if (anchor == Anchor::HlsRoundTrip) {
        paxbench::RunOpenCvAnchor(state, kPixels, [] {
            cv::Mat hls, out;
            cv::cvtColor(mat, hls, cv::COLOR_BGR2HLS_FULL);
            cv::cvtColor(hls, out, cv::COLOR_HLS2BGR_FULL);
            return out;
        });
    } else {
        paxbench::RunLutAnchor(state, kPixels, mat);
    }
}
#endif

// Registers NAME and, with OpenCV, NAME/opencv.
void Add(const std::string &name, Anchor anchor, std::function<HDIB(HDIB)> op) {
    benchmark::RegisterBenchmark(name.c_str(), [op](benchmark::State &state) {
        HGLOBAL image = Image();
        paxbench::RunImageOperation(state, kPixels, [&] { return op(image); });
    })->Unit(benchmark::kMillisecond);
#ifdef PAX_BENCH_OPENCV
    benchmark::RegisterBenchmark((name + "/opencv").c_str(),
                                 [anchor](benchmark::State &state) { RunAnchor(state, anchor); })
        ->Unit(benchmark::kMillisecond);
#else
    (void)anchor;
#endif
}

const bool registered = [] {
    benchmark::RegisterBenchmark("BM_Memcpy24", [](benchmark::State &state) {
        paxbench::MemcpyBaseline(state, kPixels * 3, kPixels);
    })->Unit(benchmark::kMillisecond);
    // Every hue: hue 30, saturation 20, lightness 10.
    Add("BM_ColorHueSaturation", Anchor::HlsRoundTrip,
        [](HDIB im) { return ColorHueSaturation(im, 30, 20, 10, 0, 0, 0, nullptr); });
    // A third of the circle: the pixels outside it need no way back.
    Add("BM_ColorHueSaturation/range120", Anchor::HlsRoundTrip,
        [](HDIB im) { return ColorHueSaturation(im, 30, 20, 10, 0, 120, 0, nullptr); });
    Add("BM_ReplaceColor/tolerance60", Anchor::HlsRoundTrip, [](HDIB im) {
        const BYTE target[3] = {128, 128, 128}, tol[3] = {60, 60, 60};
        return ReplaceColor(im, target, tol, 90, 10, 5, 0, nullptr);
    });
    Add("BM_Desaturate", Anchor::Lut, [](HDIB im) { return Desaturate(im, 0, nullptr); });
    Add("BM_ColorCMYKLevels", Anchor::Lut,
        [](HDIB im) { return ColorCMYKLevels(im, 30, -20, 10, 50, 0, nullptr); });
    return true;
}();

} // namespace
