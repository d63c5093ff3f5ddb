// Building and reading packed DIBs in tests.
#ifndef PAX_TESTS_DIB_BUILDER_H
#define PAX_TESTS_DIB_BUILDER_H

#include "paximage.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace paxtest {

struct Rgb {
    BYTE r, g, b;
    bool operator==(const Rgb &o) const { return r == o.r && g == o.g && b == o.b; }
};

// A GHND block holding a 40-byte header, colourTableEntries x 4 bytes of
// table (filled as a grey ramp for palette depths), and the rows. Pixel bytes
// come from fill(x, y, byteIndexInPixel) with y = 0 the top row; for depths
// below 8 fill gives the palette index. Padding bytes are set to padByte.
HGLOBAL MakeDib(int width, int height, int bits,
                const std::function<BYTE(int x, int y, int byteInPixel)> &fill,
                int colourTableEntries = -1, BYTE padByte = 0, DWORD compression = 0);

// Whole block as bytes (locks and unlocks).
std::vector<BYTE> BlockBytes(HGLOBAL block);

// Pixel (x, y) of a 24-bit image as RGB, y = 0 the top row.
Rgb Pixel24(HGLOBAL image, int x, int y);

// Lock count of a block, on both platforms (GlobalFlags).
int LockCount(HGLOBAL block);

// Names of the status codes, so failures print names.
std::string CceName(DWORD code);
std::string ImsName(DWORD code);

// Simple deterministic generator for tests (xorshift32).
struct Rng {
    uint32_t s;
    explicit Rng(uint32_t seed) : s(seed ? seed : 0x9E3779B9u) {}
    uint32_t Next() {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        return s;
    }
    BYTE Byte() { return static_cast<BYTE>(Next() >> 24); }
    int Below(int n) { return static_cast<int>(Next() % static_cast<uint32_t>(n)); }
};

} // namespace paxtest

#endif
