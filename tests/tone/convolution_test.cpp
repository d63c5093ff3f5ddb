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
#include <functional>
#include <string>

#ifndef _WIN32
#include "win32lite_test.h"
#include <fcntl.h>
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

// The bytes of a new filtered image (freed), or empty when refused.
std::vector<BYTE> Filtered(HGLOBAL image, int intensity, int type, int n, const std::vector<short> &k = {},
                           const char *file = nullptr) {
    Outcome o = Filter(image, 1, intensity, type, n, k, file);
    EXPECT_NE(o.result, nullptr) << ImsName(o.code);
    return o.result ? Consume(o.result) : std::vector<BYTE>{};
}

// Filters a copy of `image` both ways and compares with the reference.
void ExpectFilterMatches(HGLOBAL image, int intensity, int type, int n, const std::vector<int> &list,
                         const std::string &what, bool passList = true) {
    SCOPED_TRACE(what);
    std::vector<BYTE> source = BlockBytes(image);
    std::vector<BYTE> expected = ReferenceConvolution(source, intensity, n, list);
    std::vector<short> passed = passList ? AsShorts(list) : std::vector<short>{};
    BITMAPINFOHEADER hd = paxtest::HeaderOf(image);
    int64_t size = hd.biSizeImage ? hd.biSizeImage : Stride24(hd.biWidth) * hd.biHeight;

    paxtest::Snapshot before = paxtest::TakeSnapshot();
    Outcome made = Filter(image, 1, intensity, type, n, passed);
    ASSERT_NE(made.result, nullptr) << ImsName(made.code);
    EXPECT_EQ(made.code, IMS_OK);
    EXPECT_EQ(paxtest::LockCount(made.result), 0);
    EXPECT_TRUE(Consume(made.result) == AsNewImage(expected, size)) << "new image";
    EXPECT_TRUE(BlockBytes(image) == source) << "caller's image changed";

    Outcome inPlace = Filter(image, 0, intensity, type, n, passed);
    EXPECT_EQ(inPlace.result, image);
    EXPECT_EQ(inPlace.code, IMS_OK);
    EXPECT_TRUE(BlockBytes(image) == expected) << "in place";
    EXPECT_EQ(paxtest::LockCount(image), 0);
    paxtest::ExpectCensus(before, 0, what.c_str());
}

std::string Size(int w, int h) { return " " + std::to_string(w) + "x" + std::to_string(h); }

TEST(ConvolutionReference, RandomKernelsAndBuiltInsOfEverySizeMatchTheDoubleSum) {
    paxtest::Rng rng(20261123);
    for (int w : {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 31})
        for (int h : {1, 2, 3, 4, 5, 6, 7, 8, 9, 17})
            for (int intensity : {0, 1}) {
                HGLOBAL image = paxtest::MakeRandomDib24(w, h, rng.Next());
                for (int n : {3, 5, 7})
                    ExpectFilterMatches(image, intensity, CONV_KERNEL, n, RandomKernel(rng, n),
                                        "n " + std::to_string(n) + Size(w, h));
                for (const BuiltIn &b : BuiltIns())
                    ExpectFilterMatches(image, intensity, b.type, b.n, ListOf(b),
                                        "type " + std::to_string(b.type) + " n " + std::to_string(b.n) +
                                            Size(w, h), false);
                GlobalFree(image);
            }
}

// Kernels at the limits: the largest sums that 16 bits must hold.
TEST(ConvolutionReference, SumsAtTheCoefficientLimitsStayExact) {
    HGLOBAL white = paxtest::MakeDib24(9, 9, [](int, int) { return paxtest::Rgb{255, 255, 255}; });
    HGLOBAL checker = paxtest::MakeDib24(11, 10, [](int x, int y) {
        BYTE v = (x + y) % 2 ? 255 : 0;
        return paxtest::Rgb{v, v, v};
    });
    for (int n : {3, 5, 7}) {
        const int cells = n * n;
        std::vector<int> big(cells + 1, 0), spread(cells + 1, 0), negative(cells + 1, 0);
        big[cells / 2] = 127;
        spread[0] = 127, spread[1] = -127, spread[cells] = 1;
        for (int i = 0; i < cells; ++i) negative[i] = -1;
        ExpectFilterMatches(white, 1, CONV_KERNEL, n, big, "one 127");
        ExpectFilterMatches(checker, 0, CONV_KERNEL, n, spread, "127 and -127");
        ExpectFilterMatches(checker, 0, CONV_KERNEL, n, negative, "all -1");
    }
    GlobalFree(white);
    GlobalFree(checker);
}

