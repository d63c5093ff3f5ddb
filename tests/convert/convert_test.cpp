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
// Then the buffer conversion's argument checks in order, worked cases and
// its dialog failure, as data (buffer.txt).
#include "census.h"
#include "conversion_table.h"
#include "convert_internal.h"
#include "dialogs.h"
#include "dib_builder.h"
#include "examples.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

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

// An image conversion: the caller's own handle comes back for equal models.
// (The caller's block unchanged and unlocked, the census: the export table's
// checks of three shapes.)
void Image(std::vector<BYTE> &d, paxtest::Rng &rng, int from, int to, int width, int bits) {
    // Drawn one by one (the order of a call's arguments is not fixed).
    const int tableEntries = rng.Below(4) == 0 ? 3 : -1;
    const uint32_t seed = rng.Next();
    HGLOBAL image = MakeModelImage(from, width, 1 + rng.Below(5), seed, bits, 0x5A, tableEntries);
    GetThreadState()->convertError = 99;
    HGLOBAL result = ConvertDIBColorSpace(image, from, to, 0, nullptr);
    ASSERT_NE(result, nullptr) << CceName(GetLastColorConvertError());
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    EXPECT_EQ(result == image, from == to) << "the caller's handle comes back for equal models only";
    if (result != image) {
        AddImage(d, result);
        GlobalFree(result);
    }
    GlobalFree(image);
}

// Splitting an RGB image into the model: 3 outputs, or 4 (M, Y, K, C for
// CMYK; R, G, B and the fourth byte from a 32-bit source), each a grey image
// of one component with the source's padding.
void Split(std::vector<BYTE> &d, paxtest::Rng &rng, int model, int width, int bits) {
    const uint32_t seed = rng.Next();
    HGLOBAL image = MakeModelImage(MODEL_RGB, width, 1 + rng.Below(5), seed, bits, 0x3C);
    HGLOBAL channels[4] = {};
    const int n = SplitColorChannels(image, channels, static_cast<BYTE>(model));
    ASSERT_EQ(n, model == MODEL_CMYK || bits == 32 ? 4 : 3);
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
        const uint32_t seed = rng.Next();
        HGLOBAL image = MakeModelImage(e.fromModel, 1 + rng.Below(700), height, seed);
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
            const int64_t units = int64_t(GlobalSize(image)) - 40; // the walk's units: the bytes of the rows
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

// ---- Worked cases and checks -------------------------------------------------

// The buffer conversion's checks in order and its worked cases (buffer.txt);
// the checks and failures of the image conversion and of splitting are the
// export table's (tests/support/image_export_checks.txt, _faults.txt).
TEST(ConvertColorSpace, ChecksInOrderAndWorkedCases) {
    BYTE b[12] = {};
    for (const paxtest::Example &c : paxtest::ReadExamples("buffer.txt", "check")) {
        GetThreadState()->convertError = 99;
        EXPECT_EQ(ConvertColorSpace(c.I(3) ? nullptr : b, c.I(4) ? nullptr : b, c.I(2), c.I(0), c.I(1), 0, nullptr), -1);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(c.I(5))) << c.line;
    }
    for (const paxtest::Example &c : paxtest::ReadExamples("buffer.txt", "worked")) {
        const int from = c.I(0), to = c.I(1), count = c.I(2), progress = c.I(3);
        std::vector<BYTE> destination(c.fields[1].size(), BYTE(c.I(4)));
        const std::vector<BYTE> source(c.fields[0].begin(), c.fields[0].end());
        const bool fails = progress && from != to;
#ifndef _WIN32
        win32lite::ScriptDialogs({true, 0});
#endif
        GetThreadState()->convertError = 99; // made on a thread's first call: count after it
#ifndef _WIN32
        win32lite::ResetFaults();
#endif
        const int walked = ConvertColorSpace(source.data(), destination.data(), count, from, to, progress, nullptr);
        if (fails && walked == count && !paxtest::HaveCensus()) break; // Windows, a display: the dialog showed
        EXPECT_EQ(walked, fails ? -1 : count);
        EXPECT_EQ(destination, std::vector<BYTE>(c.fields[1].begin(), c.fields[1].end())) << c.line;
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(fails ? CCE_NOPROGRESS : CCE_NONE));
#ifndef _WIN32
        EXPECT_EQ(win32lite::AllocationCalls() + win32lite::LockCalls(), 0);
        win32lite::ScriptDialogs({});
#endif
    }
}

// The progress dialog's steps and the Cancel index (buffer.txt).
TEST(ConvertColorSpace, ProgressStepsAndCancelIndex) {
    if (!paxtest::HaveDisplay()) GTEST_SKIP() << "no display for the dialog";
    HWND owner = paxtest::MakeOwner();
    for (const paxtest::Example &c : paxtest::ReadExamples("buffer.txt", "steps")) {
        SCOPED_TRACE(c.line);
        std::vector<BYTE> source(size_t(c.I(2)), 0), destination(9000, 0);
        paxtest::StepWatch watch(c.I(3));
        EXPECT_EQ(ConvertColorSpace(source.data(), destination.data(), c.I(2), c.I(0), c.I(1), 1, owner), c.I(4));
        EXPECT_EQ(std::make_pair(watch.RangeMax(), watch.Steps()), std::make_pair(long(c.I(5)), long(c.I(6))));
        EXPECT_EQ(std::find(destination.begin(), destination.end(), 0) - destination.begin(), c.I(7));
        EXPECT_EQ(GetLastColorConvertError(), 0u);
        EXPECT_EQ(GetThreadState()->cancelled, c.I(3) ? 1u : 0u);
        EXPECT_TRUE(IsWindowEnabled(owner));
    }
    DestroyWindow(owner);
}

} // namespace
