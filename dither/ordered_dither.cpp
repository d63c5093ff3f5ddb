// DitherOrdered: an 8-bit image thresholded against a repeating matrix, then
// handed to DitherSierra for its 1-bit result.
#include "ordered_dither.h"

#include "dib.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

// Clustered dot, 1..36 growing from the centre.
constexpr BYTE kClusteredDot6[36] = {
    35, 30, 18, 22, 31, 36, //
    29, 15, 10, 17, 21, 32, //
    14, 9,  5,  6,  16, 20, //
    13, 4,  1,  2,  11, 19, //
    28, 8,  3,  7,  24, 25, //
    34, 27, 12, 23, 26, 33,
};

// Lines: each row holds consecutive values.
constexpr BYTE kLines6[36] = {
    36, 34, 32, 31, 33, 35, //
    24, 22, 20, 19, 21, 23, //
    12, 10, 8,  7,  9,  11, //
    6,  4,  2,  1,  3,  5,  //
    18, 16, 14, 13, 15, 17, //
    30, 28, 26, 25, 27, 29,
};

// Clustered-dot spiral, 1..25.
constexpr BYTE kSpiral5[25] = {
    21, 22, 23, 24, 25, //
    20, 7,  8,  9,  10, //
    19, 6,  1,  2,  11, //
    18, 5,  4,  3,  12, //
    17, 16, 15, 14, 13,
};

// Irregular, with repeated values.
constexpr BYTE kIrregular5[25] = {
    167, 200, 230, 216, 181, //
    94,  72,  193, 242, 232, //
    36,  52,  222, 167, 200, //
    181, 126, 210, 94,  72,  //
    232, 153, 111, 36,  51,
};

// The 8x8 Bayer index matrix: B(1) = [0], B(2m) = [[4B, 4B+2], [4B+3, 4B+1]].
constexpr BYTE kBayer8[64] = {
    0,  32, 8,  40, 2,  34, 10, 42, //
    48, 16, 56, 24, 50, 18, 58, 26, //
    12, 44, 4,  36, 14, 46, 6,  38, //
    60, 28, 52, 20, 62, 30, 54, 22, //
    3,  35, 11, 43, 1,  33, 9,  41, //
    51, 19, 59, 27, 49, 17, 57, 25, //
    15, 47, 7,  39, 13, 45, 5,  37, //
    63, 31, 55, 23, 61, 29, 53, 21,
};

// The even rows and even columns of the 16x16 matrix below.
constexpr BYTE kDispersed8[64] = {
    2,  60, 16, 56, 3,  57, 13, 53, //
    34, 18, 48, 32, 35, 19, 45, 29, //
    10, 50, 6,  64, 11, 51, 7,  61, //
    42, 26, 38, 22, 43, 27, 39, 23, //
    4,  58, 14, 54, 1,  59, 15, 55, //
    36, 20, 46, 30, 33, 17, 47, 31, //
    12, 52, 8,  62, 9,  49, 5,  63, //
    44, 28, 40, 24, 41, 25, 37, 21,
};

