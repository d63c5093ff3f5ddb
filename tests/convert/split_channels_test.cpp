// SplitColorChannels: one grey image per component of a colour model.
#include "census.h"
#include "convert_support.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using convtest::ConvertOne;
using convtest::MakeModelImage;
using convtest::ReadRows;
using convtest::Rows;
using convtest::WithField;
using H = BITMAPINFOHEADER;
using paxtest::CceName;

const HGLOBAL kUntouched = reinterpret_cast<HGLOBAL>(0x1234);

// The outputs of a split of `image` into `model`, checked pixel by pixel
// against the single-value conversion of each source pixel; `order` gives the
// component that each output holds. Padding of 24-bit outputs keeps the
// image's values.
void ExpectChannels(HGLOBAL image, const HGLOBAL *channels, int model,
                    const std::vector<int> &order) {
    const Rows src = ReadRows(image);
    const int width = src.header.biWidth, height = src.header.biHeight;
    const int bytes = src.header.biBitCount / 8;
    const int outBytes = model == MODEL_CMYK ? 4 : bytes;
    for (size_t k = 0; k < order.size(); ++k) {
        SCOPED_TRACE(testing::Message() << "output " << k);
        const Rows out = ReadRows(channels[k]);
        EXPECT_EQ(out.header.biCompression, 0u);
        EXPECT_EQ(out.header.biBitCount, outBytes * 8);
        EXPECT_EQ(out.header.biWidth, width);
        EXPECT_EQ(out.header.biHeight, height);
        EXPECT_EQ(paxtest::LockCount(channels[k]), 0);
        for (int y = 0; y < height; ++y) {
            for (size_t c = 3u * width; outBytes == 3 && c < out.stride; ++c)
                EXPECT_EQ(out.Pixel(0, y, 3)[c], src.Pixel(0, y, 3)[c]) << "padding of row " << y;
            for (int x = 0; x < width; ++x) {
                const BYTE *p = src.Pixel(x, y, bytes);
                std::vector<BYTE> value = {p[2], p[1], p[0]};
                if (model != MODEL_RGB) value = ConvertOne(MODEL_RGB, model, value.data());
                else if (bytes == 4) value.push_back(p[3]);
                const BYTE *q = out.Pixel(x, y, outBytes);
                for (int b = 0; b < outBytes; ++b)
                    ASSERT_EQ(q[b], value[order[k]]) << "pixel (" << x << ", " << y << ") byte " << b;
            }
        }
    }
}

// Every model from a 24-bit image, and RGB from a 32-bit one; CMYK outputs
// are M, Y, K, C (stored bytes 2, 1, 0, 3 of a CMYK pixel).
TEST(SplitColorChannels, EveryModelGivesItsComponentsInOrder) {
    for (int model = MODEL_RGB; model <= MODEL_LAB + 1; ++model) {
        const int m = model > MODEL_LAB ? MODEL_RGB : model, bits = model > MODEL_LAB ? 32 : 24;
        SCOPED_TRACE(testing::Message() << "model " << m << " bits " << bits);
        HGLOBAL image = MakeModelImage(MODEL_RGB, 5, 3, 40u + model, bits, 0x3C);
        const std::vector<int> order = m == MODEL_CMYK ? std::vector<int>{1, 2, 3, 0}
                                       : bits == 32    ? std::vector<int>{0, 1, 2, 3}
                                                       : std::vector<int>{0, 1, 2};
        HGLOBAL channels[4] = {};
        paxtest::Snapshot s = paxtest::TakeSnapshot();
        GetThreadState()->convertError = 99;
        const int n = SplitColorChannels(image, channels, static_cast<BYTE>(m));
        ASSERT_EQ(n, static_cast<int>(order.size()));
        paxtest::ExpectCensus(s, n, "outputs only; the temporary image is freed");
        EXPECT_EQ(GetLastColorConvertError(), 0u);
        EXPECT_EQ(paxtest::LockCount(image), 0);
        ExpectChannels(image, channels, m, order);
        for (int k = 0; k < n; ++k) GlobalFree(channels[k]);
        GlobalFree(image);
    }
}

