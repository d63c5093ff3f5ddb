// The checks of the hue-based adjustments, their codes and order, bad and
// odd headers, and injected allocation and lock failures.
#include "hue_test_util.h"

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using namespace huetest;
using paxtest::CceName;

void ExpectFails(HDIB result, DWORD code, const char *what) {
    EXPECT_EQ(result, nullptr) << what;
    if (result) GlobalFree(result);
    EXPECT_EQ(CceName(LastError()), CceName(code)) << what;
}

class HueChecks : public testing::Test {
protected:
    void SetUp() override { image_ = Random(5, 3, 77); }
    void TearDown() override {
        EXPECT_EQ(paxtest::LockCount(image_), 0);
        GlobalFree(image_);
    }
    HDIB image_ = nullptr;
};

TEST_F(HueChecks, ColorHueSaturationArguments) {
    auto run = [&](HDIB im, int hue, int s, int l, UINT from, UINT to) {
        return ColorHueSaturation(im, hue, s, l, from, to, 0, nullptr);
    };
    ExpectFails(run(nullptr, 0, 0, 0, 0, 0), CCE_BADARGUMENT, "null image");
    ExpectFails(run(image_, 181, 0, 0, 0, 0), CCE_BADARGUMENT, "hue 181");
    ExpectFails(run(image_, -181, 0, 0, 0, 0), CCE_BADARGUMENT, "hue -181");
    ExpectFails(run(image_, 0, 256, 0, 0, 0), CCE_BADARGUMENT, "saturation 256");
    ExpectFails(run(image_, 0, -256, 0, 0, 0), CCE_BADARGUMENT, "saturation -256");
    ExpectFails(run(image_, 0, 0, 256, 0, 0), CCE_BADARGUMENT, "lightness 256");
    ExpectFails(run(image_, 0, 0, -256, 0, 0), CCE_BADARGUMENT, "lightness -256");
    ExpectFails(run(image_, 0, 0, 0, 361, 10), CCE_BADARGUMENT, "from 361");
    ExpectFails(run(image_, 0, 0, 0, 10, 361), CCE_BADARGUMENT, "to 361");
    ExpectFails(run(image_, 0, 0, 0, 90, 90), CCE_BADARGUMENT, "from = to = 90");
    ExpectFails(run(image_, 0, 0, 0, 0xFFFFFFFFu, 0), CCE_BADARGUMENT, "from 2^32 - 1");
    for (auto ok : {run(image_, 180, 255, 255, 360, 0), run(image_, -180, -255, -255, 0, 360),
                    run(image_, 0, 0, 0, 0, 0), run(image_, 0, 0, 0, 0, 120)}) {
        EXPECT_NE(ok, nullptr);
        EXPECT_EQ(LastError(), 0u);
        GlobalFree(ok);
    }
}

TEST_F(HueChecks, ReplaceColorArguments) {
    const BYTE c[3] = {1, 2, 3};
    auto run = [&](HDIB im, const BYTE *t, const BYTE *tol, int hue, int s, int l) {
        return ReplaceColor(im, t, tol, hue, s, l, 0, nullptr);
    };
    ExpectFails(run(nullptr, c, c, 0, 0, 0), CCE_BADARGUMENT, "null image");
    ExpectFails(run(image_, nullptr, c, 0, 0, 0), CCE_BADARGUMENT, "null target");
    ExpectFails(run(image_, c, nullptr, 0, 0, 0), CCE_BADARGUMENT, "null tolerance");
    ExpectFails(run(image_, c, c, 181, 0, 0), CCE_BADARGUMENT, "hue 181");
    ExpectFails(run(image_, c, c, -181, 0, 0), CCE_BADARGUMENT, "hue -181");
    ExpectFails(run(image_, c, c, 0, 256, 0), CCE_BADARGUMENT, "saturation 256");
    ExpectFails(run(image_, c, c, 0, 0, -256), CCE_BADARGUMENT, "lightness -256");
    HDIB ok = run(image_, c, c, 180, -255, 255);
    EXPECT_NE(ok, nullptr);
    GlobalFree(ok);
}

