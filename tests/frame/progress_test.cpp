// The progress dialog: range, steps, owner handling and Cancel.
//
// On Windows (under Wine with a display) these run against the real dialog of
// the resource; Cancel is clicked by a timer on the same thread, delivered by
// the library's own message pump. On Linux the stand-in's scripted dialog
// clicks Cancel after a given step.
#include "progress.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <commctrl.h>
#include <cstdlib>
#else
#include "win32lite_test.h"
#endif

namespace {

#ifdef _WIN32
HWND MakeOwner() {
    return CreateWindowExA(0, "STATIC", "owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 400,
                           300, nullptr, nullptr, GetModuleHandleA(nullptr), nullptr);
}
void DestroyOwner(HWND owner) { DestroyWindow(owner); }
bool HaveDisplay() {
    const char *display = std::getenv("DISPLAY");
    return display && *display;
}
void CALLBACK ClickCancel(HWND, UINT, UINT_PTR id, DWORD) {
    KillTimer(nullptr, id);
    HWND dialog = GetThreadState()->progressDialog;
    if (dialog) SendMessageA(GetDlgItem(dialog, IDCANCEL), BM_CLICK, 0, 0);
}
void ArrangeCancel() { SetTimer(nullptr, 0, 30, ClickCancel); }
void ArrangeCreationFailure() {}
void ResetScript() {}
void PaceStep() { Sleep(2); }
#else
HWND MakeOwner() { return win32lite::CreateTestWindow(); }
void DestroyOwner(HWND owner) { DestroyWindow(owner); }
bool HaveDisplay() { return true; }
void ArrangeCancel() { win32lite::ScriptDialogs({false, 1}); }
void ArrangeCreationFailure() { win32lite::ScriptDialogs({true, 0}); }
void ResetScript() { win32lite::ScriptDialogs({}); }
void PaceStep() {}
#endif

class ProgressDialog : public testing::Test {
protected:
    void SetUp() override {
        if (!HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
        ResetScript();
        state_ = GetThreadState();
        state_->cancelled = 0;
    }
    void TearDown() override {
        CloseProgress();
        ResetScript();
    }

    // The walk every caller makes: cancel test, then a step when one is due.
    int64_t Walk(int64_t units) {
        int64_t i = 0;
        for (; i < units; ++i) {
            if (state_->cancelled) break;
            if (ProgressDue(state_, true, i)) {
                StepProgress();
                PaceStep();
            }
        }
        return i;
    }

    HWND Bar() const { return GetDlgItem(state_->progressDialog, kProgressBarId); }

    ThreadState *state_ = nullptr;
};

TEST_F(ProgressDialog, RangeAndStepsFollowTotalAndDivisor) {
    HWND owner = MakeOwner();
    ASSERT_EQ(OpenProgress(owner, 3001, 1500), 1);
    ASSERT_NE(state_->progressDialog, nullptr);
    EXPECT_EQ(SendMessageA(Bar(), PBM_GETRANGE, FALSE, 0), 3); // (3001 / 1500) + 1
    EXPECT_EQ(SendMessageA(Bar(), PBM_GETRANGE, TRUE, 0), 0);
    EXPECT_FALSE(IsWindowEnabled(owner));
    EXPECT_EQ(Walk(3000), 3000);
    EXPECT_EQ(SendMessageA(Bar(), PBM_GETPOS, 0, 0), 2); // steps at units 0 and 1500
    EXPECT_EQ(CloseProgress(), 1);
    EXPECT_EQ(state_->progressDialog, nullptr);
    EXPECT_TRUE(IsWindowEnabled(owner));
    EXPECT_EQ(CloseProgress(), 0);
    DestroyOwner(owner);
}

TEST_F(ProgressDialog, NullOwnerDisablesNothing) {
    ASSERT_EQ(OpenProgress(nullptr, 100, 5), 1);
    EXPECT_EQ(state_->ownerDisabled, 0u);
    EXPECT_EQ(state_->ownerWindow, nullptr);
    EXPECT_EQ(CloseProgress(), 1);
}

TEST_F(ProgressDialog, OwnerAlreadyDisabledStaysDisabled) {
    HWND owner = MakeOwner();
    EnableWindow(owner, FALSE);
    ASSERT_EQ(OpenProgress(owner, 100, 5), 1);
    EXPECT_EQ(state_->ownerDisabled, 0u);
    EXPECT_EQ(CloseProgress(), 1);
    EXPECT_FALSE(IsWindowEnabled(owner));
    DestroyOwner(owner);
}

TEST_F(ProgressDialog, CancelDestroysTheDialogAtOnceAndStopsBeforeTheNextUnit) {
    HWND owner = MakeOwner();
    ArrangeCancel();
    ASSERT_EQ(OpenProgress(owner, 1500 * 2000, 1500), 1);
    int64_t stopped = Walk(1500 * 2000);
    EXPECT_LT(stopped, 1500 * 2000);
    // Cancel arrives in the pump of a step; the unit of that step still runs.
    EXPECT_EQ((stopped - 1) % 1500, 0) << stopped;
    EXPECT_EQ(state_->cancelled, 1u);
    EXPECT_EQ(state_->progressDialog, nullptr);
    EXPECT_TRUE(IsWindowEnabled(owner));
    EXPECT_EQ(CloseProgress(), 0);
#ifndef _WIN32
    EXPECT_EQ(stopped, 1501);
    EXPECT_TRUE(win32lite::LastDialog().destroyed);
#endif
    DestroyOwner(owner);
}

TEST_F(ProgressDialog, OpeningClearsAnEarlierCancel) {
    state_->cancelled = 1;
    ASSERT_EQ(OpenProgress(nullptr, 10, 5), 1);
    EXPECT_EQ(state_->cancelled, 0u);
}

TEST_F(ProgressDialog, ASecondDialogOnTheSameThreadIsRefused) {
    ASSERT_EQ(OpenProgress(nullptr, 10, 5), 1);
    HWND first = state_->progressDialog;
    EXPECT_EQ(OpenProgress(nullptr, 10, 5), 0);
    EXPECT_EQ(state_->progressDialog, first);
}

TEST(ProgressDialogFailure, CreationFailureLeavesOwnerEnabled) {
#ifdef _WIN32
    if (HaveDisplay()) GTEST_SKIP() << "creation fails only without a display";
#endif
    ArrangeCreationFailure();
    HWND owner = MakeOwner();
    ThreadState *state = GetThreadState();
    EXPECT_EQ(OpenProgress(owner, 3001, 1500), 0);
    EXPECT_EQ(state->progressDialog, nullptr);
    EXPECT_EQ(state->ownerDisabled, 0u);
    if (owner) {
        EXPECT_TRUE(IsWindowEnabled(owner));
        DestroyOwner(owner);
    }
    ResetScript();
}

} // namespace
