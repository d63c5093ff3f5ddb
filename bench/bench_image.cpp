// Test images for the benchmarks.
#include "bench_util.h"

#include <cstring>

namespace paxbench {

HGLOBAL MakeBenchImage(int side, int bits, Content content) {
    const int64_t stride = ((int64_t{side} * bits + 31) / 32) * 4;
    const int64_t table = bits == 8 ? 1024 : 0;
    HGLOBAL block = GlobalAlloc(GHND, static_cast<SIZE_T>(40 + table + stride * side));
    BYTE *p = static_cast<BYTE *>(GlobalLock(block));
    auto *h = reinterpret_cast<BITMAPINFOHEADER *>(p);
    h->biSize = 40;
    h->biWidth = side;
    h->biHeight = side;
    h->biPlanes = 1;
    h->biBitCount = static_cast<WORD>(bits);
    h->biSizeImage = static_cast<DWORD>(stride * side);
    for (int i = 0; bits == 8 && i < 256; ++i) {
        BYTE *e = p + 40 + 4 * i;
        e[0] = e[1] = e[2] = static_cast<BYTE>(i);
    }
    BYTE *pixels = p + 40 + table;
    if (content == Content::Noise) {
        uint32_t s = 0x12345678u; // xorshift32
        for (int64_t i = 0; i < stride * side; ++i) {
            s ^= s << 13;
            s ^= s >> 17;
            s ^= s << 5;
            pixels[i] = static_cast<BYTE>(s >> 24);
        }
    } else {
        uint32_t noise = 12345; // linear congruential, -8..7 per pixel
        for (int y = 0; y < side; ++y) {
            BYTE *row = pixels + y * stride;
            for (int x = 0; x < side; ++x) {
                noise = noise * 1664525u + 1013904223u;
                int n = static_cast<int>(noise >> 28) - 8;
                if (bits == 24) {
                    row[3 * x] = static_cast<BYTE>((x / 16 + n) & 255);
                    row[3 * x + 1] = static_cast<BYTE>((y / 16 + n) & 255);
                    row[3 * x + 2] = static_cast<BYTE>(((x + y) / 32 + n) & 255);
                } else {
                    row[x] = static_cast<BYTE>(((x ^ y) / 16 + n) & 255);
                }
            }
        }
    }
    GlobalUnlock(block);
    return block;
}

} // namespace paxbench
