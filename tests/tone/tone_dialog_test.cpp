// Brightness and contrast, gamma and convolution in every mode: the
// parameter dialog through the scripted double beside this program, and the
// progress dialog with Cancel. On Windows (Wine with a display) the progress
// dialog is the real one and a timer clicks its Cancel button; on Linux the
// stand-in's script clicks it after a given step.
#include "census.h"
#include "dialog_double_control.h"
#include "dib_builder.h"
#include "progress.h"
#include "thread_state.h"
#include "tone_support.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <commctrl.h>
#include <cstdlib>
#else
#include "win32lite_test.h"
#endif

namespace {

using namespace tonetest;
using paxtest::BlockBytes;
using paxtest::CceName;
using paxtest::ImsName;

#ifdef _WIN32
bool HaveDisplay() { return std::getenv("DISPLAY") != nullptr; }
UINT_PTR g_timer = 0;
void CALLBACK ClickCancel(HWND, UINT, UINT_PTR id, DWORD) {
    KillTimer(nullptr, id);
    g_timer = 0;
    HWND dialog = GetThreadState()->progressDialog;
    if (dialog) SendMessageA(GetDlgItem(dialog, IDCANCEL), BM_CLICK, 0, 0);
}
// A timer clicks Cancel once it is due and a step pumps the messages.
void ArrangeCancel(int) { g_timer = SetTimer(nullptr, 0, 30, ClickCancel); }
void Disarm() {
    if (g_timer) KillTimer(nullptr, g_timer);
    g_timer = 0;
}
constexpr bool kScripted = false;
#else
bool HaveDisplay() { return true; }
// Cancel is clicked right after the k-th step and arrives with the next one.
void ArrangeCancel(int afterSteps) { win32lite::ScriptDialogs({false, afterSteps}); }
void Disarm() { win32lite::ScriptDialogs({}); }
void ArrangeCreationFailure() { win32lite::ScriptDialogs({true, 0}); }
constexpr bool kScripted = true;
#endif

class ToneDialogs : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dlg_.loaded()) << "the dialog double is not beside the test program";
        ASSERT_TRUE(dlg_.HasEntries());
        dlg_.Reset();
        Disarm();
    }
    void TearDown() override {
        Disarm();
        CloseProgress();
    }
    dialogdouble::Double dlg_;
};

// ---- Brightness and contrast ------------------------------------------------

TEST_F(ToneDialogs, ContrastDialogSeesTheValuesAndItsAnswerIsUsed) {
    HGLOBAL image = paxtest::MakeRandomDib24(5, 4, 1);
    std::vector<BYTE> plain = Consume(ColorBrightnessContrast(image, 100, 0, 0));
    EXPECT_EQ(dlg_.CallCount(), 0);
    dlg_.SetValue(DD_CONTRAST, 0, 100);
    dlg_.SetValue(DD_CONTRAST, 1, 0);
    GetThreadState()->convertError = 0;
    EXPECT_TRUE(Consume(ColorBrightnessContrast(image, -20, 33, -7)) == plain); // any nonzero flag
    ASSERT_EQ(dlg_.CallCount(), 1);
    DialogDoubleCall call = dlg_.Call(0);
    EXPECT_EQ(call.entry, DD_CONTRAST);
    EXPECT_EQ(call.image, image);
    ASSERT_EQ(call.argumentCount, 2);
    EXPECT_EQ(call.arguments[0].kind, DD_PTR_INT16);
    EXPECT_EQ(call.arguments[0].before, -20);
    EXPECT_EQ(call.arguments[1].before, 33);
    EXPECT_EQ(GetThreadState()->convertError, 0u);
    GlobalFree(image);
}

// Values out of range from the dialog, Cancel, and no dialog for a refused image.
TEST_F(ToneDialogs, ContrastDialogValuesOutOfRangeAndCancel) {
    HGLOBAL image = paxtest::MakeRandomDib24(5, 4, 2);
    for (int answer : {101, -101, 0}) {
        dlg_.Reset();
        if (answer) dlg_.SetValue(DD_CONTRAST, 1, answer);
        else dlg_.SetResult(DD_CONTRAST, 0);
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        EXPECT_EQ(ColorBrightnessContrast(image, 10, 10, 1), nullptr);
        EXPECT_EQ(ImsName(GetThreadState()->imageStatus), ImsName(answer ? IMS_BADPARAM : IMS_OK)) << answer;
        EXPECT_EQ(paxtest::LockCount(image), 0);
        paxtest::ExpectCensus(before, 0, "refused or cancelled");
    }
    HGLOBAL mono = paxtest::MakeDib(4, 4, 1, [](int, int, int) { return BYTE{1}; });
    int calls = dlg_.CallCount();
    EXPECT_EQ(ColorBrightnessContrast(mono, 10, 10, 1), nullptr);
    EXPECT_EQ(dlg_.CallCount(), calls);
    GlobalFree(mono);
    GlobalFree(image);
}

