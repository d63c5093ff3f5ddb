// DitherSharp and DitherSmooth: 2x2 block redistribution to 1 or 4 bits.
#include "block_dither.h"

#include "dither_rows.h"
#include "dither_rows_fast.h"
#include "reference.h"
#include "thread_state.h"

#include <cstring>

void BlockRowPass(int16_t *a, int16_t *b, BYTE *out, int64_t w, bool halve) {
    int carry = 0;
    unsigned byte = 0;
    for (int64_t x = 0; x < w; ++x) {
        int q[4] = {a[x], a[x + 1], b[x], b[x + 1]};
        const int s = q[0] + q[1] + q[2] + q[3] + carry;
        const int n = s / 255;
        const int rem = s - 255 * n;

        // Brightest: the lowest index holding the maximum. Darkest: the
        // highest index holding the minimum. Of the other two, the brighter
        // ranks second and on a tie the higher index does, so four equal
        // cells rank q0, q2, q1, q3.
        int first = 0;
        for (int i = 1; i < 4; ++i)
            if (q[i] > q[first]) first = i;
        int last = 3;
        for (int i = 0; i < 4; ++i)
            if (q[i] <= q[last]) last = i;
        int i = -1, j = -1;
        for (int t = 0; t < 4; ++t) {
            if (t == first || t == last) continue;
            if (i < 0)
                i = t;
            else
                j = t;
        }
        const int second = q[i] > q[j] ? i : j;
        const int third = second == i ? j : i;
        const int order[4] = {first, second, third, last};
        for (int rank = 0; rank < 4; ++rank)
            q[order[rank]] = rank < n ? 255 : rank == n ? rem : 0;

        const bool white = q[0] == 255;
        if (white) byte |= 0x80u >> (x & 7);
        carry = white ? 0 : q[0];
        if (halve) carry /= 2;

        a[x] = static_cast<int16_t>(q[0]);
        a[x + 1] = static_cast<int16_t>(q[1]);
        b[x] = static_cast<int16_t>(q[2]);
        b[x + 1] = static_cast<int16_t>(q[3]);
        if ((x & 7) == 7) {
            out[x >> 3] = static_cast<BYTE>(byte);
            byte = 0;
        }
    }
    if (w & 7) out[w >> 3] = static_cast<BYTE>(byte);
}

namespace {

inline void CopyPlane(int16_t *cells, const BYTE *plane, int64_t count) {
    for (int64_t x = 0; x < count; ++x) cells[x] = plane[x];
}

// The cells of a row are w + 1 long. The plane cell beyond the last column is
// always 0 (the planes are zero past the image), so whenever a plane is
// copied in, the extra cell of that row starts black; what the last pixel's
// block then deals into it stays there and travels with the row, as any
// other cell does, but it is never output.
HDIB BlockDitherDriver(HDIB image, int bits, bool halve) {
    DitherEntry entry;
    if (!BeginDither(image, bits, bits == 1 || bits == 4, {IMS_LOCKFAILED, IMS_NOMEMORY}, &entry))
        return nullptr;
    const DitherSource &src = entry.source;
    const int64_t w = src.width, h = src.rows;
    const int channels = bits == 1 ? 1 : 3;
    const int64_t planeBytes = w + 8;
    const int64_t cellCount = w + 1;
    const int64_t workRowBytes = DitherRowBytes(w, 1);
    const int64_t workPlaneBytes = workRowBytes * h;

    // The fast pass (dither_rows_fast.cpp) runs several rows at once in its
    // own layout of the cells block.
    const bool fast = !UseReferencePaths();
    ScratchBlock planes, work, cells;
    if (!planes.Allocate(3 * planeBytes)) return nullptr;
    if (!work.Allocate(channels * workPlaneBytes)) return nullptr;
    if (!cells.Allocate(fast ? FastBlockScratchBytes(w)
                             : channels * 2 * cellCount * static_cast<int64_t>(sizeof(int16_t))))
        return nullptr;
    if (fast) {
        FastSourceTables tables;
        PrepareFastSource(src, &tables);
        FastBlockDither(src, tables, channels, bits == 1, halve, work.data(), workRowBytes,
                        workPlaneBytes, cells.data());
        entry.lock.reset();
        HDIB result = MakeDitherResult(src, bits, work.data());
        if (!result) return nullptr;
        GetThreadState()->imageStatus = IMS_OK;
        return result;
    }

    BYTE *plane[3] = {planes.data(), planes.data() + planeBytes, planes.data() + 2 * planeBytes};
    int16_t *base = reinterpret_cast<int16_t *>(cells.data());
    int16_t *rowA[3], *rowB[3];
    for (int c = 0; c < channels; ++c) {
        rowA[c] = base + (2 * c) * cellCount;
        rowB[c] = base + (2 * c + 1) * cellCount;
    }
    auto outRow = [&](int c, int64_t r) { return work.data() + c * workPlaneBytes + r * workRowBytes; };
    const size_t rowCellBytes = static_cast<size_t>(cellCount) * sizeof(int16_t);

    const bool grey = bits == 1;
    SourceRowReader(src, 0, plane[0], plane[1], plane[2], grey);
    for (int c = 0; c < channels; ++c) {
        CopyPlane(rowA[c], plane[c], cellCount);
        CopyPlane(rowB[c], plane[c], cellCount);
    }
    if (h > 1) SourceRowReader(src, 1, plane[0], plane[1], plane[2], grey);

    // A priming pass over the first row with itself as the row below; its
    // bits are overwritten by the first real pass.
    for (int c = 0; c < channels; ++c) {
        BlockRowPass(rowA[c], rowB[c], outRow(c, 0), w, halve);
        std::memcpy(rowA[c], rowB[c], rowCellBytes);
    }
    for (int64_t r = 0; r < h; ++r) {
        // In the last row B is not refreshed and equals A.
        if (r < h - 1)
            for (int c = 0; c < channels; ++c) CopyPlane(rowB[c], plane[c], cellCount);
        for (int c = 0; c < channels; ++c) {
            BlockRowPass(rowA[c], rowB[c], outRow(c, r), w, halve);
            std::memcpy(rowA[c], rowB[c], rowCellBytes);
        }
        if (r + 2 < h) SourceRowReader(src, r + 2, plane[0], plane[1], plane[2], grey);
    }
    entry.lock.reset();

    HDIB result = MakeDitherResult(src, bits, work.data());
    if (!result) return nullptr;
    GetThreadState()->imageStatus = IMS_OK;
    return result;
}

} // namespace

extern "C" {

// Carries half of a black pixel's value to the next block.
PAXAPI HDIB PAXCALL DitherSharp(HDIB image, int bits) { return BlockDitherDriver(image, bits, true); }

// Carries a black pixel's value whole.
PAXAPI HDIB PAXCALL DitherSmooth(HDIB image, int bits) {
    return BlockDitherDriver(image, bits, false);
}

} // extern "C"
