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
using convtest::ModelName;
using convtest::ReadRows;
using convtest::Rows;
using convtest::TagOf;
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
    EXPECT_EQ(dst.header.biWidth, width);
    EXPECT_EQ(dst.header.biHeight, height);
    EXPECT_EQ(dst.header.biCompression, TagOf(to));
    int dstBytes;
    if (to == MODEL_CMYK) {
        // A new 32-bit image without a colour table.
        dstBytes = 4;
        EXPECT_EQ(dst.header.biBitCount, 32);
        EXPECT_EQ(dst.header.biSizeImage, static_cast<DWORD>(4 * width * height));
        EXPECT_EQ(dst.header.biClrUsed, 0u);
        EXPECT_EQ(dst.block.size(), 40u + 4u * width * height);
    } else if (from == MODEL_CMYK) {
        // A new 24-bit image, padding bytes 0.
        dstBytes = 3;
        EXPECT_EQ(dst.header.biBitCount, 24);
        EXPECT_EQ(dst.header.biSizeImage, static_cast<DWORD>(dst.stride * height));
        EXPECT_EQ(dst.header.biClrUsed, 0u);
        EXPECT_EQ(dst.block.size(), 40u + dst.stride * height);
        for (int y = 0; y < height; ++y)
            for (size_t c = 3u * width; c < dst.stride; ++c)
                EXPECT_EQ(dst.Pixel(0, y, 3)[c], 0) << "padding of row " << y;
    } else {
        // A copy of the whole block: header (but the tag), table and padding.
        dstBytes = srcBytes;
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
            if (srcBytes == 4) {
                for (int x = 0; x < width; ++x)
                    EXPECT_EQ(dst.Pixel(x, y, 4)[3], src.Pixel(x, y, 4)[3]) << "fourth byte";
            }
        }
    }
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::vector<BYTE> want = ConvertOne(from, to, Components(src.Pixel(x, y, srcBytes), from).data());
            ASSERT_EQ(Components(dst.Pixel(x, y, dstBytes), to), want)
                << "pixel (" << x << ", " << y << ")";
        }
}

HGLOBAL MakeRgb(int width, int height, uint32_t seed) {
    return MakeModelImage(MODEL_RGB, width, height, seed);
}

TEST(ConvertDIBColorSpace, RgbToHsvMakesATaggedCopy) {
    HGLOBAL image = paxtest::MakeDib24(3, 2, [](int x, int y) {
        const paxtest::Rgb colours[6] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255},
                                         {10, 200, 30}, {255, 0, 1}, {0, 0, 0}};
        return colours[y * 3 + x];
    });
    HGLOBAL hsv = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_HSV, 0, nullptr);
    ASSERT_NE(hsv, nullptr);
    EXPECT_EQ(paxtest::HeaderOf(hsv).biCompression, 14u);
    EXPECT_EQ(paxtest::HeaderOf(hsv).biBitCount, 24);
    const paxtest::Rgb expected[5] = {{0, 255, 255}, {85, 255, 255}, {170, 255, 255},
                                      {89, 242, 200}, {254, 255, 255}};
    for (int k = 0; k < 5; ++k) {
        paxtest::Rgb got = paxtest::Pixel24(hsv, k % 3, k / 3); // H, S, V in bytes 2, 1, 0
        EXPECT_TRUE(got == expected[k]) << "pixel " << k << ": " << int(got.r) << ", " << int(got.g)
                                        << ", " << int(got.b);
    }
    ExpectConverted(image, hsv, MODEL_RGB, MODEL_HSV);
    EXPECT_EQ(paxtest::LockCount(image), 0);
    EXPECT_EQ(paxtest::LockCount(hsv), 0);
    GlobalFree(hsv);
    GlobalFree(image);
}

