// Every image export through the one table of tests/support: its checks in
// order with their codes, hostile headers, injected allocation, lock and
// file-open failures, the parameter dialog (confirmed, cancelled, missing),
// the progress dialog's range and steps, Cancel and a dialog that cannot be
// created. Each call must leave the caller's block as it was and unlocked,
// and no block or lock behind.
//
// Built three times: beside the dialog double (PAX_DIALOGS 2), beside a build
// of it without entries (1) and in a folder without any (0).
#include "census.h"
#include "dialogs.h"
#include "dib_builder.h"
#include "examples.h"
#include "image_exports.h"
#include "param_dialog.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>

namespace {

using namespace paxtest;

ThreadState *State() { return GetThreadState(); }

// A block freed, and a call's results freed, at the end of their scope.
struct Block {
    explicit Block(HGLOBAL block) : h(block) {}
    Block(const Block &) = delete;
    ~Block() { Reset(nullptr); }
    void Reset(HGLOBAL next) {
        if (h) GlobalFree(h);
        h = next;
    }
    operator HGLOBAL() const { return h; }
    HGLOBAL h;
};
struct Results : Outcome {
    ~Results() { FreeResults(*this); }
};

// The code the export left in its channel; the thread's channels are first
// set to kUntouched so that "nothing stored" shows. A failed split that
// cleared its array adds kCleared, one that wrote it otherwise twice that.
constexpr DWORD kCleared = 0x10000;
DWORD CallExport(const ImageExport &e, HGLOBAL image, const Args &args, Outcome *out = nullptr) {
    State()->convertError = kUntouched;
    State()->imageStatus = kUntouched;
    Outcome o = Invoke(e, image, args);
    DWORD code = e.channel == CodeChannel::ConvertError  ? State()->convertError
                       : e.channel == CodeChannel::ImageStatus ? State()->imageStatus
                                                               : static_cast<DWORD>(o.errorCode);
    if (o.arrayCleared) code |= o.arrayCleared > 0 ? kCleared : 2 * kCleared;
    if (out) *out = o;
    else FreeResults(o);
    return code;
}

// One line of image_export_checks.txt: an argument changed, the image given
// a defect, and the code expected (kAccepted: the call succeeds).
constexpr DWORD kAccepted = 0xACCE;
DWORD CodeNamed(const std::string &word) {
    const bool cleared = word.size() > 8 && word.substr(word.size() - 8) == "+cleared";
    const std::string name = word.substr(0, word.size() - (cleared ? 8 : 0));
    const DWORD code = name == "accepted" ? kAccepted : name == "untouched" ? kUntouched : DWORD(NumberOf(name));
    EXPECT_TRUE(code >= kAccepted || CceName(code) == name || ImsName(code) == name) << word;
    return cleared ? code | kCleared : code;
}
struct Check {
    std::string line, defect;
    int arg = -1;
    int32_t value = 0, defectValue = 0;
    DWORD code = 0;
};
const std::map<std::string, std::vector<Check>> &Checks() {
    static const auto checks = [] {
        std::map<std::string, std::vector<Check>> read;
        for (const Example &x : ReadExamples("image_export_checks.txt")) {
            char kind[32] = {};
            Check c{x.line, ""};
            std::sscanf(x.words.at(1).c_str(), "%31[^=]=%d", kind, &c.defectValue);
            c.defect = kind;
            std::sscanf(x.words[0].c_str(), "a%d=%d", &c.arg, &c.value); // "-": no argument changed
            c.code = CodeNamed(x.words.at(2));
            read[x.tag].push_back(c);
        }
        return read;
    }();
    return checks;
}

// A caller's image with a defect.
HGLOBAL ImageWith(const ImageExport &e, const std::string &defect, int32_t v, int w = 9, int h = 5) {
    ImageExport shape = e;
    if (defect == "depth") shape.depth = v;
    if (defect == "tag") shape.compression = static_cast<DWORD>(v);
    if (defect == "null") return nullptr;
    if (defect == "unlockable") return GlobalAlloc(GHND, 0); // exists, cannot be locked
    if (defect == "width") { // a band two rows high
        w = v;
        h = 2;
    }
    if (defect == "height" || defect == "top-down-height") { // a column
        w = 1;
        h = v;
    }
    HGLOBAL image = MakeImageFor(shape, w, h, 1, defect == "table" ? v : -1);
    auto *hd = static_cast<BITMAPINFOHEADER *>(GlobalLock(image));
    if (defect == "header-size") hd->biSize = static_cast<DWORD>(v);
    if (defect == "no-columns") hd->biWidth = 0;
    if (defect == "no-rows") hd->biHeight = 0;
    if (defect == "top-down-height") hd->biHeight = -h;
    if (defect == "rows-past-the-block") hd->biHeight += 1;
    if (defect == "clr-used") hd->biClrUsed = static_cast<DWORD>(v);
    GlobalUnlock(image);
    return image;
}

// Runs the export and holds it to the rules every call keeps.
DWORD Checked(const ImageExport &e, HGLOBAL image, const Args &args, Outcome *out = nullptr) {
    const std::vector<BYTE> before = image ? BlockBytes(image) : std::vector<BYTE>();
    const Snapshot census = TakeSnapshot();
    Outcome o;
    const DWORD code = CallExport(e, image, args, &o);
    if (image) {
        EXPECT_EQ(LockCount(image), 0) << "caller's block left locked";
        if (!e.writesCaller || (!o.ok() && !State()->cancelled)) {
            EXPECT_TRUE(BlockBytes(image) == before) << "caller's block changed";
        }
    }
    EXPECT_EQ(State()->progressDialog, nullptr);
    if (out) *out = o;
    else FreeResults(o);
    ExpectCensus(census, out ? static_cast<long>(o.results.size()) : 0, "after the call");
    return code;
}

TEST(Exports, RefuseInTheOrderOfTheirChecks) {
    EXPECT_EQ(Checks().size(), ImageExports().size()) << "a line names no export of the table";
    for (const ImageExport &e : ImageExports()) {
        ASSERT_EQ(Checks().count(e.name), 1u) << e.name << " has no checks";
        for (const Check &r : Checks().at(e.name)) {
            SCOPED_TRACE(r.line);
            Block image{ImageWith(e, r.defect, r.defectValue)};
            Args args = e.typical;
            if (r.arg >= 0) args.a[r.arg] = r.value;
            Results o;
            const DWORD code = Checked(e, image, args, &o);
            EXPECT_EQ(o.ok(), r.code == kAccepted);
            EXPECT_EQ(code, r.code == kAccepted ? 0 : r.code);
            // The other channel is not the export's to touch.
            EXPECT_TRUE(e.channel == CodeChannel::ConvertError || State()->convertError == kUntouched);
            EXPECT_TRUE(e.channel == CodeChannel::ImageStatus || State()->imageStatus == kUntouched);
            if (o.ok() && r.defect == "no-columns") {
                EXPECT_EQ(BlockDigest(o.results[0]), BlockDigest(image)) << "no pixel to visit: a plain copy";
            }
            if (o.ok() && r.defect == "table") { // its pixels follow the table: the image's rows without one
                Block plain{MakeImageFor(e, 9, 5)};
                Results p;
                ASSERT_EQ(Checked(e, plain, args, &p), 0u);
                for (size_t i = 0; i < p.results.size(); ++i) {
                    const std::vector<BYTE> a = BlockBytes(p.results[i]), b = BlockBytes(o.results.at(i));
                    EXPECT_TRUE(std::equal(a.begin() + 40, a.end(), b.end() - (a.size() - 40))) << i;
                }
            }
        }
    }
}

// Dimensions at the edges of the 32-bit range, colour-table counts up to
// 2^32 - 1, biSizeImage below the rows or beyond the block, and blocks too
// small for a header: a code or a result, and nothing else. No call may walk
// the rows of an image without columns, so the whole table runs in well under
// a second.
TEST(Exports, AnswerHostileHeadersWithACodeOrAResult) {
    constexpr LONG kSides[] = {0, 1, 0x7FFF, 0x8000, 0x7FFFFFFF, INT_MIN, -1};
#ifndef _WIN32
    win32lite::LimitBlockSize(1u << 20); // a host with 1 MiB free: no result of gigabytes
#endif
    for (const ImageExport &e : ImageExports()) {
        // A header that does not describe its block is refused as a bad argument.
        std::vector<DWORD> codes = e.failureCodes;
        codes.push_back(e.channel == CodeChannel::ConvertError ? DWORD{CCE_BADARGUMENT} : DWORD{IMS_BADPARAM});
        for (const Check &r : Checks().at(e.name)) codes.push_back(r.code);
        for (SIZE_T bytes : {0, 39, 40, 100})
            for (LONG w : kSides)
                for (LONG h : kSides)
                    for (DWORD clrUsed : {0u, 1u, 0x80000000u, 0xFFFFFFFFu})
                        for (DWORD sizeImage : {DWORD{0}, DWORD{1}, static_cast<DWORD>(bytes + 64)}) {
                            if (bytes < 40 && (w || h || clrUsed || sizeImage)) continue;
                            SCOPED_TRACE(testing::Message() << e.name << ": " << bytes << " bytes, " << w << " x "
                                                            << h << ", table " << clrUsed << ", size " << sizeImage);
                            Block block{GlobalAlloc(GHND, bytes)};
                            BYTE *p = static_cast<BYTE *>(GlobalLock(block));
                            for (SIZE_T i = 0; p && i < bytes; ++i) p[i] = static_cast<BYTE>(i * 29 + 7);
                            const BITMAPINFOHEADER hd = {40, w, h, 1, static_cast<WORD>(e.depth), e.compression,
                                                         sizeImage, 0, 0, clrUsed, 0};
                            if (p) std::memcpy(p, &hd, std::min<SIZE_T>(bytes, sizeof hd));
                            GlobalUnlock(block);
                            Results o;
                            const DWORD code = Checked(e, block, e.typical, &o);
                            EXPECT_TRUE(o.ok() ? code == 0 : std::count(codes.begin(), codes.end(), code & 0xFFFF) > 0)
                                << code;
                        }
    }
#ifndef _WIN32
    win32lite::LimitBlockSize(0);
#endif
}

// The code each injected failure leaves, by export, variant and point
// (image_export_faults.txt): "a2" the second allocation fails, "l1" the first
// lock, "f1" the first file open, "A3" every allocation from the third on.
std::map<std::string, DWORD> Faults() {
    std::map<std::string, DWORD> read;
    for (const Example &x : ReadExamples("image_export_faults.txt"))
        read[x.tag + "|" + x.words.at(0) + "|" + x.words.at(1)] = CodeNamed(x.words.at(2));
    return read;
}

// Each allocation, lock and file open made to fail in turn, and every
// allocation from each point on, with both dialogs and without: the call
// leaves the code of the table, or succeeds (a second attempt, a buffer it
// can do without) with the plain result; the caller's block as it was,
// unlocked, and nothing behind.
TEST(Exports, SurviveEveryInjectedFailure) {
    if (!HaveCensus()) GTEST_SKIP() << "fault injection needs the Linux stand-in";
    const std::map<std::string, DWORD> faults = Faults();
    const std::string file = ExecutableFolder() + "filter.flt";
    const char *filterFile = file.c_str();
    FILE *f = std::fopen(filterFile, "wb");
    const short kernel[10] = {1, 2, 1, 2, 4, 2, 1, 2, 1, 16};
    std::fwrite(kernel, sizeof kernel, 1, f);
    std::fclose(f);
    size_t pinned = 0;
    for (const ImageExport &e : ImageExports())
        for (int variant : {0, 3, 4, 5}) {
            if ((variant == 4 && e.progress != ProgressShape::Rows5) || (variant == 5 && e.depth != 8)) continue;
            SCOPED_TRACE(testing::Message() << e.name << " variant " << variant);
            const int entries = variant == 5 ? 16 : -1; // a colour table of 16 entries
            Block image{MakeImageFor(e, 7, 4, 1, entries)}, twin{MakeImageFor(e, 7, 4, 1, entries)};
            Args args = WithMode(e, variant & 3, MakeOwner());
            if (variant == 4) args.a[1] = CONV_FILE, args.filterFile = filterFile;
            Results clean; // the result without a failure
            ASSERT_EQ(CallExport(e, twin, args, &clean), 0u);
            const uint64_t plain = BlockDigest(e.writesCaller ? twin.h : clean.results.at(0));
            DWORD code = 0;
            auto op = [&] {
                Outcome o;
                code = CallExport(e, image, args, &o);
                std::vector<HGLOBAL> made = o.results;
                if (o.returnedCaller) made.push_back(image);
                return made;
            };
            SweepCounts n = SweepFailures(op, {image.h}, e.writesCaller, [&](FailureKind k, long at, const auto &made) {
                const std::string point = e.name + std::string("|") + std::to_string(variant) + "|" + "alfA"[int(k)] +
                                          std::to_string(at);
                // A second attempt may get what the first did not: success is clean.
                EXPECT_EQ(made.empty() ? code : kAccepted, faults.count(point) ? faults.at(point) : ~0u) << point;
                EXPECT_TRUE(made.empty() ? std::count(e.failureCodes.begin(), e.failureCodes.end(), code & 0xFFFF) > 0
                                         : code == 0 && BlockDigest(made[0]) == plain)
                    << code;
                pinned += faults.count(point);
            });
            EXPECT_GE(n.allocationPoints + n.lockPoints, 2);
            EXPECT_EQ(n.fileOpenPoints, variant == 4 ? 1 : 0);
            DestroyWindow(args.owner);
        }
    EXPECT_EQ(pinned, faults.size()) << "a line names no failure point";
    std::remove(filterFile);
}

// ---- The parameter dialog ---------------------------------------------------

// A message posted to the owner before a call is dispatched by the first
// progress step, while the dialog is open and the owner disabled.
struct Probe {
    bool delivered = false, dialogOpen = false, ownerEnabled = true;
} g_probe;
constexpr UINT kProbe = WM_USER + 77;
LRESULT CALLBACK ProbeProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kProbe) g_probe = {true, State()->progressDialog != nullptr, IsWindowEnabled(window) != 0};
#ifdef _WIN32
    return DefWindowProcA(window, message, wParam, lParam);
