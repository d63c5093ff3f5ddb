// The modes of the hue-based adjustments with the dialog double and the
// progress dialog: which dialogs run and in what order, what the parameter
// dialog receives, that values it edits are used unchecked, and cancel in
// either dialog.
//
// On Windows (under Wine with a display) the progress dialog is the real one
// and Cancel is clicked by a timer, delivered by the operation's own message
// pump. On Linux the stand-in's scripted dialog clicks Cancel.
#include "hue_test_util.h"

#include "dialog_double_control.h"

#include <cstdlib>
#include <cstring>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using namespace huetest;
using dialogdouble::Double;

// ---- Platform pieces --------------------------------------------------------

// What an owner window sees of a message posted to it before the operation:
// it is dispatched by the operation's first progress step, while the dialog
// is open and the owner disabled.
struct Probe {
    bool delivered = false;
    bool dialogOpen = false;
    bool ownerEnabled = true;
};
Probe g_probe;
constexpr UINT kProbeMessage = WM_USER + 77;

LRESULT CALLBACK ProbeProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kProbeMessage) {
        g_probe.delivered = true;
        g_probe.dialogOpen = GetThreadState()->progressDialog != nullptr;
        g_probe.ownerEnabled = IsWindowEnabled(window) != 0;
        return 0;
    }
#ifdef _WIN32
    return DefWindowProcA(window, message, wParam, lParam);
#else
    (void)wParam;
    (void)lParam;
    return 0;
#endif
}

#ifdef _WIN32
bool HaveDisplay() {
    const char *display = std::getenv("DISPLAY");
    return display && *display;
}
HWND MakeOwner() {
    static bool registered = false;
    if (!registered) {
        WNDCLASSA wc{};
        wc.lpfnWndProc = ProbeProc;
        wc.hInstance = GetModuleHandleA(nullptr);
        wc.lpszClassName = "PaxHueProbeOwner";
        RegisterClassA(&wc);
        registered = true;
    }
    return CreateWindowExA(0, "PaxHueProbeOwner", "owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10,
                           10, 300, 200, nullptr, nullptr, GetModuleHandleA(nullptr), nullptr);
}
void CALLBACK ClickCancel(HWND, UINT, UINT_PTR id, DWORD) {
    HWND dialog = GetThreadState()->progressDialog;
    if (!dialog) return; // not open yet: try again at the next tick
    KillTimer(nullptr, id);
    SendMessageA(GetDlgItem(dialog, IDCANCEL), BM_CLICK, 0, 0);
}
UINT_PTR g_cancelTimer = 0;
// The timer is due before the operation starts, so the first pump of the
// walk delivers it and Cancel is clicked at the first progress step.
void ArrangeProgressCancel() {
    g_cancelTimer = SetTimer(nullptr, 0, 10, ClickCancel);
    Sleep(40);
}
void ResetProgressScript() {
    if (g_cancelTimer) KillTimer(nullptr, g_cancelTimer);
    g_cancelTimer = 0;
    MSG msg;
    while (PeekMessageA(&msg, nullptr, WM_TIMER, WM_TIMER, PM_REMOVE)) {
    }
}
#else
bool HaveDisplay() { return true; }
HWND MakeOwner() { return win32lite::CreateTestWindow(ProbeProc); }
void ArrangeProgressCancel() { win32lite::ScriptDialogs({false, 1}); }
void ResetProgressScript() { win32lite::ScriptDialogs({}); }
#endif

// ---- Fixture ------------------------------------------------------------

