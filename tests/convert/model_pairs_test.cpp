// Every one of the 81 model pairs through the buffer conversion (apart, in
// place and overlapping, a trailing partial pixel at times), the image
// conversion (24-bit sources, 32-bit ones of the three-component models, some
// with a colour table, some with no columns) and channel splitting, on seeded
// random pixels of odd widths 1 to 9 and 37. Every converted pixel is checked
// against the single-value conversion of its source value, every header,
// size and padding byte against the rules of its kind of result, and
// everything the caller can see folds into one digest, the same on Linux and
// Windows and the same under PAXIMAGE_REFERENCE=1: the fast runs give the
// bytes of the straightforward per-pixel walk.
#include "census.h"
#include "colormodels_support.h"
#include "convert_internal.h"
#include "convert_support.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#ifndef _WIN32
#include "win32lite_test.h"
#endif

namespace {

using namespace convtest;

using Digest = cmtest::Digest;

// The header, colour table and rows of an image (the block may be larger:
// some allocators round its size up).
void DigestImage(Digest &d, HGLOBAL image) {
    const convtest::Rows r = convtest::ReadRows(image);
    const size_t used = std::min(r.block.size(), r.offset + r.stride * static_cast<size_t>(r.header.biHeight));
    d.Word(used);
    d.Bytes(r.block.data(), used);
}

// count bytes converted from offset `at` to offset `out` of one buffer (apart
// when they lie far enough apart), against the plain walk of the conversion:
// pixel after pixel, each read whole before it is written.
void Buffer(Digest &d, paxtest::Rng &rng, int from, int to, int width) {
    const int n = BufferBytes(from), m = from == to ? 1 : BufferBytes(to);
    const int pixels = width * (1 + rng.Below(9));
    const int count = pixels * n + rng.Below(2); // a partial pixel at times
    const int written = from == to ? count : count / n * m;
    const int layout = from == to ? 0 : rng.Below(3); // apart, in place, overlapping
    const size_t at = layout == 2 ? rng.Below(9) : 0, out = layout == 0 ? count : layout == 2 ? rng.Below(9) : 0;
    const size_t size = std::max({at + count, out + written, size_t{1}});
    std::vector<BYTE> want = convtest::RandomBytes(size, rng.Next());
    std::unique_ptr<BYTE[]> buffer(new BYTE[size]); // exactly sized for the sanitizer
    std::copy(want.begin(), want.end(), buffer.get());
    for (int p = 0; from != to && (p + 1) * n <= count; ++p) {
        const std::vector<BYTE> v = ConvertOne(from, to, &want[at + p * n]);
        std::copy(v.begin(), v.end(), want.begin() + out + p * m);
    }
    if (from == to) std::copy(buffer.get() + at, buffer.get() + at + count, want.begin() + out);
    GetThreadState()->convertError = 99; // cleared by every call
    ASSERT_EQ(ConvertColorSpace(buffer.get() + at, buffer.get() + out, count, from, to, 0, nullptr), count);
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    ASSERT_TRUE(std::equal(want.begin(), want.end(), buffer.get())) << "count " << count << " layout " << layout;
    d.Word(size);
    d.Bytes(buffer.get(), size);
}

// The result of an image conversion against its source.
void CheckImage(HGLOBAL image, HGLOBAL result, int from, int to) {
    const convtest::Rows src = convtest::ReadRows(image), dst = convtest::ReadRows(result);
    const int width = src.header.biWidth, height = src.header.biHeight, srcBytes = src.header.biBitCount / 8;
    const int dstBytes = to == MODEL_CMYK ? 4 : from == MODEL_CMYK ? 3 : srcBytes;
    EXPECT_EQ(dst.header.biCompression, convtest::TagOf(to));
    EXPECT_EQ(paxtest::LockCount(result), 0);
    if (to == MODEL_CMYK || from == MODEL_CMYK) { // a new image without a colour table, zero padding
        EXPECT_TRUE(dst.header.biWidth == width && dst.header.biHeight == height && dst.header.biBitCount == dstBytes * 8 &&
                    dst.header.biClrUsed == 0 && dst.header.biSizeImage == dst.stride * height &&
                    dst.block.size() == 40u + dst.stride * height) << "header or size";
        for (int y = 0; y < height; ++y)
            for (size_t c = static_cast<size_t>(dstBytes) * width; c < dst.stride; ++c)
                EXPECT_EQ(dst.Pixel(0, y, 3)[c], 0) << "padding of row " << y;
    } else { // a copy of the whole block but the tag and the pixels
        ASSERT_EQ(dst.block.size(), src.block.size());
        std::vector<BYTE> expected = src.block;
        std::memcpy(expected.data() + 16, &dst.header.biCompression, 4);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                std::memcpy(expected.data() + (dst.Pixel(x, y, srcBytes) - dst.block.data()), dst.Pixel(x, y, srcBytes), 3);
        EXPECT_TRUE(expected == dst.block) << "header, colour table, padding or fourth bytes changed";
    }
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            ASSERT_EQ(Components(dst.Pixel(x, y, dstBytes), to),
                      ConvertOne(from, to, Components(src.Pixel(x, y, srcBytes), from).data()))
                << "pixel (" << x << ", " << y << ")";
}

void Image(Digest &d, paxtest::Rng &rng, int from, int to, int width, int bits) {
    HGLOBAL image = convtest::MakeModelImage(from, width, 1 + rng.Below(5), rng.Next(), bits, 0x5A,
                                             rng.Below(4) == 0 ? 3 : -1);
    const std::vector<BYTE> before = paxtest::BlockBytes(image);
    const paxtest::Snapshot s = paxtest::TakeSnapshot();
    GetThreadState()->convertError = 99;
    HGLOBAL result = ConvertDIBColorSpace(image, from, to, 0, nullptr);
    ASSERT_NE(result, nullptr) << paxtest::CceName(GetLastColorConvertError());
    paxtest::ExpectCensus(s, result == image ? 0 : 1, "the result only");
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    EXPECT_TRUE(paxtest::BlockBytes(image) == before);
    EXPECT_EQ(paxtest::LockCount(image), 0);
    EXPECT_EQ(result == image, from == to) << "the caller's handle comes back for equal models only";
    if (result != image) {
        CheckImage(image, result, from, to);
        DigestImage(d, result);
        GlobalFree(result);
    }
    GlobalFree(image);
}

// Splitting an RGB image into the model: 3 outputs, or 4 (M, Y, K, C for
// CMYK; R, G, B and the fourth byte from a 32-bit source), each a grey image
// of one component with the source's padding.
void Split(Digest &d, paxtest::Rng &rng, int model, int width, int bits) {
    HGLOBAL image = convtest::MakeModelImage(MODEL_RGB, width, 1 + rng.Below(5), rng.Next(), bits, 0x3C);
    const convtest::Rows src = convtest::ReadRows(image);
    HGLOBAL channels[4] = {};
    const paxtest::Snapshot s = paxtest::TakeSnapshot();
    const int n = SplitColorChannels(image, channels, static_cast<BYTE>(model));
    ASSERT_EQ(n, model == MODEL_CMYK || bits == 32 ? 4 : 3);
    paxtest::ExpectCensus(s, n, "the outputs only: the converted image is freed");
    EXPECT_EQ(GetLastColorConvertError(), 0u);
    const int outBytes = model == MODEL_CMYK ? 4 : bits / 8;
    for (int k = 0; k < n; ++k) {
        const convtest::Rows out = convtest::ReadRows(channels[k]);
        EXPECT_TRUE(out.header.biCompression == 0 && out.header.biBitCount == outBytes * 8 &&
                    out.header.biWidth == src.header.biWidth && out.header.biHeight == src.header.biHeight);
        for (int y = 0; y < src.header.biHeight; ++y) {
            for (size_t c = 3u * src.header.biWidth; outBytes == 3 && c < out.stride; ++c)
                EXPECT_EQ(out.Pixel(0, y, 3)[c], src.Pixel(0, y, 3)[c]) << "padding of row " << y;
            for (int x = 0; x < src.header.biWidth; ++x) {
                const std::vector<BYTE> value = model == MODEL_RGB
                    ? Components(src.Pixel(x, y, bits / 8), MODEL_RGB, bits == 32)
                    : ConvertOne(MODEL_RGB, model, Components(src.Pixel(x, y, 3), MODEL_RGB).data());
                for (int b = 0; b < outBytes; ++b)
                    ASSERT_EQ(out.Pixel(x, y, outBytes)[b], value[(k + (model == MODEL_CMYK)) % 4]) << k << ": " << x << "," << y;
            }
        }
        DigestImage(d, channels[k]);
        GlobalFree(channels[k]);
    }
    GlobalFree(image);
}

TEST(ModelPairs, EveryPairByBufferImageAndSplitGivesThePinnedDigest) {
    paxtest::Rng rng(20261125);
    Digest d;
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
    EXPECT_EQ(d.h, 0x2ed8568e3c297c05ull) << std::hex << d.h;
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
        const std::vector<BYTE> source = convtest::RandomBytes(static_cast<size_t>(count), rng.Next());
        HGLOBAL image = convtest::MakeModelImage(e.fromModel, 1 + rng.Below(700), height, rng.Next());
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
            const bool cancels = cancelAfter > 0 && int64_t(convtest::ReadRows(image).stride) * height > cancelAfter * 1500;
            EXPECT_EQ(result == nullptr, cancels);
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

} // namespace
