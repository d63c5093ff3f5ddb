// Worked cases and refusals of the buffer conversion, and refusals of the
// image conversion and of channel splitting that the table of image exports does not hold: the
// buffer's argument checks in order, its dialog failure, the depths and tags
// of a CMYK source, a split's array and the codes of each injected failure.
#include "census.h"
#include "convert_support.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <set>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using H = BITMAPINFOHEADER;
using convtest::MakeModelImage;
using convtest::WithField;
using paxtest::CceName;

// Each case walks its buffers without global memory or locks (counted by the
// stand-in on Linux).
TEST(ConvertColorSpace, WorkedCases) {
    const struct {
        int from, to, count, progress;
        std::vector<BYTE> source;
        BYTE fill;
        std::vector<BYTE> expected; // the whole destination afterwards
    } cases[] = {
        {MODEL_RGB, MODEL_HSV, 6, 0, {255, 0, 0, 10, 200, 30}, 0, {0, 255, 255, 89, 242, 200}},
        {MODEL_RGB, MODEL_CMYK, 6, 0, {10, 200, 30, 255, 255, 255}, 0xEE, {190, 0, 170, 55, 0, 0, 0, 0, 0xEE, 0xEE}},
        {MODEL_CMYK, MODEL_RGB, 8, 0, {190, 0, 170, 55, 0, 0, 0, 255}, 0xEE, {10, 200, 30, 0, 0, 0, 0xEE, 0xEE}},
        // Same model: a copy of count bytes, with no dialog even when one is
        // asked for (on Linux its creation is made to fail, and the call with it).
        {MODEL_LAB, MODEL_LAB, 5, 1, {1, 2, 3, 4, 5}, 9, {1, 2, 3, 4, 5, 9}},
    };
    for (const auto &c : cases) {
        std::vector<BYTE> destination(c.expected.size(), c.fill);
#ifndef _WIN32
        win32lite::ScriptDialogs({true, 0});
#endif
        GetThreadState()->convertError = 99; // made on a thread's first call: count after it
#ifndef _WIN32
        win32lite::ResetFaults();
#endif
        EXPECT_EQ(ConvertColorSpace(c.source.data(), destination.data(), c.count, c.from, c.to, c.progress, nullptr), c.count);
        EXPECT_EQ(destination, c.expected) << c.from << "->" << c.to;
        EXPECT_EQ(GetLastColorConvertError(), 0u);
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
        {b, b, 3, 0, 1, CCE_BADMODEL},          {b, b, 3, 10, 1, CCE_BADMODEL},         {b, b, 3, 1, 0, CCE_BADMODEL},
        {b, b, 3, 1, 10, CCE_BADMODEL},         {b, b, 3, -1, 1, CCE_BADMODEL},         {nullptr, nullptr, 0, 0, 1, CCE_BADMODEL},
        {b, b, 0, 1, 6, CCE_BADARGUMENT},       {b, b, -3, 1, 6, CCE_BADARGUMENT},      {nullptr, b, 3, 1, 6, CCE_BADARGUMENT},
        {b, nullptr, 3, 1, 6, CCE_BADARGUMENT}, {b, b, 0, 1, 1, CCE_BADARGUMENT},       {b, b, 0, 4, 1, CCE_BADARGUMENT},
    };
    for (const auto &c : cases) {
        GetThreadState()->convertError = 99;
        EXPECT_EQ(ConvertColorSpace(c.source, c.destination, c.count, c.from, c.to, 0, nullptr), -1);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code)) << c.count << " " << c.from << "->" << c.to;
    }
}

