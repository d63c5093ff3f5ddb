// ConvertColorSpace: pixels of a caller's buffer between colour models.
#include "census.h"
#include "convert_internal.h"
#include "convert_support.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using convtest::BufferBytes;
using convtest::ConvertOne;
using convtest::ModelName;
using paxtest::CceName;

// Exactly-sized heap copies, so that the sanitizer sees any access past them.
std::unique_ptr<BYTE[]> Exact(const std::vector<BYTE> &bytes) {
    std::unique_ptr<BYTE[]> p(new BYTE[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), p.get());
    return p;
}

std::vector<BYTE> RandomBytes(size_t n, uint32_t seed) {
    paxtest::Rng rng(seed);
    std::vector<BYTE> v(n);
    for (BYTE &b : v) b = rng.Byte();
    return v;
}

// The destination size that count implies.
size_t DestinationSize(int count, int from, int to) {
    if (from == to) return static_cast<size_t>(count);
    return static_cast<size_t>(count / BufferBytes(from) * BufferBytes(to));
}

TEST(ConvertColorSpace, RgbToHsvOfSixBytesConvertsTwoPixels) {
    const BYTE source[6] = {255, 0, 0, 10, 200, 30};
    BYTE destination[6] = {};
    EXPECT_EQ(ConvertColorSpace(source, destination, 6, MODEL_RGB, MODEL_HSV, 0, nullptr), 6);
    const BYTE expected[6] = {0, 255, 255, 89, 242, 200};
    EXPECT_EQ(std::vector<BYTE>(destination, destination + 6),
              std::vector<BYTE>(expected, expected + 6));
    EXPECT_EQ(GetLastColorConvertError(), 0u);
}

TEST(ConvertColorSpace, RgbToCmykWritesFourBytesPerPixel) {
    const BYTE source[6] = {10, 200, 30, 255, 255, 255};
    BYTE destination[10];
    std::fill(destination, destination + 10, 0xEE);
    EXPECT_EQ(ConvertColorSpace(source, destination, 6, MODEL_RGB, MODEL_CMYK, 0, nullptr), 6);
    const BYTE expected[10] = {190, 0, 170, 55, 0, 0, 0, 0, 0xEE, 0xEE};
    EXPECT_EQ(std::vector<BYTE>(destination, destination + 10),
              std::vector<BYTE>(expected, expected + 10));
}

TEST(ConvertColorSpace, CmykToRgbReadsFourBytesPerPixel) {
    const BYTE source[8] = {190, 0, 170, 55, 0, 0, 0, 255};
    BYTE destination[8];
    std::fill(destination, destination + 8, 0xEE);
    EXPECT_EQ(ConvertColorSpace(source, destination, 8, MODEL_CMYK, MODEL_RGB, 0, nullptr), 8);
    const BYTE expected[8] = {10, 200, 30, 0, 0, 0, 0xEE, 0xEE};
    EXPECT_EQ(std::vector<BYTE>(destination, destination + 8),
              std::vector<BYTE>(expected, expected + 8));
}

TEST(ConvertColorSpace, SameModelCopiesCountBytesWithoutADialog) {
    const BYTE source[5] = {1, 2, 3, 4, 5};
    BYTE destination[6] = {9, 9, 9, 9, 9, 9};
    // Were a dialog asked for, its creation would fail and the call with it.
    convtest::ArrangeDialogFailure();
    EXPECT_EQ(ConvertColorSpace(source, destination, 5, MODEL_LAB, MODEL_LAB, 1, nullptr), 5);
    convtest::ResetDialogScript();
    const BYTE expected[6] = {1, 2, 3, 4, 5, 9};
    EXPECT_EQ(std::vector<BYTE>(destination, destination + 6),
              std::vector<BYTE>(expected, expected + 6));
    EXPECT_EQ(GetThreadState()->progressDialog, nullptr);
    EXPECT_EQ(GetLastColorConvertError(), 0u);
}

