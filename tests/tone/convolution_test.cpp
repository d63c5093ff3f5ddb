// ColorConvolution against a plain evaluation of the double sum with
// replicated edges: every engine and size, random images and kernels, in
// place and into a new image, the filter file, the checks and their codes,
// the layouts that the plain rules leave open, and failure sweeps.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"
#include "tone_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#ifndef _WIN32
#include "win32lite_test.h"
#include <unistd.h>
#else
#include <process.h>
#endif

namespace {

using namespace tonetest;
using paxtest::BlockBytes;
using paxtest::ImsName;

struct Outcome {
    HDIB result = nullptr;
    int code = -1;
};

Outcome Filter(HGLOBAL image, int newImage, int intensity, int type, int n,
               const std::vector<short> &k = {}, const char *file = nullptr) {
    Outcome o;
    o.code = 12345;
    o.result = ColorConvolution(image, newImage, intensity, static_cast<short>(type),
                                static_cast<short>(n), file, k.empty() ? nullptr : k.data(), &o.code,
                                0, nullptr);
    return o;
}

// Filters a copy of `image` both ways and compares with the reference.
void ExpectFilterMatches(HGLOBAL image, int intensity, int type, int n, const std::vector<int> &list,
                         const std::vector<short> &passed, const char *what) {
    SCOPED_TRACE(what);
    std::vector<BYTE> source = BlockBytes(image);
    std::vector<BYTE> expected = ReferenceConvolution(source, intensity, n, list);
    BITMAPINFOHEADER hd = paxtest::HeaderOf(image);
    int64_t size = hd.biSizeImage ? hd.biSizeImage : Stride24(hd.biWidth) * hd.biHeight;

    paxtest::Snapshot before = paxtest::TakeSnapshot();
    Outcome made = Filter(image, 1, intensity, type, n, passed);
    ASSERT_NE(made.result, nullptr) << ImsName(made.code);
    EXPECT_EQ(made.code, IMS_OK);
    EXPECT_TRUE(BlockBytes(made.result) == AsNewImage(expected, size)) << "new image";
    EXPECT_TRUE(BlockBytes(image) == source) << "caller's image changed";
    EXPECT_EQ(paxtest::LockCount(made.result), 0);
    GlobalFree(made.result);

    Outcome inPlace = Filter(image, 0, intensity, type, n, passed);
    EXPECT_EQ(inPlace.result, image);
    EXPECT_EQ(inPlace.code, IMS_OK);
    EXPECT_TRUE(BlockBytes(image) == expected) << "in place";
    EXPECT_EQ(paxtest::LockCount(image), 0);
    paxtest::ExpectCensus(before, 0, what);
}

const int kWidths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 31};
const int kHeights[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 17};

TEST(ConvolutionReference, RandomKernelsOfEverySizeMatchTheDoubleSum) {
    paxtest::Rng rng(20261123);
    int cases = 0;
    for (int n : {3, 5, 7})
        for (int w : kWidths)
            for (int h : kHeights)
                for (int intensity : {0, 1}) {
                    std::vector<int> list = RandomKernel(rng, n);
                    HGLOBAL image = paxtest::MakeRandomDib24(w, h, rng.Next());
                    std::string what = "n " + std::to_string(n) + " " + std::to_string(w) + "x" +
                                       std::to_string(h) + " mode " + std::to_string(intensity);
                    ExpectFilterMatches(image, intensity, CONV_KERNEL, n, list, AsShorts(list),
                                        what.c_str());
                    GlobalFree(image);
                    ++cases;
                }
    EXPECT_EQ(cases, 3 * 11 * 10 * 2);
}

TEST(ConvolutionReference, BuiltInEnginesMatchTheDoubleSum) {
    paxtest::Rng rng(77);
    for (const BuiltIn &b : BuiltIns())
        for (int w : kWidths)
            for (int h : {1, 2, 3, 5, 8, 11})
                for (int intensity : {0, 1}) {
                    HGLOBAL image = paxtest::MakeRandomDib24(w, h, rng.Next());
                    std::string what = "type " + std::to_string(b.type) + " n " +
                                       std::to_string(b.n) + " " + std::to_string(w) + "x" +
                                       std::to_string(h);
                    ExpectFilterMatches(image, intensity, b.type, b.n, ListOf(b), {}, what.c_str());
                    GlobalFree(image);
                }
}

