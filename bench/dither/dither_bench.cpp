// Every dither on a 4096 x 4096 image, in megapixels per second beside a
// memcpy of the same image and beside BM_PlainFS1, a plain scalar
// Floyd-Steinberg to 1 bit written in the most direct way (the anchor:
// bench/ratios.py --anchor BM_PlainFS1): the error-diffusion methods and the
// block dithers from 24 bits to each depth they offer, DitherOrdered from
// 8 bits (the only depth it takes).
#include "bench_util.h"
#include "paximage.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

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

// The anchor: a 24-bit bottom-up image to a new 1-bit image by grey and
// Floyd-Steinberg, the way one writes it first: two rows of 16-bit error
// cells, every tap added in place, divisions truncating toward zero. It gives
// DitherFS4(image, 1)'s bytes, which the benchmark checks once.
HGLOBAL PlainFS1(HGLOBAL image) {
    const BYTE *in = static_cast<const BYTE *>(GlobalLock(image));
    BITMAPINFOHEADER h;
    std::memcpy(&h, in, sizeof h);
    const int w = h.biWidth, rows = h.biHeight;
    const int inStride = (w * 3 + 3) / 4 * 4, outStride = (w + 31) / 32 * 4;
    HGLOBAL result = GlobalAlloc(GHND, 40 + 8 + static_cast<SIZE_T>(outStride) * rows);
    BYTE *out = static_cast<BYTE *>(GlobalLock(result));
    BITMAPINFOHEADER o = h;
    o.biBitCount = 1;
    o.biSizeImage = static_cast<DWORD>(outStride * rows);
    o.biClrUsed = 2;
    o.biClrImportant = 0;
    std::memcpy(out, &o, sizeof o);
    std::memset(out + 44, 255, 3);
    std::vector<int16_t> cur(w + 2), next(w + 2);
    for (int y = 0; y < rows; ++y) {
        const BYTE *src = in + 40 + y * inStride;
        BYTE *dst = out + 48 + y * outStride;
        for (int x = 0; x < w; ++x) {
            int grey = (30 * src[3 * x + 2] + 59 * src[3 * x + 1] + 11 * src[3 * x]) / 100;
            if (grey > 255) grey = 255;
            int v = static_cast<int16_t>(cur[x + 1] + grey);
            int e = v;
            if (v > 128) {
                dst[x / 8] |= 0x80 >> (x % 8);
                e = v - 255;
            }
            cur[x + 2] += e * 7 / 16;
            next[x] += e * 3 / 16;
            next[x + 1] += e * 5 / 16;
            next[x + 2] += e * 1 / 16;
        }
        std::swap(cur, next);
        std::fill(next.begin(), next.end(), 0);
    }
    GlobalUnlock(result);
    GlobalUnlock(image);
    return result;
}

void BM_PlainFS1(benchmark::State &state) {
    HGLOBAL anchor = PlainFS1(Image24()), library = DitherFS4(Image24(), 1);
    const SIZE_T size = GlobalSize(library);
    const bool same = GlobalSize(anchor) == size &&
                      std::memcmp(GlobalLock(anchor), GlobalLock(library), size) == 0;
    GlobalUnlock(anchor);
    GlobalUnlock(library);
    GlobalFree(anchor);
    GlobalFree(library);
    if (!same) {
        state.SkipWithError("the anchor does not give DitherFS4's bytes");
        return;
    }
    paxbench::RunImageOperation(state, kPixels, [] { return PlainFS1(Image24()); });
}
BENCHMARK(BM_PlainFS1)->Unit(benchmark::kMillisecond);

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
