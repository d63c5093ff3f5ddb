// ColorConvolution: worked images and the tables of its checks
// (convolution.txt); seeded images of every filter type and size, both
// intensity modes, widths and heights below the kernel's, biSizeImage beyond
// the block (the new image is that large), pinned by one digest (BOTH_PATHS:
// the fast row loop and the accumulator ring give the same); in place the
// same as into a new image; top-down images as the picture they show; the
// filter file as the array it holds; failures. The row engines one feed at
// a time, each built-in kernel through its engine and through the general
// one: a single pixel spreads its kernel row into every ring row and piles
// up at the border, the last ring row is overwritten, the intensities travel
// with the centre row; sizes an engine does not serve change nothing. The
// quotient of every sum.
#include "examples.h"
#include "convolution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

using namespace paxtest;

struct Outcome {
    HDIB result;
    int code;
};

Outcome Filter(HGLOBAL image, int newImage, int mode, int type, int n, const std::vector<short> &k = {},
               const char *file = nullptr) {
    int code = 12345;
    HDIB r = ColorConvolution(image, newImage, mode, static_cast<short>(type), static_cast<short>(n), file,
                              k.empty() ? nullptr : k.data(), &code, 0, nullptr);
    return {r, code};
}

// The bytes of a new filtered image (freed).
std::vector<BYTE> Filtered(HGLOBAL image, int mode, int type, int n, const std::vector<short> &k = {},
                           const char *file = nullptr) {
    Outcome o = Filter(image, 1, mode, type, n, k, file);
    EXPECT_EQ(o.code, IMS_OK);
    return Consume(o.result);
}

// The filter file of this run (the two paths may run at once), rewritten.
const char *FilterFile(const std::vector<BYTE> &bytes) {
    static const std::string name = std::string("convolution_") + (std::getenv("PAXIMAGE_REFERENCE") ? "r" : "f") + ".flt";
    FILE *f = std::fopen(name.c_str(), "wb");
    EXPECT_TRUE(f && (bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size()));
    if (f) std::fclose(f);
    return name.c_str();
}

std::vector<BYTE> LittleEndian(const std::vector<short> &k) {
    std::vector<BYTE> bytes;
    for (short v : k) bytes.insert(bytes.end(), {static_cast<BYTE>(v), static_cast<BYTE>(v >> 8)});
    return bytes;
}

// A random coefficient list inside the limits (magnitudes, positive sum and
// negative sum each at most 127), D among 0, powers of two and others.
std::vector<short> RandomKernel(Rng &rng, int n) {
    std::vector<short> k(static_cast<size_t>(n * n + 1), 0);
    int left[2] = {127, 127}; // what the positive and the negative sums may still take
    for (int picks = 1 + rng.Below(n * n); picks > 0; --picks) {
        const int at = rng.Below(n * n), negative = rng.Below(2), v = 1 + rng.Below(std::min(left[negative], 60) + 1);
        if (v > left[negative] || (negative ? k[at] > 0 : k[at] < 0)) continue;
        k[at] = static_cast<short>(k[at] + (negative ? -v : v));
        left[negative] -= v;
    }
    static const short divisors[] = {0, 0, 0, 1, 2, 3, 4, 7, 8, 16, 32, 44, 64, 100, -1, -2, -8, -9, -64, 127, 128};
    k[n * n] = divisors[rng.Below(21)];
    return k;
}

const int kKinds[][2] = {{CONV_KERNEL, 3}, {CONV_KERNEL, 5}, {CONV_KERNEL, 7}, {CONV_MEAN, 3}, {CONV_MEAN, 5},
                         {CONV_MEAN, 7},   {CONV_SMOOTH, 3}, {CONV_SMOOTH, 5}, {CONV_SHARPEN, 3},
                         {CONV_SHARPEN, 5}, {CONV_SHARPEN_FULL, 3}, {CONV_SHARPEN_FULL, 5}};

