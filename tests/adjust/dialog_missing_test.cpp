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
