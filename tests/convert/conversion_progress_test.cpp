// The progress dialog of the buffer and image conversions: range, the units at
// which the bar steps, the owner window, and Cancel.
//
// On Windows (under Wine with a display) these run against the real dialog; a
// hook on the bar's messages sees each step, and Cancel is either clicked by a
// timer or posted right after a given step. On Linux the stand-in's scripted
// dialog does the same.
#include "census.h"
#include "convert_support.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using paxtest::CceName;

class ConversionProgress : public testing::Test {
protected:
    void SetUp() override {
        if (!convtest::HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
        convtest::ResetDialogScript();
    }
    void TearDown() override { convtest::ResetDialogScript(); }
};

// RGB to CMY complements every byte: a source of zeros gives 255s, so the
// converted part of a zero-filled destination is the run of 255s at its start.
long ConvertedPrefix(const std::vector<BYTE> &destination) {
    long n = 0;
    while (n < static_cast<long>(destination.size()) && destination[static_cast<size_t>(n)] == 255)
        ++n;
    return n;
}

TEST_F(ConversionProgress, ThreeThousandBytesStepAtZeroAndFifteenHundred) {
    std::vector<BYTE> source(3000, 0), destination(3000, 0);
    std::vector<long> convertedAtStep;
    HWND owner = convtest::MakeOwner();
    {
        convtest::StepWatch watch;
        watch.OnStep([&](long) {
            convertedAtStep.push_back(ConvertedPrefix(destination));
            EXPECT_FALSE(IsWindowEnabled(owner)) << "the owner is disabled while the dialog is up";
        });
        EXPECT_EQ(ConvertColorSpace(source.data(), destination.data(), 3000, MODEL_RGB, MODEL_CMY, 1,
                                    owner),
                  3000);
        EXPECT_EQ(watch.RangeMax(), 3); // (3001 div 1500) + 1
        EXPECT_EQ(watch.Steps(), 2);
    }
    if (convtest::StepWatch::SeesEachStep()) {
        EXPECT_EQ(convertedAtStep, (std::vector<long>{0, 1500}));
    }
    EXPECT_EQ(ConvertedPrefix(destination), 3000);
    EXPECT_TRUE(IsWindowEnabled(owner));
    EXPECT_EQ(GetThreadState()->progressDialog, nullptr);
    DestroyWindow(owner);
}

// Cancel after step k reaches the walk in step k + 1, at byte k x 1500: that
// byte's pixel still converts and the walk stops at the next index. A CMYK
// source steps on its source bytes too.
TEST_F(ConversionProgress, CancelAfterAStepStopsAtTheNextIndex) {
    struct Case {
        int from, count;
        long cancelAfter, rangeMax, returned, converted;
    } cases[] = {
        {MODEL_RGB, 9000, 1, 7, 1501, 1503},
        {MODEL_RGB, 9000, 2, 7, 3001, 3003},
        {MODEL_RGB, 9000, 5, 7, 7501, 7503},
        {MODEL_CMYK, 6000, 2, 5, 3001, 751 * 3}, // 751 pixels start below 3001
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.from << " cancel after step " << c.cancelAfter);
        std::vector<BYTE> source(static_cast<size_t>(c.count), 0), destination(9000, 0);
        HWND owner = convtest::MakeOwner();
        {
            convtest::StepWatch watch(c.cancelAfter);
            EXPECT_EQ(ConvertColorSpace(source.data(), destination.data(), c.count, c.from,
                                        c.from == MODEL_RGB ? MODEL_CMY : MODEL_RGB, 1, owner),
                      c.returned);
            EXPECT_EQ(watch.RangeMax(), c.rangeMax); // (count + 1) div 1500 + 1
        }
        EXPECT_EQ(GetLastColorConvertError(), 0u);
        EXPECT_EQ(ConvertedPrefix(destination), c.converted);
        EXPECT_EQ(GetThreadState()->cancelled, 1u);
        EXPECT_TRUE(IsWindowEnabled(owner));
        DestroyWindow(owner);
    }
}

TEST_F(ConversionProgress, TimerCancelStopsALargeBufferMidRun) {
    const int count = 3 * 16 * 1024 * 1024;
    std::vector<BYTE> source(static_cast<size_t>(count), 0), destination(source.size(), 0);
    HWND owner = convtest::MakeOwner();
    convtest::ClickCancelAfter(10);
    const int returned = ConvertColorSpace(source.data(), destination.data(), count, MODEL_RGB,
                                           MODEL_CMY, 1, owner);
    EXPECT_LT(returned, count);
    EXPECT_EQ((returned - 1) % 1500, 0) << returned;
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    // Every pixel before the stop converted, none after.
    EXPECT_EQ(ConvertedPrefix(destination), (returned + 2) / 3 * 3);
    EXPECT_TRUE(IsWindowEnabled(owner));
    EXPECT_EQ(GetThreadState()->progressDialog, nullptr);
    DestroyWindow(owner);
}

