// ConvertDIBColorSpace: whole images between colour models.
#include "census.h"
#include "convert_internal.h"
#include "convert_support.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using convtest::ConvertOne;
using convtest::MakeModelImage;
using convtest::ReadRows;
using convtest::Rows;
using convtest::TagOf;
using convtest::WithField;
using H = BITMAPINFOHEADER;
using paxtest::CceName;

// Components of a stored pixel in component order: bytes 2, 1, 0 of a
// 3-component pixel; C, M, Y, K from bytes 3, 2, 1, 0 of a CMYK pixel.
std::vector<BYTE> Components(const BYTE *p, int model) {
    if (model == MODEL_CMYK) return {p[3], p[2], p[1], p[0]};
    return {p[2], p[1], p[0]};
}

// Checks a converted image against the single-value conversion of every
// source pixel, and its header, size and padding against the rules of its
// kind of result.
void ExpectConverted(HGLOBAL sourceImage, HGLOBAL resultImage, int from, int to) {
    ASSERT_NE(resultImage, nullptr);
    const Rows src = ReadRows(sourceImage), dst = ReadRows(resultImage);
    const int width = src.header.biWidth, height = src.header.biHeight;
    const int srcBytes = src.header.biBitCount / 8;
    const int dstBytes = to == MODEL_CMYK ? 4 : from == MODEL_CMYK ? 3 : srcBytes;
    EXPECT_EQ(dst.header.biWidth, width);
    EXPECT_EQ(dst.header.biHeight, height);
    EXPECT_EQ(dst.header.biCompression, TagOf(to));
    if (to == MODEL_CMYK || from == MODEL_CMYK) {
        // A new image without a colour table; 24-bit padding bytes are 0.
        EXPECT_EQ(dst.header.biBitCount, dstBytes * 8);
        EXPECT_EQ(dst.header.biSizeImage, static_cast<DWORD>(dst.stride * height));
        EXPECT_EQ(dst.header.biClrUsed, 0u);
        EXPECT_EQ(dst.block.size(), 40u + dst.stride * height);
        for (int y = 0; y < height; ++y)
            for (size_t c = static_cast<size_t>(dstBytes) * width; c < dst.stride; ++c)
                EXPECT_EQ(dst.Pixel(0, y, 3)[c], 0) << "padding of row " << y;
    } else {
        // A copy of the whole block: header (but the tag), table and padding.
        ASSERT_EQ(dst.block.size(), src.block.size());
        BITMAPINFOHEADER h = src.header;
        h.biCompression = TagOf(to);
        EXPECT_EQ(std::memcmp(&h, &dst.header, sizeof h), 0);
        EXPECT_TRUE(std::equal(src.block.begin() + 40, src.block.begin() + src.offset,
                               dst.block.begin() + 40))
            << "colour table";
        for (int y = 0; y < height; ++y) {
            for (size_t c = static_cast<size_t>(srcBytes) * width; c < src.stride; ++c)
                EXPECT_EQ(dst.Pixel(0, y, 3)[c], src.Pixel(0, y, 3)[c]) << "padding of row " << y;
            for (int x = 0; srcBytes == 4 && x < width; ++x)
                EXPECT_EQ(dst.Pixel(x, y, 4)[3], src.Pixel(x, y, 4)[3]) << "fourth byte";
        }
    }
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            ASSERT_EQ(Components(dst.Pixel(x, y, dstBytes), to),
                      ConvertOne(from, to, Components(src.Pixel(x, y, srcBytes), from).data()))
                << "pixel (" << x << ", " << y << ")";
}

// Converts, checks the result against the source and returns it.
HGLOBAL Converted(HGLOBAL image, int from, int to, int progress = 0) {
    HGLOBAL result = ConvertDIBColorSpace(image, from, to, progress, nullptr);
    EXPECT_NE(result, nullptr) << CceName(GetLastColorConvertError());
    if (result) ExpectConverted(image, result, from, to);
    EXPECT_EQ(paxtest::LockCount(image), 0);
    return result;
}

HGLOBAL MakeRgb(int width, int height, uint32_t seed) {
    return MakeModelImage(MODEL_RGB, width, height, seed);
}

