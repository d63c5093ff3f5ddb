// OpenCV as the anchor a benchmark stands beside, with one thread, in the same
// run. Only built when OpenCV is present (PAX_BENCH_OPENCV); the library never
// depends on it.
#ifndef PAX_BENCH_OPENCV_ANCHOR_H
#define PAX_BENCH_OPENCV_ANCHOR_H

#include "bench_util.h"

#include <opencv2/core.hpp>

#include <cstring>

namespace paxbench {

// A cv::Mat (CV_8UC3, BGR as stored) holding the pixels of a 24-bit bench image
// of side x side, top row first, so the anchor works on the same bytes.
inline cv::Mat MatFromImage(HGLOBAL image, int side) {
    auto *base = static_cast<unsigned char *>(GlobalLock(image));
    const auto *header = reinterpret_cast<const BITMAPINFOHEADER *>(base);
    const unsigned char *rows = base + header->biSize;
    const size_t stride = ((static_cast<size_t>(side) * 3 + 3) / 4) * 4;
    cv::Mat mat(side, side, CV_8UC3);
    for (int y = 0; y < side; ++y)
        std::memcpy(mat.ptr(y), rows + (static_cast<size_t>(side) - 1 - y) * stride, static_cast<size_t>(side) * 3);
    GlobalUnlock(image);
    return mat;
}

// Times op(), which makes a new cv::Mat per call as the library makes a new
// image, on one OpenCV thread. Reports megapixels per second.
template <typename Op>
void RunOpenCvAnchor(benchmark::State &state, int64_t pixelsPerIteration, Op op) {
    cv::setNumThreads(1);
    for (auto _ : state) {
        cv::Mat out = op();
        benchmark::DoNotOptimize(out.data);
    }
    SetMegapixelRate(state, pixelsPerIteration);
}

// The anchor of the table-like operations: cv::LUT over every byte of the
// image, with a table that inverts the byte.
inline void RunLutAnchor(benchmark::State &state, int64_t pixelsPerIteration, const cv::Mat &mat) {
    cv::Mat lut(1, 256, CV_8U);
    for (int i = 0; i < 256; ++i) lut.at<unsigned char>(i) = static_cast<unsigned char>(255 - i);
    RunOpenCvAnchor(state, pixelsPerIteration, [&] {
        cv::Mat out;
        cv::LUT(mat, lut, out);
        return out;
    });
}

} // namespace paxbench

#endif
