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
// byte's pixel still converts and the walk stops at the next index.
TEST_F(ConversionProgress, CancelAfterAStepStopsAtTheNextIndex) {
    std::vector<BYTE> source(9000, 0);
    for (long k : {1, 2, 5}) {
        SCOPED_TRACE(testing::Message() << "cancel after step " << k);
        std::vector<BYTE> destination(9000, 0);
        HWND owner = convtest::MakeOwner();
        convtest::StepWatch watch(k);
        const int returned = ConvertColorSpace(source.data(), destination.data(), 9000, MODEL_RGB,
                                               MODEL_CMY, 1, owner);
        EXPECT_EQ(returned, k * 1500 + 1);
        EXPECT_EQ(GetLastColorConvertError(), 0u);
        EXPECT_EQ(ConvertedPrefix(destination), k * 1500 + 3); // the pixel at k x 1500 included
        EXPECT_EQ(GetThreadState()->cancelled, 1u);
        EXPECT_TRUE(IsWindowEnabled(owner));
        DestroyWindow(owner);
    }
}

TEST_F(ConversionProgress, CmykBufferStepsOnSourceBytes) {
    std::vector<BYTE> source(6000, 0), destination(4500, 0);
    convtest::StepWatch watch(2);
    EXPECT_EQ(ConvertColorSpace(source.data(), destination.data(), 6000, MODEL_CMYK, MODEL_RGB, 1,
                                nullptr),
              3001);
    EXPECT_EQ(watch.RangeMax(), 5); // (6001 div 1500) + 1
    // Pixels starting below 3001 are converted: 751 of them, 3 bytes each.
    EXPECT_EQ(ConvertedPrefix(destination), 751 * 3);
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

TEST_F(ConversionProgress, ImageStepsOnTheBytesOfItsRows) {
    // Width 500 at 24 bits: stride 1500, so each row is one step.
    HGLOBAL image = convtest::MakeModelImage(MODEL_RGB, 500, 3, 4);
    {
        convtest::StepWatch watch;
        HGLOBAL result = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_HSV, 1, nullptr);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(watch.RangeMax(), 4); // (4501 div 1500) + 1
        EXPECT_EQ(watch.Steps(), 3);
        GlobalFree(result);
    }
    GlobalFree(image);

    // CMYK source: 32 bits, width 375 gives a stride of 1500 as well.
    HGLOBAL cmyk = convtest::MakeModelImage(MODEL_CMYK, 375, 4, 5);
    {
        convtest::StepWatch watch;
        HGLOBAL result = ConvertDIBColorSpace(cmyk, MODEL_CMYK, MODEL_LAB, 1, nullptr);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(watch.RangeMax(), 5); // (6001 div 1500) + 1
        EXPECT_EQ(watch.Steps(), 4);
        GlobalFree(result);
    }
    GlobalFree(cmyk);
}

TEST_F(ConversionProgress, CancelledImageConversionReturnsNullAndLeavesNoBlock) {
    for (int from : {MODEL_RGB, MODEL_CMYK}) {
        for (int to : {MODEL_HSV, MODEL_CMYK, MODEL_RGB}) {
            if (from == to) continue;
            SCOPED_TRACE(testing::Message() << from << "->" << to);
            HGLOBAL image = convtest::MakeModelImage(from, 400, 40, 6);
            std::vector<BYTE> before = paxtest::BlockBytes(image);
            HWND owner = convtest::MakeOwner();
            paxtest::Snapshot s = paxtest::TakeSnapshot();
            {
                convtest::StepWatch watch(3);
                EXPECT_EQ(ConvertDIBColorSpace(image, from, to, 1, owner), nullptr);
            }
            paxtest::ExpectCensus(s, 0, "cancelled");
            EXPECT_EQ(GetLastColorConvertError(), 0u);
            EXPECT_TRUE(IsWindowEnabled(owner));
            EXPECT_EQ(paxtest::LockCount(image), 0);
            EXPECT_TRUE(paxtest::BlockBytes(image) == before);
            DestroyWindow(owner);
            GlobalFree(image);
        }
    }
}

TEST_F(ConversionProgress, TimerCancelStopsALargeImage) {
    HGLOBAL image = convtest::MakeModelImage(MODEL_RGB, 2048, 2048, 7);
    HWND owner = convtest::MakeOwner();
    paxtest::Snapshot s = paxtest::TakeSnapshot();
    convtest::ClickCancelAfter(10);
    EXPECT_EQ(ConvertDIBColorSpace(image, MODEL_RGB, MODEL_LAB, 1, owner), nullptr);
    paxtest::ExpectCensus(s, 0, "cancelled by the timer");
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    EXPECT_EQ(GetThreadState()->cancelled, 1u);
    EXPECT_TRUE(IsWindowEnabled(owner));
    EXPECT_EQ(paxtest::LockCount(image), 0);
    DestroyWindow(owner);
    GlobalFree(image);
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