TEST(ConvertDIBColorSpace, Examples) {
    const paxtest::Rgb colours[6] = {{255, 0, 0},   {0, 255, 0}, {0, 0, 255},
                                     {10, 200, 30}, {255, 0, 1}, {0, 0, 0}};
    HGLOBAL image = paxtest::MakeDib24(3, 2, [&](int x, int y) { return colours[y * 3 + x]; });
    GetThreadState()->convertError = CCE_NOMEMORY; // cleared on success
    HGLOBAL hsv = Converted(image, MODEL_RGB, MODEL_HSV);
    ASSERT_NE(hsv, nullptr);
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    EXPECT_EQ(paxtest::HeaderOf(hsv).biCompression, 14u);
    const paxtest::Rgb expected[5] = {{0, 255, 255}, {85, 255, 255}, {170, 255, 255},
                                      {89, 242, 200}, {254, 255, 255}}; // H, S, V
    for (int k = 0; k < 5; ++k)
        EXPECT_TRUE(paxtest::Pixel24(hsv, k % 3, k / 3) == expected[k]) << "pixel " << k;
    EXPECT_EQ(paxtest::LockCount(hsv), 0);

    // Equal models give back the very handle, untouched, with nothing made.
    std::vector<BYTE> before = paxtest::BlockBytes(image);
    paxtest::Snapshot s = paxtest::TakeSnapshot();
    EXPECT_EQ(ConvertDIBColorSpace(image, MODEL_RGB, MODEL_RGB, 1, nullptr), image);
    paxtest::ExpectCensus(s, 0, "same model");
    EXPECT_TRUE(paxtest::BlockBytes(image) == before);
    EXPECT_EQ(paxtest::LockCount(image), 0);
    GlobalFree(hsv);
    GlobalFree(image);
}

TEST(ConvertDIBColorSpace, RgbToCmykAndBack) {
    HGLOBAL image = MakeRgb(5, 3, 3);
    HGLOBAL cmyk = Converted(image, MODEL_RGB, MODEL_CMYK);
    ASSERT_NE(cmyk, nullptr);
    BITMAPINFOHEADER h = paxtest::HeaderOf(cmyk);
    EXPECT_EQ(h.biBitCount, 32);
    EXPECT_EQ(h.biCompression, 12u);
    EXPECT_EQ(h.biSizeImage, 4u * 5 * 3);
    HGLOBAL back = Converted(cmyk, MODEL_CMYK, MODEL_RGB);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(paxtest::HeaderOf(back).biBitCount, 24);
    EXPECT_EQ(paxtest::HeaderOf(back).biCompression, 0u);
    // CMYK of an RGB byte triple converts back to the same triple.
    for (int k = 0; k < 15; ++k)
        EXPECT_TRUE(paxtest::Pixel24(back, k % 5, k / 5) == paxtest::Pixel24(image, k % 5, k / 5));
    for (HGLOBAL g : {back, cmyk, image}) GlobalFree(g);
}

TEST(ConvertDIBColorSpace, PaddingIsNeverReadAsAPixelAndKeepsItsValue) {
    HGLOBAL image = MakeModelImage(MODEL_RGB, 5, 4, 9, 24, 0xA5);
    ASSERT_EQ(ReadRows(image).stride, 16u);
    HGLOBAL yiq = Converted(image, MODEL_RGB, MODEL_YIQ);
    for (int y = 0; y < 4; ++y) EXPECT_EQ(ReadRows(yiq).Pixel(0, y, 3)[15], 0xA5);
    GlobalFree(yiq);
    GlobalFree(image);
}

// Sources that are not plain 24-bit images: 32 bits of a three-component
// model (walked at four bytes), a colour-table count (copies keep the table,
// new results start their pixels right after the header), and no columns.
TEST(ConvertDIBColorSpace, UnusualSources) {
    for (int to : {MODEL_HSV, MODEL_CMYK, MODEL_LAB}) {
        HGLOBAL image = MakeModelImage(MODEL_RGB, 5, 3, 31, 32);
        HGLOBAL result = Converted(image, MODEL_RGB, to);
        EXPECT_EQ(paxtest::HeaderOf(result).biBitCount, 32);
        if (to != MODEL_CMYK) GlobalFree(Converted(result, to, MODEL_YUV));
        GlobalFree(result);
        GlobalFree(image);
    }
    paxtest::Rng rng(5);
    HGLOBAL image = paxtest::MakeDib(3, 2, 24, [&](int, int, int) { return rng.Byte(); }, 3, 0x11);
    ASSERT_EQ(ReadRows(image).offset, 52u);
    HGLOBAL cmyk = Converted(image, MODEL_RGB, MODEL_CMYK);
    HGLOBAL hsi = Converted(image, MODEL_RGB, MODEL_HSI);
    EXPECT_EQ(paxtest::HeaderOf(hsi).biClrUsed, 3u);
    HGLOBAL cmykWithTable =
        paxtest::MakeDib(3, 2, 32, [&](int, int, int) { return rng.Byte(); }, 2, 0, 12);
    HGLOBAL rgb = Converted(cmykWithTable, MODEL_CMYK, MODEL_RGB);
    HGLOBAL empty = MakeRgb(0, 3, 1);
    HGLOBAL emptyCmyk = ConvertDIBColorSpace(empty, MODEL_RGB, MODEL_CMYK, 1, nullptr);
    ASSERT_NE(emptyCmyk, nullptr);
    EXPECT_EQ(paxtest::HeaderOf(emptyCmyk).biCompression, 12u);
    for (HGLOBAL h : {image, cmyk, hsi, cmykWithTable, rgb, empty, emptyCmyk}) GlobalFree(h);
}