class HueModes : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        if (!HaveDisplay()) GTEST_SKIP() << "no display for the progress dialog";
        ASSERT_TRUE(dlg_.loaded()) << "dialog double beside " << dialogdouble::ExecutableFolder();
        ResetProgressScript();
        owner_ = MakeOwner();
        image_ = Random(23, 7, 1234);
        bytes_ = paxtest::BlockBytes(image_);
    }
    void TearDown() override {
        if (!image_) return;
        ResetProgressScript();
        EXPECT_EQ(paxtest::LockCount(image_), 0);
        EXPECT_TRUE(paxtest::BlockBytes(image_) == bytes_) << "caller's image changed";
        GlobalFree(image_);
        DestroyWindow(owner_);
    }
    const Operation &op() const { return ops_[static_cast<size_t>(GetParam())]; }

    // Runs the operation with a probe message waiting for the owner.
    HDIB RunProbed(int mode) {
        g_probe = Probe();
        PostMessageA(owner_, kProbeMessage, 0, 0);
        HDIB out = op().run(image_, mode, owner_);
        MSG msg;
        while (PeekMessageA(&msg, owner_, kProbeMessage, kProbeMessage, PM_REMOVE)) {
        }
        return out;
    }

    std::vector<Operation> ops_ = Operations();
    Double dlg_;
    HWND owner_ = nullptr;
    HDIB image_ = nullptr;
    std::vector<BYTE> bytes_;
};

// Modes 0..3 and two outside them: the parameter dialog in 2 and 3, the
// progress dialog (with the owner's messages pumped) in 1 and 3; Cancel in the
// parameter dialog ends the run before any progress dialog.
TEST_P(HueModes, EachModeRunsItsDialogs) {
    for (int result : {1, 0})
        for (int mode : {0, 1, 2, 3, 4, -1}) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " dialog result " << result);
            dlg_.Reset();
            dlg_.SetResult(op().entry, result);
            paxtest::Snapshot before = paxtest::TakeSnapshot();
            HDIB out = RunProbed(mode);
            bool paramDialog = mode == 2 || mode == 3, cancelled = paramDialog && !result;
            bool progress = (mode == 1 || mode == 3) && !cancelled;
            if (cancelled)
                EXPECT_EQ(out, nullptr);
            else
                ExpectImage(image_, out, op().expect);
            EXPECT_EQ(LastError(), 0u);
            ASSERT_EQ(dlg_.CallCount(), paramDialog ? 1 : 0);
            if (paramDialog) {
                EXPECT_EQ(dlg_.Call(0).entry, op().entry);
                EXPECT_EQ(dlg_.Call(0).image, image_) << "the dialog gets the caller's image";
                const int argumentCounts[] = {5, 0, 5, 4};
                EXPECT_EQ(dlg_.Call(0).argumentCount, argumentCounts[GetParam()]);
            }
            EXPECT_EQ(g_probe.delivered, progress) << "messages pumped only with progress";
            if (progress) {
                EXPECT_TRUE(g_probe.dialogOpen);
                EXPECT_FALSE(g_probe.ownerEnabled) << "owner disabled during the walk";
#ifndef _WIN32
                EXPECT_EQ(win32lite::LastDialog().stepsTaken, 5); // columns 0, 5, 10, 15, 20
                EXPECT_EQ(win32lite::LastDialog().rangeMax, 24 / 5 + 1);
#endif
            }
            EXPECT_TRUE(IsWindowEnabled(owner_));
            EXPECT_EQ(GetThreadState()->progressDialog, nullptr);
            if (out) GlobalFree(out);
            paxtest::ExpectCensus(before, 0, "after the run");
        }
}