#else
    return (void)wParam, (void)lParam, 0;
#endif
}


class ParameterDialog : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(dlg_.loaded(), PAX_DIALOGS > 0) << "the dialog double beside " << ExecutableFolder();
        ASSERT_EQ(dlg_.loaded() && dlg_.HasEntries(), PAX_DIALOGS == 2);
    }
    DialogDouble dlg_;
};

// Modes 0 to 3 and two outside them: the dialog in 2 and 3 only, with the
// caller's image, and what it confirms unchanged gives the plain result; a
// missing library or entry stores CCE_NODIALOGENTRY and goes on. Cancel in the
// dialog returns nothing, stores nothing, and opens no progress dialog.
TEST_F(ParameterDialog, RunsInItsModesAndCancels) {
    HWND owner = MakeOwner(ProbeProc);
    for (const ImageExport &e : ImageExports()) {
        if (e.dialog < 0) continue;
        Block image{MakeImageFor(e, 11, 4)};
        Outcome plain;
        ASSERT_EQ(Checked(e, image, WithMode(e, 0), &plain), 0u) << e.name;
        const uint64_t want = BlockDigest(plain.ok() && !e.writesCaller ? plain.results[0] : image);
        FreeResults(plain);
        for (int mode : {0, 1, 2, 3, 4, -1})
            for (int result : {1, 0}) {
                SCOPED_TRACE(testing::Message() << e.name << " mode " << mode << " dialog result " << result);
                const bool asked = (e.modeArg == ModeArg::DialogFlag ? mode != 0 : mode == 2 || mode == 3);
                const bool cancelled = asked && !result && PAX_DIALOGS == 2;
                if (dlg_.loaded()) dlg_.Reset(), dlg_.SetResult(e.dialog, result);
                if (e.writesCaller) image.Reset(MakeImageFor(e, 11, 4));
                const bool progress = (mode == 1 || mode == 3) && e.progress != ProgressShape::None;
                if (progress && !HaveDisplay()) continue;
                Args args = e.typical;
                args.mode = mode; // brightness and contrast: any nonzero flag
                args.owner = owner;
                g_probe = Probe();
                PostMessageA(owner, kProbe, 0, 0);
                Results o;
                const DWORD code = Checked(e, image, args, &o);
                EXPECT_EQ(o.ok(), !cancelled);
                if (o.ok()) {
                    EXPECT_EQ(BlockDigest(e.writesCaller ? image : o.results[0]), want);
                }
                const DWORD error = asked && PAX_DIALOGS < 2 ? DWORD{CCE_NODIALOGENTRY}
                                    : e.channel == CodeChannel::ConvertError ? 0u
                                                                             : kUntouched;
                EXPECT_EQ(State()->convertError, error);
                EXPECT_EQ(code, e.channel == CodeChannel::ConvertError ? error : 0u);
                EXPECT_EQ(g_probe.delivered, progress && !cancelled) << "messages pumped only with progress";
                MSG msg;
                while (PeekMessageA(&msg, owner, kProbe, kProbe, PM_REMOVE)) {
                }
                if (PAX_DIALOGS == 2) {
                    ASSERT_EQ(dlg_.CallCount(), asked ? 1 : 0);
                    if (asked) {
                        EXPECT_EQ(dlg_.Call(0).image, image) << "the dialog gets the caller's image";
                    }
                }
                EXPECT_EQ(GetModuleHandleA("PAXDlgs.dll"), dlg_.module()) << "the library was not released";
            }
    }
    DestroyWindow(owner);
}