// Input the conversion does not walk: null, with the code of each case.
TEST(ConvertDIBColorSpace, RefusedImagesAndTheirCodes) {
    struct Case {
        const char *what;
        HGLOBAL image;
        int from, to;
        DWORD code;
    };
    auto dib = [](int bits, DWORD tag) {
        return paxtest::MakeDib(4, 2, bits, [](int, int, int) { return BYTE{3}; }, -1, 0, tag);
    };
    HGLOBAL rgb = MakeRgb(3, 3, 1);
    std::vector<Case> cases = {
        {"model 0", rgb, 0, 6, CCE_BADMODEL},
        {"model 10", rgb, 1, 10, CCE_BADMODEL},
        {"bad model and null image", nullptr, 10, 1, CCE_BADMODEL},
        {"null image", nullptr, 1, 6, CCE_NONE},
        {"tag 14 as RGB", MakeModelImage(MODEL_HSV, 3, 3, 2), MODEL_RGB, MODEL_LAB, CCE_BADMODEL},
        {"tag 0 as CMYK", MakeRgb(3, 3, 2), MODEL_CMYK, MODEL_RGB, CCE_BADMODEL},
        {"8-bit", dib(8, 0), 1, 6, CCE_NONE},
        {"16-bit", dib(16, 0), 1, 6, CCE_NONE},
        {"8-bit tagged CMYK", dib(8, 12), 4, 1, CCE_NONE},
        {"24-bit tagged CMYK", dib(24, 12), 4, 1, CCE_NONE},
        {"block smaller than a header", GlobalAlloc(GHND, 20), 1, 6, CCE_BADARGUMENT},
        {"core header", WithField(MakeRgb(3, 3, 5), &H::biSize, 12), 1, 6, CCE_BADARGUMENT},
        {"too many rows", WithField(MakeRgb(3, 3, 6), &H::biHeight, 4), 1, 6, CCE_BADARGUMENT},
        {"too many rows, into CMYK", WithField(MakeRgb(3, 3, 6), &H::biHeight, 400), 1, 4,
         CCE_BADARGUMENT},
        {"CMYK with too many rows", WithField(MakeModelImage(4, 3, 3, 6), &H::biHeight, 4), 4, 1,
         CCE_BADARGUMENT},
        {"too wide", WithField(MakeRgb(3, 3, 6), &H::biWidth, 0x40000000), 1, 2, CCE_BADARGUMENT},
        {"colour table past the block", WithField(MakeRgb(3, 3, 6), &H::biClrUsed, 0x10000000), 1,
         2, CCE_BADARGUMENT},
        {"colour table count that overflows",
         WithField(MakeRgb(3, 3, 6), &H::biClrUsed, 0x80000000u), 1, 2, CCE_BADARGUMENT},
        {"CMYK colour table count that overflows",
         WithField(MakeModelImage(4, 3, 3, 6), &H::biClrUsed, 0xC0000001u), 4, 1, CCE_BADARGUMENT},
        {"top-down rows", WithField(MakeRgb(3, 3, 6), &H::biHeight, -3), 1, 6, CCE_BADARGUMENT},
    };
    std::set<HGLOBAL> made;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<BYTE> before = c.image ? paxtest::BlockBytes(c.image) : std::vector<BYTE>{};
        paxtest::Snapshot s = paxtest::TakeSnapshot();
        GetThreadState()->convertError = 99;
        EXPECT_EQ(ConvertDIBColorSpace(c.image, c.from, c.to, 0, nullptr), nullptr);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code));
        paxtest::ExpectCensus(s, 0, c.what);
        if (!c.image) continue;
        made.insert(c.image);
        EXPECT_EQ(paxtest::LockCount(c.image), 0);
        EXPECT_TRUE(paxtest::BlockBytes(c.image) == before);
    }
    for (HGLOBAL h : made) GlobalFree(h);
}

