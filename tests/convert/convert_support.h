// Shared pieces of the conversion tests: images of any model, their rows, and
// the expected value of one pixel from the single-value conversion.
#ifndef PAX_TESTS_CONVERT_SUPPORT_H
#define PAX_TESTS_CONVERT_SUPPORT_H

#include "conversion_table.h"
#include "dib_builder.h"
#include "paximage.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace convtest {

// Bytes per pixel of a buffer of the model: 4 for CMYK, 3 otherwise.
inline int BufferBytes(int model) { return model == MODEL_CMYK ? 4 : 3; }
// The tag an image of the model carries.
inline DWORD TagOf(int model) { return model == MODEL_RGB ? 0 : static_cast<DWORD>(model + 8); }

// Converts one value, given and returned in component order, with the
// single-value conversion of the pair (the value itself for equal models).
inline std::vector<BYTE> ConvertOne(int from, int to, const BYTE *value) {
    const pax::Conversion c = pax::FindConversion(from, to);
    if (from == to) return std::vector<BYTE>(value, value + BufferBytes(from));
    if (c.toCmyk) {
        const CMYKQUAD q = c.toCmyk(value);
        return {q.c, q.m, q.y, q.k};
    }
    BYTE out[3] = {};
    c.toThree(out, value);
    return {out[0], out[1], out[2]};
}

inline std::vector<BYTE> RandomBytes(size_t n, uint32_t seed) {
    paxtest::Rng rng(seed);
    std::vector<BYTE> v(n);
    for (BYTE &b : v) b = rng.Byte();
    return v;
}

// A seeded random image tagged with the model: 32 bits for CMYK, else `bits`
// (24 or 32), with `table` colour-table entries (-1: none). Padding bytes are
// padByte.
inline HGLOBAL MakeModelImage(int model, int width, int height, uint32_t seed, int bits = 24,
                              BYTE padByte = 0x5A, int table = -1) {
    if (model == MODEL_CMYK) bits = 32;
    const std::vector<BYTE> bytes = RandomBytes(static_cast<size_t>(width) * height * (bits / 8), seed);
    auto fill = [&](int x, int y, int k) { return bytes[(static_cast<size_t>(y) * width + x) * (bits / 8) + k]; };
    return paxtest::MakeDib(width, height, bits, fill, table, padByte, TagOf(model));
}

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
    size_t offset = 0, stride = 0;
    const BYTE *Pixel(int x, int y, int bytesPerPixel) const { // y = 0 the top row
        return block.data() + offset + (static_cast<size_t>(header.biHeight) - 1 - y) * stride +
               static_cast<size_t>(x) * bytesPerPixel;
    }
};
inline Rows ReadRows(HGLOBAL image) {
    Rows r;
    r.block = paxtest::BlockBytes(image);
    if (r.block.size() < sizeof r.header) return r;
    std::memcpy(&r.header, r.block.data(), sizeof r.header);
    const size_t entries = r.header.biClrUsed ? r.header.biClrUsed : r.header.biBitCount <= 8 ? 1u << r.header.biBitCount : 0;
    r.offset = 40 + entries * 4;
    r.stride = ((static_cast<size_t>(r.header.biWidth) * r.header.biBitCount + 31) / 32) * 4;
    return r;
}

// A stored pixel's components in component order: bytes 2, 1, 0 (and 3 at
// 32 bits when `four`); C, M, Y, K from bytes 3, 2, 1, 0 of a CMYK pixel.
inline std::vector<BYTE> Components(const BYTE *p, int model, bool four = false) {
    if (model == MODEL_CMYK) return {p[3], p[2], p[1], p[0]};
    return four ? std::vector<BYTE>{p[2], p[1], p[0], p[3]} : std::vector<BYTE>{p[2], p[1], p[0]};
}

} // namespace convtest

#endif
