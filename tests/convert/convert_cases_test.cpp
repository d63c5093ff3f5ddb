// Worked cases and refusals of the buffer conversion, and refusals of the
// image conversion and of channel splitting that the table of image exports does not hold: the
// buffer's argument checks in order, its dialog failure, the depths and tags
// of a CMYK source, a split's array and the codes of each injected failure.
#include "census.h"
#include "convert_support.h"
#include "thread_state.h"

#include <gtest/gtest.h>


#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using H = BITMAPINFOHEADER;
using namespace convtest;
using paxtest::CceName;

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
        {"16-bit", dib(16, 0), 0, 1, 6, 0, 0, CCE_NONE, false},
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
        {"result allocation from CMYK", cmyk(), 0, 4, 6, 1, 1, CCE_NONE, false},
        {"image lock from CMYK", cmyk(), 0, 4, 6, 2, 1, CCE_NONE, false},
        {"split, null array", rgb(), 2, 1, 1, 0, 0, CCE_BADARGUMENT, false},
        {"split, 16-bit", dib(16, 0), 1, 1, 6, 0, 0, CCE_NONE, false},
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