TEST_F(HueChecks, LevelsAndNullImages) {
    ExpectFails(ColorCMYKLevels(nullptr, 0, 0, 0, 0, 0, nullptr), CCE_BADARGUMENT, "null");
    for (int bad : {101, -101}) {
        ExpectFails(ColorCMYKLevels(image_, bad, 0, 0, 0, 0, nullptr), CCE_BADARGUMENT, "cyan");
        ExpectFails(ColorCMYKLevels(image_, 0, bad, 0, 0, 0, nullptr), CCE_BADARGUMENT, "magenta");
        ExpectFails(ColorCMYKLevels(image_, 0, 0, bad, 0, 0, nullptr), CCE_BADARGUMENT, "yellow");
        ExpectFails(ColorCMYKLevels(image_, 0, 0, 0, bad, 0, nullptr), CCE_BADARGUMENT, "black");
    }
    ExpectFails(Desaturate(nullptr, 0, nullptr), CCE_BADARGUMENT, "null");
}

// An earlier code is cleared on entry, so a success reads 0.
TEST_F(HueChecks, EntryClearsTheCode) {
    for (const Operation &op : Operations()) {
        op.run(nullptr, 0, nullptr);
        ASSERT_EQ(LastError(), static_cast<DWORD>(CCE_BADARGUMENT));
        HDIB out = op.run(image_, 0, nullptr);
        EXPECT_NE(out, nullptr) << op.name;
        EXPECT_EQ(LastError(), 0u) << op.name;
        GlobalFree(out);
    }
}

// ---- Images the operations do not take, and odd headers -------------------

class HueImages : public testing::TestWithParam<int> {
protected:
    const Operation &op() const { return ops_[static_cast<size_t>(GetParam())]; }
    std::vector<Operation> ops_ = Operations();
};

TEST_P(HueImages, OtherDepthsFailWithoutACode) {
    for (int bits : {1, 4, 8, 16, 32}) {
        HDIB im = paxtest::MakeDib(3, 2, bits, [](int x, int y, int k) { return BYTE(x + y + k); });
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        HDIB out = op().run(im, 0, nullptr);
        EXPECT_EQ(out, nullptr) << bits;
        EXPECT_EQ(LastError(), 0u) << bits;
        EXPECT_EQ(paxtest::LockCount(im), 0);
        paxtest::ExpectCensus(before, 0, "other depth");
        GlobalFree(im);
    }
}

void SetHeader(HDIB im, const std::function<void(BITMAPINFOHEADER &)> &edit) {
    auto *h = static_cast<BITMAPINFOHEADER *>(GlobalLock(im));
    edit(*h);
    GlobalUnlock(im);
}

// No columns or no rows: an unchanged copy; no pixel is read or written.
TEST_P(HueImages, NoRowsOrColumnsGiveAnUnchangedCopy) {
    const std::pair<LONG, LONG> sizes[] = {{0, 3}, {5, 0}, {0, 0}, {-5, 3}, {5, -3}, {-5, -3},
                                           {INT32_MAX, 0}, {5, INT32_MIN}};
    for (auto [w, h] : sizes) {
        HDIB im = Random(5, 3, 9);
        SetHeader(im, [&](BITMAPINFOHEADER &hd) {
            hd.biWidth = w;
            hd.biHeight = h;
        });
        for (int mode : {0, 1}) {
            HDIB out = op().run(im, mode, nullptr);
            ASSERT_NE(out, nullptr) << w << " x " << h << " mode " << mode;
            EXPECT_EQ(LastError(), 0u);
            EXPECT_TRUE(paxtest::BlockBytes(out) == paxtest::BlockBytes(im)) << w << " x " << h;
            GlobalFree(out);
        }
        GlobalFree(im);
    }
}

