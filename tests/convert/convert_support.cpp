#include "convert_support.h"

#include <cstring>

namespace convtest {

std::vector<BYTE> ConvertOne(int from, int to, const BYTE *value) {
    if (from == to) return std::vector<BYTE>(value, value + BufferBytes(from));
    pax::Conversion c = pax::FindConversion(from, to);
    if (c.toCmyk) {
        CMYKQUAD q = c.toCmyk(value);
        return {q.c, q.m, q.y, q.k};
    }
    BYTE out[3] = {};
    if (c.toThree) c.toThree(out, value);
    return {out[0], out[1], out[2]};
}

std::vector<BYTE> RandomBytes(size_t n, uint32_t seed) {
    paxtest::Rng rng(seed);
    std::vector<BYTE> v(n);
    for (BYTE &b : v) b = rng.Byte();
    return v;
}

HGLOBAL MakeModelImage(int model, int width, int height, uint32_t seed, int bits, BYTE padByte, int table) {
    if (model == MODEL_CMYK) bits = 32;
    std::vector<BYTE> bytes = RandomBytes(static_cast<size_t>(width) * height * (bits / 8), seed);
    return paxtest::MakeDib(
        width, height, bits,
        [&](int x, int y, int k) {
            return bytes[(static_cast<size_t>(y) * width + x) * (bits / 8) + k];
        },
        table, padByte, TagOf(model));
}

const BYTE *Rows::Pixel(int x, int y, int bytesPerPixel) const {
    return block.data() + offset +
           (static_cast<size_t>(header.biHeight) - 1 - static_cast<size_t>(y)) * stride +
           static_cast<size_t>(x) * bytesPerPixel;
}

Rows ReadRows(HGLOBAL image) {
    Rows r;
    r.block = paxtest::BlockBytes(image);
    if (r.block.size() < sizeof r.header) return r;
    std::memcpy(&r.header, r.block.data(), sizeof r.header);
    size_t entries = r.header.biClrUsed ? r.header.biClrUsed
                                        : (r.header.biBitCount <= 8 ? 1u << r.header.biBitCount : 0);
    r.offset = 40 + entries * 4;
    r.stride = ((static_cast<size_t>(r.header.biWidth) * r.header.biBitCount + 31) / 32) * 4;
    return r;
}

std::vector<BYTE> Components(const BYTE *p, int model, bool four) {
    if (model == MODEL_CMYK) return {p[3], p[2], p[1], p[0]};
    if (four) return {p[2], p[1], p[0], p[3]};
    return {p[2], p[1], p[0]};
}

} // namespace convtest
