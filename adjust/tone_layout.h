// Where the rows of an image lie in its block, for brightness and contrast,
// gamma and convolution: the header, the colour table and every row are
// checked against the block before a byte of them is read.
//
// Unlike DescribeDib this accepts top-down images (negative biHeight): their
// rows are the same rows stored in the other order, and RowFromBottom hides
// the difference so each operation walks the picture as if it were bottom-up.
#ifndef PAX_ADJUST_TONE_LAYOUT_H
#define PAX_ADJUST_TONE_LAYOUT_H

#include "dib.h"

#include <cstdint>

struct ToneLayout {
    BITMAPINFOHEADER *header = nullptr;
    BYTE *pixels = nullptr;
    int64_t tableEntries = 0; // 4-byte entries between header and rows
    int64_t width = 0;
    int64_t rows = 0; // |biHeight|
    bool topDown = false;
    int64_t stride = 0;
    int64_t imageSize = 0; // stride x rows

    // Row r of the picture counted from its bottom (storage row r of a
    // bottom-up image).
    BYTE *RowFromBottom(int64_t r) const {
        return pixels + (topDown ? rows - 1 - r : r) * stride;
    }
};

// Colour-table entries of a 40-byte header, in 64 bits so that no biClrUsed
// turns negative: biClrUsed when not 0, else 2, 16 or 256 for 1, 4 and 8 bits.
inline int64_t ToneTableEntries(const BITMAPINFOHEADER *h) {
    if (h->biClrUsed != 0) return h->biClrUsed;
    switch (h->biBitCount) {
    case 1: return 2;
    case 4: return 16;
    case 8: return 256;
    default: return 0;
    }
}

// Fills layout for a locked block whose 40-byte header has already been
// checked. False when the width is negative or when the table and the rows
// (at `bits` per pixel) do not lie inside the block.
inline bool LocateToneRows(BYTE *block, SIZE_T blockSize, int bits, ToneLayout *layout) {
    auto *h = reinterpret_cast<BITMAPINFOHEADER *>(block);
    if (blockSize < kDibHeaderSize || h->biWidth < 0) return false;
    int64_t entries = ToneTableEntries(h);
    int64_t rows = h->biHeight < 0 ? -static_cast<int64_t>(h->biHeight) : h->biHeight;
    int64_t stride = StrideForBits(h->biWidth, bits);
    int64_t offset = kDibHeaderSize + entries * 4;
    int64_t size = static_cast<int64_t>(blockSize);
    if (offset > size || stride * rows > size - offset) return false;
    layout->header = h;
    layout->pixels = block + offset;
    layout->tableEntries = entries;
    layout->width = h->biWidth;
    layout->rows = rows;
    layout->topDown = h->biHeight < 0;
    layout->stride = stride;
    layout->imageSize = stride * rows;
    return true;
}

#endif
