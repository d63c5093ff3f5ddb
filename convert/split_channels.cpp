// SplitColorChannels: an RGB image converted to a colour model, then one grey
// image per component.
//
// Output k is a copy of the converted image, tagged RGB, whose every pixel has
// all its bytes set to one stored byte of the converted pixel: output 0 byte 2,
// output 1 byte 1, output 2 byte 0, output 3 byte 3 (so the first component,
// the second, the third, then for 32-bit images the fourth byte; a CMYK image
// gives M, Y, K, C). Row padding keeps the converted image's values.
//
// Choices:
// - On a failure once the number of outputs is known (from allocating the
//   outputs on), every one of the caller's entries is set to null, so no freed
//   handle is left in the array. Failures before that leave the array alone:
//   the call does not yet know whether it holds 3 entries or 4.
// - A header that is not the 40-byte BITMAPINFOHEADER, negative dimensions or
//   rows that do not fit in the block: 0 with CCE_BADARGUMENT, after the tests
//   of tag and depth.
// - An output copy that could not be filled (a failed lock inside
//   DuplicateDIB leaves it zero-filled) counts as an output that could not be
//   made: CCE_NOMEMORY.
//
// The fast path makes the same blocks with the same allocations and locks in
// the same order, so every failure leaves the same code, but writes each
// pixel byte once: the working image and the outputs are made around their
// rows only (ConvertDIBColorSpaceFrame, DuplicateDIBAroundRows), and the
// pixels go from the caller's rows, converted a block at a time into planes
// (the conversion's own kernels), straight into the outputs. The caller's
// image stays locked from the checks on (the plain path unlocks it there and
// the conversion locks it again: the same lock calls). The working image's
// rows are never written nor read; it is made, with its header, colour table
// and padding, for the outputs to copy those.
#include "convert_internal.h"

#include "conversion_runs.h"
#include "dib.h"
#include "plane_shuffle.h"
#include "reference.h"
#include "thread_state.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace pax {

namespace {

constexpr int kMaxChannels = 4;

// The plain path's pixels: every pixel of the n outputs from the working
// image; each output pixel depends only on the same pixel of the working
// image, so rows are taken in storage order.
void FillChannels(const DibLayout &in, BYTE *const outPixels[], int n) {
    const int64_t pixelBytes = n; // 3 at 24 bits, 4 at 32 bits
    if (in.empty()) return;       // no row is walked for no columns
    for (int64_t row = 0; row < in.height; ++row) {
        const int64_t rowStart = row * in.stride;
        for (int64_t x = 0; x < in.width; ++x) {
            const int64_t at = rowStart + x * pixelBytes;
            const BYTE *p = in.pixels + at;
            // Components in the order of the outputs: bytes 2, 1, 0, then 3.
            const BYTE component[kMaxChannels] = {p[2], p[1], p[0], n == 4 ? p[3] : BYTE{0}};
            for (int k = 0; k < n; ++k) std::memset(outPixels[k] + at, component[k], n);
        }
    }
}

// The fast path's pixels: those of the caller's rows `source` (24 bits, or 32
// for model RGB) spread into the n outputs, whose rows lie as the working
// image's `in`; for another model, converted a block at a time into planes,
// each plane repeated into the bytes of its output's pixels.
void FillChannelsFrom(const DibLayout &source, int model, const DibLayout &in, BYTE *const outPixels[], int n) {
    if (in.empty()) return;
    const PlaneShuffles &shuffles = Shuffles();
    // The plane of output k: component k, but M, Y, K, C of CMYK.
    static constexpr int kPlaneOf[2][kMaxChannels] = {{0, 1, 2, 3}, {1, 2, 3, 0}};
    const int *planeOf = kPlaneOf[model == MODEL_CMYK];
    const RepeatFn repeat = n == 4 ? shuffles.quadruple : shuffles.triple;
    const int64_t chunk = model == MODEL_RGB ? 1024 : kRunBlock;
    const int sourceBytes = source.bits / 8;
    BytePlanes planes;
    for (int64_t row = 0; row < in.height; ++row) {
        const BYTE *from = source.pixels + row * source.stride;
        const int64_t at = row * in.stride;
        for (int64_t x = 0; x < in.width; x += chunk) {
            const int count = static_cast<int>(std::min(chunk, in.width - x));
            BYTE *out[kMaxChannels] = {};
            for (int k = 0; k < n; ++k) out[k] = outPixels[k] + at + x * n;
            if (model != MODEL_RGB) {
                RgbImageToPlanes(model, from + x * sourceBytes, planes, count);
                for (int k = 0; k < n; ++k) repeat(planes.c[planeOf[k]], out[k], count);
            } else if (n == 4) {
                shuffles.spread4(from + x * sourceBytes, out, count);
            } else {
                shuffles.spread(from + x * sourceBytes, out[0], out[1], out[2], count);
            }
        }
    }
}

} // namespace

} // namespace pax

