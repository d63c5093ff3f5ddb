// Shared pieces of the conversion tests: images of any model, their rows, and
// the expected value of one pixel from the single-value conversion.
#ifndef PAX_TESTS_CONVERT_SUPPORT_H
#define PAX_TESTS_CONVERT_SUPPORT_H

#include "conversion_table.h"
#include "dib_builder.h"
#include "paximage.h"
#include "progress_watch.h"

#include <cstdint>
#include <vector>

namespace convtest {

// Bytes per pixel of a buffer of the model: 4 for CMYK, 3 otherwise.
inline int BufferBytes(int model) { return model == MODEL_CMYK ? 4 : 3; }
// The tag an image of the model carries.
inline DWORD TagOf(int model) { return model == MODEL_RGB ? 0 : static_cast<DWORD>(model + 8); }

// Converts one value, given and returned in component order, with the
// single-value conversion of the pair (the value itself for equal models).
std::vector<BYTE> ConvertOne(int from, int to, const BYTE *value);

std::vector<BYTE> RandomBytes(size_t n, uint32_t seed);

// A seeded random image tagged with the model: 32 bits for CMYK, else `bits`
// (24 or 32), with `table` colour-table entries (-1: none). Padding bytes are
// padByte.
HGLOBAL MakeModelImage(int model, int width, int height, uint32_t seed, int bits = 24, BYTE padByte = 0x5A,
                       int table = -1);
// Sets one field of an image's header in place and returns the image.
template <class F>
HGLOBAL WithField(HGLOBAL image, F BITMAPINFOHEADER::*field, long long value) {
    static_cast<BITMAPINFOHEADER *>(GlobalLock(image))->*field = static_cast<F>(value);
    GlobalUnlock(image);
    return image;
}

// Pixel bytes of a block from its header: offset of the rows and stride.
struct Rows {
    std::vector<BYTE> block;
    BITMAPINFOHEADER header{};
    size_t offset = 0;
    size_t stride = 0;
    const BYTE *Pixel(int x, int y, int bytesPerPixel) const; // y = 0 the top row
};
Rows ReadRows(HGLOBAL image);

// A stored pixel's components in component order: bytes 2, 1, 0 (and 3 at
// 32 bits when `four`); C, M, Y, K from bytes 3, 2, 1, 0 of a CMYK pixel.
std::vector<BYTE> Components(const BYTE *stored, int model, bool four = false);

} // namespace convtest

#endif
