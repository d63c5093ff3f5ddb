// ConvertColorSpace: pixels of a caller's buffer between colour models.
#include "census.h"
#include "convert_internal.h"
#include "convert_support.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using convtest::BufferBytes;
using convtest::ConvertOne;
using convtest::RandomBytes;
using paxtest::CceName;

// Exactly-sized heap copies, so that the sanitizer sees any access past them.
std::unique_ptr<BYTE[]> Exact(const std::vector<BYTE> &bytes) {
    std::unique_ptr<BYTE[]> p(new BYTE[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), p.get());
    return p;
}

// The destination size that count implies.
size_t DestinationSize(int count, int from, int to) {
    if (from == to) return static_cast<size_t>(count);
    return static_cast<size_t>(count / BufferBytes(from) * BufferBytes(to));
}

TEST(ConvertColorSpace, Examples) {
    struct Case {
        int from, to, count, progress;
        std::vector<BYTE> source;
        BYTE fill;
        std::vector<BYTE> expected; // the whole destination afterwards
    } cases[] = {
        {MODEL_RGB, MODEL_HSV, 6, 0, {255, 0, 0, 10, 200, 30}, 0, {0, 255, 255, 89, 242, 200}},
        {MODEL_RGB, MODEL_CMYK, 6, 0, {10, 200, 30, 255, 255, 255}, 0xEE,
         {190, 0, 170, 55, 0, 0, 0, 0, 0xEE, 0xEE}},
        {MODEL_CMYK, MODEL_RGB, 8, 0, {190, 0, 170, 55, 0, 0, 0, 255}, 0xEE,
         {10, 200, 30, 0, 0, 0, 0xEE, 0xEE}},
        // Same model: a plain copy of count bytes, without the dialog (were one
        // asked for, its creation would fail and the call with it).
        {MODEL_LAB, MODEL_LAB, 5, 1, {1, 2, 3, 4, 5}, 9, {1, 2, 3, 4, 5, 9}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.from << "->" << c.to);
        std::vector<BYTE> destination(c.expected.size(), c.fill);
        if (c.progress) convtest::ArrangeDialogFailure();
        GetThreadState()->convertError = 99;
        EXPECT_EQ(ConvertColorSpace(c.source.data(), destination.data(), c.count, c.from, c.to,
                                    c.progress, nullptr),
                  c.count);
        convtest::ResetDialogScript();
        EXPECT_EQ(destination, c.expected);
        EXPECT_EQ(GetThreadState()->progressDialog, nullptr);
        EXPECT_EQ(GetLastColorConvertError(), 0u);
    }
}

TEST(ConvertColorSpace, ChecksStoreTheirCodesInOrder) {
    BYTE b[12] = {};
    struct Case {
        const BYTE *source;
        BYTE *destination;
        int count, from, to;
        DWORD code;
    } cases[] = {
        {b, b, 3, 0, 1, CCE_BADMODEL},         {b, b, 3, 10, 1, CCE_BADMODEL},
        {b, b, 3, 1, 0, CCE_BADMODEL},         {b, b, 3, 1, 10, CCE_BADMODEL},
        {b, b, 3, -1, 1, CCE_BADMODEL},        {nullptr, nullptr, 0, 0, 1, CCE_BADMODEL},
        {b, b, 0, 1, 6, CCE_BADARGUMENT},      {b, b, -3, 1, 6, CCE_BADARGUMENT},
        {nullptr, b, 3, 1, 6, CCE_BADARGUMENT}, {b, nullptr, 3, 1, 6, CCE_BADARGUMENT},
        {b, b, 0, 1, 1, CCE_BADARGUMENT},      {b, b, 0, 4, 1, CCE_BADARGUMENT},
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
        convtest::ArrangeDialogFailure();
        EXPECT_EQ(ConvertColorSpace(source, destination, 6, from, MODEL_LAB, 1, nullptr), -1);
        EXPECT_EQ(CceName(GetLastColorConvertError()), "CCE_NOPROGRESS");
    }
    convtest::ResetDialogScript();
    for (BYTE b : destination) EXPECT_EQ(b, 7) << "nothing is converted";
}

// Converts count random bytes into an exactly-sized destination filled with a
// marker: each whole pixel holds the single-value conversion of its source
// pixel, and a trailing partial pixel is walked but not converted.
void ExpectEachPixelConverted(int from, int to, int count, uint32_t seed) {
    SCOPED_TRACE(testing::Message() << from << "->" << to << " count " << count);
    std::vector<BYTE> source = RandomBytes(static_cast<size_t>(count), seed);
    auto src = Exact(source);
    std::vector<BYTE> marker(std::max<size_t>(DestinationSize(count, from, to), 1), 0xC3);
    auto dst = Exact(marker);
    ASSERT_EQ(ConvertColorSpace(src.get(), dst.get(), count, from, to, 0, nullptr), count);
    const int whole = count / BufferBytes(from), n = BufferBytes(to);
    for (int p = 0; p < whole; ++p)
        ASSERT_EQ(std::vector<BYTE>(dst.get() + p * n, dst.get() + (p + 1) * n),
                  ConvertOne(from, to, &source[p * BufferBytes(from)]))
            << "pixel " << p;
    for (size_t k = static_cast<size_t>(whole) * n; k < marker.size(); ++k)
        EXPECT_EQ(dst[k], 0xC3) << "byte " << k << " past the whole pixels";
}

// Counts that end in a partial pixel or hold none; every pair at whole pixels
// is in the model-pair digest.
TEST(ConvertColorSpace, PartialPixelsAreWalkedButNotConverted) {
    const int partial[][3] = {{MODEL_RGB, MODEL_HSV, 8},   {MODEL_RGB, MODEL_CMYK, 7},
                              {MODEL_RGB, MODEL_CMYK, 2},  {MODEL_CMYK, MODEL_RGB, 10},
                              {MODEL_CMYK, MODEL_LAB, 3},  {MODEL_YIQ, MODEL_XYZ, 1}};
    for (const auto &c : partial) ExpectEachPixelConverted(c[0], c[1], c[2], 11);
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
