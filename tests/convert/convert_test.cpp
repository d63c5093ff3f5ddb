// The buffer conversion, the image conversion and channel splitting.
//
// Every one of the 81 model pairs through the buffer conversion (apart, in
// place and overlapping, a trailing partial pixel at times), the image
// conversion (24-bit sources, 32-bit ones of the three-component models, some
// with a colour table, some with no columns) and channel splitting, on seeded
// random pixels of odd widths 1 to 9 and 37: everything the caller can see
// folds into one digest, the same on Linux and Windows and the same under
// PAXIMAGE_REFERENCE=1 (the fast runs give the bytes of the straightforward
// per-pixel walk). The single-value conversions the pixels go through are
// pinned on their whole domain by the colour model tests; the worked cases
// below show the layouts of the buffers.
//
// Then the refusals that the table of image exports does not hold: the
// buffer's argument checks in order, its dialog failure, the depths and tags
// of a CMYK source, a split's array and the codes of each injected failure.
#include "census.h"
#include "conversion_table.h"
#include "convert_internal.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using H = BITMAPINFOHEADER;
using paxtest::CceName;

// Bytes per pixel of a buffer of the model: 4 for CMYK, 3 otherwise.
int BufferBytes(int model) { return model == MODEL_CMYK ? 4 : 3; }

std::vector<BYTE> RandomBytes(size_t n, uint32_t seed) {
    paxtest::Rng rng(seed);
    std::vector<BYTE> v(n);
    for (BYTE &b : v) b = rng.Byte();
    return v;
}

// A seeded random image tagged with the model: 32 bits for CMYK, else `bits`
// (24 or 32), with `table` colour-table entries (-1: none). Padding bytes are
// padByte.
HGLOBAL MakeModelImage(int model, int width, int height, uint32_t seed, int bits = 24, BYTE padByte = 0x5A,
                       int table = -1) {
    if (model == MODEL_CMYK) bits = 32;
    const std::vector<BYTE> bytes = RandomBytes(static_cast<size_t>(width) * height * (bits / 8), seed);
    auto fill = [&](int x, int y, int k) { return bytes[(static_cast<size_t>(y) * width + x) * (bits / 8) + k]; };
    return paxtest::MakeDib(width, height, bits, fill, table, padByte, model == MODEL_RGB ? 0 : DWORD(model + 8));
}

// Sets one field of an image's header in place and returns the image.
template <class F>
HGLOBAL WithField(HGLOBAL image, F H::*field, long long value) {
    static_cast<H *>(GlobalLock(image))->*field = static_cast<F>(value);
    GlobalUnlock(image);
    return image;
}

// ---- Every model pair --------------------------------------------------------

// Everything the caller can see, in order, each part after its size (8
// bytes, little-endian), for one FNV-1a digest at the end.
void Add(std::vector<BYTE> &seen, const BYTE *p, uint64_t size) {
    for (int k = 0; k < 8; ++k) seen.push_back(BYTE(size >> (8 * k)));
    seen.insert(seen.end(), p, p + size);
}

// The whole block of an image: header, colour table and rows, and its size.
void AddImage(std::vector<BYTE> &d, HGLOBAL image) {
    const std::vector<BYTE> block = paxtest::BlockBytes(image);
    Add(d, block.data(), block.size());
}

// count bytes converted from offset `at` to offset `out` of one buffer (apart
// when they lie far enough apart).
void Buffer(std::vector<BYTE> &d, paxtest::Rng &rng, int from, int to, int width) {
    const int n = BufferBytes(from), m = from == to ? 1 : BufferBytes(to);
    const int pixels = width * (1 + rng.Below(9));
    const int count = pixels * n + rng.Below(2); // a partial pixel at times
    const int written = from == to ? count : count / n * m;
    const int layout = from == to ? 0 : rng.Below(3); // apart, in place, overlapping
    const size_t at = layout == 2 ? rng.Below(9) : 0, out = layout == 0 ? count : layout == 2 ? rng.Below(9) : 0;
    const size_t size = std::max({at + count, out + written, size_t{1}});
    const std::vector<BYTE> bytes = RandomBytes(size, rng.Next());
    std::unique_ptr<BYTE[]> buffer(new BYTE[size]); // exactly sized for the sanitizer
    std::copy(bytes.begin(), bytes.end(), buffer.get());
    GetThreadState()->convertError = 99; // cleared by every call
    ASSERT_EQ(ConvertColorSpace(buffer.get() + at, buffer.get() + out, count, from, to, 0, nullptr), count);
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    Add(d, buffer.get(), size);
}

