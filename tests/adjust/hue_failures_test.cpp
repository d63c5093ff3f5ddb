// The checks of the hue-based adjustments, their codes and order, bad and
// odd headers, and injected allocation and lock failures.
#include "hue_test_util.h"

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using namespace huetest;
using paxtest::CceName;
using Call = std::function<HDIB(HDIB)>;

void ExpectFails(HDIB result, DWORD code, const char *what) {
    EXPECT_EQ(result, nullptr) << what;
    if (result) GlobalFree(result);
    EXPECT_EQ(CceName(LastError()), CceName(code)) << what;
}

Call HueSat(int hue, int s, int l, UINT from, UINT to) {
    return [=](HDIB im) { return ColorHueSaturation(im, hue, s, l, from, to, 0, nullptr); };
}
Call Replace(const BYTE *t, const BYTE *tol, int hue, int s, int l) {
    return [=](HDIB im) { return ReplaceColor(im, t, tol, hue, s, l, 0, nullptr); };
}
Call Levels(int c, int m, int y, int k) {
    return [=](HDIB im) { return ColorCMYKLevels(im, c, m, y, k, 0, nullptr); };
}

TEST(HueChecks, ArgumentsAndTheCodeOnEntry) {
    HDIB image = Random(5, 3, 77);
    static const BYTE c[3] = {1, 2, 3};
    const std::pair<const char *, Call> bad[] = {
        {"hue 181", HueSat(181, 0, 0, 0, 0)},          {"hue -181", HueSat(-181, 0, 0, 0, 0)},
        {"saturation 256", HueSat(0, 256, 0, 0, 0)},   {"saturation -256", HueSat(0, -256, 0, 0, 0)},
        {"lightness 256", HueSat(0, 0, 256, 0, 0)},    {"lightness -256", HueSat(0, 0, -256, 0, 0)},
        {"from 361", HueSat(0, 0, 0, 361, 10)},        {"to 361", HueSat(0, 0, 0, 10, 361)},
        {"from = to = 90", HueSat(0, 0, 0, 90, 90)},   {"from 2^32 - 1", HueSat(0, 0, 0, 0xFFFFFFFFu, 0)},
        {"null target", Replace(nullptr, c, 0, 0, 0)}, {"null tolerance", Replace(c, nullptr, 0, 0, 0)},
        {"replace hue 181", Replace(c, c, 181, 0, 0)}, {"replace hue -181", Replace(c, c, -181, 0, 0)},
        {"replace saturation 256", Replace(c, c, 0, 256, 0)},
        {"replace lightness -256", Replace(c, c, 0, 0, -256)},
        {"cyan 101", Levels(101, 0, 0, 0)},            {"magenta -101", Levels(0, -101, 0, 0)},
        {"yellow 101", Levels(0, 0, 101, 0)},          {"black -101", Levels(0, 0, 0, -101)},
        {"cyan -101", Levels(-101, 0, 0, 0)},          {"magenta 101", Levels(0, 101, 0, 0)},
        {"yellow -101", Levels(0, 0, -101, 0)},        {"black 101", Levels(0, 0, 0, 101)},
    };
    for (auto &[what, run] : bad) ExpectFails(run(image), CCE_BADARGUMENT, what);
    const Call good[] = {HueSat(180, 255, 255, 360, 0), HueSat(-180, -255, -255, 0, 360),
                        HueSat(0, 0, 0, 0, 0), HueSat(0, 0, 0, 0, 120),
                        Replace(c, c, 180, -255, 255), Levels(100, -100, 100, -100)};
    for (const Call &run : good) {
        HDIB ok = run(image);
        EXPECT_NE(ok, nullptr);
        EXPECT_EQ(LastError(), 0u);
        if (ok) GlobalFree(ok);
    }
    // A null image is refused first; an earlier code is cleared on entry.
    for (const Operation &op : Operations()) {
        op.run(nullptr, 0, nullptr);
        ASSERT_EQ(LastError(), static_cast<DWORD>(CCE_BADARGUMENT)) << op.name;
        HDIB out = op.run(image, 0, nullptr);
        EXPECT_NE(out, nullptr) << op.name;
        EXPECT_EQ(LastError(), 0u) << op.name;
        if (out) GlobalFree(out);
    }
    EXPECT_EQ(paxtest::LockCount(image), 0);
    GlobalFree(image);
}

// ---- Images the operations do not take, and odd headers -------------------

class HueImages : public testing::TestWithParam<int> {
protected:
    HDIB Run(HDIB im, int mode = 0) const {
        return ops_[static_cast<size_t>(GetParam())].run(im, mode, nullptr);
    }
    std::vector<Operation> ops_ = Operations();
};

HDIB Edited(const std::function<void(BITMAPINFOHEADER &)> &edit) {
    HDIB im = Random(5, 3, 9);
    edit(*static_cast<BITMAPINFOHEADER *>(GlobalLock(im)));
    GlobalUnlock(im);
    return im;
}