TEST(ConvolutionExamples, FlatMeanIdentityAndAllMinusOne) {
    HGLOBAL flat = paxtest::MakeDib24(7, 5, [](int, int) { return paxtest::Rgb{200, 31, 77}; }, 0x5A);
    std::vector<BYTE> source = BlockBytes(flat);
    EXPECT_EQ(Filter(flat, 0, 1, CONV_MEAN, 3).code, IMS_OK);
    EXPECT_TRUE(BlockBytes(flat) == source) << "mean of a flat image";
    GlobalFree(flat);
    HGLOBAL image = paxtest::MakeRandomDib24(8, 6, 10);
    source = BlockBytes(image);
    EXPECT_TRUE(Filtered(image, 0, CONV_KERNEL, 3, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0}) == source) << "identity";
    EXPECT_TRUE(Filtered(image, 1, CONV_KERNEL, 3, {-1, -1, -1, -1, -1, -1, -1, -1, -1, 0}) ==
                Filtered(image, 1, CONV_MEAN, 3)) << "all -1 is the mean";
    GlobalFree(image);
}

// A flat image of blue 0, green 0, red 9 has plain intensity 3; the kernel
// with -1 at its centre gives the sum -3 in every pixel.
TEST(ConvolutionExamples, ShiftsRoundDownAndOtherDivisorsTruncate) {
    HGLOBAL image = paxtest::MakeDib24(5, 5, [](int, int) { return paxtest::Rgb{9, 0, 0}; });
    struct {
        short d;
        BYTE red; // Q = -2, delta -5; Q = -1, delta -4
    } rows[] = {{2, 4}, {3, 5}};
    for (auto row : rows) {
        Outcome o = Filter(image, 1, 0, CONV_KERNEL, 3, {0, 0, 0, 0, -1, 0, 0, 0, 0, row.d});
        ASSERT_NE(o.result, nullptr);
        for (int at : {0, 12, 24})
            EXPECT_EQ(paxtest::Pixel24(o.result, at % 5, at / 5), (paxtest::Rgb{row.red, 0, 0})) << row.d;
        GlobalFree(o.result);
    }
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

// Little-endian 16-bit values, then extra bytes; `cut` drops trailing bytes.
void WriteFile(const std::string &name, const std::vector<int> &values, int extraBytes = 0, int cut = 0) {
    std::string bytes;
    for (int v : values) bytes += {static_cast<char>(v & 0xFF), static_cast<char>((v >> 8) & 0xFF)};
    bytes.append(static_cast<size_t>(extraBytes), '\x7F');
    bytes.resize(bytes.size() - static_cast<size_t>(cut));
    FILE *f = std::fopen(name.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
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
            EXPECT_TRUE(Filtered(image, round % 2, CONV_FILE, n, {}, name.c_str()) ==
                        Filtered(image, round % 2, CONV_KERNEL, n, AsShorts(list)));
            GlobalFree(image);
        }
    std::remove(name.c_str());
}

TEST(ConvolutionFile, ShortMissingAndOverLimitFilesAreRefused) {
    HGLOBAL image = paxtest::MakeRandomDib24(4, 4, 3);
    std::vector<BYTE> source = BlockBytes(image);
    std::string name = TempName("short");
    const std::vector<int> identity = {0, 0, 0, 0, 1, 0, 0, 0, 0, 0};
    struct {
        std::vector<int> values;
        int cut;
        const char *file;
        DWORD code;
    } rows[] = {{identity, 1, name.c_str(), IMS_BADPARAM}, // 19 of the 20 bytes
                {identity, 0, "no_such_tone_filter.flt", IMS_BADPARAM},
                {{0, 0, 0, 0, 128, 0, 0, 0, 0, 0}, 0, name.c_str(), IMS_BADPARAM},
                {identity, 0, name.c_str(), IMS_OK}}; // exactly long enough
    for (const auto &row : rows)
        for (int newImage : {1, 0}) {
            SCOPED_TRACE(testing::Message() << row.file << " cut " << row.cut << " new " << newImage);
            WriteFile(name, row.values, 0, row.cut);
            paxtest::Snapshot before = paxtest::TakeSnapshot();
            Outcome o = Filter(image, newImage, 0, CONV_FILE, 3, {}, row.file);
            EXPECT_EQ(ImsName(o.code), ImsName(row.code));
            EXPECT_EQ(o.result != nullptr, row.code == IMS_OK);
            if (o.result && o.result != image) GlobalFree(o.result);
            paxtest::ExpectCensus(before, 0, "file");
            EXPECT_TRUE(BlockBytes(image) == source);
        }
    std::remove(name.c_str());
    GlobalFree(image);
}

// ---- Checks and their codes -------------------------------------------------

TEST(ConvolutionChecks, EveryArgumentCheckStoresItsCode) {
    HGLOBAL image = paxtest::MakeRandomDib24(5, 5, 4);
    std::vector<BYTE> source = BlockBytes(image);
    std::vector<short> k9(10, 1), k49(50, 0);
    k49[24] = 1;
    auto k3 = [](std::vector<short> v) { return v; };
    struct Case {
        const char *what;
        int type, n;
        const char *file;
        std::vector<short> k;
        DWORD code;
    } cases[] = {
        {"type 0", 0, 3, nullptr, k9, IMS_BADPARAM},
        {"type 7", 7, 3, nullptr, k9, IMS_BADPARAM},
        {"type -1", -1, 3, nullptr, k9, IMS_BADPARAM},
        {"file type without a name", CONV_FILE, 3, nullptr, {}, IMS_BADPARAM},
        {"kernel type without an array", CONV_KERNEL, 3, nullptr, {}, IMS_BADPARAM},
        {"size 2", CONV_MEAN, 2, nullptr, {}, IMS_BADPARAM},
        {"size 8", CONV_MEAN, 8, nullptr, {}, IMS_BADPARAM},
        {"size -3", CONV_MEAN, -3, nullptr, {}, IMS_BADPARAM},
        {"size 7 smooth", CONV_SMOOTH, 7, nullptr, {}, IMS_BADPARAM},
        {"size 6 file", CONV_FILE, 6, "x.flt", {}, IMS_BADPARAM},
        {"size 6 smooth", CONV_SMOOTH, 6, nullptr, {}, IMS_BADPARAM},
        {"size 6 sharpen", CONV_SHARPEN, 6, nullptr, {}, IMS_BADPARAM},
        {"size 6 full sharpen", CONV_SHARPEN_FULL, 6, nullptr, {}, IMS_BADPARAM},
        {"even size 4 mean", CONV_MEAN, 4, nullptr, {}, IMS_BADPARAM},
        {"even size 6 mean", CONV_MEAN, 6, nullptr, {}, IMS_BADPARAM},
        {"even size 4 kernel", CONV_KERNEL, 4, nullptr, k49, IMS_BADPARAM},
        {"even size 6 kernel", CONV_KERNEL, 6, nullptr, k49, IMS_BADPARAM},
        {"size 7 kernel", CONV_KERNEL, 7, nullptr, k49, IMS_OK},
        {"size 7 mean", CONV_MEAN, 7, nullptr, {}, IMS_OK},
        {"coefficient 128", CONV_KERNEL, 3, nullptr, k3({0, 0, 0, 0, 128, 0, 0, 0, 0, 0}), IMS_BADPARAM},
        {"coefficient -128", CONV_KERNEL, 3, nullptr, k3({0, 0, 0, 0, -128, 0, 0, 0, 0, 0}), IMS_BADPARAM},
        {"positives 128", CONV_KERNEL, 3, nullptr, k3({64, 0, 0, 0, 64, 0, 0, 0, 0, 0}), IMS_BADPARAM},
        {"negatives 128", CONV_KERNEL, 3, nullptr, k3({-64, 0, 0, 0, -64, 0, 0, 0, 0, 0}), IMS_BADPARAM},
        {"127 each way", CONV_KERNEL, 3, nullptr, k3({64, 0, 0, 0, 63, -127, 0, 0, 0, 0}), IMS_OK},
        {"D is not limited", CONV_KERNEL, 3, nullptr, k3({0, 0, 0, 0, 1, 0, 0, 0, 0, -32768}), IMS_OK},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        Outcome o = Filter(image, 1, 0, c.type, c.n, c.k, c.file);
        EXPECT_EQ(ImsName(static_cast<DWORD>(o.code)), ImsName(c.code));
        EXPECT_EQ(o.result != nullptr, c.code == IMS_OK);
        if (o.result) GlobalFree(o.result);
        paxtest::ExpectCensus(before, 0, c.what);
        EXPECT_TRUE(BlockBytes(image) == source);
    }
    GlobalFree(image);
}

// Depths, compression, header size, empty sizes and headers that claim more
// than the block: the code, the block untouched and unlocked, and the
// thread's other fields left alone.
TEST(ConvolutionChecks, ImageChecksStoreTheirCodes) {
    ThreadState *state = GetThreadState();
    auto fill = [](int x, int y, int k) { return static_cast<BYTE>(x + y + k); };
    auto made = [&](int bits, DWORD compression = 0) {
        return Consume(paxtest::MakeDib(4, 4, bits, fill, -1, 0, compression));
    };
    const std::vector<BYTE> good = Consume(paxtest::MakeRandomDib24(5, 4, 2));
    struct Case {
        const char *what;
        std::vector<BYTE> bytes;
        DWORD code;
    } cases[] = {
        {"32 bits", made(32), IMS_BADDEPTH},
        {"8 bits", made(8), IMS_BADDEPTH},
        {"1 bit", made(1), IMS_BADDEPTH},
        {"compressed", made(24, 14), IMS_COMPRESSED},
        {"header size 12", Edited(good, [](BITMAPINFOHEADER *h) { h->biSize = 12; }), IMS_BADPARAM},
        {"width 0x10000", Edited(good, [](BITMAPINFOHEADER *h) { h->biWidth = 0x10000; }), IMS_EMPTYIMAGE},
        {"height 0", Edited(good, [](BITMAPINFOHEADER *h) { h->biHeight = 0; }), IMS_EMPTYIMAGE},
        {"one byte short", std::vector<BYTE>(good.begin(), good.end() - 1), IMS_BADPARAM},
        {"39 bytes", std::vector<BYTE>(good.begin(), good.begin() + 39), IMS_BADPARAM},
        {"negative width", Edited(good, [](BITMAPINFOHEADER *h) { h->biWidth = -5; }), IMS_BADPARAM},
    };
    for (const Case &c : cases)
        for (int newImage : {1, 0}) {
            SCOPED_TRACE(testing::Message() << c.what << " new " << newImage);
            HGLOBAL block = BlockFrom(c.bytes);
            state->imageStatus = 55;
            state->convertError = 66;
            Outcome o = Filter(block, newImage, 0, CONV_MEAN, 3);
            EXPECT_EQ(o.result, nullptr);
            EXPECT_EQ(ImsName(static_cast<DWORD>(o.code)), ImsName(c.code));
            EXPECT_EQ(state->imageStatus, 55u);
            EXPECT_EQ(state->convertError, 66u);
            EXPECT_EQ(paxtest::LockCount(block), 0);
            EXPECT_TRUE(Consume(block) == c.bytes);
        }
    Outcome none = Filter(nullptr, 1, 0, CONV_MEAN, 3);
    EXPECT_EQ(none.result, nullptr);
    EXPECT_EQ(ImsName(static_cast<DWORD>(none.code)), ImsName(IMS_BADPARAM));
    HGLOBAL image = BlockFrom(good);
    EXPECT_EQ(ColorConvolution(image, 1, 0, CONV_MEAN, 3, nullptr, nullptr, nullptr, 0, nullptr), nullptr);
    GlobalFree(image);
}

// ---- Layouts ------------------------------------------------------------------

TEST(ConvolutionLayouts, SixteenBitLimitsOfWidthAndHeight) {
    struct {
        int w, h;
        bool topDown, filtered;
    } rows[] = {{21844, 2, false, true}, {21845, 2, false, false}, {2, 32767, false, true},
                {1, 32768, false, false}, {1, 32768, true, false}};
    for (auto row : rows) {
        SCOPED_TRACE(testing::Message() << row.w << "x" << row.h << (row.topDown ? " top-down" : ""));
        HGLOBAL image = paxtest::MakeDib24(row.w, row.h, [](int x, int y) {
            return paxtest::Rgb{static_cast<BYTE>(x * 7 + y), static_cast<BYTE>(x ^ y), 9};
        });
        if (row.topDown) EditHeader(image, [](BITMAPINFOHEADER *h) { h->biHeight = -h->biHeight; });
        Outcome o = Filter(image, 0, 1, CONV_SHARPEN, 3);
        EXPECT_EQ(o.result, row.filtered ? image : nullptr);
        EXPECT_EQ(ImsName(static_cast<DWORD>(o.code)), ImsName(row.filtered ? IMS_OK : IMS_BADPARAM));
        GlobalFree(image);
    }
    HGLOBAL widest = paxtest::MakeRandomDib24(21844, 3, 17);
    ExpectFilterMatches(widest, 1, CONV_KERNEL, 3, {1, -2, 3, 0, 5, 0, -1, 2, 1, 0}, "widest");
    GlobalFree(widest);
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
                std::vector<BYTE> down = Filtered(topDown, 1, type, b.n, k);
                EXPECT_TRUE(FlipStorage(Filtered(bottomUp, 1, type, b.n, k)) == down);
                EXPECT_EQ(Filter(topDown, 0, 1, type, b.n, k).result, topDown);
                EXPECT_TRUE(BlockBytes(topDown) == down);
                Refill(topDown, flipped);
            }
            GlobalFree(bottomUp);
            GlobalFree(topDown);
        }
}