// ---- Gamma --------------------------------------------------------------------

TEST_F(ToneDialogs, GammaDialogOnlyInModesTwoAndThree) {
    HGLOBAL image = paxtest::MakeRandomDib24(12, 3, 3);
    std::vector<BYTE> expected = Consume(GammaCorrection(image, 50, 200, 400, 0, nullptr));
    for (int mode : {0, 1, 2, 3, 4, -1}) {
        SCOPED_TRACE(mode);
        dlg_.Reset();
        dlg_.SetValue(DD_GAMMA, 0, 50);
        dlg_.SetValue(DD_GAMMA, 1, 200);
        dlg_.SetValue(DD_GAMMA, 2, 400);
        bool asked = mode == 2 || mode == 3;
        EXPECT_TRUE(Consume(GammaCorrection(image, asked ? 100 : 50, asked ? 100 : 200, asked ? 100 : 400,
                                            mode, nullptr)) == expected);
        ASSERT_EQ(dlg_.CallCount(), asked ? 1 : 0);
        if (asked) {
            DialogDoubleCall call = dlg_.Call(0);
            EXPECT_EQ(call.entry, DD_GAMMA);
            ASSERT_EQ(call.argumentCount, 3);
            EXPECT_EQ(call.arguments[2].kind, DD_PTR_INT32);
            EXPECT_EQ(call.arguments[0].before, 100);
        }
    }
    GlobalFree(image);
}

// Values outside the range from the dialog (an error), and Cancel (none).
TEST_F(ToneDialogs, GammaDialogValuesOutsideTheRangeAndCancel) {
    HGLOBAL image = paxtest::MakeRandomDib24(4, 4, 4);
    for (int answer : {0, -5, 9, 501, 100}) {
        dlg_.Reset();
        if (answer != 100) dlg_.SetValue(DD_GAMMA, 1, answer);
        else dlg_.SetResult(DD_GAMMA, 0);
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        EXPECT_EQ(GammaCorrection(image, 100, 100, 100, answer == 100 ? 3 : 2, nullptr), nullptr);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(answer != 100 ? CCE_BADARGUMENT : CCE_NONE))
            << answer;
        paxtest::ExpectCensus(before, 0, "gamma refused or cancelled");
    }
    GlobalFree(image);
}

TEST_F(ToneDialogs, GammaProgressCountsColumns) {
    if (!HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
    HGLOBAL image = paxtest::MakeRandomDib24(23, 4, 5);
    std::vector<BYTE> plain = Consume(GammaCorrection(image, 70, 80, 90, 0, nullptr));
    for (int mode : {1, 3}) {
        EXPECT_TRUE(Consume(GammaCorrection(image, 70, 80, 90, mode, nullptr)) == plain);
        EXPECT_EQ(GetThreadState()->progressDialog, nullptr);
#ifndef _WIN32
        win32lite::DialogRecord d = win32lite::LastDialog();
        EXPECT_EQ(d.rangeMax, 25 / 5 + 1);
        EXPECT_EQ(d.stepsTaken, 5); // columns 0, 5, 10, 15, 20
        EXPECT_TRUE(d.destroyed);
#endif
    }
    GlobalFree(image);
}

TEST_F(ToneDialogs, GammaCancelLeavesNothingBehind) {
    if (!HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
    const int w = kScripted ? 40 : 6000, h = kScripted ? 3 : 1500;
    HGLOBAL image = paxtest::MakeRandomDib24(w, h, 6);
    std::vector<BYTE> src = BlockBytes(image);
    paxtest::Snapshot before = paxtest::TakeSnapshot();
    ArrangeCancel(2);
    EXPECT_EQ(GammaCorrection(image, 30, 300, 60, 1, nullptr), nullptr);
    Disarm();
    EXPECT_EQ(GetThreadState()->cancelled, 1u);
    EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(CCE_NONE));
    EXPECT_EQ(paxtest::LockCount(image), 0);
    EXPECT_TRUE(BlockBytes(image) == src);
    paxtest::ExpectCensus(before, 0, "gamma cancelled");
#ifndef _WIN32
    EXPECT_EQ(win32lite::LastDialog().stepsTaken, 2);
    ArrangeCreationFailure();
    EXPECT_EQ(GammaCorrection(image, 30, 300, 60, 3, nullptr), nullptr);
    Disarm();
    EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(CCE_NONE));
    paxtest::ExpectCensus(before, 0, "gamma without its dialog");
#endif
    GlobalFree(image);
}