// Scripted on Linux; under Wine without a display the dialog cannot be made.
TEST(ConvertColorSpaceDialogFailure, StoresNoProgressAndConvertsNothing) {
    const BYTE source[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    BYTE destination[8] = {7, 7, 7, 7, 7, 7, 7, 7};
    for (int from : {MODEL_RGB, MODEL_CMYK}) {
#ifndef _WIN32
        win32lite::ScriptDialogs({true, 0});
#endif
        const int walked = ConvertColorSpace(source, destination, 8, from, MODEL_LAB, 1, nullptr);
        if (walked == 8) GTEST_SKIP() << "the dialog was shown: its failure cannot be arranged here";
        EXPECT_EQ(walked, -1);
        EXPECT_EQ(CceName(GetLastColorConvertError()), "CCE_NOPROGRESS");
        EXPECT_EQ(std::vector<BYTE>(destination, destination + 8), std::vector<BYTE>(8, 7)) << "nothing converted";
    }
#ifndef _WIN32
    win32lite::ScriptDialogs({});
#endif
}

// Refusals of the image conversion and of splitting beyond those of the table
// of image exports: null, the code, nothing left allocated, the caller's
// block unchanged and unlocked, and a split's array not written.
TEST(ConvertAndSplit, RefusedImagesAndTheirCodes) {
    const HGLOBAL untouched = reinterpret_cast<HGLOBAL>(0x1234);
    auto dib = [](int bits, DWORD tag) { return paxtest::MakeDib(4, 2, bits, [](int, int, int) { return BYTE{3}; }, -1, 0, tag); };
    auto rgb = [](int bits = 24) { return MakeModelImage(MODEL_RGB, 3, 3, 6, bits); };
    HGLOBAL channels[4];
    const struct {
        const char *what;
        HGLOBAL image;
        int split; // 0: ConvertDIBColorSpace(image, from, to); 1: split into `to`; 2: the same with no array
        int from, to;
        DWORD code;
    } cases[] = {
        {"16-bit", dib(16, 0), 0, 1, 6, CCE_NONE},
        {"8-bit tagged CMYK", dib(8, 12), 0, 4, 1, CCE_NONE},
        {"24-bit tagged CMYK", dib(24, 12), 0, 4, 1, CCE_NONE},
        {"CMYK with too many rows", WithField(MakeModelImage(4, 3, 3, 6), &H::biHeight, 4), 0, 4, 1, CCE_BADARGUMENT},
        {"CMYK colour table count that overflows", WithField(MakeModelImage(4, 3, 3, 6), &H::biClrUsed, 0xC0000001u), 0, 4, 1,
         CCE_BADARGUMENT},
        {"too many rows, into CMYK", WithField(rgb(), &H::biHeight, 400), 0, 1, 4, CCE_BADARGUMENT},
        {"split, null array", rgb(), 2, 1, 1, CCE_BADARGUMENT},
        {"split, 16-bit", dib(16, 0), 1, 1, 6, CCE_NONE},
        {"split, 32-bit into YUV", rgb(32), 1, 1, 2, CCE_BADARGUMENT},
        {"split, too many rows", WithField(rgb(), &H::biHeight, 9), 1, 1, 1, CCE_BADARGUMENT},
        {"split, too many rows, converted", WithField(rgb(), &H::biHeight, 9), 1, 1, 6, CCE_BADARGUMENT},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        for (HGLOBAL &h : channels) h = untouched;
        const std::vector<BYTE> before = paxtest::BlockBytes(c.image);
        const paxtest::Snapshot s = paxtest::TakeSnapshot();
        GetThreadState()->convertError = 99;
        if (c.split)
            EXPECT_EQ(SplitColorChannels(c.image, c.split == 1 ? channels : nullptr, static_cast<BYTE>(c.to)), 0);
        else
            EXPECT_EQ(ConvertDIBColorSpace(c.image, c.from, c.to, 0, nullptr), nullptr);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code));
        paxtest::ExpectCensus(s, 0, c.what);
        EXPECT_EQ(paxtest::LockCount(c.image), 0);
        EXPECT_TRUE(paxtest::BlockBytes(c.image) == before);
        for (HGLOBAL h : channels) EXPECT_EQ(h, untouched);
        GlobalFree(c.image);
    }
}

#ifndef _WIN32
// The code each injected failure leaves, and whether a split clears its array
// (it does once it has begun to make the outputs).
TEST(ConvertAndSplit, InjectedFailuresStoreTheirCodes) {
    HGLOBAL rgb = MakeModelImage(MODEL_RGB, 3, 2, 8), cmyk = MakeModelImage(MODEL_CMYK, 3, 2, 8);
    const HGLOBAL untouched = reinterpret_cast<HGLOBAL>(0x1234);
    const struct {
        const char *what;
        bool split, lock;
        HGLOBAL image;
        int from, to;
        long at;
        DWORD code;
        bool cleared;
    } cases[] = {
        {"image lock", false, true, rgb, 1, 6, 1, CCE_NONE, false},
        {"copy allocation", false, false, rgb, 1, 6, 1, CCE_NOMEMORY, false},
        {"CMYK result allocation", false, false, rgb, 1, 4, 1, CCE_NOCMYKIMAGE, false},
        {"copy left unfilled", false, true, rgb, 1, 6, 2, CCE_NOMEMORY, false},
        {"result lock", false, true, rgb, 1, 6, 4, CCE_NONE, false},
        {"result allocation from CMYK", false, false, cmyk, 4, 6, 1, CCE_NONE, false},
        {"image lock from CMYK", false, true, cmyk, 4, 6, 1, CCE_NONE, false},
        {"split: image not lockable for its tag", true, true, rgb, 1, 1, 1, CCE_BADMODEL, false},
        {"split: image lock", true, true, rgb, 1, 1, 2, CCE_NONE, false},
        {"split: conversion", true, false, rgb, 1, 6, 1, CCE_CONVERTFAILED, false},
        {"split: working image lock", true, true, rgb, 1, 6, 7, CCE_NONE, false},
        {"split: first output", true, false, rgb, 1, 1, 1, CCE_NOMEMORY, true},
        {"split: third output", true, false, rgb, 1, 6, 4, CCE_NOMEMORY, true},
        {"split: output copy left unfilled", true, true, rgb, 1, 1, 4, CCE_NOMEMORY, true},
        {"split: output lock", true, true, rgb, 1, 1, 10, CCE_NONE, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        HGLOBAL channels[3] = {untouched, untouched, untouched};
        const paxtest::Snapshot s = paxtest::TakeSnapshot();
        win32lite::ResetFaults();
        c.lock ? win32lite::FailLockAt(c.at) : win32lite::FailAllocationAt(c.at);
        if (c.split)
            EXPECT_EQ(SplitColorChannels(c.image, channels, static_cast<BYTE>(c.to)), 0);
        else
            EXPECT_EQ(ConvertDIBColorSpace(c.image, c.from, c.to, 0, nullptr), nullptr);
        win32lite::ResetFaults();
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.code));
        paxtest::ExpectCensus(s, 0, c.what);
        for (HGLOBAL h : channels) EXPECT_EQ(h, c.cleared ? nullptr : untouched);
    }
    GlobalFree(rgb);
    GlobalFree(cmyk);
}
#endif

} // namespace