// The rows follow the 40-byte header whatever biClrUsed says, and biSizeImage
// only sizes the new image (in place it is not looked at); a new image too
// short for the rows is refused.
TEST(ConvolutionLayouts, RowsFollowTheHeaderAndBiSizeImageSizesTheNewImage) {
    const std::vector<int> k = {0, -1, 0, -1, 6, -1, 0, -1, 0, 2};
    for (int entries : {1, 3, 256}) {
        HGLOBAL image = paxtest::MakeDib(6, 5, 24, [](int x, int y, int b) {
            return static_cast<BYTE>(x * 40 + y * 9 + b * 70);
        }, entries);
        ASSERT_EQ(paxtest::HeaderOf(image).biClrUsed, static_cast<DWORD>(entries));
        ExpectFilterMatches(image, 0, CONV_KERNEL, 3, k, "table of " + std::to_string(entries));
        const DWORD beyond = static_cast<DWORD>(GlobalSize(image) + 100);
        EditHeader(image, [&](BITMAPINFOHEADER *h) { h->biSizeImage = beyond; });
        ExpectFilterMatches(image, 1, CONV_KERNEL, 3, k, "biSizeImage beyond the block");
        GlobalFree(image);
    }
    HGLOBAL image = paxtest::MakeRandomDib24(5, 4, 2);
    EditHeader(image, [](BITMAPINFOHEADER *h) { h->biSizeImage = 16; }); // rows: 64 bytes
    std::vector<BYTE> source = BlockBytes(image);
    Outcome made = Filter(image, 1, 0, CONV_MEAN, 3);
    EXPECT_EQ(made.result, nullptr);
    EXPECT_EQ(ImsName(static_cast<DWORD>(made.code)), ImsName(IMS_BADPARAM));
    EXPECT_TRUE(BlockBytes(image) == source);
    EXPECT_EQ(Filter(image, 0, 0, CONV_MEAN, 3).result, image);
    EXPECT_TRUE(BlockBytes(image) == ReferenceConvolution(source, 0, 3, ListOf(BuiltIns()[0])));
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
            [&]() -> HGLOBAL { return Filter(image, 1, 1, type, 3, k, name.c_str()).result; }, {image});
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
    auto run = [&] { return Filter(image, 0, 0, CONV_SMOOTH, 5); };
    win32lite::ResetFaults();
    ASSERT_EQ(run().result, image);
    EXPECT_EQ(win32lite::AllocationCalls(), 1);
    EXPECT_EQ(win32lite::LockCalls(), 2);
    struct Fault {
        const char *what;
        void (*arm)(long);
        long points;
    } faults[] = {{"allocation", win32lite::FailAllocationAt, 1}, {"lock", win32lite::FailLockAt, 2}};
    for (const Fault &f : faults)
        for (long n = 1; n <= f.points; ++n) {
            SCOPED_TRACE(testing::Message() << f.what << " " << n);
            Refill(image, source);
            paxtest::Snapshot before = paxtest::TakeSnapshot();
            win32lite::ResetFaults();
            f.arm(n);
            Outcome o = run();
            win32lite::ResetFaults();
            if (!o.result) {
                EXPECT_TRUE(BlockBytes(image) == source);
            }
            if (std::string(f.what) == "lock") {
                EXPECT_EQ(ImsName(static_cast<DWORD>(o.code)), ImsName(IMS_LOCKFAILED));
            }
            EXPECT_EQ(paxtest::LockCount(image), 0);
            paxtest::ExpectCensus(before, 0, f.what);
        }
    // The one allocation is retried: a single failure still filters.
    win32lite::FailAllocationAt(1);
    Outcome retried = run();
    win32lite::ResetFaults();
    EXPECT_EQ(retried.result, image);
    EXPECT_EQ(retried.code, IMS_OK);
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
        Outcome o = Filter(image, newImage, 0, CONV_FILE, 3, {}, name.c_str());
        win32lite::ResetFaults();
        EXPECT_EQ(o.result, nullptr);
        EXPECT_EQ(ImsName(static_cast<DWORD>(o.code)), ImsName(IMS_BADPARAM));
        EXPECT_TRUE(BlockBytes(image) == source);
        EXPECT_EQ(paxtest::LockCount(image), 0);
        paxtest::ExpectCensus(before, 0, "file open failure");
    }
    std::remove(name.c_str());
    GlobalFree(image);
}

// With standard input closed the filter file would get descriptor 0, which
// the convolution takes for a failed open: the stand-in never hands it out,
// and the file is closed again.
TEST(ConvolutionFile, AFileOpenedWithStandardInputClosedIsReadAndClosed) {
    std::string name = TempName("stdin");
    WriteFile(name, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0});
    HGLOBAL image = paxtest::MakeRandomDib24(4, 3, 16);
    std::vector<BYTE> source = BlockBytes(image);
    const int savedInput = dup(0);
    ASSERT_GE(savedInput, 0);
    close(0);
    Outcome o = Filter(image, 1, 0, CONV_FILE, 3, {}, name.c_str());
    const int next = open("/dev/null", O_RDONLY); // the lowest free descriptor
    dup2(savedInput, 0);
    close(savedInput);
    EXPECT_EQ(next, 0) << "the filter file was left open";
    if (next > 0) close(next);
    EXPECT_EQ(ImsName(static_cast<DWORD>(o.code)), ImsName(IMS_OK));
    EXPECT_TRUE(Consume(o.result) == AsNewImage(source, 36)); // identity kernel
    std::remove(name.c_str());
    GlobalFree(image);
}
#endif

} // namespace