// ---- Convolution ------------------------------------------------------------

TEST_F(ToneDialogs, ConvolutionDialogReceivesTheArgumentsAndOnlyConfirms) {
    HGLOBAL image = paxtest::MakeRandomDib24(8, 6, 7);
    std::vector<short> k = {1, 0, -1, 2, 0, -2, 1, 0, -1, 0};
    int code = 0;
    std::vector<BYTE> plain =
        Consume(ColorConvolution(image, 1, 1, CONV_KERNEL, 3, "unused.flt", k.data(), &code, 0, nullptr));
    ASSERT_FALSE(plain.empty());
    for (int mode : {0, 1, 2, 3, 5}) {
        SCOPED_TRACE(mode);
        dlg_.Reset();
        bool asked = mode == 2 || mode == 3;
        code = 77;
        EXPECT_TRUE(Consume(ColorConvolution(image, 1, 1, CONV_KERNEL, 3, "unused.flt", k.data(), &code, mode,
                                             nullptr)) == plain);
        EXPECT_EQ(code, IMS_OK);
        ASSERT_EQ(dlg_.CallCount(), asked ? 1 : 0);
        if (!asked) continue;
        DialogDoubleCall call = dlg_.Call(0);
        EXPECT_EQ(call.entry, DD_CONVOLUTION);
        EXPECT_EQ(call.image, image);
        ASSERT_EQ(call.argumentCount, 7);
        EXPECT_EQ(call.arguments[0].value, 1);
        EXPECT_EQ(call.arguments[1].value, 1);
        EXPECT_EQ(call.arguments[2].kind, DD_INT16);
        EXPECT_EQ(call.arguments[2].value, CONV_KERNEL);
        EXPECT_EQ(call.arguments[3].value, 3);
        EXPECT_STREQ(call.arguments[4].text, "unused.flt");
        ASSERT_EQ(call.arguments[5].listCount, 10);
        EXPECT_EQ(call.arguments[5].list[3], 2);
        EXPECT_EQ(call.arguments[6].pointer, &code);
        EXPECT_EQ(call.arguments[6].before, 0); // cleared on entry
    }
    GlobalFree(image);
}

TEST_F(ToneDialogs, ConvolutionDialogCancelReleasesEverything) {
    HGLOBAL image = paxtest::MakeRandomDib24(8, 6, 8);
    std::vector<BYTE> src = BlockBytes(image);
    dlg_.SetResult(DD_CONVOLUTION, 0);
    for (int newImage : {1, 0}) {
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        int code = 55;
        EXPECT_EQ(ColorConvolution(image, newImage, 0, CONV_MEAN, 5, nullptr, nullptr, &code, 2, nullptr),
                  nullptr);
        EXPECT_EQ(code, 0);
        EXPECT_TRUE(BlockBytes(image) == src);
        EXPECT_EQ(paxtest::LockCount(image), 0);
        paxtest::ExpectCensus(before, 0, "convolution dialog cancelled");
    }
    GlobalFree(image);
}

