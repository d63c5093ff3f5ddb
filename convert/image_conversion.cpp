// ConvertDIBColorSpace: a whole packed DIB converted from one colour model to
// another, returned as a new image whose biCompression carries the model tag.
//
// Stored pixels hold their components reversed: a 3-component pixel has the
// first component in byte 2, a CMYK pixel has K, Y, M, C in bytes 0..3. The
// walk visits every byte of the source rows, padding included (the unit of
// progress and cancel), and converts a pixel where one begins.
//
// Choices where the input is unusual:
// - A 32-bit image of a 3-component model is walked as 32 bits per pixel: the
//   components are bytes 2, 1, 0 of each 4-byte pixel and byte 3 is kept as the
//   copy has it (into CMYK, it is dropped). The result is 32-bit as well.
// - A CMYK-tagged image must be 32 bits per pixel; any other depth is refused
//   like the other depths that are not walked: null, and no code.
// - A block too small for its header (tested right after the lock), a header
//   that is not the 40-byte BITMAPINFOHEADER, negative dimensions (top-down
//   rows included), or a colour table or rows that do not fit in the block
//   (tested after depth, tag and equal models): null with CCE_BADARGUMENT.
// - Results made by CreateDIB24Like and CreateDIB32Like have no colour table and
//   their biClrUsed is cleared, so their pixels begin right after the header
//   whatever the source's biClrUsed was.
// - A copy that could not be filled (DuplicateDIB hands back a zero-filled
//   block when a lock fails) is not passed off as a result: null with
//   CCE_NOMEMORY.
//
// The fast paths write every pixel byte of the result's rows, so they make
// the result around the rows only (DuplicateDIBAroundRows,
// CreateDIBLikeAroundRows: the same allocation and locks as the plain
// helpers, without zero-filling or copying the pixels first). A 32-bit image
// of a 3-component model keeps the copy's fourth bytes and is copied whole.
// A cancelled conversion frees its result, so rows left half written are
// never seen.
#include "convert_internal.h"

#include "conversion_runs.h"
#include "conversion_table.h"
#include "dib.h"
#include "pixel_value.h"
#include "progress.h"
#include "reference.h"
#include "thread_state.h"

#include <cstring>