// Kernels at the limits: the largest sums that 16 bits must hold.
TEST(ConvolutionReference, SumsAtTheCoefficientLimitsStayExact) {
    paxtest::Rng rng(5);
    HGLOBAL white = paxtest::MakeDib24(9, 9, [](int, int) { return paxtest::Rgb{255, 255, 255}; });
    HGLOBAL checker = paxtest::MakeDib24(11, 10, [](int x, int y) {
        BYTE v = (x + y) % 2 ? 255 : 0;
        return paxtest::Rgb{v, v, v};
    });
    for (int n : {3, 5, 7}) {
        int cells = n * n;
        std::vector<int> big(static_cast<size_t>(cells + 1), 0);
        big[cells / 2] = 127;
        ExpectFilterMatches(white, 1, CONV_KERNEL, n, big, AsShorts(big), "one 127");
        std::vector<int> spread(static_cast<size_t>(cells + 1), 0);
        spread[0] = 127;
        spread[1] = -127;
        spread[cells] = 1;
        ExpectFilterMatches(checker, 0, CONV_KERNEL, n, spread, AsShorts(spread), "127 and -127");
        std::vector<int> negative(static_cast<size_t>(cells + 1), 0);
        for (int i = 0; i < cells && i < 127; ++i) negative[i] = -1;
        negative[cells] = 0;
        ExpectFilterMatches(checker, 0, CONV_KERNEL, n, negative, AsShorts(negative), "all -1");
    }
    GlobalFree(white);
    GlobalFree(checker);
}

TEST(ConvolutionExamples, MeanOfAFlatImageChangesNothing) {
    HGLOBAL image = paxtest::MakeDib24(7, 5, [](int, int) { return paxtest::Rgb{200, 31, 77}; }, 0x5A);
    std::vector<BYTE> source = BlockBytes(image);
    Outcome o = Filter(image, 0, 1, CONV_MEAN, 3);
    EXPECT_EQ(o.code, IMS_OK);
    EXPECT_TRUE(BlockBytes(image) == source);
    GlobalFree(image);
}

TEST(ConvolutionExamples, IdentityKernelChangesNothing) {
    HGLOBAL image = paxtest::MakeRandomDib24(6, 4, 9);
    std::vector<BYTE> source = BlockBytes(image);
    Outcome o = Filter(image, 0, 0, CONV_KERNEL, 3, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0});
    EXPECT_EQ(o.code, IMS_OK);
    EXPECT_TRUE(BlockBytes(image) == source);
    GlobalFree(image);
}

TEST(ConvolutionExamples, AllMinusOneIsTheMeanOfThree) {
    HGLOBAL image = paxtest::MakeRandomDib24(8, 6, 10);
    Outcome a = Filter(image, 1, 1, CONV_KERNEL, 3, {-1, -1, -1, -1, -1, -1, -1, -1, -1, 0});
    Outcome b = Filter(image, 1, 1, CONV_MEAN, 3);
    ASSERT_NE(a.result, nullptr);
    ASSERT_NE(b.result, nullptr);
    EXPECT_TRUE(BlockBytes(a.result) == BlockBytes(b.result));
    GlobalFree(a.result);
    GlobalFree(b.result);
    GlobalFree(image);
}

