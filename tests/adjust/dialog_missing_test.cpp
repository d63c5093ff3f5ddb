// Built twice: beside a dialog library that has none of the entries
// (PAX_DIALOG_LIBRARY_PRESENT 1), and in a folder with no dialog library at
// all (0). Either way an entry is missing: CCE_NODIALOGENTRY is stored and
// the operation goes on with its own values.
#include "param_dialog.h"
#include "thread_state.h"

#include "dialog_double_control.h"
#include "dib_builder.h"

#include <gtest/gtest.h>

namespace {

bool DialogLibraryIsLoaded() { return GetModuleHandleA("PAXDlgs.dll") != nullptr; }

TEST(MissingDialog, TheFolderHoldsWhatThisBuildExpects) {
    dialogdouble::Double dlg;
#if PAX_DIALOG_LIBRARY_PRESENT
    ASSERT_TRUE(dlg.loaded());
    EXPECT_FALSE(dlg.HasEntries());
    for (int e = 0; e < DD_ENTRY_COUNT; ++e)
        EXPECT_EQ(GetProcAddress(dlg.module(), dlg.EntryName(e)), nullptr);
#else
    EXPECT_FALSE(dlg.loaded());
#endif
}

TEST(MissingDialog, LoaderStoresTheCodeAndReleasesTheLibrary) {
    HDIB image = paxtest::MakeRandomDib24(2, 2, 3);
    const char *entries[] = {"CONTRASTUI",   "GammaCorrectionUI", "ColorConvUI",
                             "ColorHueSaturationUI", "DesaturateUI", "ReplaceColorUI",
                             "ColorCMYKLevelsUI"};
    for (const char *entry : entries) {
        GetThreadState()->convertError = 0;
        int value = 5;
        EXPECT_EQ(RunParamDialog(entry, image, &value), DialogOutcome::Missing) << entry;
        EXPECT_EQ(GetThreadState()->convertError, static_cast<DWORD>(CCE_NODIALOGENTRY));
        EXPECT_EQ(value, 5);
        EXPECT_FALSE(DialogLibraryIsLoaded()) << entry;
    }
    GlobalFree(image);
}

} // namespace

#include "hue_test_util.h"

namespace {

// Every hue-based adjustment goes on with its own values and leaves
// CCE_NODIALOGENTRY after its successful run; without a parameter dialog the
// code is 0.
TEST(MissingDialog, AdjustmentsGoOnAndKeepTheCode) {
    HDIB image = huetest::Random(11, 4, 17);
    for (const huetest::Operation &op : huetest::Operations()) {
        for (int mode : {0, 1, 2, 3}) {
            SCOPED_TRACE(testing::Message() << op.name << " mode " << mode);
            paxtest::Snapshot before = paxtest::TakeSnapshot();
            HDIB out = op.run(image, mode, nullptr);
            huetest::ExpectImage(image, out, op.expect);
            DWORD want = mode >= 2 ? CCE_NODIALOGENTRY : CCE_NONE;
            EXPECT_EQ(paxtest::CceName(GetLastColorConvertError()), paxtest::CceName(want));
            EXPECT_FALSE(DialogLibraryIsLoaded());
            GlobalFree(out);
            paxtest::ExpectCensus(before, 0, "after the run");
        }
    }
    GlobalFree(image);
}

} // namespace