// What each dialog receives, and that the values it leaves are the ones used
// (parameter_dialogs.txt).
TEST_F(ParameterDialog, ReceivesTheValuesAndItsAnswerIsUsed) {
    if (PAX_DIALOGS != 2) GTEST_SKIP() << "needs the entries";
    for (const Example &c : ReadExamples("parameter_dialogs.txt")) {
        SCOPED_TRACE(c.line);
        const ImageExport &e = *std::find_if(ImageExports().begin(), ImageExports().end(),
                                             [&](const ImageExport &x) { return x.name == c.tag; });
        const size_t writes = std::find(c.words.begin(), c.words.end(), "writes") - c.words.begin();
        Block image{MakeImageFor(e, 9, 5)};
        dlg_.Reset();
        for (size_t i = writes + 1; i + 1 < c.v.size(); i += 2) dlg_.SetValue(e.dialog, c.I(i), c.v[i + 1]);
        Results viaDialog, direct;
        EXPECT_EQ(Checked(e, image, WithMode(e, 2), &viaDialog), DWORD(c.v[0]));
        EXPECT_EQ(viaDialog.value, 0) << "the caller's colours were written";
        ASSERT_EQ(dlg_.CallCount(), 1);
        const DialogDoubleCall call = dlg_.Call(0);
        EXPECT_EQ(call.entry, e.dialog);
        const int argumentCounts[DD_ENTRY_COUNT] = {2, 3, 7, 5, 0, 5, 4};
        EXPECT_EQ(call.argumentCount, argumentCounts[e.dialog]);
        for (size_t i = 2; i < writes; ++i) {
            const DialogDoubleArgument &a = call.arguments[i - 2];
            EXPECT_DOUBLE_EQ(a.kind == DD_INT32 || a.kind == DD_INT16 ? a.value : a.before, c.v[i]) << i;
        }
        if (c.v[0] == 0) {
            Args same = e.typical;
            for (size_t i = 0; !c.fields.empty() && i < c.fields[0].size(); ++i) same.a[i] = c.fields[0][i];
            ASSERT_EQ(Checked(e, image, same, &direct), 0u);
            ASSERT_TRUE(viaDialog.ok() && direct.ok());
            EXPECT_EQ(BlockDigest(viaDialog.results[0]), BlockDigest(direct.results[0]));
        }
    }
}