// A flat image of blue 0, green 0, red 9 has plain intensity 3; the kernel
// with -1 at its centre gives the sum -3 in every pixel.
TEST(ConvolutionExamples, ShiftsRoundDownAndOtherDivisorsTruncate) {
    HGLOBAL image = paxtest::MakeDib24(5, 5, [](int, int) { return paxtest::Rgb{9, 0, 0}; });
    std::vector<short> k(10, 0);
    k[4] = -1;
    k[9] = 2; // Q = -2, delta = -5: red 9 becomes 4
    Outcome half = Filter(image, 1, 0, CONV_KERNEL, 3, k);
    ASSERT_NE(half.result, nullptr);
    EXPECT_EQ(paxtest::Pixel24(half.result, 2, 2), (paxtest::Rgb{4, 0, 0}));
    k[9] = 3; // Q = -1, delta = -4: red 9 becomes 5
    Outcome third = Filter(image, 1, 0, CONV_KERNEL, 3, k);
    ASSERT_NE(third.result, nullptr);
    EXPECT_EQ(paxtest::Pixel24(third.result, 0, 4), (paxtest::Rgb{5, 0, 0}));
    GlobalFree(half.result);
    GlobalFree(third.result);
    GlobalFree(image);
}

TEST(ConvolutionExamples, BytesMoveTogetherUntilTheyClip) {
    HGLOBAL image = paxtest::MakeDib24(9, 9, [](int x, int y) {
        return paxtest::Rgb{static_cast<BYTE>(20 * x + 60), static_cast<BYTE>(25 * y), static_cast<BYTE>(128)};
    });
    Outcome o = Filter(image, 1, 1, CONV_SHARPEN_FULL, 5);
    ASSERT_NE(o.result, nullptr);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x) {
            paxtest::Rgb s = paxtest::Pixel24(image, x, y), d = paxtest::Pixel24(o.result, x, y);
            int dr = d.r - s.r, dg = d.g - s.g, db = d.b - s.b;
            if (d.r != 0 && d.r != 255 && d.g != 0 && d.g != 255 && d.b != 0 && d.b != 255) {
                EXPECT_EQ(dr, dg);
                EXPECT_EQ(dg, db);
            }
        }
    GlobalFree(o.result);
    GlobalFree(image);
}

// ---- The filter file ------------------------------------------------------

std::string TempName(const char *tag) {
#ifdef _WIN32
    int pid = _getpid();
#else
    int pid = getpid();
#endif
    return std::string("tone_") + tag + "_" + std::to_string(pid) + ".flt";
}