TEST(Convolution, SeededImagesOneDigest) {
    Rng rng(20261123);
    uint64_t digest = kDigestStart;
    for (int w : {1, 2, 3, 4, 5, 7, 9, 16, 17, 31, 47, 100, 21844})
        for (int h : {1, 2, 3, 5, 8, 17}) {
            if (w > 100 && h != 3) continue;
            // Rows right after the header, whatever biClrUsed says; some images top-down.
            const bool topDown = (w + h) % 4 == 1;
            HGLOBAL image = SeededImage(w, h, 24, rng.Next(), (w + h) % 4 ? -1 : 3, topDown);
            const size_t stride = (3 * w + 3) / 4 * 4, size = w % 3 ? h * stride : GlobalSize(image) + 50;
            EditHeader(image, [&](BITMAPINFOHEADER *hd) { hd->biSizeImage = DWORD(size); }); // the new image's size
            const std::vector<BYTE> source = BlockBytes(image);
            HGLOBAL bottomUp = BlockFrom(FlipStorage(source));
            for (int mode : {0, 1})
                for (auto [type, n] : kKinds) {
                    const std::vector<short> k = type == CONV_KERNEL ? RandomKernel(rng, n) : std::vector<short>{};
                    const std::vector<BYTE> made = Filtered(image, mode, type, n, k);
                    digest = Fold(digest, made);
                    ASSERT_EQ(made.size(), 40 + size);
                    if (topDown) { // filtered as the picture it shows
                        EXPECT_TRUE(FlipStorage(Filtered(bottomUp, mode, type, n, k)) == made);
                    }
                    if (type == CONV_KERNEL && n < 7 && h % 2) { // the same list from a filter file
                        std::vector<BYTE> bytes = LittleEndian(k);
                        EXPECT_TRUE(Filtered(image, mode, CONV_FILE, n, {}, FilterFile(bytes)) == made);
                    }
                    // In place: the caller's rows become the new image's.
                    std::vector<BYTE> want = source;
                    for (size_t r = 0; r < size_t(h); ++r)
                        std::copy_n(&made[40 + r * stride], 3 * w, &want[40 + r * stride]);
                    ASSERT_EQ(Filter(image, 0, mode, type, n, k).result, image);
                    ASSERT_TRUE(Consume(image) == want) << w << "x" << h << " type " << type << " n " << n;
                    image = BlockFrom(source);
                }
            GlobalFree(image);
            GlobalFree(bottomUp);
        }
    std::remove(FilterFile({}));
    EXPECT_EQ(digest, 0xe3ebc49c312d38feull) << std::hex << digest;
}

TEST(Convolution, WorkedImages) {
    for (const Example &e : ReadExamples("convolution.txt", "image")) {
        SCOPED_TRACE(e.line);
        const int type = e.I(0), n = e.I(1), w = e.I(3), h = e.I(4);
        const size_t at = 5 + (type == CONV_KERNEL ? n * n + 1 : 0);
        ASSERT_EQ(e.v.size(), at + 2 * w * h);
        auto pixel = [&](size_t i) {
            const uint32_t p = static_cast<uint32_t>(e.v[i]);
            return Rgb{BYTE(p >> 16), BYTE(p >> 8), BYTE(p)};
        };
        HGLOBAL image = MakeDib(w, h, 24, [&](int x, int y, int k) { return BYTE(int(e.v[at + (h - 1 - y) * w + x]) >> 8 * k); });
        HDIB out = Filter(image, 1, e.I(2), type, n, std::vector<short>(e.v.begin() + 5, e.v.begin() + at)).result;
        ASSERT_NE(out, nullptr);
        for (int i = 0; i < w * h; ++i) EXPECT_TRUE(Pixel24(out, i % w, h - 1 - i / w) == pixel(at + w * h + i)) << i;
        GlobalFree(out);
        GlobalFree(image);
    }
}