// Dispersed 16x16, values 1..255; 255 appears twice (row 6 column 7, row 14
// column 15) and 256 never.
constexpr BYTE kDispersed16[256] = {
    2,   236, 60,  220, 16,  232, 56,  216, 3,   233, 57,  217, 13,  229, 53,  213, //
    130, 66,  188, 124, 144, 80,  184, 120, 131, 67,  185, 121, 141, 77,  181, 117, //
    34,  194, 18,  252, 48,  208, 32,  248, 35,  195, 19,  249, 45,  205, 29,  245, //
    162, 98,  146, 82,  176, 112, 160, 96,  163, 99,  147, 83,  173, 109, 157, 93,  //
    10,  226, 50,  210, 6,   240, 64,  224, 11,  227, 51,  211, 7,   237, 61,  221, //
    138, 74,  178, 114, 134, 70,  192, 128, 139, 75,  179, 115, 135, 71,  189, 125, //
    42,  202, 26,  242, 38,  198, 22,  255, 43,  203, 27,  243, 39,  199, 23,  253, //
    170, 106, 154, 90,  166, 102, 150, 86,  171, 107, 155, 91,  167, 103, 151, 87,  //
    4,   234, 58,  218, 14,  230, 54,  214, 1,   235, 59,  219, 15,  231, 55,  215, //
    132, 68,  186, 122, 142, 78,  182, 118, 129, 65,  187, 123, 143, 79,  183, 119, //
    36,  196, 20,  250, 46,  206, 30,  246, 33,  193, 17,  251, 47,  207, 31,  247, //
    164, 100, 148, 84,  174, 110, 158, 94,  161, 97,  145, 81,  175, 111, 159, 95,  //
    12,  228, 52,  212, 8,   238, 62,  222, 9,   225, 49,  209, 5,   239, 63,  223, //
    140, 76,  180, 116, 136, 72,  190, 126, 137, 73,  177, 113, 133, 69,  191, 127, //
    44,  204, 28,  244, 40,  200, 24,  254, 41,  201, 25,  241, 37,  197, 21,  255, //
    172, 108, 156, 92,  168, 104, 152, 88,  169, 105, 153, 89,  165, 101, 149, 85,
};

constexpr int MaxEntry(const BYTE *e, int count) {
    int m = 0;
    for (int i = 0; i < count; ++i) m = e[i] > m ? e[i] : m;
    return m;
}

constexpr OrderedMatrix kMatrices[kOrderedMatrixCount] = {
    {6, MaxEntry(kClusteredDot6, 36), kClusteredDot6}, //
    {6, MaxEntry(kLines6, 36), kLines6},               //
    {5, MaxEntry(kSpiral5, 25), kSpiral5},             //
    {5, MaxEntry(kIrregular5, 25), kIrregular5},       //
    {8, MaxEntry(kBayer8, 64), kBayer8},               //
    {8, MaxEntry(kDispersed8, 64), kDispersed8},       //
    {16, MaxEntry(kDispersed16, 256), kDispersed16},
};
static_assert(kMatrices[0].maxM == 36 && kMatrices[1].maxM == 36 && kMatrices[2].maxM == 25 &&
                  kMatrices[3].maxM == 242 && kMatrices[4].maxM == 63 &&
                  kMatrices[5].maxM == 64 && kMatrices[6].maxM == 255,
              "largest entries of the threshold matrices");

constexpr int kFullTable = 256;

// Makes the working copy that receives the thresholded pixels. A source with
// a full table (256 entries or more) is copied byte for byte, so DitherSierra
// reads 0 and 255 through the source's own table. A source whose table is
// shorter gets a copy with a full 256-entry table: its own entries first, the
// missing ones as the grey ramp (i, i, i), so that 255, which such a table
// has no entry for, still reads as white. Null when it cannot be allocated.
HGLOBAL MakeWorkingCopy(const BYTE *block, SIZE_T blockSize, int64_t entries, int64_t imageBytes) {
    if (entries >= kFullTable) {
        HGLOBAL copy = GlobalAlloc(GHND, blockSize);
        if (!copy) return nullptr;
        BYTE *to = static_cast<BYTE *>(GlobalLock(copy));
        if (!to) {
            GlobalFree(copy);
            return nullptr;
        }
        std::memcpy(to, block, blockSize);
        GlobalUnlock(copy);
        return copy;
    }
    const int64_t size = kDibHeaderSize + 4 * kFullTable + imageBytes;
    HGLOBAL copy = GlobalAlloc(GHND, static_cast<SIZE_T>(size));
    if (!copy) return nullptr;
    BYTE *to = static_cast<BYTE *>(GlobalLock(copy));
    if (!to) {
        GlobalFree(copy);
        return nullptr;
    }
    std::memcpy(to, block, kDibHeaderSize);
    reinterpret_cast<BITMAPINFOHEADER *>(to)->biClrUsed = 0;
    std::memcpy(to + kDibHeaderSize, block + kDibHeaderSize, static_cast<size_t>(4 * entries));
    for (int i = static_cast<int>(entries); i < kFullTable; ++i) {
        BYTE *e = to + kDibHeaderSize + 4 * i;
        e[0] = e[1] = e[2] = static_cast<BYTE>(i);
        e[3] = 0;
    }
    std::memcpy(to + kDibHeaderSize + 4 * kFullTable, block + kDibHeaderSize + 4 * entries,
                static_cast<size_t>(imageBytes));
    GlobalUnlock(copy);
    return copy;
}