namespace pax {

namespace {

WalkGeometry ImageGeometry(const DibLayout &layout, int64_t pixelBytes) {
    WalkGeometry g;
    g.total = layout.imageSize;
    g.stride = layout.stride;
    g.rowBytes = pixelBytes * layout.width;
    g.pixelBytes = pixelBytes;
    return g;
}

void SetTag(const BlockLock &lock, int model) {
    reinterpret_cast<BITMAPINFOHEADER *>(lock.data())->biCompression = ModelTag(model);
}

// How the pixels of a result are written: by the walk, or by the caller of
// ConvertDIBColorSpaceFrame.
enum class ResultRows { Walked, LeftToCaller };

HDIB ConvertImage(WalkKind kind, HDIB image, int sourceModel, int destinationModel, int showProgress,
                  HWND owner, ResultRows rows);

} // namespace

// From a 32-bit CMYK image: a new 24-bit image (CreateDIB24Like), every pixel
// written, padding bytes 0.
HDIB ConvertCMYKImage(WalkKind kind, HDIB image, int destinationModel, int showProgress,
                      HWND owner) {
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    const ToThree toThree = FindConversion(MODEL_CMYK, destinationModel).toThree;
    if (!toThree) return Fail(state, CCE_BADMODEL);
    const bool reference = UseReferencePaths();
    OwnedBlock result(reference ? CreateDIB24Like(image) : CreateDIBLikeAroundRows(image, 24));
    if (!result) return nullptr;
    BlockLock source(image);
    if (!source) return nullptr;
    BlockLock target(result.get());
    if (!target) return nullptr;

    const DibLayout in = LocateConvertedImage(source);
    if (in.header && in.bits != 32) return nullptr;
    if (!in.ok()) return Fail(state, CCE_BADARGUMENT);
    const DibLayout out = LocateConvertedImage(target);
    if (!out.ok() || out.width != in.width || out.height != in.height)
        return Fail(state, CCE_NOMEMORY);

    const bool progress = showProgress != 0;
    ProgressGuard dialog;
    if (!dialog.Open(progress, owner, ProgressTotalPastLast(in.imageSize), kConvertProgressDivisor))
        return Fail(state, CCE_NOPROGRESS);
    const BYTE *s = in.pixels;
    BYTE *d = out.pixels;
    const int64_t outStride = out.stride;
    const RunFn run = reference ? nullptr : FindRun(MODEL_CMYK, destinationModel, RunLayout::Image);
    auto convert = [&](int64_t i, int64_t row, int64_t column, int64_t n) {
        if (run) return run(s + i, d + column * 3 + row * outStride, n);
        for (; n > 0; --n, i += 4, ++column) {
            PixelValue cmyk;
            SetValue(cmyk, s[i + 3], s[i + 2], s[i + 1], s[i]);
            BYTE value[3];
            toThree(value, cmyk.bytes);
            BYTE *p = d + column * 3 + row * outStride;
            p[0] = value[2];
            p[1] = value[1];
            p[2] = value[0];
        }
    };
    Walk(kind, state, progress, ImageGeometry(in, 4), convert);
    dialog.Close();
    if (state->cancelled) return nullptr;

    SetTag(target, destinationModel);
    target.Unlock();
    return result.Release();
}

HDIB ConvertDIBColorSpaceWith(WalkKind kind, HDIB image, int sourceModel, int destinationModel,
                              int showProgress, HWND owner) {
    return ConvertImage(kind, image, sourceModel, destinationModel, showProgress, owner, ResultRows::Walked);
}

HDIB ConvertDIBColorSpaceFrame(HDIB image, int sourceModel, int destinationModel) {
    return ConvertImage(WalkKind::Rows, image, sourceModel, destinationModel, 0, nullptr,
                        ResultRows::LeftToCaller);
}

namespace {

HDIB ConvertImage(WalkKind kind, HDIB image, int sourceModel, int destinationModel, int showProgress,
                  HWND owner, ResultRows rows) {
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    if (!IsModelCode(sourceModel) || !IsModelCode(destinationModel))
        return Fail(state, CCE_BADMODEL);
    BlockLock source(image);
    if (!source) return nullptr; // null or unlockable handle: no code
    const DibLayout in = LocateConvertedImage(source);
    if (!in.header) return Fail(state, CCE_BADARGUMENT);
    const int bits = in.bits;
    if (!in.depthAccepted && sourceModel != MODEL_CMYK) return nullptr; // no code
    if (!ModelTagMatches(sourceModel, in.header->biCompression)) return Fail(state, CCE_BADMODEL);
    if (sourceModel == destinationModel) return image; // the caller's own handle
    if (sourceModel == MODEL_CMYK && bits != 32) return nullptr; // no code, as for depths above
    if (!in.ok()) return Fail(state, CCE_BADARGUMENT);
    if (sourceModel == MODEL_CMYK) {
        source.Unlock();
        return ConvertCMYKImage(kind, image, destinationModel, showProgress, owner);
    }

    const Conversion conversion = FindConversion(sourceModel, destinationModel);
    if (!conversion.toThree && !conversion.toCmyk) return Fail(state, CCE_BADMODEL);
    const bool intoCmyk = destinationModel == MODEL_CMYK;
    const bool reference = UseReferencePaths() && rows == ResultRows::Walked;
    // Whether every byte of the pixels of each row is written (not so for the
    // fourth byte of a 32-bit pixel that the walk keeps).
    const bool aroundRows = !reference && (intoCmyk || bits == 24 || rows == ResultRows::LeftToCaller);
    bool filled = true;
    RowFrame frame;
    frame.pixelsOffset = in.pixels - source.data();
    frame.stride = in.stride;
    frame.rows = in.height;
    frame.rowBytes = in.width * (bits / 8);
    OwnedBlock result(intoCmyk     ? (aroundRows ? CreateDIBLikeAroundRows(image, 32) : CreateDIB32Like(image))
                      : aroundRows ? DuplicateDIBAroundRows(image, frame, &filled)
                                   : DuplicateDIB(image));
    if (!result) return Fail(state, intoCmyk ? CCE_NOCMYKIMAGE : CCE_NOMEMORY);
    BlockLock target(result.get());
    if (!target) return nullptr; // no code
    if (!intoCmyk && (!filled || target.size() != source.size() ||
                      std::memcmp(target.data(), source.data(), kDibHeaderSize) != 0))
        return Fail(state, CCE_NOMEMORY); // the copy was left zero-filled
    const DibLayout out = LocateConvertedImage(target);
    if (!out.ok() || out.width != in.width || out.height != in.height)
        return Fail(state, intoCmyk ? CCE_NOCMYKIMAGE : CCE_NOMEMORY);
    if (rows == ResultRows::LeftToCaller) {
        SetTag(target, destinationModel);
        target.Unlock();
        return result.Release();
    }

    const bool progress = showProgress != 0;
    ProgressGuard dialog;
    if (!dialog.Open(progress, owner, ProgressTotalPastLast(in.imageSize), kConvertProgressDivisor))
        return Fail(state, CCE_NOPROGRESS);
    const BYTE *s = in.pixels;
    BYTE *d = out.pixels;
    const WalkGeometry geometry = ImageGeometry(in, bits / 8);
    const RunFn run = reference ? nullptr
                      : FindRun(sourceModel, destinationModel, bits == 32 ? RunLayout::Image32 : RunLayout::Image);
    if (intoCmyk) {
        // 4 bytes K, Y, M, C at (column + row x width) x 4 of the 32-bit result.
        const ToCMYK toCmyk = conversion.toCmyk;
        const int64_t width = in.width;
        auto convert = [&](int64_t i, int64_t row, int64_t column, int64_t n) {
            if (run) return run(s + i, d + (column + row * width) * 4, n);
            for (; n > 0; --n, i += bits / 8, ++column) {
                PixelValue value;
                SetValue(value, s[i + 2], s[i + 1], s[i]);
                const CMYKQUAD q = toCmyk(value.bytes);
                BYTE *p = d + (column + row * width) * 4;
                p[0] = q.k;
                p[1] = q.y;
                p[2] = q.m;
                p[3] = q.c;
            }
        };
        Walk(kind, state, progress, geometry, convert);
    } else {
        // 3 bytes, reversed, at the same place in the copy; padding bytes and
        // the fourth byte of a 32-bit pixel keep the source's values.
        const ToThree toThree = conversion.toThree;
        auto convert = [&](int64_t i, int64_t, int64_t, int64_t n) {
            if (run) return run(s + i, d + i, n);
            for (; n > 0; --n, i += bits / 8) {
                PixelValue value;
                SetValue(value, s[i + 2], s[i + 1], s[i]);
                BYTE converted[3];
                toThree(converted, value.bytes);
                d[i] = converted[2];
                d[i + 1] = converted[1];
                d[i + 2] = converted[0];
            }
        };
        Walk(kind, state, progress, geometry, convert);
    }
    dialog.Close();
    if (state->cancelled) return nullptr; // the partial result is freed

    SetTag(target, destinationModel);
    target.Unlock();
    return result.Release();
}

} // namespace

} // namespace pax

extern "C" HDIB PAXCALL ConvertDIBColorSpace(HDIB image, int sourceModel, int destinationModel,
                                             int showProgress, HWND owner) {
    return pax::ConvertDIBColorSpaceWith(pax::WalkKind::Rows, image, sourceModel,
                                         destinationModel, showProgress, owner);
}