// An image conversion: the caller's block unchanged and unlocked, the result
// unlocked and the only block made (the caller's own handle for equal models).
void Image(std::vector<BYTE> &d, paxtest::Rng &rng, int from, int to, int width, int bits) {
    HGLOBAL image = MakeModelImage(from, width, 1 + rng.Below(5), rng.Next(), bits, 0x5A, rng.Below(4) == 0 ? 3 : -1);
    const std::vector<BYTE> before = paxtest::BlockBytes(image);
    const paxtest::Snapshot s = paxtest::TakeSnapshot();
    GetThreadState()->convertError = 99;
    HGLOBAL result = ConvertDIBColorSpace(image, from, to, 0, nullptr);
    ASSERT_NE(result, nullptr) << CceName(GetLastColorConvertError());
    paxtest::ExpectCensus(s, result == image ? 0 : 1, "the result only");
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    EXPECT_TRUE(paxtest::BlockBytes(image) == before);
    EXPECT_EQ(paxtest::LockCount(image), 0);
    EXPECT_EQ(result == image, from == to) << "the caller's handle comes back for equal models only";
    if (result != image) {
        EXPECT_EQ(paxtest::LockCount(result), 0);
        AddImage(d, result);
        GlobalFree(result);
    }
    GlobalFree(image);
}

// Splitting an RGB image into the model: 3 outputs, or 4 (M, Y, K, C for
// CMYK; R, G, B and the fourth byte from a 32-bit source), each a grey image
// of one component with the source's padding.
void Split(std::vector<BYTE> &d, paxtest::Rng &rng, int model, int width, int bits) {
    HGLOBAL image = MakeModelImage(MODEL_RGB, width, 1 + rng.Below(5), rng.Next(), bits, 0x3C);
    HGLOBAL channels[4] = {};
    const paxtest::Snapshot s = paxtest::TakeSnapshot();
    const int n = SplitColorChannels(image, channels, static_cast<BYTE>(model));
    ASSERT_EQ(n, model == MODEL_CMYK || bits == 32 ? 4 : 3);
    paxtest::ExpectCensus(s, n, "the outputs only: the converted image is freed");
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    for (int k = 0; k < n; ++k) {
        AddImage(d, channels[k]);
        GlobalFree(channels[k]);
    }
    GlobalFree(image);
}

TEST(ModelPairs, EveryPairByBufferImageAndSplitGivesThePinnedDigest) {
    paxtest::Rng rng(20261125);
    std::vector<BYTE> d;
    for (int from = MODEL_RGB; from <= MODEL_LAB; ++from) {
        for (int to = MODEL_RGB; to <= MODEL_LAB; ++to) {
            SCOPED_TRACE(testing::Message() << from << "->" << to);
            for (int width : {0, 1, 3, 5, 7, 9, 37}) {
                if (width) Buffer(d, rng, from, to, width);
                Image(d, rng, from, to, width, 24);
                if (from != MODEL_CMYK) Image(d, rng, from, to, width, 32);
            }
        }
        for (int width : {1, 5, 37}) Split(d, rng, from, width, 24);
    }
    for (int width : {1, 5, 37}) Split(d, rng, MODEL_RGB, width, 32);
    uint64_t h = 0xcbf29ce484222325ull;
    for (BYTE b : d) h = (h ^ b) * 0x100000001b3ull;
    EXPECT_EQ(h, 0x2ed8568e3c297c05ull) << std::hex << h;
}