// Width 500 at 24 bits, or 375 of CMYK at 32, gives a stride of 1500: each
// row is one step.
TEST_F(ConversionProgress, ImageStepsOnTheBytesOfItsRows) {
    const int cases[][5] = {{MODEL_RGB, 500, 3, MODEL_HSV, 4}, {MODEL_CMYK, 375, 4, MODEL_LAB, 5}};
    for (const auto &c : cases) {
        HGLOBAL image = convtest::MakeModelImage(c[0], c[1], c[2], 4);
        convtest::StepWatch watch;
        HGLOBAL result = ConvertDIBColorSpace(image, c[0], c[3], 1, nullptr);
        EXPECT_NE(result, nullptr);
        EXPECT_EQ(watch.RangeMax(), c[4]); // (1500 x rows + 1) div 1500 + 1
        EXPECT_EQ(watch.Steps(), c[2]);
        GlobalFree(result);
        GlobalFree(image);
    }
}

// A cancelled image conversion returns null with no code, leaves no block and
// the image as it was: Cancel after step 3, or clicked by a timer on a large
// image.
TEST_F(ConversionProgress, CancelledImageConversionReturnsNullAndLeavesNoBlock) {
    const int cases[][4] = {{MODEL_RGB, MODEL_HSV, 400, 0},   {MODEL_RGB, MODEL_CMYK, 400, 0},
                            {MODEL_CMYK, MODEL_HSV, 400, 0},  {MODEL_CMYK, MODEL_RGB, 400, 0},
                            {MODEL_RGB, MODEL_LAB, 2048, 1}};
    for (const auto &c : cases) {
        const int from = c[0], to = c[1];
        SCOPED_TRACE(testing::Message() << from << "->" << to << (c[3] ? " by timer" : ""));
        HGLOBAL image = convtest::MakeModelImage(from, c[2], c[3] ? 2048 : 40, 6);
        std::vector<BYTE> before = paxtest::BlockBytes(image);
        HWND owner = convtest::MakeOwner();
        paxtest::Snapshot s = paxtest::TakeSnapshot();
        {
            convtest::StepWatch watch(c[3] ? 0 : 3);
            if (c[3]) convtest::ClickCancelAfter(10);
            EXPECT_EQ(ConvertDIBColorSpace(image, from, to, 1, owner), nullptr);
        }
        paxtest::ExpectCensus(s, 0, "cancelled");
        EXPECT_EQ(GetLastColorConvertError(), 0u);
        EXPECT_EQ(GetThreadState()->cancelled, 1u);
        EXPECT_TRUE(IsWindowEnabled(owner));
        EXPECT_EQ(paxtest::LockCount(image), 0);
        EXPECT_TRUE(paxtest::BlockBytes(image) == before);
        DestroyWindow(owner);
        GlobalFree(image);
    }
}

TEST(ConvertDIBColorSpaceDialogFailure, StoresNoProgressAndLeavesNoBlock) {
    if (!convtest::ArrangeDialogFailure()) GTEST_SKIP() << "dialog creation cannot be made to fail";
    HGLOBAL rgb = convtest::MakeModelImage(MODEL_RGB, 3, 3, 1);
    HGLOBAL cmyk = convtest::MakeModelImage(MODEL_CMYK, 3, 3, 1);
    HWND owner = convtest::MakeOwner();
    for (HGLOBAL image : {rgb, cmyk}) {
        convtest::ArrangeDialogFailure();
        paxtest::Snapshot s = paxtest::TakeSnapshot();
        const int from = image == rgb ? MODEL_RGB : MODEL_CMYK;
        EXPECT_EQ(ConvertDIBColorSpace(image, from, MODEL_XYZ, 1, owner), nullptr);
        EXPECT_EQ(CceName(GetLastColorConvertError()), "CCE_NOPROGRESS");
        paxtest::ExpectCensus(s, 0, "no dialog");
        if (owner) { // no owner window can be made without a display
            EXPECT_TRUE(IsWindowEnabled(owner));
        }
    }
    if (owner) DestroyWindow(owner);
    GlobalFree(rgb);
    GlobalFree(cmyk);
}

} // namespace
