// The parameter-dialog loader against the dialog double beside the program:
// where the library is found, how arguments reach an entry and come back,
// and that the library is released after every call.
#include "param_dialog.h"
#include "thread_state.h"

#include "dialog_double_control.h"
#include "dib_builder.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using dialogdouble::Double;

bool DoubleIsLoaded() { return GetModuleHandleA("PAXDlgs.dll") != nullptr; }

class ParamDialog : public testing::Test {
protected:
    void SetUp() override {
        GetThreadState()->convertError = 0;
        image_ = paxtest::MakeRandomDib24(3, 2, 7);
    }
    void TearDown() override { GlobalFree(image_); }
    HDIB image_ = nullptr;
};

// The double is found beside the program only, and every outcome releases
// it: the test's own reference keeps the double's records, and dropping it
// unloads the double only if the loader released its own reference.
TEST_F(ParamDialog, FoundBesideTheProgramAndReleasedAfterEveryOutcome) {
    ASSERT_FALSE(DoubleIsLoaded());
#ifndef _WIN32
    HMODULE bare = LoadLibraryA("PAXDlgs.dll");
    EXPECT_EQ(bare, nullptr) << "not on the loader's search path";
    if (bare) FreeLibrary(bare);
#endif
    EXPECT_EQ(RunParamDialog("DesaturateUI", image_), DialogOutcome::Confirmed) << "nothing loaded";
    EXPECT_EQ(GetThreadState()->convertError, 0u);
    EXPECT_FALSE(DoubleIsLoaded());
    for (int result : {1, 0, -1}) {
        {
            Double dlg;
            ASSERT_TRUE(dlg.loaded()) << dialogdouble::ExecutableFolder();
            ASSERT_TRUE(dlg.HasEntries());
            for (int e = 0; e < DD_ENTRY_COUNT; ++e)
                EXPECT_NE(GetProcAddress(dlg.module(), dlg.EntryName(e)), nullptr) << dlg.EntryName(e);
            GetThreadState()->convertError = 0;
            if (result >= 0) dlg.SetResult(DD_DESATURATE, result);
            DialogOutcome outcome = RunParamDialog(result >= 0 ? "DesaturateUI" : "NoSuchUI", image_);
            EXPECT_EQ(outcome, result > 0    ? DialogOutcome::Confirmed
                               : result == 0 ? DialogOutcome::Cancelled
                                             : DialogOutcome::Missing);
            EXPECT_EQ(GetThreadState()->convertError,
                      static_cast<DWORD>(result < 0 ? CCE_NODIALOGENTRY : 0));
            ASSERT_EQ(dlg.CallCount(), result < 0 ? 0 : 1);
            if (result >= 0) {
                EXPECT_EQ(dlg.Call(0).entry, DD_DESATURATE);
                EXPECT_EQ(dlg.Call(0).image, image_);
                EXPECT_EQ(dlg.Call(0).argumentCount, 0);
            }
        }
        EXPECT_FALSE(DoubleIsLoaded()) << "result " << result;
    }
}

TEST_F(ParamDialog, ByValueAndPointerArgumentsArriveInOrder) {
    Double dlg;
    ASSERT_TRUE(dlg.loaded());
    short coefficients[10] = {1, -2, 3, -4, 5, -6, 7, -8, 9, 11};
    int errorCode = 42;
    dlg.SetValue(DD_CONVOLUTION, 6, -5); // the error variable
    const char *file = "kernel.flt";
    EXPECT_EQ(RunParamDialog("ColorConvUI", image_, 1, -7, static_cast<short>(-300),
                             static_cast<short>(3), file, static_cast<const short *>(coefficients),
                             &errorCode),
              DialogOutcome::Confirmed);
    ASSERT_EQ(dlg.CallCount(), 1);
    DialogDoubleCall c = dlg.Call(0);
    EXPECT_EQ(c.entry, DD_CONVOLUTION);
    EXPECT_EQ(c.image, image_);
    ASSERT_EQ(c.argumentCount, 7);
    const int byValue[4] = {1, -7, -300, 3};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(c.arguments[i].value, byValue[i]) << i;
    EXPECT_EQ(c.arguments[4].pointer, file);
    EXPECT_STREQ(c.arguments[4].text, "kernel.flt");
    EXPECT_EQ(c.arguments[5].pointer, coefficients);
    ASSERT_EQ(c.arguments[5].listCount, 10);
    EXPECT_EQ(std::memcmp(c.arguments[5].list, coefficients, sizeof coefficients), 0);
    EXPECT_EQ(c.arguments[6].pointer, &errorCode);
    EXPECT_EQ(c.arguments[6].before, 42);
    EXPECT_EQ(c.arguments[6].after, -5);
    EXPECT_EQ(errorCode, -5);
}

TEST_F(ParamDialog, ValuesWrittenByTheEntryComeBack) {
    Double dlg;
    ASSERT_TRUE(dlg.loaded());
    short brightness = 10, contrast = -20;
    dlg.SetValue(DD_CONTRAST, 1, -32768);
    EXPECT_EQ(RunParamDialog("CONTRASTUI", image_, &brightness, &contrast),
              DialogOutcome::Confirmed);
    EXPECT_EQ(brightness, 10);
    EXPECT_EQ(contrast, -32768);

    double inks[4] = {1.0, 0.5, 2.0, 0.25};
    dlg.SetValue(DD_CMYK_LEVELS, 2, 1.75);
    dlg.SetResult(DD_CMYK_LEVELS, 0);
    EXPECT_EQ(RunParamDialog("ColorCMYKLevelsUI", image_, &inks[0], &inks[1], &inks[2], &inks[3]),
              DialogOutcome::Cancelled);
    EXPECT_EQ(inks[2], 1.75);

    BYTE target[3] = {1, 2, 3}, tolerance[3] = {4, 5, 6};
    const BYTE newTarget[3] = {9, 8, 7};
    int hue = 1, sat = 2, light = 3;
    dlg.SetBytes(DD_REPLACE_COLOR, 3, newTarget);
    EXPECT_EQ(RunParamDialog("ReplaceColorUI", image_, &hue, &sat, &light, target, tolerance),
              DialogOutcome::Confirmed);
    EXPECT_EQ(std::memcmp(target, newTarget, 3), 0);
    EXPECT_EQ(tolerance[0], 4);

    ASSERT_EQ(dlg.CallCount(), 3);
    DialogDoubleCall r = dlg.Call(2);
    EXPECT_EQ(r.arguments[3].bytesBefore[0], 1);
    EXPECT_EQ(r.arguments[3].bytesAfter[0], 9);
    EXPECT_EQ(r.arguments[4].pointer, tolerance);
    EXPECT_EQ(dlg.Call(1).returned, 0);
    EXPECT_EQ(dlg.Call(1).arguments[2].before, 2.0);
}

} // namespace