// Rows beyond the end of the block, a colour table that cannot fit, or a
// block smaller than a header: refused with CCE_BADARGUMENT before any copy.
TEST_P(HueImages, BlocksThatCannotHoldTheirRowsAreRefused) {
    std::vector<std::function<void(BITMAPINFOHEADER &)>> edits = {
        [](BITMAPINFOHEADER &h) { h.biHeight += 1; },
        [](BITMAPINFOHEADER &h) { h.biWidth += 2; },
        [](BITMAPINFOHEADER &h) { h.biHeight = INT32_MAX; },
        [](BITMAPINFOHEADER &h) { h.biWidth = INT32_MAX; },
        [](BITMAPINFOHEADER &h) { h.biClrUsed = 1; },
        [](BITMAPINFOHEADER &h) { h.biClrUsed = 0xFFFFFFFFu; },
        [](BITMAPINFOHEADER &h) { h.biClrUsed = 0x40000000u; },
    };
    for (size_t i = 0; i < edits.size(); ++i) {
        HDIB im = Random(5, 3, 9);
        SetHeader(im, edits[i]);
        std::vector<BYTE> bytes = paxtest::BlockBytes(im);
        paxtest::Snapshot before = paxtest::TakeSnapshot();
        HDIB out = op().run(im, 3, nullptr);
        EXPECT_EQ(out, nullptr) << "edit " << i;
        EXPECT_EQ(CceName(LastError()), CceName(CCE_BADARGUMENT)) << "edit " << i;
        paxtest::ExpectCensus(before, 0, "malformed");
        EXPECT_TRUE(paxtest::BlockBytes(im) == bytes);
        EXPECT_EQ(paxtest::LockCount(im), 0);
        GlobalFree(im);
    }
    HDIB tiny = GlobalAlloc(GHND, 39);
    SetHeader(tiny, [](BITMAPINFOHEADER &) {});
    ExpectFails(op().run(tiny, 0, nullptr), CCE_BADARGUMENT, "39-byte block");
    GlobalFree(tiny);
}

// A 24-bit image with a colour table: the pixels follow the table.
TEST_P(HueImages, PixelsFollowADeclaredColourTable) {
    HDIB im = paxtest::MakeDib(5, 3, 24, [](int x, int y, int k) { return BYTE(40 * x + 7 * y + 90 * k); },
                               4, 0xA5);
    HDIB out = op().run(im, 0, nullptr);
    ASSERT_NE(out, nullptr);
    std::vector<BYTE> in = paxtest::BlockBytes(im), got = paxtest::BlockBytes(out);
    EXPECT_TRUE(std::equal(in.begin(), in.begin() + 56, got.begin())) << "header and table";
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) {
            size_t at = 56 + static_cast<size_t>((2 - y) * 16 + 3 * x);
            Rgb want = op().expect(Rgb{in[at + 2], in[at + 1], in[at]});
            EXPECT_TRUE((Rgb{got[at + 2], got[at + 1], got[at]} == want)) << x << ", " << y;
        }
    GlobalFree(out);
    GlobalFree(im);
}

// ---- Injected failures ----------------------------------------------------

TEST_P(HueImages, EveryAllocationAndLockFailureLeavesNothingBehind) {
    HDIB im = Random(7, 4, 21);
    for (int mode : {0, 3}) {
        paxtest::SweepCounts counts =
            paxtest::SweepFailures([&] { return op().run(im, mode, nullptr); }, {im});
        if (paxtest::HaveCensus()) {
            EXPECT_GE(counts.allocationPoints, 1) << mode;
            EXPECT_GE(counts.lockPoints, 2) << mode;
        }
    }
    GlobalFree(im);
}

#ifndef _WIN32
TEST_P(HueImages, FailureCodes) {
    HDIB im = Random(7, 4, 21);
    win32lite::ResetFaults();
    HDIB clean = op().run(im, 0, nullptr);
    long locks = win32lite::LockCalls();
    GlobalFree(clean);
    win32lite::ResetFaults();
    win32lite::FailAllocationAt(1);
    ExpectFails(op().run(im, 0, nullptr), CCE_NOMEMORY, "copy not allocated");
    for (long n = 1; n <= locks; ++n) {
        win32lite::ResetFaults();
        win32lite::FailLockAt(n);
        ExpectFails(op().run(im, 0, nullptr), CCE_NONE, "lock failure");
    }
    win32lite::ResetFaults();
    GlobalFree(im);
}
#endif

INSTANTIATE_TEST_SUITE_P(All, HueImages, testing::Range(0, 4), OperationName);

} // namespace