#ifndef _WIN32
TEST(ParameterDialogLoader, LooksBesideTheProgramNotOnTheSearchPath) {
    ASSERT_EQ(GetModuleHandleA("PAXDlgs.dll"), nullptr);
    EXPECT_EQ(LoadLibraryA("PAXDlgs.dll"), nullptr);
}
#endif

// Arguments by value and by pointer reach the entry in order, and what the
// entry writes comes back (16-bit ones: ReceivesTheValuesAndItsAnswerIsUsed).
// Confirmed, cancelled and missing entries or library (CCE_NODIALOGENTRY, the
// library released) are RunsInItsModesAndCancels in its three builds.
TEST_F(ParameterDialog, LoaderPassesArgumentsInOrder) {
    if (PAX_DIALOGS != 2) GTEST_SKIP() << "needs the entries";
    Block image{MakeImageFor(ImageExports()[0], 3, 2)};
    short coefficients[10] = {1, -2, 3, -4, 5, -6, 7, -8, 9, 11};
    int errorCode = 42;
    dlg_.SetValue(DD_CONVOLUTION, 6, -5);
    RunParamDialog("ColorConvUI", image, 1, -7, short{-300}, short{3}, "kernel.flt",
                   static_cast<const short *>(coefficients), &errorCode);
    const DialogDoubleCall c = dlg_.Call(0);
    const int byValue[4] = {1, -7, -300, 3};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(c.arguments[i].value, byValue[i]) << i;
    EXPECT_EQ(c.arguments[2].kind, DD_INT16);
    EXPECT_STREQ(c.arguments[4].text, "kernel.flt");
    ASSERT_EQ(c.arguments[5].listCount, 10);
    EXPECT_EQ(std::memcmp(c.arguments[5].list, coefficients, sizeof coefficients), 0);
    EXPECT_EQ(c.arguments[6].before, 42);
    EXPECT_EQ(errorCode, -5);
    EXPECT_EQ(GetModuleHandleA("PAXDlgs.dll"), dlg_.module()) << "not released";
}

