// Tone and filters on a 4096 x 4096 24-bit image, in megapixels per second,
// beside a memcpy of the same pixel bytes and, when OpenCV is present, beside
// an anchor NAME/opencv: a 256-entry table lookup for the tone tables,
// filter2D on the colour image (replicated borders) for 3x3 and 5x5 kernels,
// and filter2D on the grey plane for 7x7. Each iteration makes and frees its
// result, as a caller would.
#include "bench_util.h"
#include "paximage.h"
#ifdef PAX_BENCH_OPENCV
#include "opencv_anchor.h"
#include <opencv2/imgproc.hpp>
#endif

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr int kSide = 4096;
constexpr int64_t kPixels = int64_t{kSide} * kSide;
constexpr int64_t kStride = (int64_t{kSide} * 3 + 3) / 4 * 4;

HGLOBAL Image() {
    static HGLOBAL image = paxbench::MakeBenchImage(kSide, 24, paxbench::Content::Noise);
    return image;
}

// The caller's kernel of the benchmarks: no zero coefficient.
std::vector<short> CallerKernel(int n) {
    std::vector<short> k(static_cast<size_t>(n * n + 1), 1);
    k[static_cast<size_t>(n * n / 2)] = 60;
    for (int i = 0; i < n * n; i += 3) k[static_cast<size_t>(i)] = -1;
    k[static_cast<size_t>(n * n)] = 0;
    return k;
}

// The anchor's kernel: the same coefficients over their divisor.
std::vector<float> AnchorKernel(const std::vector<short> &k, int n) {
    int sum = 0;
    for (int i = 0; i < n * n; ++i) sum += k[static_cast<size_t>(i)];
    std::vector<float> out(static_cast<size_t>(n * n));
    for (int i = 0; i < n * n; ++i) out[static_cast<size_t>(i)] = k[static_cast<size_t>(i)] / float(sum ? sum : 1);
    return out;
}

enum class Anchor { None, Lut, Filter, GreyFilter };

#ifdef PAX_BENCH_OPENCV
void RunAnchor(benchmark::State &state, Anchor anchor, int n) {
    static cv::Mat mat = paxbench::MatFromImage(Image(), kSide);
    if (anchor == Anchor::Lut) {
        paxbench::RunLutAnchor(state, kPixels, mat);
        return;
    }
    static cv::Mat grey = [] {
        cv::Mat g;
        cv::cvtColor(mat, g, cv::COLOR_BGR2GRAY);
        return g;
    }();
    std::vector<float> k = AnchorKernel(CallerKernel(n), n);
    cv::Mat kernel(n, n, CV_32F, k.data());
    const cv::Mat &in = anchor == Anchor::GreyFilter ? grey : mat;
    paxbench::RunOpenCvAnchor(state, kPixels, [&] {
        cv::Mat out;
        cv::filter2D(in, out, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
        return out;
    });
}
#endif

void Add(const std::string &name, Anchor anchor, int n, std::function<HDIB(HDIB)> op) {
    benchmark::RegisterBenchmark(name.c_str(), [op](benchmark::State &state) {
        HGLOBAL image = Image();
        paxbench::RunImageOperation(state, kPixels, [&] { return op(image); });
    })->Unit(benchmark::kMillisecond);
#ifdef PAX_BENCH_OPENCV
    if (anchor != Anchor::None)
        benchmark::RegisterBenchmark((name + "/opencv").c_str(), [anchor, n](benchmark::State &state) {
            RunAnchor(state, anchor, n);
        })->Unit(benchmark::kMillisecond);
#else
    (void)anchor;
    (void)n;
#endif
}

HDIB Convolve(HDIB image, short type, short n) {
    static std::vector<short> kernels[8] = {{}, {}, {}, CallerKernel(3), {}, CallerKernel(5), {}, CallerKernel(7)};
    int code = 0;
    return ColorConvolution(image, 1, 1, type, n, nullptr, type == CONV_KERNEL ? kernels[n].data() : nullptr,
                            &code, 0, nullptr);
}

const bool registered = [] {
    benchmark::RegisterBenchmark("BM_Memcpy", [](benchmark::State &state) {
        paxbench::MemcpyBaseline(state, kStride * kSide, kPixels);
    })->Unit(benchmark::kMillisecond);
    Add("BM_Gamma", Anchor::Lut, 0, [](HDIB im) { return GammaCorrection(im, 45, 100, 220, 0, nullptr); });
    Add("BM_BrightnessContrast", Anchor::Lut, 0,
        [](HDIB im) { return ColorBrightnessContrast(im, 20, 35, 0); });
    struct Case { const char *name; short type, n; };
    const Case cases[] = {
        {"mean", CONV_MEAN, 3},   {"smooth", CONV_SMOOTH, 3}, {"sharpen", CONV_SHARPEN, 3},
        {"kernel", CONV_KERNEL, 3}, {"mean", CONV_MEAN, 5},   {"smooth", CONV_SMOOTH, 5},
        {"sharpenfull", CONV_SHARPEN_FULL, 5}, {"kernel", CONV_KERNEL, 5},
        {"mean", CONV_MEAN, 7},   {"kernel", CONV_KERNEL, 7},
    };
    for (const Case &c : cases) {
        std::string name = "BM_Convolution" + std::to_string(c.n) + "x" + std::to_string(c.n) + "/" + c.name;
        Add(name, c.n == 7 ? Anchor::GreyFilter : Anchor::Filter, c.n,
            [c](HDIB im) { return Convolve(im, c.type, c.n); });
    }
    // In place: the caller's own pixels, so the image changes every call.
    benchmark::RegisterBenchmark("BM_Convolution3x3/smooth_in_place", [](benchmark::State &state) {
        HGLOBAL image = paxbench::MakeBenchImage(kSide, 24, paxbench::Content::Noise);
        for (auto _ : state) {
            int code = 0;
            if (!ColorConvolution(image, 0, 1, CONV_SMOOTH, 3, nullptr, nullptr, &code, 0, nullptr))
                state.SkipWithError("the operation failed");
        }
        GlobalFree(image);
        paxbench::SetMegapixelRate(state, kPixels);
    })->Unit(benchmark::kMillisecond);
    return true;
}();

} // namespace