TEST_F(ToneDialogs, ConvolutionProgressCountsRows) {
    if (!HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
    HGLOBAL image = paxtest::MakeRandomDib24(19, 23, 9);
    int code = 0;
    for (short n : {3, 7}) {
        std::vector<BYTE> plain =
            Consume(ColorConvolution(image, 1, 0, CONV_MEAN, n, nullptr, nullptr, &code, 0, nullptr));
        for (int mode : {1, 3}) {
            EXPECT_TRUE(Consume(ColorConvolution(image, 1, 0, CONV_MEAN, n, nullptr, nullptr, &code, mode,
                                                 nullptr)) == plain);
            EXPECT_EQ(GetThreadState()->progressDialog, nullptr);
#ifndef _WIN32
            win32lite::DialogRecord d = win32lite::LastDialog();
            EXPECT_EQ(d.rangeMax, (23 - n + 4) / 5 + 1);
            // Steps at the multiples of 5 in -h .. 23 + h - 1.
            int h = n / 2, steps = 0;
            for (int y = -h; y <= 23 + h - 1; ++y) steps += y % 5 == 0;
            EXPECT_EQ(d.stepsTaken, steps);
#endif
        }
    }
    GlobalFree(image);
}

// Cancel in place keeps the rows written before it: a run of filtered rows
// from the first stored row, then the rest as they were.
TEST_F(ToneDialogs, ConvolutionCancelInPlaceKeepsTheRowsAlreadyWritten) {
    if (!HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
    const int w = kScripted ? 21 : 3000, h = kScripted ? 40 : 1500, n = 7;
    HGLOBAL image = paxtest::MakeRandomDib24(w, h, 10);
    std::vector<int> list(static_cast<size_t>(n * n + 1), 0);
    for (int i = 0; i < n * n; ++i) list[i] = (i * 5) % 7 - 3;
    list[n * n / 2] = 60;
    std::vector<short> k = AsShorts(list);
    std::vector<BYTE> src = BlockBytes(image);
    std::vector<BYTE> filtered = ReferenceConvolution(src, 1, n, list);

    paxtest::Snapshot before = paxtest::TakeSnapshot();
    int code = 0;
    ArrangeCancel(3);
    EXPECT_EQ(ColorConvolution(image, 0, 1, CONV_KERNEL, n, nullptr, k.data(), &code, 1, nullptr), nullptr);
    Disarm();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(GetThreadState()->cancelled, 1u);
    EXPECT_EQ(paxtest::LockCount(image), 0);
    paxtest::ExpectCensus(before, 0, "convolution cancelled in place");

    std::vector<BYTE> now = BlockBytes(image);
    const int64_t stride = Stride24(w);
    int written = 0;
    while (written < h &&
           std::equal(now.begin() + 40 + written * stride, now.begin() + 40 + (written + 1) * stride,
                      filtered.begin() + 40 + written * stride))
        ++written;
    for (int r = written; r < h; ++r)
        ASSERT_TRUE(std::equal(now.begin() + 40 + r * stride, now.begin() + 40 + (r + 1) * stride,
                               src.begin() + 40 + r * stride))
            << "row " << r << " after " << written << " written rows";
    EXPECT_LT(written, h);
    RecordProperty("rowsWrittenBeforeCancel", written);
    if (kScripted) {
        EXPECT_EQ(written, 5 * 3 - n / 2); // Cancel arrives with the step at y = 15
    }
    GlobalFree(image);
}

TEST_F(ToneDialogs, ConvolutionCancelIntoANewImageFreesIt) {
    if (!HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
    const int w = kScripted ? 21 : 3000, h = kScripted ? 40 : 1500;
    HGLOBAL image = paxtest::MakeRandomDib24(w, h, 11);
    std::vector<BYTE> src = BlockBytes(image);
    std::vector<short> k(50, 1);
    k[49] = 0;
    paxtest::Snapshot before = paxtest::TakeSnapshot();
    int code = 0;
    ArrangeCancel(1);
    EXPECT_EQ(ColorConvolution(image, 1, 0, CONV_KERNEL, 7, nullptr, k.data(), &code, 3, nullptr), nullptr);
    Disarm();
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(BlockBytes(image) == src);
    paxtest::ExpectCensus(before, 0, "convolution cancelled");
#ifndef _WIN32
    for (int newImage : {1, 0}) {
        ArrangeCreationFailure();
        EXPECT_EQ(ColorConvolution(image, newImage, 0, CONV_MEAN, 3, nullptr, nullptr, &code, 1, nullptr),
                  nullptr);
        Disarm();
        EXPECT_EQ(code, 0);
        EXPECT_TRUE(BlockBytes(image) == src);
        paxtest::ExpectCensus(before, 0, "convolution without its dialog");
    }
#endif
    GlobalFree(image);
}

} // namespace