TEST_P(HueModes, CancelInTheProgressDialog) {
    for (int mode : {1, 3}) {
        dlg_.Reset();
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        ArrangeProgressCancel();
        HDIB out = op().run(image_, mode, owner_);
        ResetProgressScript();
        EXPECT_EQ(out, nullptr) << mode;
        EXPECT_EQ(LastError(), 0u);
        EXPECT_EQ(GetThreadState()->cancelled, 1u);
        EXPECT_EQ(GetThreadState()->progressDialog, nullptr);
        EXPECT_TRUE(IsWindowEnabled(owner_));
        paxtest::ExpectCensus(before, 0, "after the cancel");
        if (out) GlobalFree(out);
#ifndef _WIN32
        // Steps come at columns 0, 5, 10 ...; a Cancel queued at the first
        // step is delivered by the pump of the second, which then finds no bar.
        EXPECT_EQ(win32lite::LastDialog().stepsTaken, 1);
        EXPECT_EQ(win32lite::LastDialog().pumpsWithCancel, 1);
        EXPECT_EQ(win32lite::LastDialog().rangeMax, (23 + 1) / 5 + 1);
        EXPECT_TRUE(win32lite::LastDialog().destroyed);
#endif
    }
    // The next run clears the flag and succeeds.
    HDIB again = op().run(image_, 1, owner_);
    EXPECT_NE(again, nullptr);
    EXPECT_EQ(GetThreadState()->cancelled, 0u);
    if (again) GlobalFree(again);
}

#ifndef _WIN32
TEST_P(HueModes, ProgressDialogThatCannotOpen) {
    win32lite::ScriptDialogs({true, 0});
    dlg_.Reset();
    paxtest::Snapshot before = paxtest::TakeSnapshot();
    for (int mode : {1, 3}) {
        EXPECT_EQ(op().run(image_, mode, owner_), nullptr);
        EXPECT_EQ(LastError(), 0u);
        EXPECT_TRUE(IsWindowEnabled(owner_));
    }
    EXPECT_EQ(dlg_.CallCount(), 1) << "the parameter dialog comes first";
    paxtest::ExpectCensus(before, 0, "progress dialog not opened");
}
#endif

INSTANTIATE_TEST_SUITE_P(All, HueModes, testing::Range(0, 4), OperationName);

// ---- What each dialog receives and what it changes ----------------------

class HueDialogValues : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dlg_.loaded());
        image_ = Random(9, 5, 555);
    }
    void TearDown() override {
        EXPECT_EQ(paxtest::LockCount(image_), 0);
        GlobalFree(image_);
    }
    // Runs with the parameter dialog and compares with the reference.
    void Expect(HDIB out, const std::function<Rgb(Rgb)> &ref) {
        EXPECT_EQ(LastError(), 0u);
        ExpectImage(image_, out, ref);
        if (out) GlobalFree(out);
    }
    Double dlg_;
    HDIB image_ = nullptr;
};

TEST_F(HueDialogValues, HueSaturationReceivesHueUnitsAndTheRange) {
    Expect(ColorHueSaturation(image_, 90, -20, 35, 300, 60, 2, nullptr),
           [](Rgb p) { return RefHueSaturation(p, 90, -20, 35, 300, 60); });
    ASSERT_EQ(dlg_.CallCount(), 1);
    DialogDoubleCall c = dlg_.Call(0);
    ASSERT_EQ(c.argumentCount, 5);
    const int want[5] = {Units(90), -20, 35, 212, 42};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(c.arguments[i].kind, DD_PTR_INT32);
        EXPECT_EQ(c.arguments[i].before, want[i]) << i;
    }
    // Full range: 0 and 255.
    GlobalFree(ColorHueSaturation(image_, 0, 0, 0, 0, 0, 3, nullptr));
    EXPECT_EQ(dlg_.Call(1).arguments[3].before, 0);
    EXPECT_EQ(dlg_.Call(1).arguments[4].before, 255);
}