#ifndef _WIN32
// With the dialog and Cancel pressed after a random step, the row walk steps
// and stops like the plain byte walk (a Cancel after step k arrives with step
// k + 1, at unit k x 1500); the stand-in dialog makes this cheap on Linux.
TEST(ModelPairs, RowWalkStepsAndCancelsLikeTheByteWalk) {
    paxtest::Rng rng(777);
    for (int round = 0; round < 40; ++round) {
        const pax::ConversionEntry &e = pax::kConversions[rng.Below(72)];
        const long cancelAfter = rng.Below(6);
        const int count = 1 + rng.Below(9000), height = 1 + rng.Below(12);
        SCOPED_TRACE(testing::Message() << e.name << " count " << count << " cancel after " << cancelAfter);
        const std::vector<BYTE> source = RandomBytes(static_cast<size_t>(count), rng.Next());
        HGLOBAL image = MakeModelImage(e.fromModel, 1 + rng.Below(700), height, rng.Next());
        std::vector<BYTE> seen[2]; // per walk: buffer result, walked count, steps; image result, steps
        for (pax::WalkKind kind : {pax::WalkKind::Bytes, pax::WalkKind::Rows}) {
            std::vector<BYTE> &v = seen[kind == pax::WalkKind::Rows];
            v.assign(static_cast<size_t>(count) / 3 * 4 + 4, 0x77);
            win32lite::ScriptDialogs({false, cancelAfter});
            const int walked = pax::ConvertColorSpaceWith(kind, source.data(), v.data(), count, e.fromModel, e.toModel, 1, nullptr);
            EXPECT_EQ(walked, cancelAfter > 0 && count > cancelAfter * 1500 ? cancelAfter * 1500 + 1 : count);
            v.push_back(BYTE(win32lite::LastDialog().stepsTaken));
            win32lite::ScriptDialogs({false, cancelAfter});
            HGLOBAL result = pax::ConvertDIBColorSpaceWith(kind, image, e.fromModel, e.toModel, 1, nullptr);
            v.push_back(BYTE(win32lite::LastDialog().stepsTaken));
            const H h = paxtest::HeaderOf(image); // the walk's units: the bytes of the rows
            const int64_t units = (int64_t{h.biWidth} * h.biBitCount + 31) / 32 * 4 * height;
            EXPECT_EQ(result == nullptr, cancelAfter > 0 && units > cancelAfter * 1500);
            if (result) {
                const std::vector<BYTE> bytes = paxtest::BlockBytes(result);
                v.insert(v.end(), bytes.begin(), bytes.end());
                GlobalFree(result);
            }
            for (MSG stale; PeekMessageA(&stale, nullptr, 0, 0, PM_REMOVE);) { // a click after the last step
            }
        }
        win32lite::ScriptDialogs({});
        EXPECT_TRUE(seen[0] == seen[1]);
        GlobalFree(image);
    }
}
#endif

// ---- Worked cases and refusals -----------------------------------------------
// Makes allocation (kind 1) or lock (kind 2) number `at` fail from now on;
// kind 0 undoes it. Only the Linux stand-in can.
void Inject(int kind, long at) {
#ifndef _WIN32
    win32lite::ResetFaults();
    if (kind == 1) win32lite::FailAllocationAt(at);
    if (kind == 2) win32lite::FailLockAt(at);
#endif
}