// ---- The progress dialog ----------------------------------------------------

// Range and steps from the walk: {range max, steps} for a w x h image.
std::pair<long, long> Expected(const ImageExport &e, long w, long h) {
    const long n = e.typical.a[2];
    long rows = 0;
    for (long y = -n / 2; y < h + n / 2; ++y) rows += y % 5 == 0;
    switch (e.progress) {
    case ProgressShape::Bytes1500: {
        const long total = (e.depth == 32 ? 4 * w : (3 * w + 3) / 4 * 4) * h;
        return {(total + 1) / 1500 + 1, (total + 1499) / 1500};
    }
    case ProgressShape::Columns5: return {(w + 1) / 5 + 1, (w + 4) / 5};
    case ProgressShape::Columns5Rounded: return {(w + 4) / 5 + 1, (w + 4) / 5};
    default: return {(h - n + 4) / 5 + 1, rows};
    }
}

class Progress : public testing::Test {
protected:
    void SetUp() override {
        if (!HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
        owner_ = MakeOwner(ProbeProc);
    }
    void TearDown() override { DestroyWindow(owner_); }
    // Images whose walk has several steps: 1500-byte rows for the conversions.
    static HGLOBAL Image(const ImageExport &e, int *w, int *h) {
        *w = e.progress == ProgressShape::Bytes1500 ? (e.depth == 32 ? 375 : 500) : 23;
        *h = e.progress == ProgressShape::Rows5 ? 12 : 3;
        return MakeImageFor(e, *w, *h);
    }
    HWND owner_ = nullptr;
    DialogDouble dlg_; // reset: every entry confirms
};

// Without Cancel (k = 0) the bar steps on the walk's units with the owner
// disabled meanwhile, and the result is the plain one. Cancel after the k-th
// step reaches the walk at the next step, which then finds no bar: the call
// returns nothing and stores no code; the next call clears the flag. In
// place, the rows filtered before the Cancel stay.
TEST_F(Progress, StepsOnItsUnitsAndCancelStopsTheWalkAtTheNextStep) {
    for (const ImageExport &e : ImageExports()) {
        if (e.progress == ProgressShape::None) continue;
        int w, h;
        Block whole{Image(e, &w, &h)};
        const std::vector<BYTE> source = BlockBytes(whole);
        Results plain;
        Checked(e, whole, WithMode(e, 0), &plain);
        const std::vector<BYTE> filtered = BlockBytes(e.writesCaller ? whole.h : plain.results[0]);
        for (long k : {0L, 1L, 2L}) {
            SCOPED_TRACE(testing::Message() << e.name << " Cancel after step " << k);
            Block image{Image(e, &w, &h)};
            Results o;
            g_probe = Probe();
            PostMessageA(owner_, kProbe, 0, 0);
            {
                StepWatch watch(k);
                EXPECT_EQ(Checked(e, image, WithMode(e, k ? 3 : 1, owner_), &o), 0u);
                EXPECT_EQ(watch.Steps(), k ? k : Expected(e, w, h).second);
                if (!k) {
                    EXPECT_EQ(watch.RangeMax(), Expected(e, w, h).first);
                }
            }
            EXPECT_TRUE(g_probe.delivered && g_probe.dialogOpen && !g_probe.ownerEnabled);
            EXPECT_TRUE(IsWindowEnabled(owner_));
            EXPECT_EQ(o.ok(), k == 0);
            EXPECT_EQ(State()->cancelled, k ? 1u : 0u);
            if (!k) {
                EXPECT_TRUE(BlockBytes(e.writesCaller ? image.h : o.results[0]) == filtered);
            } else if (e.writesCaller) {
                // Rows from the first stored one are filtered up to the step's row.
                const std::vector<BYTE> now = BlockBytes(image);
                const long stride = (3 * w + 3) / 4 * 4, written = 5 * k - e.typical.a[2] / 2;
                for (long r = 0; r < h; ++r)
                    EXPECT_TRUE(std::equal(now.begin() + 40 + r * stride, now.begin() + 40 + (r + 1) * stride,
                                           (r < written ? filtered : source).begin() + 40 + r * stride))
                        << "row " << r;
            }
            Results again; // the next call clears the flag
            EXPECT_EQ(Checked(e, image, WithMode(e, 1, owner_), &again), 0u);
            EXPECT_TRUE(again.ok() && !State()->cancelled);
        }
    }
}

// A progress dialog that cannot be created: the conversions store
// CCE_NOPROGRESS, the adjustments nothing; the parameter dialog came first.
TEST(ProgressDialogFailure, EveryExportFailsCleanly) {
    if (!ArrangeCreationFailure()) GTEST_SKIP() << "dialog creation cannot be made to fail";
    DialogDouble dlg;
    HWND owner = MakeOwner();
    for (const ImageExport &e : ImageExports()) {
        if (e.progress == ProgressShape::None) continue;
        SCOPED_TRACE(e.name);
        Block image{MakeImageFor(e, 6, 3)};
        if (dlg.loaded()) dlg.Reset();
        Results o;
        const DWORD code = Checked(e, image, WithMode(e, 3, owner), &o);
        EXPECT_FALSE(o.ok());
        const bool asked = e.dialog >= 0;
        EXPECT_EQ(code, e.modeArg == ModeArg::ProgressFlag                              ? DWORD{CCE_NOPROGRESS}
                        : asked && PAX_DIALOGS < 2 && e.channel == CodeChannel::ConvertError ? DWORD{CCE_NODIALOGENTRY}
                                                                                             : 0u);
        if (dlg.loaded() && PAX_DIALOGS == 2) {
            EXPECT_EQ(dlg.CallCount(), asked ? 1 : 0);
        }
        if (owner) {
            EXPECT_TRUE(IsWindowEnabled(owner));
        }
    }
    if (owner) DestroyWindow(owner);
    ResetDialogScript();
}

} // namespace
