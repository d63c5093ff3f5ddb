// The shared body of the hue-based adjustments, from the lock of the
// caller's image to the cancel verdict: check the image, copy it, run the
// parameter dialog (mode 2 or 3), open the progress dialog (mode 1 or 3),
// walk the pixels column by column, then close and decide.
#ifndef PAX_ADJUST_COLUMN_WALK_H
#define PAX_ADJUST_COLUMN_WALK_H

#include "dib.h"
#include "param_dialog.h"
#include "paximage.h"
#include "progress.h"
#include "thread_state.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace hueadjust {

// Columns per step of the progress bar.
constexpr LONG kColumnsPerStep = 5;

// What the caller's locked block holds.
enum class SourceKind {
    Pixels,     // a 24-bit image whose rows lie inside the block
    Empty,      // a 24-bit image with no columns or no rows (width or height 0 or
                // negative): copied unchanged, no pixel is visited
    OtherDepth, // not 24 bits per pixel
    Malformed,  // the block is smaller than its header, or its rows do not fit in it
};

// Reads the header of a locked block of blockSize bytes. layout->pixels is
// set for SourceKind::Pixels only.
SourceKind DescribeSource(BYTE *block, SIZE_T blockSize, DibLayout *layout);

// Runs the body once the operation's own arguments passed their checks.
// runDialog() is called for mode 2 or 3 and returns the dialog's outcome.
// makePixel() is called after the dialog (so it sees the values the dialog
// left) and returns the pixel function: bool(const BYTE rgb[3], BYTE out[3]),
// true when the pixel is to be written with out.
//
// Failures: a source that cannot be locked, another depth, a copy that
// cannot be locked, a cancel in either dialog and a progress dialog that
// cannot be opened return null and store no code; a copy that cannot be
// allocated stores CCE_NOMEMORY; a malformed block CCE_BADARGUMENT.
template <typename RunDialog, typename MakePixel>
HDIB RunColumnAdjustment(ThreadState *state, HDIB hDib, int mode, HWND owner,
                         RunDialog runDialog, MakePixel makePixel) {
    BlockLock source(hDib);
    if (!source) return nullptr;
    DibLayout src;
    switch (DescribeSource(source.data(), source.size(), &src)) {
    case SourceKind::Pixels:
    case SourceKind::Empty:
        break;
    case SourceKind::OtherDepth:
        return nullptr;
    case SourceKind::Malformed: return Fail(state, CCE_BADARGUMENT);
    }

    OwnedBlock copy(DuplicateDIB(hDib));
    if (!copy) return Fail(state, CCE_NOMEMORY);
    BlockLock target(copy.get());
    if (!target) return nullptr;
    // The copy keeps zeros when it could not lock the source while copying:
    // its header then differs from the source's, and the run fails as if the
    // copy could not be locked.
    if (target.size() != source.size() ||
        std::memcmp(target.data(), source.data(), kDibHeaderSize) != 0)
        return nullptr;

    const ModeRequest request = ReadMode(mode);
    if (request.paramDialog && runDialog() == DialogOutcome::Cancelled) return nullptr;

    const bool progress = request.progress;
    ProgressGuard dialog;
    if (!dialog.Open(progress, owner, ProgressTotalPastLast(src.width), kColumnsPerStep))
        return nullptr;

    auto pixel = makePixel();
    DibLayout dst = src;
    const bool walk = src.pixels != nullptr; // an empty image has no pixel to visit
    if (walk) dst.pixels = target.data() + (src.pixels - source.data());
    // Column by column, x from 0, with the cancel test and a progress step
    // before each column. Cancel is only ever set by the progress dialog, in
    // the message pump of a step, so between two steps the pixels can be
    // visited in any order without changing the result or the point where a
    // cancel stops the walk. They are visited row by row within each band of
    // columns from one step to the next, which reads memory in order; without
    // progress the whole image is one band. A cancel delivered in a step still
    // lets that step's column be done, as the column-by-column order would.
    const int64_t columns = walk ? src.width : 0;
    const int64_t band = progress ? kColumnsPerStep : columns;
    for (int64_t x0 = 0; x0 < columns; x0 += band) {
        if (state->cancelled) break;
        if (ProgressDue(state, progress, x0)) StepProgress();
        const int64_t x1 = state->cancelled ? x0 + 1 : std::min(x0 + band, columns);
        for (int64_t y = 0; y < src.height; ++y) {
            const BYTE *in = PixelAt(src, x0, y, 3);
            BYTE *out = PixelAt(dst, x0, y, 3);
            for (int64_t x = x0; x < x1; ++x, in += 3, out += 3) {
                BYTE rgb[3], moved[3];
                GetPixel3(in, rgb);
                if (pixel(rgb, moved)) PutPixel3(out, moved);
            }
        }
    }

    target.Unlock();
    source.Unlock();
    dialog.Close();
    if (state->cancelled) return nullptr; // the guard frees the copy
    return copy.Release();
}

} // namespace hueadjust

#endif
