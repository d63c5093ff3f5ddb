// A result block whose pixel bytes the fast paths write themselves. The
// straightforward paths make the result as a zero-filled block and copy the
// caller's whole block (or zeros) into it, then rewrite the pixels; when a
// fast path writes every pixel byte of every row, the block need not be
// zero-filled nor its pixels copied first: only the bytes around the pixels
// (header, colour table, row padding, anything after the rows) are filled,
// which leaves the same block once the rows are written.
#ifndef PAX_FRAME_RESULT_FRAME_H
#define PAX_FRAME_RESULT_FRAME_H

#include "paximage.h"

#include <cstdint>
#include <cstring>

// Fills the `size` bytes of dst, except the first rowBytes bytes of each of
// `rows` rows that start at pixelsOffset, `stride` apart, with the same bytes
// of src, or with zeros when src is null.
inline void FillAroundRows(BYTE *dst, const BYTE *src, int64_t size, int64_t pixelsOffset,
                           int64_t stride, int64_t rows, int64_t rowBytes) {
    auto fill = [&](int64_t from, int64_t to) {
        if (to <= from) return;
        if (src)
            std::memcpy(dst + from, src + from, static_cast<size_t>(to - from));
        else
            std::memset(dst + from, 0, static_cast<size_t>(to - from));
    };
    fill(0, pixelsOffset);
    // Rows without padding leave nothing between them: an image without
    // columns may claim any number of rows of no bytes, and is not walked.
    if (stride > rowBytes)
        for (int64_t r = 0; r < rows; ++r) {
            const int64_t row = pixelsOffset + r * stride;
            fill(row + rowBytes, row + stride);
        }
    fill(pixelsOffset + rows * stride, size);
}

#endif