TEST(ConvertDIBColorSpace, EqualModelsGiveBackTheSameHandle) {
    HGLOBAL image = MakeRgb(4, 3, 1);
    std::vector<BYTE> before = paxtest::BlockBytes(image);
    paxtest::Snapshot s = paxtest::TakeSnapshot();
    EXPECT_EQ(ConvertDIBColorSpace(image, MODEL_RGB, MODEL_RGB, 1, nullptr), image);
    paxtest::ExpectCensus(s, 0, "same model");
    EXPECT_TRUE(paxtest::BlockBytes(image) == before);
    EXPECT_EQ(paxtest::LockCount(image), 0);
    HGLOBAL lab = MakeModelImage(MODEL_LAB, 3, 3, 2);
    EXPECT_EQ(ConvertDIBColorSpace(lab, MODEL_LAB, MODEL_LAB, 0, nullptr), lab);
    GlobalFree(lab);
    GlobalFree(image);
}

TEST(ConvertDIBColorSpace, RgbToCmykAndBack) {
    HGLOBAL image = MakeRgb(5, 3, 3);
    HGLOBAL cmyk = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_CMYK, 0, nullptr);
    ASSERT_NE(cmyk, nullptr);
    BITMAPINFOHEADER h = paxtest::HeaderOf(cmyk);
    EXPECT_EQ(h.biBitCount, 32);
    EXPECT_EQ(h.biCompression, 12u);
    EXPECT_EQ(h.biSizeImage, 4u * 5 * 3);
    ExpectConverted(image, cmyk, MODEL_RGB, MODEL_CMYK);
    HGLOBAL back = ConvertDIBColorSpace(cmyk, MODEL_CMYK, MODEL_RGB, 0, nullptr);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(paxtest::HeaderOf(back).biBitCount, 24);
    EXPECT_EQ(paxtest::HeaderOf(back).biCompression, 0u);
    ExpectConverted(cmyk, back, MODEL_CMYK, MODEL_RGB);
    // CMYK of an RGB byte triple converts back to the same triple.
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) EXPECT_TRUE(paxtest::Pixel24(back, x, y) == paxtest::Pixel24(image, x, y));
    GlobalFree(back);
    GlobalFree(cmyk);
    GlobalFree(image);
}

TEST(ConvertDIBColorSpace, PaddingIsNeverReadAsAPixelAndKeepsItsValue) {
    HGLOBAL image = MakeModelImage(MODEL_RGB, 5, 4, 9, 24, 0xA5);
    ASSERT_EQ(ReadRows(image).stride, 16u);
    HGLOBAL yiq = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_YIQ, 0, nullptr);
    ExpectConverted(image, yiq, MODEL_RGB, MODEL_YIQ);
    Rows r = ReadRows(yiq);
    for (int y = 0; y < 4; ++y) EXPECT_EQ(r.Pixel(0, y, 3)[15], 0xA5);
    GlobalFree(yiq);
    GlobalFree(image);
}

// Every ordered pair through the image path, on images with odd widths so
// that rows are padded, every pixel checked.
TEST(ConvertDIBColorSpace, EveryPairConvertsEachPixelWithItsConversion) {
    int pairs = 0;
    for (const pax::ConversionEntry &e : pax::kConversions) {
        SCOPED_TRACE(e.name);
        for (int width : {1, 2, 3, 5, 7}) {
            HGLOBAL image = MakeModelImage(e.fromModel, width, 3, 77u * pairs + width);
            HGLOBAL result = ConvertDIBColorSpace(image, e.fromModel, e.toModel, 0, nullptr);
            ASSERT_NE(result, nullptr) << "width " << width << " code "
                                       << CceName(GetLastColorConvertError());
            ExpectConverted(image, result, e.fromModel, e.toModel);
            EXPECT_EQ(paxtest::LockCount(image), 0);
            GlobalFree(result);
            GlobalFree(image);
        }
        ++pairs;
    }
    EXPECT_EQ(pairs, 72);
}