TEST(SplitColorChannels, RefusedCallsAndTheirCodes) {
    auto dib = [](int bits) {
        return paxtest::MakeDib(4, 2, bits, [](int, int, int) { return BYTE{1}; });
    };
    auto rgb33 = [] { return MakeModelImage(MODEL_RGB, 3, 3, 3); };
    HGLOBAL rgb = MakeModelImage(MODEL_RGB, 3, 3, 1);
    HGLOBAL channels[4];
    struct Case {
        const char *what;
        HGLOBAL image;
        HGLOBAL *array;
        int model;
        DWORD code;
    } cases[] = {
        {"model 0", rgb, channels, 0, CCE_BADARGUMENT},
        {"model 10", rgb, channels, 10, CCE_BADARGUMENT},
        {"null image", nullptr, channels, 1, CCE_BADARGUMENT},
        {"null array", rgb, nullptr, 1, CCE_BADARGUMENT},
        {"tagged HSV", MakeModelImage(MODEL_HSV, 3, 3, 2), channels, 1, CCE_BADMODEL},
        {"block smaller than a header", GlobalAlloc(GHND, 16), channels, 1, CCE_BADMODEL},
        {"8-bit", dib(8), channels, 1, CCE_NONE},
        {"16-bit", dib(16), channels, 6, CCE_NONE},
        {"32-bit into YUV", MakeModelImage(MODEL_RGB, 3, 2, 3, 32), channels, 2, CCE_BADARGUMENT},
        {"too many rows", WithField(rgb33(), &H::biHeight, 9), channels, 1, CCE_BADARGUMENT},
        {"too many rows, converted", WithField(rgb33(), &H::biHeight, 9), channels, 6,
         CCE_BADARGUMENT},
        {"core header", WithField(rgb33(), &H::biSize, 12), channels, 1, CCE_BADARGUMENT},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        for (HGLOBAL &h : channels) h = kUntouched;
        paxtest::Snapshot s = paxtest::TakeSnapshot();
        GetThreadState()->convertError = 99;
        EXPECT_EQ(SplitColorChannels(c.image, c.array, static_cast<BYTE>(c.model)), 0);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code));
        paxtest::ExpectCensus(s, 0, c.what);
        if (c.image) {
            EXPECT_EQ(paxtest::LockCount(c.image), 0);
        }
        // Before the number of outputs is known the array is left alone.
        for (HGLOBAL h : channels) EXPECT_EQ(h, kUntouched);
    }
    for (const Case &c : cases)
        if (c.image && c.image != rgb) GlobalFree(c.image);
    GlobalFree(rgb);
}

#ifndef _WIN32
TEST(SplitColorChannels, PlatformFailuresStoreTheirCodesAndClearTheArray) {
    HGLOBAL rgb = MakeModelImage(MODEL_RGB, 3, 2, 8);
    struct Case {
        const char *what;
        int model;
        bool lock;
        long at;
        DWORD code;
        bool cleared;
    } cases[] = {
        {"image not lockable for its tag", 1, true, 1, CCE_BADMODEL, false},
        {"image lock", 1, true, 2, CCE_NONE, false},
        {"conversion", 6, false, 1, CCE_CONVERTFAILED, false},
        {"working image lock", 6, true, 7, CCE_NONE, false},
        {"first output", 1, false, 1, CCE_NOMEMORY, true},
        {"third output", 6, false, 4, CCE_NOMEMORY, true},
        {"output copy left unfilled", 1, true, 4, CCE_NOMEMORY, true},
        {"output lock", 1, true, 10, CCE_NONE, true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        HGLOBAL channels[3] = {kUntouched, kUntouched, kUntouched};
        paxtest::Snapshot s = paxtest::TakeSnapshot();
        win32lite::ResetFaults();
        c.lock ? win32lite::FailLockAt(c.at) : win32lite::FailAllocationAt(c.at);
        EXPECT_EQ(SplitColorChannels(rgb, channels, static_cast<BYTE>(c.model)), 0);
        win32lite::ResetFaults();
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code));
        paxtest::ExpectCensus(s, 0, c.what);
        for (HGLOBAL h : channels) EXPECT_EQ(h, c.cleared ? nullptr : kUntouched);
    }
    GlobalFree(rgb);
}
#endif

TEST(SplitColorChannels, FailureSweepsLeaveNothingBehind) {
    HGLOBAL rgb = MakeModelImage(MODEL_RGB, 5, 3, 21);
    HGLOBAL rgb32 = MakeModelImage(MODEL_RGB, 2, 3, 22, 32);
    struct Op {
        HGLOBAL image;
        int model;
    } ops[] = {{rgb, MODEL_RGB}, {rgb, MODEL_HSV}, {rgb, MODEL_CMYK}, {rgb32, MODEL_RGB}};
    for (const Op &op : ops) {
        SCOPED_TRACE(testing::Message() << "model " << op.model);
        paxtest::SweepCounts n = paxtest::SweepFailures(
            [&] {
                HGLOBAL channels[4] = {};
                int made = SplitColorChannels(op.image, channels, static_cast<BYTE>(op.model));
                return std::vector<HGLOBAL>(channels, channels + made);
            },
            {op.image});
        if (paxtest::HaveCensus()) {
            EXPECT_GE(n.allocationPoints, 3);
            EXPECT_GE(n.lockPoints, 5);
        }
    }
    GlobalFree(rgb);
    GlobalFree(rgb32);
}

} // namespace