#ifndef _WIN32
// Codes of the platform failures, each made to happen at its point.
TEST(ConvertDIBColorSpace, PlatformFailuresStoreTheirCodes) {
    HGLOBAL rgb = MakeRgb(3, 2, 8);
    HGLOBAL cmyk = MakeModelImage(MODEL_CMYK, 3, 2, 8);
    struct Case {
        const char *what;
        HGLOBAL image;
        int from, to;
        bool lock;
        long at;
        DWORD code;
    } cases[] = {
        {"image lock", rgb, 1, 6, true, 1, CCE_NONE},
        {"copy allocation", rgb, 1, 6, false, 1, CCE_NOMEMORY},
        {"CMYK result allocation", rgb, 1, 4, false, 1, CCE_NOCMYKIMAGE},
        {"copy left unfilled", rgb, 1, 6, true, 2, CCE_NOMEMORY},
        {"result lock", rgb, 1, 6, true, 4, CCE_NONE},
        {"result allocation from CMYK", cmyk, 4, 6, false, 1, CCE_NONE},
        {"image lock from CMYK", cmyk, 4, 6, true, 1, CCE_NONE},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        paxtest::Snapshot s = paxtest::TakeSnapshot();
        win32lite::ResetFaults();
        c.lock ? win32lite::FailLockAt(c.at) : win32lite::FailAllocationAt(c.at);
        EXPECT_EQ(ConvertDIBColorSpace(c.image, c.from, c.to, 0, nullptr), nullptr);
        win32lite::ResetFaults();
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code));
        paxtest::ExpectCensus(s, 0, c.what);
    }
    GlobalFree(rgb);
    GlobalFree(cmyk);
}
#endif

TEST(ConvertDIBColorSpace, FailureSweepsLeaveNothingBehind) {
    for (int width : {3, 4}) {
        HGLOBAL rgb = MakeRgb(width, 3, 12);
        HGLOBAL cmyk = MakeModelImage(MODEL_CMYK, width, 3, 13);
        struct Op {
            HGLOBAL image;
            int from, to, progress;
        } ops[] = {{rgb, 1, 6, 0}, {rgb, 1, 4, 0}, {rgb, 1, 9, 1}, {cmyk, 4, 1, 0}, {cmyk, 4, 7, 1}};
        for (const Op &op : ops) {
            SCOPED_TRACE(testing::Message() << op.from << "->" << op.to);
            paxtest::SweepCounts n = paxtest::SweepFailures(
                [&] { return ConvertDIBColorSpace(op.image, op.from, op.to, op.progress, nullptr); },
                {op.image});
            if (paxtest::HaveCensus()) {
                EXPECT_GE(n.allocationPoints, 1);
                EXPECT_GE(n.lockPoints, 2);
            }
        }
        GlobalFree(rgb);
        GlobalFree(cmyk);
    }
}

// The row walk against the plain byte walk on random images, with the dialog
// and a Cancel after a random step in some rounds.
TEST(ConvertDIBColorSpaceWalks, RowWalkMatchesByteWalk) {
    if (!convtest::HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
    paxtest::Rng rng(777);
    for (int round = 0; round < 40; ++round) {
        const pax::ConversionEntry &e = pax::kConversions[rng.Below(72)];
        const int width = 1 + rng.Below(round < 15 ? 9 : 700);
        const int height = 1 + rng.Below(round < 15 ? 5 : 12);
        const bool progress = round % 4 != 0;
        const long cancelAfter = progress ? rng.Below(6) : 0;
        SCOPED_TRACE(testing::Message() << e.name << " " << width << "x" << height << " cancel after "
                                        << cancelAfter);
        HGLOBAL image = MakeModelImage(e.fromModel, width, height, rng.Next());
        HGLOBAL results[2];
        long steps[2];
        for (int k = 0; k < 2; ++k) {
            convtest::StepWatch watch(cancelAfter);
            results[k] = pax::ConvertDIBColorSpaceWith(k ? pax::WalkKind::Rows : pax::WalkKind::Bytes,
                                                       image, e.fromModel, e.toModel, progress,
                                                       nullptr);
            steps[k] = progress ? watch.Steps() : 0;
        }
        EXPECT_EQ(steps[0], steps[1]);
        // Cancel pressed after step k arrives with step k + 1, at unit k x 1500.
        const bool cancels = cancelAfter > 0 &&
                             static_cast<int64_t>(ReadRows(image).stride) * height > cancelAfter * 1500;
        if (cancels) {
            EXPECT_EQ(results[0], nullptr);
            EXPECT_EQ(results[1], nullptr);
        } else {
            ASSERT_NE(results[0], nullptr);
            ASSERT_NE(results[1], nullptr);
            EXPECT_TRUE(paxtest::BlockBytes(results[0]) == paxtest::BlockBytes(results[1]));
            ExpectConverted(image, results[1], e.fromModel, e.toModel);
        }
        for (HGLOBAL h : results)
            if (h) GlobalFree(h);
        GlobalFree(image);
    }
}

} // namespace
