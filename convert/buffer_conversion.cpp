// ConvertColorSpace: a run of pixels in a caller's byte buffer, converted from
// one colour model to another by the single-value conversion of the pair.
//
// Buffers hold pixels in component order (byte 0 is the first component), 3
// bytes per pixel, 4 for CMYK, with no padding. The walk visits every source
// byte index (the unit of progress and cancel) and converts a pixel where one
// begins.
//
// A trailing partial pixel (count not a whole number of source pixels) is
// walked but not converted: a pixel is converted only when all of its bytes lie
// below count, so nothing is read past count bytes of the source, and nothing
// is written past the destination size that count implies (count div 3 x 4 for
// a CMYK destination, count div 4 x 3 from a CMYK source, count otherwise). The
// destination bytes of the partial pixel are left as they were, and the call
// still returns count.
#include "convert_internal.h"

#include "conversion_table.h"
#include "pixel_value.h"
#include "progress.h"
#include "thread_state.h"

namespace pax {

namespace {

// 3 bytes per pixel, or 4 for CMYK.
int64_t BufferPixelBytes(int model) { return model == MODEL_CMYK ? 4 : 3; }

WalkGeometry BufferGeometry(int count, int model) {
    WalkGeometry g;
    g.total = count;
    g.stride = count;
    g.rowBytes = count;
    g.pixelBytes = BufferPixelBytes(model);
    return g;
}

// Same model: a byte copy of count bytes, first to last, with no dialog.
int CopyBuffer(const BYTE *source, BYTE *destination, int count) {
    for (int i = 0; i < count; ++i) destination[i] = source[i];
    return count;
}

} // namespace

// The walk for a CMYK source: 4 source bytes (C, M, Y, K) per pixel, 3 result
// bytes written at i div 4 x 3.
int ConvertCMYKBuffer(WalkKind kind, const BYTE *source, BYTE *destination, int count,
                      int destinationModel, int showProgress, HWND owner) {
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    const ToThree toThree = FindConversion(MODEL_CMYK, destinationModel).toThree;
    if (!toThree) {
        Fail(state, CCE_BADMODEL);
        return -1;
    }
    const bool progress = showProgress != 0;
    ProgressGuard dialog;
    if (!dialog.Open(progress, owner, ProgressTotalPastLast(count), kConvertProgressDivisor)) {
        Fail(state, CCE_NOPROGRESS);
        return -1;
    }
    auto convert = [&](int64_t i, int64_t, int64_t column) {
        PixelValue cmyk;
        SetValue(cmyk, source[i], source[i + 1], source[i + 2], source[i + 3]);
        toThree(destination + column * 3, cmyk.bytes);
    };
    return static_cast<int>(Walk(kind, state, progress, BufferGeometry(count, MODEL_CMYK), convert));
}

int ConvertColorSpaceWith(WalkKind kind, const BYTE *source, BYTE *destination, int count,
                          int sourceModel, int destinationModel, int showProgress, HWND owner) {
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    // Model codes are tested before the count and the pointers.
    if (!IsModelCode(sourceModel) || !IsModelCode(destinationModel)) {
        Fail(state, CCE_BADMODEL);
        return -1;
    }
    if (count < 1 || !source || !destination) {
        Fail(state, CCE_BADARGUMENT);
        return -1;
    }
    if (sourceModel == destinationModel) return CopyBuffer(source, destination, count);
    if (sourceModel == MODEL_CMYK)
        return ConvertCMYKBuffer(kind, source, destination, count, destinationModel, showProgress,
                                 owner);

    const Conversion conversion = FindConversion(sourceModel, destinationModel);
    if (!conversion.toThree && !conversion.toCmyk) {
        Fail(state, CCE_BADMODEL);
        return -1;
    }
    const bool progress = showProgress != 0;
    ProgressGuard dialog;
    if (!dialog.Open(progress, owner, ProgressTotalPastLast(count), kConvertProgressDivisor)) {
        Fail(state, CCE_NOPROGRESS);
        return -1;
    }
    const WalkGeometry geometry = BufferGeometry(count, sourceModel);
    int64_t walked;
    if (conversion.toCmyk) {
        // Into CMYK: 4 result bytes at i div 3 x 4, in the order C, M, Y, K.
        const ToCMYK toCmyk = conversion.toCmyk;
        auto convert = [&](int64_t i, int64_t, int64_t column) {
            PixelValue value;
            SetValue(value, source[i], source[i + 1], source[i + 2]);
            const CMYKQUAD q = toCmyk(value.bytes);
            BYTE *d = destination + column * 4;
            d[0] = q.c;
            d[1] = q.m;
            d[2] = q.y;
            d[3] = q.k;
        };
        walked = Walk(kind, state, progress, geometry, convert);
    } else {
        // Between 3-component models: 3 result bytes at i. The value is read
        // before anything is written, so the buffers may be the same.
        const ToThree toThree = conversion.toThree;
        auto convert = [&](int64_t i, int64_t, int64_t) {
            PixelValue value;
            SetValue(value, source[i], source[i + 1], source[i + 2]);
            toThree(destination + i, value.bytes);
        };
        walked = Walk(kind, state, progress, geometry, convert);
    }
    return static_cast<int>(walked);
}

} // namespace pax

extern "C" int PAXCALL ConvertColorSpace(const BYTE *source, BYTE *destination, int count,
                                         int sourceModel, int destinationModel, int showProgress,
                                         HWND owner) {
    return pax::ConvertColorSpaceWith(pax::WalkKind::Rows, source, destination, count,
                                      sourceModel, destinationModel, showProgress, owner);
}