TEST(ConvertDIBColorSpace, ThirtyTwoBitImageOfAThreeComponentModelIsWalkedAtFourBytes) {
    for (int to : {MODEL_HSV, MODEL_CMYK, MODEL_LAB}) {
        HGLOBAL image = MakeModelImage(MODEL_RGB, 5, 3, 31, 32);
        HGLOBAL result = ConvertDIBColorSpace(image, MODEL_RGB, to, 0, nullptr);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(paxtest::HeaderOf(result).biBitCount, 32);
        ExpectConverted(image, result, MODEL_RGB, to);
        if (to != MODEL_CMYK) {
            HGLOBAL back = ConvertDIBColorSpace(result, to, MODEL_YUV, 0, nullptr);
            ExpectConverted(result, back, to, MODEL_YUV);
            GlobalFree(back);
        }
        GlobalFree(result);
        GlobalFree(image);
    }
}

// Results without a colour table start their pixels right after the header,
// whatever biClrUsed the source had; copies keep the source's table.
TEST(ConvertDIBColorSpace, SourceWithAColourTableCount) {
    paxtest::Rng rng(5);
    HGLOBAL image = paxtest::MakeDib(
        3, 2, 24, [&](int, int, int) { return rng.Byte(); }, 3, 0x11);
    ASSERT_EQ(ReadRows(image).offset, 52u);
    HGLOBAL cmyk = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_CMYK, 0, nullptr);
    ExpectConverted(image, cmyk, MODEL_RGB, MODEL_CMYK);
    HGLOBAL hsi = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_HSI, 0, nullptr);
    ExpectConverted(image, hsi, MODEL_RGB, MODEL_HSI);
    EXPECT_EQ(paxtest::HeaderOf(hsi).biClrUsed, 3u);

    HGLOBAL cmykWithTable = paxtest::MakeDib(
        3, 2, 32, [&](int, int, int) { return rng.Byte(); }, 2, 0, 12);
    HGLOBAL rgb = ConvertDIBColorSpace(cmykWithTable, MODEL_CMYK, MODEL_RGB, 0, nullptr);
    ExpectConverted(cmykWithTable, rgb, MODEL_CMYK, MODEL_RGB);
    for (HGLOBAL h : {image, cmyk, hsi, cmykWithTable, rgb}) GlobalFree(h);
}