TEST(Convolution, CheckCodes) {
    HGLOBAL image = SeededImage(5, 5, 24, 4);
    const char *zeros = FilterFile(std::vector<BYTE>(200, 0)); // long enough for any size
    for (const Example &e : ReadExamples("convolution.txt", "sizes"))
        for (int n : {-3, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 32767, -32768}) {
            const bool accepted = std::find(e.v.begin() + 1, e.v.end(), n) != e.v.end();
            const Outcome o = Filter(image, 1, 0, e.I(0), n, std::vector<short>(82, 0), zeros);
            EXPECT_EQ(o.code, accepted ? IMS_OK : IMS_BADPARAM) << e.line << ": size " << n;
            EXPECT_EQ(o.result != nullptr, accepted);
            GlobalFree(o.result);
        }
    // As an array and (n 3 and 5) from a filter file, or a file only; into a
    // new image and in place, the caller's image untouched when refused.
    for (const Example &e : ReadExamples("convolution.txt", "limit")) {
        const int n = e.I(1);
        std::vector<short> k(static_cast<size_t>(n * n + 1), 0);
        k[n * n] = static_cast<short>(e.I(2));
        for (size_t i = 3; i + 1 < e.v.size(); i += 2) k[e.I(i)] = static_cast<short>(e.I(i + 1));
        std::vector<BYTE> bytes = LittleEndian(k);
        if (!e.fields.empty()) bytes.resize(bytes.size() + e.fields[0].at(0), 127);
        for (int type : {CONV_KERNEL, CONV_FILE})
            for (int newImage : {1, 0}) {
                if (type == CONV_KERNEL && !e.fields.empty()) continue;
                const std::vector<BYTE> before = BlockBytes(image);
                const Outcome o = Filter(image, newImage, 0, type, n, k, type == CONV_FILE && n < 7 ? FilterFile(bytes) : nullptr);
                EXPECT_EQ(o.code, type == CONV_FILE && n == 7 ? double{IMS_BADPARAM} : e.v[0]) << e.line << ", type " << type;
                EXPECT_TRUE(o.code == IMS_OK || BlockBytes(image) == before) << e.line;
                if (o.result != image) GlobalFree(o.result);
            }
    }
    EXPECT_EQ(Filter(image, 1, 0, CONV_FILE, 3, {}, "no_such_filter.flt").code, IMS_BADPARAM);
    EXPECT_EQ(Filter(image, 1, 0, CONV_KERNEL, 3).code, IMS_BADPARAM); // no array
    EXPECT_EQ(ColorConvolution(image, 1, 0, CONV_MEAN, 3, nullptr, nullptr, nullptr, 0, nullptr), nullptr);
    // biSizeImage below the rows: a new image could not hold them; in place it is not looked at.
    std::vector<BYTE> made = Filtered(image, 0, CONV_MEAN, 3);
    EditHeader(image, [](BITMAPINFOHEADER *h) { h->biSizeImage = 16; });
    EXPECT_EQ(Filter(image, 1, 0, CONV_MEAN, 3).code, IMS_BADPARAM);
    EXPECT_EQ(Filter(image, 0, 0, CONV_MEAN, 3).result, image);
    for (size_t r = 0; r < 5; ++r) EXPECT_TRUE(std::equal(&made[40 + 16 * r], &made[55 + 16 * r], &BlockBytes(image)[40 + 16 * r]));
    std::remove(zeros);
    GlobalFree(image);
}

