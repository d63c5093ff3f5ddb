// Straightforward evaluations of the dithers, written from their rules with no
// shortcuts, for the tests to compare the library against.
#ifndef PAX_TESTS_DITHER_REFERENCE_H
#define PAX_TESTS_DITHER_REFERENCE_H

#include "paximage.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace ref {

struct Tap {
    int dx, dy, weight;
};

struct Kernel {
    std::string name;
    HDIB (*dither)(HDIB, int); // the export
    int rows, divisor;
    std::vector<Tap> taps;
    DWORD nullImageStatus, lockFailedStatus;
};

// The six methods in a fixed order: FS4, Burkes, Sierra, JJN, Stucki, SA.
const std::vector<Kernel> &Kernels();

// A source image read the way the dithers read it: pixel rows after the
// header's own table, indices without an entry black.
struct Source {
    int64_t width = 0, rows = 0;
    LONG heightField = 0, xPelsPerMeter = 0, yPelsPerMeter = 0;
    std::vector<std::vector<std::array<int, 3>>> rgb; // [stored row][x] = r, g, b
};
Source Decode(HGLOBAL image);

// The whole expected result block. wraps, when given, counts the additions
// whose sum left the 16-bit range.
std::vector<BYTE> ErrorDiffusion(const Source &src, const Kernel &kernel, int bits,
                                 long *wraps = nullptr);
std::vector<BYTE> BlockDither(const Source &src, bool halve, int bits);

// The expected header and colour table of a result.
std::vector<BYTE> ResultHeaderAndTable(const Source &src, int bits);

} // namespace ref

#endif