// Other depths: refused without a code. No columns or no rows: an unchanged
// copy, no pixel read or written. Rows beyond the end of the block, a colour
// table that cannot fit, or a block smaller than a header: refused with
// CCE_BADARGUMENT before any copy.
TEST_P(HueImages, DepthsAndHeadersTheOperationsDoNotWalk) {
    for (int bits : {1, 4, 8, 16, 32}) {
        HDIB im = paxtest::MakeDib(3, 2, bits, [](int x, int y, int k) { return BYTE(x + y + k); });
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        ExpectFails(Run(im), CCE_NONE, "other depth");
        EXPECT_EQ(paxtest::LockCount(im), 0);
        paxtest::ExpectCensus(before, 0, "other depth");
        GlobalFree(im);
    }
    const std::pair<LONG, LONG> sizes[] = {{0, 3},  {5, 0},  {0, 0},         {-5, 3},
                                           {5, -3}, {-5, -3}, {INT32_MAX, 0}, {5, INT32_MIN}};
    for (auto [w, h] : sizes) {
        HDIB im = Edited([&](BITMAPINFOHEADER &hd) { hd.biWidth = w, hd.biHeight = h; });
        for (int mode : {0, 1}) {
            HDIB out = Run(im, mode);
            ASSERT_NE(out, nullptr) << w << " x " << h << " mode " << mode;
            EXPECT_EQ(LastError(), 0u);
            EXPECT_TRUE(paxtest::BlockBytes(out) == paxtest::BlockBytes(im)) << w << " x " << h;
            GlobalFree(out);
        }
        GlobalFree(im);
    }
    const std::function<void(BITMAPINFOHEADER &)> edits[] = {
        [](BITMAPINFOHEADER &h) { h.biHeight += 1; },
        [](BITMAPINFOHEADER &h) { h.biWidth += 2; },
        [](BITMAPINFOHEADER &h) { h.biHeight = INT32_MAX; },
        [](BITMAPINFOHEADER &h) { h.biWidth = INT32_MAX; },
        [](BITMAPINFOHEADER &h) { h.biClrUsed = 1; },
        [](BITMAPINFOHEADER &h) { h.biClrUsed = 0xFFFFFFFFu; },
        [](BITMAPINFOHEADER &h) { h.biClrUsed = 0x40000000u; },
    };
    for (auto &edit : edits) {
        HDIB im = Edited(edit);
        std::vector<BYTE> bytes = paxtest::BlockBytes(im);
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        ExpectFails(Run(im, 3), CCE_BADARGUMENT, "malformed");
        paxtest::ExpectCensus(before, 0, "malformed");
        EXPECT_TRUE(paxtest::BlockBytes(im) == bytes);
        EXPECT_EQ(paxtest::LockCount(im), 0);
        GlobalFree(im);
    }
    HDIB tiny = GlobalAlloc(GHND, 39);
    GlobalLock(tiny);
    GlobalUnlock(tiny);
    ExpectFails(Run(tiny), CCE_BADARGUMENT, "39-byte block");
    GlobalFree(tiny);
}

// A 24-bit image with a colour table: the pixels follow the table.
TEST_P(HueImages, PixelsFollowADeclaredColourTable) {
    HDIB im = paxtest::MakeDib(
        5, 3, 24, [](int x, int y, int k) { return BYTE(40 * x + 7 * y + 90 * k); }, 4, 0xA5);
    HDIB out = Run(im);
    ASSERT_NE(out, nullptr);
    std::vector<BYTE> in = paxtest::BlockBytes(im), got = paxtest::BlockBytes(out);
    EXPECT_TRUE(std::equal(in.begin(), in.begin() + 56, got.begin())) << "header and table";
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) {
            size_t at = 56 + static_cast<size_t>((2 - y) * 16 + 3 * x);
            Rgb want = ops_[static_cast<size_t>(GetParam())].expect(Rgb{in[at + 2], in[at + 1], in[at]});
            EXPECT_TRUE((Rgb{got[at + 2], got[at + 1], got[at]} == want)) << x << ", " << y;
        }
    GlobalFree(out);
    GlobalFree(im);
}

// ---- Injected failures ----------------------------------------------------

TEST_P(HueImages, EveryAllocationAndLockFailureLeavesNothingBehind) {
    HDIB im = Random(7, 4, 21);
    for (int mode : {0, 3}) {
        paxtest::SweepCounts counts = paxtest::SweepFailures([&] { return Run(im, mode); }, {im});
        if (paxtest::HaveCensus()) {
            EXPECT_GE(counts.allocationPoints, 1) << mode;
            EXPECT_GE(counts.lockPoints, 2) << mode;
        }
    }
#ifndef _WIN32
    // The codes: no copy is CCE_NOMEMORY, a failed lock leaves none.
    win32lite::ResetFaults();
    GlobalFree(Run(im));
    long locks = win32lite::LockCalls();
    win32lite::ResetFaults();
    win32lite::FailAllocationAt(1);
    ExpectFails(Run(im), CCE_NOMEMORY, "copy not allocated");
    for (long n = 1; n <= locks; ++n) {
        win32lite::ResetFaults();
        win32lite::FailLockAt(n);
        ExpectFails(Run(im), CCE_NONE, "lock failure");
    }
    win32lite::ResetFaults();
#endif
    GlobalFree(im);
}

INSTANTIATE_TEST_SUITE_P(All, HueImages, testing::Range(0, 4), OperationName);

} // namespace
