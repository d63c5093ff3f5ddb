// Where the rows of a packed DIB lie in the block that holds it: the one
// place that reads the header's dimensions, depth, colour-table count and
// image size to find the rows, and checks them against the block.
//
// Every size is worked out in unsigned 64 bits with an overflow test, so no
// header, however hostile (dimensions near 2^31 or INT_MIN, 2^32 table
// entries), can make rows that do not fit look as if they did.
#ifndef PAX_FRAME_LAYOUT_H
#define PAX_FRAME_LAYOUT_H

#include "paximage.h"

#include <cstdint>

constexpr int kDibHeaderSize = 40;

// Where the first row starts.
enum class RowsStart {
    AfterTable,  // after the header's colour table
    AfterHeader, // right after the 40-byte header, whatever biClrUsed says
};

// What biSizeImage means to the operation.
enum class SizeImageRule {
    Ignored,
    InsideBlock, // when not 0 it must cover the rows and lie inside the block
    SizesResult, // it sizes a new image (the rows' size when 0); it must cover the rows
};

// An operation's rules for the images it takes.
struct LayoutRules {
    uint64_t depths = 0;         // bit d set: biBitCount d is taken (see depthAccepted)
    bool requireInfoHeader = true; // a biSize other than 40 is a fault; otherwise the
                                   // table of such a header follows the core-header rule
    bool topDown = false;        // a negative biHeight is |biHeight| rows stored top first
    RowsStart rowsStart = RowsStart::AfterTable;
    SizeImageRule sizeImage = SizeImageRule::Ignored;
};

// The first rule an image breaks, in the order they are tested.
enum class LayoutFault {
    None,
    ShortBlock,     // no block, or one shorter than the 40-byte header
    HeaderSize,     // biSize is not 40 (when the rules require it)
    NegativeWidth,
    NegativeHeight, // when top-down images are not taken
    Table,          // the colour table runs past the block
    Rows,           // the rows run past the block
    SizeImage,      // biSizeImage breaks its rule
};

// A located image. The header fields are filled whenever the block holds a
// header, so an operation can make its own checks in its own order; pixels
// is set only when fault is None.
struct DibLayout {
    BITMAPINFOHEADER *header = nullptr;
    BYTE *pixels = nullptr;        // first stored row
    LayoutFault fault = LayoutFault::ShortBlock;
    bool infoHeader = false;       // biSize is 40
    int bits = 0;                  // biBitCount
    bool depthAccepted = false;    // bits is one of the rules' depths
    int64_t width = 0;             // biWidth as stored
    int64_t heightField = 0;       // biHeight as stored
    int64_t height = 0;            // number of rows (|biHeight| for a top-down image)
    bool topDown = false;
    int64_t tableEntries = 0;      // entries between header and rows
    int64_t tableBytes = 0;
    int64_t stride = 0;            // bytes per row, padded to 4
    int64_t imageSize = 0;         // stride x height
    int64_t sizeImage = 0;         // biSizeImage, or imageSize when it is 0

    bool ok() const { return fault == LayoutFault::None; }
    // No pixel to visit: a walk over such an image does nothing, whatever the
    // other dimension claims.
    bool empty() const { return width == 0 || height == 0; }
    // Offset of the first row from the start of the block.
    int64_t pixelOffset() const { return kDibHeaderSize + tableBytes; }
    // Row r counted from the bottom of the picture.
    BYTE *RowFromBottom(int64_t r) const { return pixels + (topDown ? height - 1 - r : r) * stride; }
};

// Colour-table entries: biClrUsed when the header is 40 bytes and it is not 0,
// else by depth (1: 2, 4: 16, 8: 256, other: 0). A header of another size is
// read as a BITMAPCOREHEADER (3-byte entries). 64-bit: any biClrUsed a
// header may claim gives a size that can be compared with the block.
int64_t ColorTableEntries(const BITMAPINFOHEADER *header);
int64_t ColorTableSize(const BITMAPINFOHEADER *header); // bytes

// Locates the image in a locked block of blockSize bytes by the rules.
DibLayout LocateImage(void *block, SIZE_T blockSize, const LayoutRules &rules);

// Bytes per row of `bits` per pixel, padded to a multiple of 4.
inline uint64_t RowBytes(uint64_t width, uint64_t bits) { return (width * bits + 31) / 32 * 4; }

// stride x rows into *size; false when it does not fit in `limit`.
inline bool CheckedImageSize(uint64_t stride, uint64_t rows, uint64_t limit, uint64_t *size) {
    return !__builtin_mul_overflow(stride, rows, size) && *size <= limit;
}

#endif