TEST(ConvertColorSpace, ChecksStoreTheirCodesInOrder) {
    BYTE buffer[12] = {};
    struct Case {
        const BYTE *source;
        BYTE *destination;
        int count, from, to;
        DWORD code;
    } cases[] = {
        {buffer, buffer, 3, 0, 1, CCE_BADMODEL},
        {buffer, buffer, 3, 10, 1, CCE_BADMODEL},
        {buffer, buffer, 3, 1, 0, CCE_BADMODEL},
        {buffer, buffer, 3, 1, 10, CCE_BADMODEL},
        {buffer, buffer, 3, -1, 1, CCE_BADMODEL},
        {nullptr, nullptr, 0, 0, 1, CCE_BADMODEL}, // the models are tested first
        {buffer, buffer, 0, 1, 6, CCE_BADARGUMENT},
        {buffer, buffer, -3, 1, 6, CCE_BADARGUMENT},
        {nullptr, buffer, 3, 1, 6, CCE_BADARGUMENT},
        {buffer, nullptr, 3, 1, 6, CCE_BADARGUMENT},
        {buffer, buffer, 0, 1, 1, CCE_BADARGUMENT},
        {buffer, buffer, 0, 4, 1, CCE_BADARGUMENT},
    };
    for (const Case &c : cases) {
        GetThreadState()->convertError = 99;
        EXPECT_EQ(ConvertColorSpace(c.source, c.destination, c.count, c.from, c.to, 0, nullptr), -1);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code))
            << "count " << c.count << " models " << c.from << "->" << c.to;
    }
}

TEST(ConvertColorSpaceDialogFailure, StoresNoProgressAndConvertsNothing) {
    if (!convtest::ArrangeDialogFailure()) GTEST_SKIP() << "dialog creation cannot be made to fail";
    BYTE source[6] = {1, 2, 3, 4, 5, 6};
    BYTE destination[8] = {7, 7, 7, 7, 7, 7, 7, 7};
    for (int from : {MODEL_RGB, MODEL_CMYK}) {
        EXPECT_EQ(ConvertColorSpace(source, destination, 6, from, MODEL_LAB, 1, nullptr), -1);
        EXPECT_EQ(CceName(GetLastColorConvertError()), "CCE_NOPROGRESS");
        convtest::ArrangeDialogFailure();
    }
    convtest::ResetDialogScript();
    for (BYTE b : destination) EXPECT_EQ(b, 7) << "nothing is converted";
}

// Every ordered pair, on a buffer of random pixels, against the single-value
// conversion applied to each pixel.
TEST(ConvertColorSpace, EveryPairConvertsEachPixelWithItsConversion) {
    int pairs = 0;
    for (const pax::ConversionEntry &e : pax::kConversions) {
        SCOPED_TRACE(e.name);
        const int from = e.fromModel, to = e.toModel;
        const int pixels = 97;
        const int count = pixels * BufferBytes(from);
        std::vector<BYTE> source = RandomBytes(static_cast<size_t>(count), 1000u + pairs);
        auto src = Exact(source);
        std::vector<BYTE> destination(DestinationSize(count, from, to), 0);
        auto dst = Exact(destination);
        ASSERT_EQ(ConvertColorSpace(src.get(), dst.get(), count, from, to, 0, nullptr), count);
        for (int p = 0; p < pixels; ++p) {
            std::vector<BYTE> want = ConvertOne(from, to, &source[p * BufferBytes(from)]);
            std::vector<BYTE> got(dst.get() + p * BufferBytes(to),
                                  dst.get() + (p + 1) * BufferBytes(to));
            ASSERT_EQ(got, want) << "pixel " << p;
        }
        ++pairs;
    }
    EXPECT_EQ(pairs, 72);
}

TEST(ConvertColorSpace, SourceAndDestinationMayBeTheSameBuffer) {
    std::vector<BYTE> source = RandomBytes(30, 7);
    std::vector<BYTE> inPlace = source;
    ASSERT_EQ(ConvertColorSpace(inPlace.data(), inPlace.data(), 30, MODEL_RGB, MODEL_LAB, 0,
                                nullptr),
              30);
    for (int p = 0; p < 10; ++p)
        EXPECT_EQ(std::vector<BYTE>(&inPlace[p * 3], &inPlace[p * 3] + 3),
                  ConvertOne(MODEL_RGB, MODEL_LAB, &source[p * 3]));
}

