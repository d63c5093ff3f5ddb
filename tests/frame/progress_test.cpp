// The progress dialog itself: range, steps, owner handling and Cancel, on the
// real dialog of the resource under Windows and the stand-in's on Linux
// (tests/support/dialogs.h). How each export drives it (steps over its units,
// the Cancel index) and a dialog that cannot be created: exports_test.cpp.
#include "dialogs.h"
#include "progress.h"
#include "thread_state.h"

#include <gtest/gtest.h>

namespace {

using paxtest::StepWatch;

class ProgressDialog : public testing::Test {
protected:
    void SetUp() override {
        if (!paxtest::HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
        state_ = GetThreadState();
        state_->cancelled = 0;
        owner_ = paxtest::MakeOwner();
    }
    void TearDown() override {
        CloseProgress();
        DestroyWindow(owner_);
    }
    ThreadState *state_ = nullptr;
    HWND owner_ = nullptr;
};

// Opening clears a Cancel and leaves a null or already disabled owner as it
// is; a second dialog on the thread is refused.
TEST_F(ProgressDialog, OpeningClearsACancelAndKeepsAnOwnerItDidNotDisable) {
    state_->cancelled = 1;
    ASSERT_EQ(OpenProgress(nullptr, 100, 5), 1);
    EXPECT_EQ(state_->cancelled, 0u);
    EXPECT_EQ(state_->ownerDisabled, 0u);
    EXPECT_EQ(state_->ownerWindow, nullptr);
    HWND first = state_->progressDialog;
    EXPECT_EQ(OpenProgress(nullptr, 10, 5), 0);
    EXPECT_EQ(state_->progressDialog, first);
    EXPECT_EQ(CloseProgress(), 1);
    EnableWindow(owner_, FALSE);
    ASSERT_EQ(OpenProgress(owner_, 100, 5), 1);
    EXPECT_EQ(state_->ownerDisabled, 0u);
    EXPECT_EQ(CloseProgress(), 1);
    EXPECT_FALSE(IsWindowEnabled(owner_));
}

// The bar's range is total / divisor + 1, and the owner is disabled while the
// dialog shows. Cancel arrives in the pump of the next step: the dialog goes
// at once, the owner is enabled, and the unit of that step is the last one
// the walk (cancel test, then a step when one is due) runs.
TEST_F(ProgressDialog, CancelDestroysTheDialogAtOnceAndStopsBeforeTheNextUnit) {
    StepWatch watch(1);
    ASSERT_EQ(OpenProgress(owner_, 1500 * 20, 1500), 1);
    EXPECT_EQ(watch.RangeMax(), 21);
    EXPECT_FALSE(IsWindowEnabled(owner_));
    EXPECT_EQ(state_->ownerDisabled, 1u);
    int64_t i = 0;
    for (; i < 1500 * 20 && !state_->cancelled; ++i)
        if (ProgressDue(state_, true, i)) StepProgress();
    EXPECT_EQ(i, 1501);
    EXPECT_EQ(state_->cancelled, 1u);
    EXPECT_EQ(state_->progressDialog, nullptr);
    EXPECT_TRUE(IsWindowEnabled(owner_));
    EXPECT_EQ(CloseProgress(), 0);
}

} // namespace