// Values the dialog sets are used unchecked: shifts beyond 127 steps (whole
// turns), amounts beyond 255 (limited), ranges beyond the hue bytes (300..255
// selects every hue byte, 300..400 none).
TEST_F(HueDialogValues, HueSaturationUsesTheDialogsValuesUnchecked) {
    const double values[][5] = {{300, 1000, -7, 10, 200},
                                {60, 0, 0, 0, 255},
                                {-1000, 2147483647.0, -2147483648.0, 0, 255},
                                {2147483647.0, 2147483647.0, -2147483648.0, 0, 255},
                                {-2147483648.0, 2147483647.0, -2147483648.0, 0, 255},
                                {63, 0, 0, 300, 255},
                                {63, 0, 0, 300, 400}};
    for (auto &v : values) {
        dlg_.Reset();
        for (int i = 0; i < 5; ++i) dlg_.SetValue(DD_HUE_SATURATION, i, v[i]);
        long long n[5];
        for (int i = 0; i < 5; ++i) n[i] = static_cast<long long>(v[i]);
        Expect(ColorHueSaturation(image_, 0, 0, 0, 0, 0, 2, nullptr), [&](Rgb p) {
            return RefHueSaturationUnits(p, n[0] % 255, n[1], n[2], int(n[3]), int(n[4]));
        });
    }
}

TEST_F(HueDialogValues, ReplaceColorReceivesCopiesAndUsesTheirEdits) {
    const BYTE target[3] = {40, 90, 200}, tolerance[3] = {60, 80, 100};
    GlobalFree(ReplaceColor(image_, target, tolerance, -120, 10, 20, 2, nullptr));
    ASSERT_EQ(dlg_.CallCount(), 1);
    DialogDoubleCall c = dlg_.Call(0);
    ASSERT_EQ(c.argumentCount, 5);
    EXPECT_EQ(c.arguments[0].before, Units(-120));
    EXPECT_EQ(c.arguments[1].before, 10);
    EXPECT_EQ(c.arguments[2].before, 20);
    EXPECT_EQ(c.arguments[3].kind, DD_PTR_BYTES3);
    for (int i : {3, 4}) {
        const BYTE *given = i == 3 ? target : tolerance;
        EXPECT_NE(c.arguments[i].pointer, static_cast<const void *>(given)) << "the operation's copy";
        EXPECT_EQ(std::memcmp(c.arguments[i].bytesBefore, given, 3), 0);
    }

    // The dialog widens the box to everything and shifts by 400 steps.
    dlg_.Reset();
    const BYTE all[3] = {255, 255, 255}, mid[3] = {128, 128, 128};
    dlg_.SetBytes(DD_REPLACE_COLOR, 3, mid);
    dlg_.SetBytes(DD_REPLACE_COLOR, 4, all);
    dlg_.SetValue(DD_REPLACE_COLOR, 0, 400);
    dlg_.SetValue(DD_REPLACE_COLOR, 2, -300);
    Expect(ReplaceColor(image_, target, tolerance, 0, 0, 0, 3, nullptr),
           [&](Rgb p) { return RefReplaceUnits(p, mid, all, 400, 0, -300); });
    EXPECT_EQ(target[0], 40) << "the caller's colours are not written";
}

TEST_F(HueDialogValues, CmykLevelsReceivesFactorsAndUsesTheirEdits) {
    GlobalFree(ColorCMYKLevels(image_, 50, -50, 0, 100, 2, nullptr));
    ASSERT_EQ(dlg_.CallCount(), 1);
    DialogDoubleCall c = dlg_.Call(0);
    ASSERT_EQ(c.argumentCount, 4);
    const double want[4] = {1.5, 0.5, 1.0, 2.0};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(c.arguments[i].kind, DD_PTR_DOUBLE);
        EXPECT_EQ(c.arguments[i].before, want[i]) << i;
    }
    // Factors a level cannot give: above 2, negative, huge.
    const double factors[][4] = {{3.0, 1.0, 1.0, -1.0}, {1.0, 1e300, 1.0, 1.0}};
    for (auto &f : factors) {
        dlg_.Reset();
        for (int i = 0; i < 4; ++i) dlg_.SetValue(DD_CMYK_LEVELS, i, f[i]);
        Expect(ColorCMYKLevels(image_, 0, 0, 0, 0, 2, nullptr),
               [&](Rgb p) { return RefCmykFactors(p, f); });
    }
}

} // namespace