// A count that is not a whole number of source pixels: the trailing part is
// walked but not converted; nothing outside either buffer is touched.
TEST(ConvertColorSpace, TrailingPartialPixelIsWalkedButNotConverted) {
    struct Case {
        int from, to, count;
    } cases[] = {{MODEL_RGB, MODEL_HSV, 8}, {MODEL_RGB, MODEL_CMYK, 7}, {MODEL_RGB, MODEL_CMYK, 2},
                 {MODEL_CMYK, MODEL_RGB, 10}, {MODEL_CMYK, MODEL_LAB, 3}, {MODEL_YIQ, MODEL_XYZ, 1}};
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << ModelName(c.from) << "->" << ModelName(c.to) << " count "
                                        << c.count);
        std::vector<BYTE> source = RandomBytes(static_cast<size_t>(c.count), 11);
        auto src = Exact(source);
        const size_t size = DestinationSize(c.count, c.from, c.to);
        // The destination holds exactly what count implies (at least one byte
        // so that the pointer is not null), filled with a marker.
        std::vector<BYTE> marker(std::max<size_t>(size, 1), 0xC3);
        auto dst = Exact(marker);
        EXPECT_EQ(ConvertColorSpace(src.get(), dst.get(), c.count, c.from, c.to, 0, nullptr),
                  c.count);
        const int whole = c.count / BufferBytes(c.from);
        for (int p = 0; p < whole; ++p)
            EXPECT_EQ(std::vector<BYTE>(dst.get() + p * BufferBytes(c.to),
                                        dst.get() + (p + 1) * BufferBytes(c.to)),
                      ConvertOne(c.from, c.to, &source[p * BufferBytes(c.from)]));
        for (size_t k = static_cast<size_t>(whole) * BufferBytes(c.to); k < marker.size(); ++k)
            EXPECT_EQ(dst[k], 0xC3) << "byte " << k << " past the whole pixels";
    }
}

// The buffer conversion takes no global memory and locks nothing, so a sweep
// finds no failure point, with or without the dialog.
TEST(ConvertColorSpace, FailureSweepFindsNoAllocationOrLock) {
    std::vector<BYTE> source = RandomBytes(4000, 3), destination(6000);
    for (int from : {MODEL_RGB, MODEL_CMYK}) {
        paxtest::SweepCounts n = paxtest::SweepFailures(
            [&]() -> std::vector<HGLOBAL> {
                EXPECT_EQ(ConvertColorSpace(source.data(), destination.data(), 3996, from,
                                            MODEL_CMY, convtest::HaveDisplay(), nullptr),
                          3996);
                return {};
            },
            {});
        EXPECT_EQ(n.allocationPoints, 0);
        EXPECT_EQ(n.lockPoints, 0);
    }
}

// The row walk against the plain byte walk: random pairs, counts (partial
// pixels included) and, with the dialog, a Cancel after a random step.
TEST(ConvertColorSpaceWalks, RowWalkMatchesByteWalk) {
    if (!convtest::HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
    paxtest::Rng rng(20240601);
    for (int round = 0; round < 60; ++round) {
        const pax::ConversionEntry &e = pax::kConversions[rng.Below(72)];
        const int count = 1 + rng.Below(round < 20 ? 40 : 9000);
        const bool progress = round % 3 != 0;
        const long cancelAfter = progress ? rng.Below(8) : 0; // 0: no cancel
        SCOPED_TRACE(testing::Message() << e.name << " count " << count << " progress "
                                        << progress << " cancel after " << cancelAfter);
        std::vector<BYTE> source = RandomBytes(static_cast<size_t>(count), rng.Next());
        const size_t size = std::max<size_t>(DestinationSize(count, e.fromModel, e.toModel), 1);
        std::vector<BYTE> results[2];
        int returned[2];
        long steps[2];
        for (int k = 0; k < 2; ++k) {
            results[k].assign(size, 0x77);
            convtest::StepWatch watch(cancelAfter);
            returned[k] = pax::ConvertColorSpaceWith(k ? pax::WalkKind::Rows : pax::WalkKind::Bytes,
                                                     source.data(), results[k].data(), count,
                                                     e.fromModel, e.toModel, progress, nullptr);
            steps[k] = progress ? watch.Steps() : 0;
        }
        EXPECT_EQ(returned[0], returned[1]);
        EXPECT_EQ(steps[0], steps[1]);
        EXPECT_TRUE(results[0] == results[1]);
        if (cancelAfter > 0 && count > cancelAfter * 1500)
            EXPECT_EQ(returned[1], cancelAfter * 1500 + 1);
        else
            EXPECT_EQ(returned[1], count);
    }
}

} // namespace