void WriteFile(const std::string &name, const std::vector<int> &values, int extraBytes = 0) {
    FILE *f = std::fopen(name.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    for (int v : values) {
        unsigned u = static_cast<unsigned>(v) & 0xFFFF;
        std::fputc(static_cast<int>(u & 0xFF), f);
        std::fputc(static_cast<int>(u >> 8), f);
    }
    for (int i = 0; i < extraBytes; ++i) std::fputc(0x7F, f);
    std::fclose(f);
}

TEST(ConvolutionFile, AFileGivesWhatTheSameArrayGives) {
    paxtest::Rng rng(31);
    std::string name = TempName("same");
    for (int n : {3, 5})
        for (int round = 0; round < 20; ++round) {
            std::vector<int> list = RandomKernel(rng, n);
            WriteFile(name, list, round % 3 == 0 ? 7 : 0); // longer files are read up to n*n + 1 values
            HGLOBAL image = paxtest::MakeRandomDib24(1 + rng.Below(12), 1 + rng.Below(9), rng.Next());
            Outcome fromFile = Filter(image, 1, round % 2, CONV_FILE, n, {}, name.c_str());
            Outcome fromArray = Filter(image, 1, round % 2, CONV_KERNEL, n, AsShorts(list));
            ASSERT_NE(fromFile.result, nullptr) << ImsName(fromFile.code);
            ASSERT_NE(fromArray.result, nullptr);
            EXPECT_TRUE(BlockBytes(fromFile.result) == BlockBytes(fromArray.result));
            GlobalFree(fromFile.result);
            GlobalFree(fromArray.result);
            GlobalFree(image);
        }
    std::remove(name.c_str());
}

TEST(ConvolutionFile, ShortMissingAndOverLimitFilesAreRefused) {
    HGLOBAL image = paxtest::MakeRandomDib24(4, 4, 3);
    std::vector<BYTE> source = BlockBytes(image);
    std::string name = TempName("short");
    std::vector<int> identity = {0, 0, 0, 0, 1, 0, 0, 0, 0, 0};
    FILE *f = std::fopen(name.c_str(), "wb"); // 19 of the 20 bytes
    for (int i = 0; i < 19; ++i) std::fputc(i == 8 ? 1 : 0, f);
    std::fclose(f);
    for (int newImage : {1, 0}) {
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        Outcome o = Filter(image, newImage, 0, CONV_FILE, 3, {}, name.c_str());
        EXPECT_EQ(o.result, nullptr);
        EXPECT_EQ(ImsName(o.code), ImsName(IMS_BADPARAM));
        Outcome missing = Filter(image, newImage, 0, CONV_FILE, 3, {}, "no_such_tone_filter.flt");
        EXPECT_EQ(missing.result, nullptr);
        EXPECT_EQ(ImsName(missing.code), ImsName(IMS_BADPARAM));
        paxtest::ExpectCensus(before, 0, "refused file");
    }
    WriteFile(name, {0, 0, 0, 0, 128, 0, 0, 0, 0, 0});
    Outcome over = Filter(image, 1, 0, CONV_FILE, 3, {}, name.c_str());
    EXPECT_EQ(ImsName(over.code), ImsName(IMS_BADPARAM));
    WriteFile(name, identity); // exactly long enough
    Outcome ok = Filter(image, 1, 0, CONV_FILE, 3, {}, name.c_str());
    ASSERT_NE(ok.result, nullptr);
    GlobalFree(ok.result);
    EXPECT_TRUE(BlockBytes(image) == source);
    std::remove(name.c_str());
    GlobalFree(image);
}

// ---- Checks and their codes -------------------------------------------------

TEST(ConvolutionChecks, EveryCheckStoresItsCode) {
    HGLOBAL image = paxtest::MakeRandomDib24(5, 5, 4);
    std::vector<BYTE> source = BlockBytes(image);
    std::vector<short> k9(10, 1);
    std::vector<short> k49(50, 0);
    k49[24] = 1;
    struct Case {
        const char *what;
        int type, n;
        const char *file;
        const short *k;
        DWORD code;
    } cases[] = {
        {"type 0", 0, 3, nullptr, k9.data(), IMS_BADPARAM},
        {"type 7", 7, 3, nullptr, k9.data(), IMS_BADPARAM},
        {"type -1", -1, 3, nullptr, k9.data(), IMS_BADPARAM},
        {"file type without a name", CONV_FILE, 3, nullptr, nullptr, IMS_BADPARAM},
        {"kernel type without an array", CONV_KERNEL, 3, nullptr, nullptr, IMS_BADPARAM},
        {"size 2", CONV_MEAN, 2, nullptr, nullptr, IMS_BADPARAM},
        {"size 8", CONV_MEAN, 8, nullptr, nullptr, IMS_BADPARAM},
        {"size -3", CONV_MEAN, -3, nullptr, nullptr, IMS_BADPARAM},
        {"size 7 smooth", CONV_SMOOTH, 7, nullptr, nullptr, IMS_BADPARAM},
        {"size 6 file", CONV_FILE, 6, "x.flt", nullptr, IMS_BADPARAM},
        {"size 6 smooth", CONV_SMOOTH, 6, nullptr, nullptr, IMS_BADPARAM},
        {"size 6 sharpen", CONV_SHARPEN, 6, nullptr, nullptr, IMS_BADPARAM},
        {"size 6 full sharpen", CONV_SHARPEN_FULL, 6, nullptr, nullptr, IMS_BADPARAM},
        {"even size 4 mean", CONV_MEAN, 4, nullptr, nullptr, IMS_BADPARAM},
        {"even size 6 mean", CONV_MEAN, 6, nullptr, nullptr, IMS_BADPARAM},
        {"even size 4 kernel", CONV_KERNEL, 4, nullptr, k49.data(), IMS_BADPARAM},
        {"even size 6 kernel", CONV_KERNEL, 6, nullptr, k49.data(), IMS_BADPARAM},
        {"size 7 kernel", CONV_KERNEL, 7, nullptr, k49.data(), IMS_OK},
        {"size 7 mean", CONV_MEAN, 7, nullptr, nullptr, IMS_OK},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        int code = 99;
        HDIB r = ColorConvolution(image, 1, 0, static_cast<short>(c.type), static_cast<short>(c.n),
                                  c.file, c.k, &code, 0, nullptr);
        EXPECT_EQ(ImsName(static_cast<DWORD>(code)), ImsName(c.code));
        EXPECT_EQ(r != nullptr, c.code == IMS_OK);
        if (r) GlobalFree(r);
        paxtest::ExpectCensus(before, 0, c.what);
        EXPECT_TRUE(BlockBytes(image) == source);
    }
    GlobalFree(image);
}

TEST(ConvolutionChecks, CoefficientLimits) {
    HGLOBAL image = paxtest::MakeRandomDib24(4, 3, 8);
    auto codeOf = [&](std::vector<short> k) {
        int code = 99;
        HDIB r = ColorConvolution(image, 1, 0, CONV_KERNEL, 3, nullptr, k.data(), &code, 0, nullptr);
        if (r) GlobalFree(r);
        return ImsName(static_cast<DWORD>(code));
    };
    EXPECT_EQ(codeOf({0, 0, 0, 0, 128, 0, 0, 0, 0, 0}), ImsName(IMS_BADPARAM));
    EXPECT_EQ(codeOf({0, 0, 0, 0, -128, 0, 0, 0, 0, 0}), ImsName(IMS_BADPARAM));
    EXPECT_EQ(codeOf({64, 0, 0, 0, 64, 0, 0, 0, 0, 0}), ImsName(IMS_BADPARAM));
    EXPECT_EQ(codeOf({-64, 0, 0, 0, -64, 0, 0, 0, 0, 0}), ImsName(IMS_BADPARAM));
    EXPECT_EQ(codeOf({64, 0, 0, 0, 63, -127, 0, 0, 0, 0}), ImsName(IMS_OK));
    EXPECT_EQ(codeOf({0, 0, 0, 0, 1, 0, 0, 0, 0, -32768}), ImsName(IMS_OK)); // D is not limited
    GlobalFree(image);
}

TEST(ConvolutionChecks, HeaderCodesAndOtherFieldsUntouched) {
    ThreadState *state = GetThreadState();
    auto codeFor = [&](HGLOBAL image) {
        state->imageStatus = 55;
        state->convertError = 66;
        int code = 99;
        HDIB r = ColorConvolution(image, 1, 0, CONV_MEAN, 3, nullptr, nullptr, &code, 0, nullptr);
        EXPECT_EQ(r, nullptr);
        EXPECT_EQ(state->imageStatus, 55u);
        EXPECT_EQ(state->convertError, 66u);
        EXPECT_EQ(paxtest::LockCount(image), 0);
        GlobalFree(image);
        return ImsName(static_cast<DWORD>(code));
    };
    auto fill = [](int x, int y, int k) { return static_cast<BYTE>(x + y + k); };
    EXPECT_EQ(codeFor(paxtest::MakeDib(4, 4, 32, fill)), ImsName(IMS_BADDEPTH));
    EXPECT_EQ(codeFor(paxtest::MakeDib(4, 4, 8, fill)), ImsName(IMS_BADDEPTH));
    EXPECT_EQ(codeFor(paxtest::MakeDib(4, 4, 1, fill)), ImsName(IMS_BADDEPTH));
    EXPECT_EQ(codeFor(paxtest::MakeDib(4, 4, 24, fill, -1, 0, 14)), ImsName(IMS_COMPRESSED));
    HGLOBAL core = paxtest::MakeRandomDib24(4, 4, 1);
    EditHeader(core, [](BITMAPINFOHEADER *h) { h->biSize = 12; });
    EXPECT_EQ(codeFor(core), ImsName(IMS_BADPARAM));
    HGLOBAL wide = paxtest::MakeRandomDib24(4, 4, 1);
    EditHeader(wide, [](BITMAPINFOHEADER *h) { h->biWidth = 0x10000; }); // low 16 bits zero
    EXPECT_EQ(codeFor(wide), ImsName(IMS_EMPTYIMAGE));
    HGLOBAL flat = paxtest::MakeRandomDib24(4, 4, 1);
    EditHeader(flat, [](BITMAPINFOHEADER *h) { h->biHeight = 0; });
    EXPECT_EQ(codeFor(flat), ImsName(IMS_EMPTYIMAGE));

    int code = 99;
    EXPECT_EQ(ColorConvolution(nullptr, 1, 0, CONV_MEAN, 3, nullptr, nullptr, &code, 0, nullptr), nullptr);
    EXPECT_EQ(ImsName(static_cast<DWORD>(code)), ImsName(IMS_BADPARAM));
    HGLOBAL image = paxtest::MakeRandomDib24(4, 4, 1);
    EXPECT_EQ(ColorConvolution(image, 1, 0, CONV_MEAN, 3, nullptr, nullptr, nullptr, 0, nullptr), nullptr);
    GlobalFree(image);
}

TEST(ConvolutionChecks, HeadersClaimingMoreThanTheBlockAreRefused) {
    HGLOBAL model = paxtest::MakeRandomDib24(5, 4, 2);
    std::vector<BYTE> good = BlockBytes(model);
    GlobalFree(model);
    auto codeFor = [&](std::vector<BYTE> bytes) {
        HGLOBAL block = BlockFrom(bytes);
        int code = 99;
        HDIB r = ColorConvolution(block, 0, 0, CONV_MEAN, 3, nullptr, nullptr, &code, 0, nullptr);
        EXPECT_EQ(r, nullptr);
        EXPECT_TRUE(BlockBytes(block) == bytes);
        GlobalFree(block);
        return ImsName(static_cast<DWORD>(code));
    };
    std::vector<BYTE> truncated(good.begin(), good.end() - 1);
    EXPECT_EQ(codeFor(truncated), ImsName(IMS_BADPARAM));
    EXPECT_EQ(codeFor(std::vector<BYTE>(good.begin(), good.begin() + 39)), ImsName(IMS_BADPARAM));
    std::vector<BYTE> table = good;
    Header(table)->biClrUsed = 0xFFFFFFFF;
    EXPECT_EQ(codeFor(table), ImsName(IMS_BADPARAM));
    std::vector<BYTE> bigSize = good;
    Header(bigSize)->biSizeImage = static_cast<DWORD>(good.size());
    EXPECT_EQ(codeFor(bigSize), ImsName(IMS_BADPARAM));
    std::vector<BYTE> smallSize = good;
    Header(smallSize)->biSizeImage = 16;
    EXPECT_EQ(codeFor(smallSize), ImsName(IMS_BADPARAM));
    std::vector<BYTE> negativeWidth = good;
    Header(negativeWidth)->biWidth = -5;
    EXPECT_EQ(codeFor(negativeWidth), ImsName(IMS_BADPARAM));
}

TEST(ConvolutionLayouts, SixteenBitLimitsOfWidthAndHeight) {
    auto run = [](int w, int h) {
        HGLOBAL image = paxtest::MakeDib24(w, h, [](int x, int y) {
            return paxtest::Rgb{static_cast<BYTE>(x * 7 + y), static_cast<BYTE>(x ^ y), 9};
        });
        int code = 99;
        HDIB r = ColorConvolution(image, 0, 1, CONV_SHARPEN, 3, nullptr, nullptr, &code, 0, nullptr);
        bool ok = r == image;
        GlobalFree(image);
        return ok ? std::string("filtered") : ImsName(static_cast<DWORD>(code));
    };
    EXPECT_EQ(run(21844, 2), "filtered");
    EXPECT_EQ(run(21845, 2), ImsName(IMS_BADPARAM));
    EXPECT_EQ(run(2, 32767), "filtered");
    EXPECT_EQ(run(1, 32768), ImsName(IMS_BADPARAM));
    HGLOBAL tall = paxtest::MakeRandomDib24(1, 32768, 1);
    EditHeader(tall, [](BITMAPINFOHEADER *h) { h->biHeight = -32768; });
    int code = 99;
    EXPECT_EQ(ColorConvolution(tall, 0, 1, CONV_MEAN, 3, nullptr, nullptr, &code, 0, nullptr), nullptr);
    EXPECT_EQ(ImsName(static_cast<DWORD>(code)), ImsName(IMS_BADPARAM));
    GlobalFree(tall);
}

TEST(ConvolutionLayouts, WidestImageMatchesTheReference) {
    HGLOBAL image = paxtest::MakeRandomDib24(21844, 3, 17);
    std::vector<int> list = {1, -2, 3, 0, 5, 0, -1, 2, 1, 0};
    ExpectFilterMatches(image, 1, CONV_KERNEL, 3, list, AsShorts(list), "widest");
    GlobalFree(image);
}

TEST(ConvolutionLayouts, TopDownImagesAreFilteredAsThePictureTheyShow) {
    paxtest::Rng rng(41);
    for (const BuiltIn &b : BuiltIns())
        for (int round = 0; round < 3; ++round) {
            int w = 1 + rng.Below(10), h = 1 + rng.Below(10);
            HGLOBAL bottomUp = paxtest::MakeRandomDib24(w, h, rng.Next());
            std::vector<int> list = RandomKernel(rng, b.n);
            std::vector<BYTE> flipped = FlipStorage(BlockBytes(bottomUp));
            HGLOBAL topDown = BlockFrom(flipped);
            for (int type : {b.type, CONV_KERNEL}) {
                std::vector<short> k = type == CONV_KERNEL ? AsShorts(list) : std::vector<short>{};
                Outcome up = Filter(bottomUp, 1, 1, type, b.n, k);
                Outcome down = Filter(topDown, 1, 1, type, b.n, k);
                ASSERT_NE(up.result, nullptr);
                ASSERT_NE(down.result, nullptr) << ImsName(down.code);
                EXPECT_TRUE(FlipStorage(BlockBytes(up.result)) == BlockBytes(down.result));
                Outcome inPlace = Filter(topDown, 0, 1, type, b.n, k);
                EXPECT_EQ(inPlace.result, topDown);
                EXPECT_TRUE(BlockBytes(topDown) == BlockBytes(down.result));
                BYTE *p = static_cast<BYTE *>(GlobalLock(topDown));
                std::memcpy(p, flipped.data(), flipped.size());
                GlobalUnlock(topDown);
                GlobalFree(up.result);
                GlobalFree(down.result);
            }
            GlobalFree(bottomUp);
            GlobalFree(topDown);
        }
}

TEST(ConvolutionLayouts, AColourTableIsSkippedAndCarried) {
    HGLOBAL image = paxtest::MakeDib(6, 5, 24, [](int x, int y, int k) {
        return static_cast<BYTE>(x * 40 + y * 9 + k * 70);
    }, 3);
    ASSERT_EQ(paxtest::HeaderOf(image).biClrUsed, 3u);
    std::vector<int> list = {0, -1, 0, -1, 6, -1, 0, -1, 0, 2};
    ExpectFilterMatches(image, 0, CONV_KERNEL, 3, list, AsShorts(list), "24 bits with a table");
    GlobalFree(image);
}

// ---- Failure sweeps -----------------------------------------------------------

TEST(ConvolutionFailures, SweepIntoANewImage) {
    std::string name = TempName("sweep");
    WriteFile(name, {1, 2, 1, 2, 4, 2, 1, 2, 1, 0});
    HGLOBAL image = paxtest::MakeRandomDib24(7, 6, 12);
    std::vector<short> k = {0, -1, 0, -1, 5, -1, 0, -1, 0, 0};
    for (int type : {CONV_KERNEL, CONV_FILE, CONV_MEAN, CONV_SHARPEN}) {
        SCOPED_TRACE(type);
        auto counts = paxtest::SweepFailures(
            [&]() -> HGLOBAL {
                int code = 0;
                return ColorConvolution(image, 1, 1, static_cast<short>(type), 3, name.c_str(),
                                        k.data(), &code, 0, nullptr);
            },
            {image});
        if (paxtest::HaveCensus()) {
            EXPECT_EQ(counts.allocationPoints, 2);
            EXPECT_EQ(counts.lockPoints, 3);
        }
    }
    std::remove(name.c_str());
    GlobalFree(image);
}

#ifndef _WIN32
// In place: every injected failure comes before the first row is written, so
// the caller's block must come back byte for byte.
TEST(ConvolutionFailures, InPlaceFailuresLeaveTheImageUntouched) {
    HGLOBAL image = paxtest::MakeRandomDib24(9, 7, 14);
    std::vector<BYTE> source = BlockBytes(image);
    auto run = [&](int *code) {
        return ColorConvolution(image, 0, 0, CONV_SMOOTH, 5, nullptr, nullptr, code, 0, nullptr);
    };
    win32lite::ResetFaults();
    int code = 0;
    ASSERT_EQ(run(&code), image);
    long allocations = win32lite::AllocationCalls(), locks = win32lite::LockCalls();
    EXPECT_EQ(allocations, 1);
    EXPECT_EQ(locks, 2);
    struct Fault {
        const char *what;
        void (*arm)(long);
        long points;
    } faults[] = {{"allocation", win32lite::FailAllocationAt, allocations},
                  {"lock", win32lite::FailLockAt, locks}};
    for (const Fault &f : faults)
        for (long n = 1; n <= f.points; ++n) {
            SCOPED_TRACE(testing::Message() << f.what << " " << n);
            BYTE *p = static_cast<BYTE *>(GlobalLock(image));
            std::memcpy(p, source.data(), source.size());
            GlobalUnlock(image);
            paxtest::Snapshot before = paxtest::TakeSnapshot();
            win32lite::ResetFaults();
            f.arm(n);
            HDIB r = run(&code);
            win32lite::ResetFaults();
            if (!r) {
                EXPECT_TRUE(BlockBytes(image) == source);
            }
            if (std::string(f.what) == "lock") {
                EXPECT_EQ(ImsName(static_cast<DWORD>(code)), ImsName(IMS_LOCKFAILED));
            }
            EXPECT_EQ(paxtest::LockCount(image), 0);
            paxtest::ExpectCensus(before, 0, f.what);
        }
    // The one allocation is retried: a single failure still filters.
    win32lite::FailAllocationAt(1);
    EXPECT_EQ(run(&code), image);
    EXPECT_EQ(code, IMS_OK);
    win32lite::ResetFaults();
    GlobalFree(image);
}

TEST(ConvolutionFailures, FileOpenFailureIsABadParameter) {
    std::string name = TempName("open");
    WriteFile(name, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0});
    HGLOBAL image = paxtest::MakeRandomDib24(5, 5, 15);
    std::vector<BYTE> source = BlockBytes(image);
    for (int newImage : {1, 0}) {
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        win32lite::ResetFaults();
        win32lite::FailFileOpenAt(1);
        int code = 0;
        HDIB r = ColorConvolution(image, newImage, 0, CONV_FILE, 3, name.c_str(), nullptr, &code, 0,
                                  nullptr);
        win32lite::ResetFaults();
        EXPECT_EQ(r, nullptr);
        EXPECT_EQ(ImsName(static_cast<DWORD>(code)), ImsName(IMS_BADPARAM));
        EXPECT_TRUE(BlockBytes(image) == source);
        EXPECT_EQ(paxtest::LockCount(image), 0);
        paxtest::ExpectCensus(before, 0, "file open failure");
    }
    std::remove(name.c_str());
    GlobalFree(image);
}

#endif

} // namespace