extern "C" int PAXCALL SplitColorChannels(HDIB image, HGLOBAL *channels, BYTE model) {
    using namespace pax;
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    if (!IsModelCode(model) || !image || !channels) return Fail(state, CCE_BADARGUMENT);
    if (GetDIBModelTag(image) != 0) return Fail(state, CCE_BADMODEL);
    const bool fast = !UseReferencePaths();
    BlockLock source(image);
    if (!source) return 0; // no code
    const DibLayout layout = LocateConvertedImage(source);
    if (layout.header && !layout.depthAccepted) return 0; // no code
    if (layout.bits == 32 && model != MODEL_RGB) return Fail(state, CCE_BADARGUMENT);
    if (!layout.ok()) return Fail(state, CCE_BADARGUMENT);
    if (!fast) source.Unlock();

    // The working image: the caller's own for RGB, else a temporary conversion.
    OwnedBlock temporary;
    HDIB working = image;
    if (model != MODEL_RGB) {
        temporary.Reset(fast ? ConvertDIBColorSpaceFrame(image, MODEL_RGB, model)
                             : ConvertDIBColorSpace(image, MODEL_RGB, model, 0, nullptr));
        if (!temporary) return Fail(state, CCE_CONVERTFAILED);
        working = temporary.get();
    }
    BlockLock work(working);
    if (!work) return 0; // no code
    const DibLayout in = LocateConvertedImage(work);
    const int n = in.bits == 32 ? 4 : 3;
    if (!in.ok()) return Fail(state, CCE_BADARGUMENT);

    OwnedBlock outputs[kMaxChannels];
    auto fail = [&](PaxConvertError code) -> int {
        for (int k = 0; k < n; ++k) channels[k] = nullptr;
        if (code != CCE_NONE) return Fail(state, code);
        return 0; // the guards unlock and free
    };
    RowFrame frame;
    frame.pixelsOffset = in.pixels - work.data();
    frame.stride = in.stride;
    frame.rows = in.height;
    frame.rowBytes = in.width * n;
    bool filled[kMaxChannels] = {true, true, true, true};
    for (int k = 0; k < n; ++k) {
        outputs[k].Reset(fast ? DuplicateDIBAroundRows(working, frame, &filled[k]) : DuplicateDIB(working));
        if (!outputs[k]) return fail(CCE_NOMEMORY);
    }
    std::optional<BlockLock> locks[kMaxChannels];
    BYTE *outPixels[kMaxChannels] = {};
    for (int k = 0; k < n; ++k) {
        locks[k].emplace(outputs[k].get());
        if (!*locks[k]) return fail(CCE_NONE);
    }
    for (int k = 0; k < n; ++k) {
        if (!filled[k] || locks[k]->size() != work.size() ||
            std::memcmp(locks[k]->data(), work.data(), kDibHeaderSize) != 0)
            return fail(CCE_NOMEMORY); // the copy was left zero-filled
        reinterpret_cast<BITMAPINFOHEADER *>(locks[k]->data())->biCompression = BI_RGB;
        outPixels[k] = locks[k]->data() + (in.pixels - work.data());
    }
    if (fast)
        FillChannelsFrom(layout, model, in, outPixels, n);
    else
        FillChannels(in, outPixels, n);
    for (int k = 0; k < n; ++k) {
        locks[k]->Unlock();
        channels[k] = outputs[k].Release();
    }
    return n;
}