// Input the conversion does not walk: null, with the code of each case.
TEST(ConvertDIBColorSpace, RefusedImagesAndTheirCodes) {
    struct Case {
        const char *what;
        HGLOBAL image;
        int from, to;
        DWORD code;
    };
    auto withHeader = [](HGLOBAL image, void (*edit)(BITMAPINFOHEADER *)) {
        auto *h = static_cast<BITMAPINFOHEADER *>(GlobalLock(image));
        edit(h);
        GlobalUnlock(image);
        return image;
    };
    HGLOBAL rgb = MakeRgb(3, 3, 1);
    HGLOBAL tiny = GlobalAlloc(GHND, 20);
    std::vector<Case> cases = {
        {"model 0", rgb, 0, 6, CCE_BADMODEL},
        {"model 10", rgb, 1, 10, CCE_BADMODEL},
        {"bad model and null image", nullptr, 10, 1, CCE_BADMODEL},
        {"null image", nullptr, 1, 6, CCE_NONE},
        {"tag 14 as RGB", MakeModelImage(MODEL_HSV, 3, 3, 2), MODEL_RGB, MODEL_LAB, CCE_BADMODEL},
        {"tag 0 as CMYK", MakeRgb(3, 3, 2), MODEL_CMYK, MODEL_RGB, CCE_BADMODEL},
        {"8-bit", paxtest::MakeDib(4, 2, 8, [](int, int, int) { return BYTE{3}; }), 1, 6, CCE_NONE},
        {"16-bit", paxtest::MakeDib(4, 2, 16, [](int, int, int) { return BYTE{3}; }), 1, 6, CCE_NONE},
        {"8-bit tagged CMYK",
         paxtest::MakeDib(4, 2, 8, [](int, int, int) { return BYTE{3}; }, -1, 0, 12), 4, 1,
         CCE_NONE},
        {"24-bit tagged CMYK",
         withHeader(MakeRgb(3, 2, 4), [](BITMAPINFOHEADER *h) { h->biCompression = 12; }), 4, 1,
         CCE_NONE},
        {"block smaller than a header", tiny, 1, 6, CCE_BADARGUMENT},
        {"core header", withHeader(MakeRgb(3, 3, 5), [](BITMAPINFOHEADER *h) { h->biSize = 12; }),
         1, 6, CCE_BADARGUMENT},
        {"more rows than the block holds",
         withHeader(MakeRgb(3, 3, 6), [](BITMAPINFOHEADER *h) { h->biHeight = 4; }), 1, 6,
         CCE_BADARGUMENT},
        {"more rows than the block holds, into CMYK",
         withHeader(MakeRgb(3, 3, 6), [](BITMAPINFOHEADER *h) { h->biHeight = 400; }), 1, 4,
         CCE_BADARGUMENT},
        {"CMYK with more rows than the block holds",
         withHeader(MakeModelImage(MODEL_CMYK, 3, 3, 6), [](BITMAPINFOHEADER *h) { h->biHeight = 4; }),
         4, 1, CCE_BADARGUMENT},
        {"wider than the block holds",
         withHeader(MakeRgb(3, 3, 6), [](BITMAPINFOHEADER *h) { h->biWidth = 0x40000000; }), 1, 2,
         CCE_BADARGUMENT},
        {"colour table past the block",
         withHeader(MakeRgb(3, 3, 6), [](BITMAPINFOHEADER *h) { h->biClrUsed = 0x10000000; }), 1,
         2, CCE_BADARGUMENT},
        {"colour table count that overflows",
         withHeader(MakeRgb(3, 3, 6), [](BITMAPINFOHEADER *h) { h->biClrUsed = 0x80000000u; }), 1,
         2, CCE_BADARGUMENT},
        {"CMYK colour table count that overflows",
         withHeader(MakeModelImage(MODEL_CMYK, 3, 3, 6),
                    [](BITMAPINFOHEADER *h) { h->biClrUsed = 0xC0000001u; }),
         4, 1, CCE_BADARGUMENT},
        {"top-down rows",
         withHeader(MakeRgb(3, 3, 6), [](BITMAPINFOHEADER *h) { h->biHeight = -3; }), 1, 6,
         CCE_BADARGUMENT},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<BYTE> before = c.image ? paxtest::BlockBytes(c.image) : std::vector<BYTE>{};
        paxtest::Snapshot s = paxtest::TakeSnapshot();
        GetThreadState()->convertError = 99;
        EXPECT_EQ(ConvertDIBColorSpace(c.image, c.from, c.to, 0, nullptr), nullptr);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code));
        paxtest::ExpectCensus(s, 0, c.what);
        if (c.image) {
            EXPECT_EQ(paxtest::LockCount(c.image), 0);
            EXPECT_TRUE(paxtest::BlockBytes(c.image) == before);
        }
    }
    std::set<HGLOBAL> made;
    for (const Case &c : cases)
        if (c.image) made.insert(c.image);
    for (HGLOBAL h : made) GlobalFree(h);
}

TEST(ConvertDIBColorSpace, EmptyImageConvertsToAnEmptyResult) {
    HGLOBAL image = MakeRgb(0, 3, 1);
    HGLOBAL result = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_CMYK, 1, nullptr);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(paxtest::HeaderOf(result).biCompression, 12u);
    GlobalFree(result);
    GlobalFree(image);
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
        if (c.lock)
            win32lite::FailLockAt(c.at);
        else
            win32lite::FailAllocationAt(c.at);
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
            SCOPED_TRACE(testing::Message() << ModelName(op.from) << "->" << ModelName(op.to));
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

TEST(ConvertDIBColorSpace, CodeIsClearedOnSuccess) {
    HGLOBAL image = MakeRgb(2, 2, 1);
    GetThreadState()->convertError = CCE_NOMEMORY;
    HGLOBAL result = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_XYZ, 0, nullptr);
    EXPECT_NE(result, nullptr);
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    GlobalFree(result);
    GlobalFree(image);
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
        const Rows src = ReadRows(image);
        // Cancel pressed after step k arrives with step k + 1, at unit k x 1500.
        const bool cancels = cancelAfter > 0 &&
                             static_cast<int64_t>(src.stride) * height > cancelAfter * 1500;
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
