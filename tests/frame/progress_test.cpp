// The progress dialog itself: range, steps, owner handling and Cancel, on the
// real dialog of the resource under Windows and the stand-in's on Linux
// (tests/support/dialogs.h). How each export drives it, and a dialog that
// cannot be created: exports_test.cpp.
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
    // The walk every caller makes: cancel test, then a step when one is due.
    int64_t Walk(int64_t units) {
        int64_t i = 0;
        for (; i < units && !state_->cancelled; ++i)
            if (ProgressDue(state_, true, i)) StepProgress();
        return i;
    }
    ThreadState *state_ = nullptr;
    HWND owner_ = nullptr;
};

TEST_F(ProgressDialog, RangeAndStepsFollowTotalAndDivisor) {
    StepWatch watch;
    ASSERT_EQ(OpenProgress(owner_, 3001, 1500), 1);
    ASSERT_NE(state_->progressDialog, nullptr);
    EXPECT_EQ(watch.RangeMax(), 3); // (3001 / 1500) + 1
    EXPECT_FALSE(IsWindowEnabled(owner_));
    EXPECT_EQ(state_->ownerDisabled, 1u);
    EXPECT_EQ(Walk(3000), 3000);
    EXPECT_EQ(watch.Steps(), 2); // at units 0 and 1500
    EXPECT_EQ(CloseProgress(), 1);
    EXPECT_EQ(state_->progressDialog, nullptr);
    EXPECT_TRUE(IsWindowEnabled(owner_));
    EXPECT_EQ(CloseProgress(), 0);
}

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

// Cancel arrives in the pump of the next step: the dialog goes at once, the
// owner is enabled, and the unit of that step is the last one run.
TEST_F(ProgressDialog, CancelDestroysTheDialogAtOnceAndStopsBeforeTheNextUnit) {
    StepWatch watch(1);
    ASSERT_EQ(OpenProgress(owner_, 1500 * 20, 1500), 1);
    EXPECT_EQ(Walk(1500 * 20), 1501);
    EXPECT_EQ(state_->cancelled, 1u);
    EXPECT_EQ(state_->progressDialog, nullptr);
    EXPECT_TRUE(IsWindowEnabled(owner_));
    EXPECT_EQ(CloseProgress(), 0);
}

} // namespace
