// The byte-index walk shared by the buffer and image conversions.
//
// A walk visits unit indices 0 .. total - 1 (one unit per source byte, row
// padding included). Before unit i it stops if the thread's cancel flag is set,
// and steps the progress bar when one is due; a pixel is converted at each
// unit where one begins. Two walks give exactly the same observable result:
//
// - WalkKind::Bytes, the plain loop over every byte index;
// - WalkKind::Rows, which only looks at the cancel flag and the bar at the
//   units where either can matter and converts whole runs of pixels row by row
//   in between.
//
// Why the second is the same: the cancel flag and the dialog handle change only
// while StepProgress pumps messages, and a step is due only at a multiple of
// the divisor. Between two such units nothing can stop the walk, so testing
// the flag there is wasted work. The one subtle unit is the one right after a
// step: Cancel pressed during that step's pump lets the step's own unit run,
// and the walk stops at the next index.
#ifndef PAX_CONVERT_WALK_H
#define PAX_CONVERT_WALK_H

#include "progress.h"
#include "thread_state.h"

#include <algorithm>
#include <cstdint>

namespace pax {

enum class WalkKind { Bytes, Rows };

// Rows of `stride` units; a pixel of pixelBytes units begins at every
// multiple of pixelBytes within a row whose whole pixel lies within the
// row's first rowBytes units. For a buffer there is one row (stride = total).
struct WalkGeometry {
    int64_t total = 0;
    int64_t stride = 1;
    int64_t rowBytes = 0;
    int64_t pixelBytes = 3;
};

// True when a pixel begins at unit i.
inline bool PixelBeginsAt(const WalkGeometry &g, int64_t i) {
    int64_t c = i % g.stride;
    return c % g.pixelBytes == 0 && c + g.pixelBytes <= g.rowBytes;
}

// Converts every pixel whose first unit lies in [from, to), in storage order,
// a run of consecutive pixels of one row at a time:
// convert(unit, row, column, count) converts the `count` pixels that begin at
// unit, unit + pixelBytes, ..., the first of them in the given row and column.
template <class Convert>
void ConvertUnitRange(const WalkGeometry &g, int64_t from, int64_t to, Convert &convert) {
    if (from >= to) return;
    int64_t row = from / g.stride;
    int64_t column = (from % g.stride + g.pixelBytes - 1) / g.pixelBytes;
    const int64_t lastStart = g.rowBytes - g.pixelBytes; // last pixel start in a row
    for (int64_t rowStart = row * g.stride; rowStart < to; rowStart += g.stride, ++row, column = 0) {
        const int64_t end = std::min(to - rowStart - 1, lastStart); // inclusive
        const int64_t first = column * g.pixelBytes;
        if (first <= end) convert(rowStart + first, row, column, (end - first) / g.pixelBytes + 1);
    }
}

// The plain walk: every byte index, in order.
template <class Convert>
int64_t WalkBytes(ThreadState *state, bool progress, const WalkGeometry &g, Convert &convert) {
    int64_t i = 0;
    for (; i < g.total; ++i) {
        if (state->cancelled) break;
        if (ProgressDue(state, progress, i)) StepProgress();
        if (PixelBeginsAt(g, i)) convert(i, i / g.stride, (i % g.stride) / g.pixelBytes, int64_t{1});
    }
    return i;
}

// The same walk, testing the flag and the bar only where they can change.
template <class Convert>
int64_t WalkRows(ThreadState *state, bool progress, const WalkGeometry &g, Convert &convert) {
    int64_t i = 0;
    while (i < g.total) {
        if (state->cancelled) break;
        if (ProgressDue(state, progress, i)) {
            StepProgress();
            // This unit runs whatever the pump did; the flag is looked at again
            // before the next one.
            ConvertUnitRange(g, i, i + 1, convert);
            ++i;
            continue;
        }
        // Up to the next unit where a step can be due; nothing in between can
        // set the flag or step the bar.
        int64_t next = g.total;
        if (progress && state->progressDialog && state->progressDivisor > 0) {
            const int64_t d = state->progressDivisor;
            next = std::min(next, (i / d + 1) * d);
        }
        ConvertUnitRange(g, i, next, convert);
        i = next;
    }
    return i;
}

template <class Convert>
int64_t Walk(WalkKind kind, ThreadState *state, bool progress, const WalkGeometry &g,
             Convert &convert) {
    return kind == WalkKind::Bytes ? WalkBytes(state, progress, g, convert)
                                   : WalkRows(state, progress, g, convert);
}

} // namespace pax

#endif