// The thresholding. y counts rows from the top of the picture: the last
// stored row of a bottom-up image, the first of a top-down one. The matrix
// row is chosen by x and the column by y. The test v * maxM / maxPix > M is
// made exactly in integers as v * maxM > M * maxPix: every product is below
// 2^16, and a quotient that is not equal to an integer M differs from it by
// at least 1/255, far more than single-precision rounding could move it, so
// this is the answer the single-precision quotient gives. When maxPix is 0
// no pixel passes.
void Threshold(BYTE *pixels, int64_t stride, int64_t w, int64_t rows, bool topDown,
               const OrderedMatrix &m) {
    int maxPix = 0;
    for (int64_t r = 0; r < rows; ++r) {
        const BYTE *row = pixels + r * stride;
        for (int64_t x = 0; x < w; ++x) maxPix = std::max<int>(maxPix, row[x]);
    }
    for (int64_t r = 0; r < rows; ++r) {
        BYTE *row = pixels + r * stride;
        const int64_t y = topDown ? r : rows - 1 - r;
        const int column = static_cast<int>(y % m.n);
        for (int64_t x = 0; x < w; ++x) {
            const int threshold = m.entries[(x % m.n) * m.n + column];
            row[x] = row[x] * m.maxM > threshold * maxPix ? 255 : 0;
        }
    }
}

} // namespace

const OrderedMatrix &GetOrderedMatrix(int type) { return kMatrices[type]; }

extern "C" {

// Failures of its own return null and leave the thread's status as it was;
// the closing DitherSierra stores its codes. Images whose header is not 40
// bytes, whose width is negative or whose rows do not fit in the block are
// refused like other unsuitable images. The caller's block is read under its
// own lock and copied directly, so a copy that could not be made or locked
// fails the call.
PAXAPI HDIB PAXCALL DitherOrdered(HDIB image, int type) {
    if (!image || type < 0 || type >= kOrderedMatrixCount) return nullptr;
    HGLOBAL copy = nullptr;
    {
        BlockLock source(image);
        if (!source) return nullptr;
        const SIZE_T blockSize = source.size();
        LayoutRules rules;
        rules.depths = uint64_t{1} << 8;
        rules.topDown = true;
        const DibLayout l = LocateImage(source.data(), blockSize, rules);
        if (!l.header || !l.depthAccepted || !l.ok()) return nullptr;
        const int64_t entries = l.tableEntries;
        const int64_t stride = l.stride, rows = l.height;

        copy = MakeWorkingCopy(source.data(), blockSize, entries, stride * rows);
        if (!copy) return nullptr;
        BlockLock target(copy);
        if (!target) {
            GlobalFree(copy);
            return nullptr;
        }
        const int64_t copyOffset = kDibHeaderSize + 4 * std::max<int64_t>(entries, kFullTable);
        if (!l.empty()) // no columns: no row is walked, however many there are
            Threshold(target.data() + copyOffset, stride, l.width, rows, l.topDown, kMatrices[type]);
    }
    HDIB result = DitherSierra(copy, 1);
    GlobalFree(copy);
    return result;
}

} // extern "C"