// With standard input closed the filter file gets descriptor 0, which the
// convolution must not take for a failed open, and must close again.
// (Injected failures: the export table's sweep.)
#ifndef _WIN32
TEST(Convolution, FilterFileOnDescriptorZero) {
    HGLOBAL image = SeededImage(9, 7, 24, 14);
    const char *identity = FilterFile({0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    const int savedInput = dup(0);
    close(0);
    const Outcome o = Filter(image, 1, 0, CONV_FILE, 3, {}, identity);
    const int next = open("/dev/null", O_RDONLY); // the lowest free descriptor
    dup2(savedInput, 0);
    close(savedInput);
    EXPECT_EQ(next, 0) << "the filter file was left open";
    if (next > 0) close(next);
    EXPECT_EQ(o.code, IMS_OK);
    GlobalFree(o.result);
    std::remove(identity);
    GlobalFree(image);
}
#endif

// ---- The row engines, one feed at a time ------------------------------------

// One feed of a row through the engine of a filter type (the general one
// with `grid`), in intensity mode 0.
void Feed(int type, const KernelGrid &grid, const BYTE *row, int16_t w, int16_t **ring, int n) {
    using Engine = void (*)(const BYTE *, int, int16_t, int16_t **, int16_t);
    const Engine builtIns[] = {ConvolveRowMean, ConvolveRowSmooth, ConvolveRowSharpen, ConvolveRowSharpenFull};
    if (type == CONV_KERNEL) ConvolveRowKernel(row, 0, w, ring, static_cast<int16_t>(n), grid, 1);
    else builtIns[type - CONV_MEAN](row, 0, w, ring, static_cast<int16_t>(n));
}

// n ring rows of 2 x width values, all `fill`.
struct Ring {
    std::vector<std::vector<int16_t>> rows;
    int16_t *r[kMaxKernel] = {};
    Ring(int n, int w, int16_t fill) : rows(static_cast<size_t>(n), std::vector<int16_t>(2 * w, fill)) {
        for (int a = 0; a < n; ++a) r[a] = rows[a].data();
    }
};

// T[a][c] = sum over b of K[a][b] I[clamp(c + h - b)], with one pixel of
// intensity 90 in the middle or at either border.
TEST(ConvolutionRows, OnePixelSpreadsItsKernelRows) {
    const int w = 9, I = 90, base = 1000;
    for (const Example &e : ReadExamples("convolution.txt", "kernel")) {
        SCOPED_TRACE(e.line);
        const int n = e.I(1), h = n / 2;
        ASSERT_EQ(e.v.size(), size_t(2 + n * n));
        auto K = [&](int a, int b) { return e.I(2 + a * n + b); };
        KernelGrid grid = {};
        for (int a = 0; a < n; ++a)
            for (int b = 0; b < n; ++b) grid[a][b] = static_cast<int16_t>(K(a, b));
        for (int x : {4, 0, w - 1})
            for (int type : {e.I(0), CONV_KERNEL}) { // its engine, and the general one with its grid
                std::vector<BYTE> row(3 * w, 0);
                row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = I;
                Ring ring(n, w, base);
                Feed(type, grid, row.data(), w, ring.r, n);
                for (int a = 0; a < n; ++a)
                    for (int c = 0; c < w; ++c) {
                        int t = 0;
                        for (int b = 0; b < n; ++b) t += std::clamp(c + h - b, 0, w - 1) == x ? K(a, b) * I : 0;
                        // R[a] += T[a], but the last ring row is overwritten; the
                        // intensities go with the centre row.
                        EXPECT_EQ(ring.rows[a][c], (a < n - 1 ? base : 0) + t) << a << " " << c << " " << x;
                        EXPECT_EQ(ring.rows[a][w + c], a == h ? (c == x ? I : 0) : base) << a << " " << c;
                    }
            }
    }
}

TEST(ConvolutionRows, UnservedSizesChangeNothing) {
    const KernelGrid grid = {{3}};
    const std::vector<BYTE> row(3 * 6, 200);
    for (int type : {CONV_KERNEL, CONV_MEAN, CONV_SMOOTH, CONV_SHARPEN, CONV_SHARPEN_FULL})
        for (int n : {1, 2, 4, 6, 7}) {
            if (n == 7 && type <= CONV_MEAN) continue; // the general and the mean engine serve 7
            Ring ring(n, 6, 1234);
            const auto before = ring.rows;
            Feed(type, grid, row.data(), 6, ring.r, n);
            EXPECT_TRUE(ring.rows == before) << "type " << type << " n " << n;
        }
}

// Every sum a row can hold, against plain division: floor for 2, 4, .. 64,
// truncation for every other divisor.
TEST(ConvolutionRows, QuotientOfEverySum) {
    std::vector<int> divisors = {32767, 32768};
    for (int d = 1; d <= 1024; ++d) divisors.push_back(d);
    for (int d = 1025; d < 32767; d += 97) divisors.push_back(d);
    for (int d : divisors) {
        const SumQuotient q(d);
        const bool floors = d == 2 || d == 4 || d == 8 || d == 16 || d == 32 || d == 64;
        for (int s = -32768; s <= 32767; ++s)
            if (q(s) != s / d - (floors && s % d != 0 && s < 0)) {
                ADD_FAILURE() << "S " << s << " d " << d << ": " << q(s);
                return;
            }
    }
}

} // namespace