// Worked cases, each walking its buffers without global memory or locks
// (counted by the stand-in on Linux), with the dialog's creation made to fail
// (scripted on Linux; under Wine run without a display): a conversion asking
// for it gives -1 and CCE_NOPROGRESS and converts nothing, a copy shows none.
TEST(ConvertColorSpace, WorkedCasesAndDialogFailure) {
    const struct {
        int from, to, count, progress;
        std::vector<BYTE> source;
        BYTE fill;
        std::vector<BYTE> expected; // the whole destination afterwards
    } cases[] = {
        {MODEL_RGB, MODEL_HSV, 6, 0, {255, 0, 0, 10, 200, 30}, 0, {0, 255, 255, 89, 242, 200}},
        {MODEL_RGB, MODEL_CMYK, 6, 0, {10, 200, 30, 255, 255, 255}, 0xEE, {190, 0, 170, 55, 0, 0, 0, 0, 0xEE, 0xEE}},
        {MODEL_CMYK, MODEL_RGB, 8, 0, {190, 0, 170, 55, 0, 0, 0, 255}, 0xEE, {10, 200, 30, 0, 0, 0, 0xEE, 0xEE}},
        {MODEL_LAB, MODEL_LAB, 5, 1, {1, 2, 3, 4, 5}, 9, {1, 2, 3, 4, 5, 9}},
        {MODEL_RGB, MODEL_HSV, 1, 0, {200}, 0xEE, {0xEE}}, // one byte: no whole pixel, still walked
        // Last, the conversions that ask for the dialog.
        {MODEL_RGB, MODEL_LAB, 6, 1, {1, 2, 3, 4, 5, 6}, 7, {7, 7, 7, 7, 7, 7}},
        {MODEL_CMYK, MODEL_LAB, 8, 1, {1, 2, 3, 4, 5, 6, 7, 8}, 7, {7, 7, 7, 7, 7, 7}},
    };
    for (const auto &c : cases) {
        std::vector<BYTE> destination(c.expected.size(), c.fill);
        const bool fails = c.progress && c.from != c.to;
#ifndef _WIN32
        win32lite::ScriptDialogs({true, 0});
#endif
        GetThreadState()->convertError = 99; // made on a thread's first call: count after it
        Inject(0, 0);
        const int walked = ConvertColorSpace(c.source.data(), destination.data(), c.count, c.from, c.to, c.progress, nullptr);
        if (fails && walked == c.count && !paxtest::HaveCensus()) break; // Windows, a display: the dialog showed
        EXPECT_EQ(walked, fails ? -1 : c.count);
        EXPECT_EQ(destination, c.expected) << c.from << "->" << c.to;
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(fails ? CCE_NOPROGRESS : CCE_NONE));
#ifndef _WIN32
        EXPECT_EQ(win32lite::AllocationCalls() + win32lite::LockCalls(), 0);
        win32lite::ScriptDialogs({});
#endif
    }
}

// Model codes are checked before the count and the pointers.
TEST(ConvertColorSpace, ChecksStoreTheirCodesInOrder) {
    BYTE b[12] = {};
    const struct {
        const BYTE *source;
        BYTE *destination;
        int count, from, to;
        DWORD code;
    } cases[] = {
        {b, b, 3, 0, 1, CCE_BADMODEL}, {b, b, 3, 10, 1, CCE_BADMODEL}, {b, b, 3, 1, 0, CCE_BADMODEL},
        {b, b, 3, 1, 10, CCE_BADMODEL}, {b, b, 3, -1, 1, CCE_BADMODEL}, {nullptr, nullptr, 0, 0, 1, CCE_BADMODEL},
        {b, b, 0, 1, 6, CCE_BADARGUMENT}, {b, b, -3, 1, 6, CCE_BADARGUMENT}, {nullptr, b, 3, 1, 6, CCE_BADARGUMENT},
        {b, nullptr, 3, 1, 6, CCE_BADARGUMENT}, {b, b, 0, 1, 1, CCE_BADARGUMENT}, {b, b, 0, 4, 1, CCE_BADARGUMENT},
    };
    for (const auto &c : cases) {
        GetThreadState()->convertError = 99;
        EXPECT_EQ(ConvertColorSpace(c.source, c.destination, c.count, c.from, c.to, 0, nullptr), -1);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code)) << c.count << " " << c.from << "->" << c.to;
    }
}

