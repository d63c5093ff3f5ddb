#include "dib_builder.h"

#include <cstring>

namespace paxtest {

HGLOBAL MakeDib(int width, int height, int bits,
                const std::function<BYTE(int, int, int)> &fill, int colourTableEntries,
                BYTE padByte, DWORD compression) {
    int entries = colourTableEntries;
    if (entries < 0) entries = bits <= 8 ? (1 << bits) : 0;
    int64_t stride = ((static_cast<int64_t>(width) * bits + 31) / 32) * 4;
    int64_t size = 40 + entries * 4 + stride * height;
    HGLOBAL block = GlobalAlloc(GHND, static_cast<SIZE_T>(size));
    if (!block) return nullptr;
    BYTE *p = static_cast<BYTE *>(GlobalLock(block));
    const BITMAPINFOHEADER header = {40, width, height, 1, static_cast<WORD>(bits), compression,
                                     static_cast<DWORD>(stride * height), 3780, 3780,
                                     colourTableEntries < 0 ? 0 : static_cast<DWORD>(colourTableEntries), 0};
    std::memcpy(p, &header, sizeof header);
    auto *table = reinterpret_cast<RGBQUAD *>(p + 40);
    for (int i = 0; i < entries; ++i) {
        BYTE v = static_cast<BYTE>(entries > 1 ? i * 255 / (entries - 1) : 0);
        table[i] = RGBQUAD{v, v, v, 0};
    }
    BYTE *pixels = p + 40 + entries * 4;
    for (int y = 0; y < height; ++y) {
        BYTE *row = pixels + (static_cast<int64_t>(height) - 1 - y) * stride;
        std::memset(row, bits >= 8 ? padByte : 0, static_cast<size_t>(stride));
        if (bits >= 8) {
            int bpp = bits / 8;
            for (int x = 0; x < width; ++x)
                for (int k = 0; k < bpp; ++k) row[x * bpp + k] = fill(x, y, k);
        } else {
            int perByte = 8 / bits;
            for (int x = 0; x < width; ++x) {
                int v = fill(x, y, 0) & ((1 << bits) - 1);
                int shift = 8 - bits * (x % perByte + 1);
                row[x / perByte] |= static_cast<BYTE>(v << shift);
            }
        }
    }
    GlobalUnlock(block);
    return block;
}

std::vector<BYTE> BlockBytes(HGLOBAL block) {
    std::vector<BYTE> out(GlobalSize(block));
    if (out.empty()) return out;
    BYTE *p = static_cast<BYTE *>(GlobalLock(block));
    if (!p) return {};
    std::memcpy(out.data(), p, out.size());
    GlobalUnlock(block);
    return out;
}

Rgb Pixel24(HGLOBAL image, int x, int y) {
    std::vector<BYTE> b = BlockBytes(image);
    BITMAPINFOHEADER h;
    std::memcpy(&h, b.data(), sizeof h);
    int entries = h.biClrUsed ? static_cast<int>(h.biClrUsed)
                              : (h.biBitCount <= 8 ? 1 << h.biBitCount : 0);
    int64_t stride = ((static_cast<int64_t>(h.biWidth) * 24 + 31) / 32) * 4;
    const BYTE *p = b.data() + 40 + entries * 4 + (h.biHeight - 1 - y) * stride + x * 3;
    return Rgb{p[2], p[1], p[0]};
}

int LockCount(HGLOBAL block) { return static_cast<int>(GlobalFlags(block) & GMEM_LOCKCOUNT); }

#define PAX_CODE_NAME(name, value, text) \
    if (code == value) return #name;
std::string CceName(DWORD code) {
    PAX_CCE_CODES(PAX_CODE_NAME)
    return "CCE_" + std::to_string(code) + "?";
}

std::string ImsName(DWORD code) {
    PAX_IMS_CODES(PAX_CODE_NAME)
    return "IMS_" + std::to_string(code) + "?";
}
#undef PAX_CODE_NAME

} // namespace paxtest