// Refusals and failures of the image conversion and of splitting beyond those
// of the table of image exports, each with its code: null or 0, nothing left
// allocated, the caller's block unchanged and unlocked, and a split's array
// not written, unless (cleared) it has begun to make the outputs.
TEST(ConvertAndSplit, RefusalsAndInjectedFailuresStoreTheirCodes) {
    const HGLOBAL untouched = reinterpret_cast<HGLOBAL>(0x1234);
    auto dib = [](int bits, DWORD tag) {
        return paxtest::MakeDib(4, 2, bits, [](int, int, int) { return BYTE{3}; }, -1, 0, tag);
    };
    auto rgb = [](int bits = 24) { return MakeModelImage(MODEL_RGB, 3, 3, 6, bits); };
    auto cmyk = [] { return MakeModelImage(MODEL_CMYK, 3, 2, 8); };
    const struct {
        const char *what;
        HGLOBAL image;
        int call; // 0: ConvertDIBColorSpace(image, from, to); 1: split into `to`; 2: the same with no array
        int from, to, fail; // fail: 0 nothing, 1 allocation number `at`, 2 lock number `at`
        long at;
        DWORD code;
        bool cleared;
    } cases[] = {
        {"8-bit tagged CMYK", dib(8, 12), 0, 4, 1, 0, 0, CCE_NONE, false},
        {"24-bit tagged CMYK", dib(24, 12), 0, 4, 1, 0, 0, CCE_NONE, false},
        {"CMYK with too many rows", WithField(cmyk(), &H::biHeight, 4), 0, 4, 1, 0, 0, CCE_BADARGUMENT, false},
        {"CMYK colour table count that overflows", WithField(cmyk(), &H::biClrUsed, 0xC0000001u), 0, 4, 1, 0, 0,
         CCE_BADARGUMENT, false},
        {"too many rows, into CMYK", WithField(rgb(), &H::biHeight, 400), 0, 1, 4, 0, 0, CCE_BADARGUMENT, false},
        {"image lock", rgb(), 0, 1, 6, 2, 1, CCE_NONE, false},
        {"copy allocation", rgb(), 0, 1, 6, 1, 1, CCE_NOMEMORY, false},
        {"CMYK result allocation", rgb(), 0, 1, 4, 1, 1, CCE_NOCMYKIMAGE, false},
        {"copy left unfilled", rgb(), 0, 1, 6, 2, 2, CCE_NOMEMORY, false},
        {"result lock", rgb(), 0, 1, 6, 2, 4, CCE_NONE, false},
        {"split, null array", rgb(), 2, 1, 1, 0, 0, CCE_BADARGUMENT, false},
        {"split, 32-bit into YUV", rgb(32), 1, 1, 2, 0, 0, CCE_BADARGUMENT, false},
        {"split, too many rows", WithField(rgb(), &H::biHeight, 9), 1, 1, 1, 0, 0, CCE_BADARGUMENT, false},
        {"split, too many rows, converted", WithField(rgb(), &H::biHeight, 9), 1, 1, 6, 0, 0, CCE_BADARGUMENT, false},
        {"split: image not lockable for its tag", rgb(), 1, 1, 1, 2, 1, CCE_BADMODEL, false},
        {"split: image lock", rgb(), 1, 1, 1, 2, 2, CCE_NONE, false},
        {"split: conversion", rgb(), 1, 1, 6, 1, 1, CCE_CONVERTFAILED, false},
        {"split: working image lock", rgb(), 1, 1, 6, 2, 7, CCE_NONE, false},
        {"split: first output", rgb(), 1, 1, 1, 1, 1, CCE_NOMEMORY, true},
        {"split: third output", rgb(), 1, 1, 6, 1, 4, CCE_NOMEMORY, true},
        {"split: output copy left unfilled", rgb(), 1, 1, 1, 2, 4, CCE_NOMEMORY, true},
        {"split: output lock", rgb(), 1, 1, 1, 2, 10, CCE_NONE, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        HGLOBAL channels[4] = {untouched, untouched, untouched, untouched};
        const std::vector<BYTE> before = paxtest::BlockBytes(c.image);
        const paxtest::Snapshot s = paxtest::TakeSnapshot();
        if (c.fail == 0 || paxtest::HaveCensus()) {
            GetThreadState()->convertError = 99;
            Inject(c.fail, c.at);
            if (c.call)
                EXPECT_EQ(SplitColorChannels(c.image, c.call == 1 ? channels : nullptr, static_cast<BYTE>(c.to)), 0);
            else
                EXPECT_EQ(ConvertDIBColorSpace(c.image, c.from, c.to, 0, nullptr), nullptr);
            Inject(0, 0);
            EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code));
        }
        paxtest::ExpectCensus(s, 0, c.what);
        EXPECT_EQ(paxtest::LockCount(c.image), 0);
        EXPECT_TRUE(paxtest::BlockBytes(c.image) == before);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(channels[k], c.cleared && paxtest::HaveCensus() ? nullptr : untouched);
        GlobalFree(c.image);
    }
}

} // namespace
