// Error diffusion to 1, 4 or 8 bits: one driver, run with the kernels of
// kernels.h. DitherFS4, DitherBurkes, DitherSierra, DitherJJN, DitherStucki
// and DitherSA differ only in their kernel and in two status codes.
#include "dither_rows.h"
#include "kernels.h"
#include "thread_state.h"

#include <algorithm>
#include <cstring>

namespace {

// Error cells are 16-bit signed and wrap modulo 65536: a run of bright pixels
// at 8 bits can push a cell past 32767, and it then turns negative.
using Cell = int16_t;

inline Cell Wrap16(int v) { return static_cast<Cell>(static_cast<uint16_t>(v)); }

// The K rows of one channel, each pointing at its column 0 (kKernelMargin
// spare cells lie on either side). rows[0] is the image row being dithered.
struct ErrorRows {
    Cell *rows[kMaxKernelRows];
};

// Adds each tap's share of e, (e * weight) / D in 32-bit arithmetic truncated
// toward zero, tap by tap. The kernel is a template argument so that D is a
// constant and the divisions compile to multiplications; they still truncate
// toward zero, never round down as a shift would.
template <const DiffusionKernel &K>
inline void Diffuse(const ErrorRows &er, int64_t x, int e) {
#pragma GCC unroll 12
    for (int t = 0; t < K.tapCount; ++t) {
        Cell &cell = er.rows[K.taps[t].dy][x + K.taps[t].dx];
        cell = Wrap16(cell + e * K.taps[t].weight / K.divisor);
    }
}

// 1-bit output of one channel. The plane's value is added into the row-0
// cell as the pixel is reached (the same sum as adding it to the whole row
// first, since no tap writes a cell already passed). A value above 128 is
// white with error v - 255; 128 and below is black with error v. Bits are
// packed most significant first; the bits after the last pixel stay 0.
template <const DiffusionKernel &K>
void ThresholdRowPass(const ErrorRows &er, const BYTE *plane, BYTE *out, int64_t w) {
    Cell *row0 = er.rows[0];
    unsigned byte = 0;
    for (int64_t x = 0; x < w; ++x) {
        const int v = Wrap16(row0[x] + plane[x]);
        const unsigned white = v > 128;
        byte |= (white << 7) >> (x & 7);
        // An error of 0 adds 0 to every tap, so it is diffused like any other
        // rather than tested for.
        Diffuse<K>(er, x, white ? v - 255 : v);
        if ((x & 7) == 7) {
            out[x >> 3] = static_cast<BYTE>(byte);
            byte = 0;
        }
    }
    if (w & 7) out[w >> 3] = static_cast<BYTE>(byte);
}

// One channel of the 3-3-2 quantizer: level v / step truncated toward zero and
// clamped to 0..maxLevel, error against step x level.
template <const DiffusionKernel &K>
inline int QuantizeChannel(const ErrorRows &er, const BYTE *plane, int64_t x, int step,
                           int maxLevel) {
    const int v = Wrap16(er.rows[0][x] + plane[x]);
    const int level = std::min(std::max(v / step, 0), maxLevel);
    Diffuse<K>(er, x, v - step * level); // an error of 0 adds nothing
    return level;
}

// 8-bit output: red level in bits 7..5, green in 4..2, blue in 1..0.
template <const DiffusionKernel &K>
void Quantize332RowPass(const ErrorRows (&er)[3], const BYTE *const (&planes)[3], BYTE *out,
                        int64_t w) {
    for (int64_t x = 0; x < w; ++x) {
        const int r = QuantizeChannel<K>(er[0], planes[0], x, 32, 7);
        const int g = QuantizeChannel<K>(er[1], planes[1], x, 32, 7);
        const int b = QuantizeChannel<K>(er[2], planes[2], x, 64, 3);
        out[x] = static_cast<BYTE>((r << 5) | (g << 2) | b);
    }
}

using ThresholdPass = void (*)(const ErrorRows &, const BYTE *, BYTE *, int64_t);
using QuantizePass = void (*)(const ErrorRows (&)[3], const BYTE *const (&)[3], BYTE *, int64_t);

// A method: its kernel, the row passes compiled for it, and its codes.
struct DiffusionMethod {
    const DiffusionKernel &kernel;
    ThresholdPass threshold;
    QuantizePass quantize;
    DitherEntryCodes codes;
};

template <const DiffusionKernel &K>
constexpr DiffusionMethod MakeMethod(PaxImageStatus nullImage, PaxImageStatus lockFailed) {
    return {K, &ThresholdRowPass<K>, &Quantize332RowPass<K>, {nullImage, lockFailed}};
}

// The first three report a null handle as a bad parameter and a failed lock
// as such; the other three report a null handle as a failed lock and a failed
// lock as lack of memory.
const DiffusionMethod kMethodFS4 = MakeMethod<kKernelFS4>(IMS_BADPARAM, IMS_LOCKFAILED);
const DiffusionMethod kMethodBurkes = MakeMethod<kKernelBurkes>(IMS_BADPARAM, IMS_LOCKFAILED);
const DiffusionMethod kMethodSierra = MakeMethod<kKernelSierra>(IMS_BADPARAM, IMS_LOCKFAILED);
const DiffusionMethod kMethodJJN = MakeMethod<kKernelJJN>(IMS_LOCKFAILED, IMS_NOMEMORY);
const DiffusionMethod kMethodStucki = MakeMethod<kKernelStucki>(IMS_LOCKFAILED, IMS_NOMEMORY);
const DiffusionMethod kMethodSA = MakeMethod<kKernelSA>(IMS_LOCKFAILED, IMS_NOMEMORY);

// Stored rows are dithered in the order they are stored, each left to right,
// and stored row r of the source becomes stored row r of the result; a
// top-down source (negative biHeight) is read the same way and gives a
// top-down result. Widths are not limited to 16-bit column counts: columns
// are 64-bit here, so every width whose rows fit in the block is dithered by
// the same rules.
HDIB ErrorDiffusionDriver(HDIB image, int bits, const DiffusionMethod &method) {
    DitherEntry entry;
    if (!BeginDither(image, bits, bits == 1 || bits == 4 || bits == 8, method.codes, &entry))
        return nullptr;
    const DitherSource &src = entry.source;
    const int64_t w = src.width, h = src.rows;
    const int k = method.kernel.rows;
    const int channels = bits == 1 ? 1 : 3;
    const int64_t planeBytes = w + 8;
    const int64_t cellsPerRow = w + 2 * kKernelMargin;
    const int64_t workRowBytes = DitherRowBytes(w, bits == 8 ? 8 : 1);
    const int64_t workPlaneBytes = workRowBytes * h; // one 1-bit plane, or the 8-bit rows

    ScratchBlock planes, work, cells;
    if (!planes.Allocate(3 * planeBytes)) return nullptr;
    if (!work.Allocate(bits == 4 ? 3 * workPlaneBytes : workPlaneBytes)) return nullptr;
    if (!cells.Allocate(channels * k * cellsPerRow * static_cast<int64_t>(sizeof(Cell))))
        return nullptr;

    BYTE *plane[3] = {planes.data(), planes.data() + planeBytes, planes.data() + 2 * planeBytes};
    ErrorRows er[3] = {};
    Cell *cellBase = reinterpret_cast<Cell *>(cells.data());
    for (int c = 0; c < channels; ++c)
        for (int r = 0; r < k; ++r)
            er[c].rows[r] = cellBase + (c * k + r) * cellsPerRow + kKernelMargin;

    const bool grey = bits == 1;
    SourceRowReader(src, 0, plane[0], plane[1], plane[2], grey);
    for (int64_t r = 0; r < h; ++r) {
        if (bits == 8) {
            const BYTE *const in[3] = {plane[0], plane[1], plane[2]};
            method.quantize(er, in, work.data() + r * workRowBytes, w);
        } else {
            for (int c = 0; c < channels; ++c)
                method.threshold(er[c], plane[c], work.data() + c * workPlaneBytes + r * workRowBytes,
                                 w);
        }
        // Row k takes the cells of row k + 1; the new last row starts at 0.
        for (int c = 0; c < channels; ++c) {
            Cell *first = er[c].rows[0];
            for (int i = 0; i + 1 < k; ++i) er[c].rows[i] = er[c].rows[i + 1];
            er[c].rows[k - 1] = first;
            std::memset(first - kKernelMargin, 0, static_cast<size_t>(cellsPerRow) * sizeof(Cell));
        }
        if (r < h - 1) SourceRowReader(src, r + 1, plane[0], plane[1], plane[2], grey);
    }
    entry.lock.reset(); // the source is not needed any more

    HDIB result = MakeDitherResult(src, bits, work.data());
    if (!result) return nullptr;
    GetThreadState()->imageStatus = IMS_OK;
    return result;
}

} // namespace

extern "C" {

PAXAPI HDIB PAXCALL DitherFS4(HDIB image, int bits) {
    return ErrorDiffusionDriver(image, bits, kMethodFS4);
}
PAXAPI HDIB PAXCALL DitherBurkes(HDIB image, int bits) {
    return ErrorDiffusionDriver(image, bits, kMethodBurkes);
}
PAXAPI HDIB PAXCALL DitherSierra(HDIB image, int bits) {
    return ErrorDiffusionDriver(image, bits, kMethodSierra);
}
PAXAPI HDIB PAXCALL DitherJJN(HDIB image, int bits) {
    return ErrorDiffusionDriver(image, bits, kMethodJJN);
}
PAXAPI HDIB PAXCALL DitherStucki(HDIB image, int bits) {
    return ErrorDiffusionDriver(image, bits, kMethodStucki);
}
PAXAPI HDIB PAXCALL DitherSA(HDIB image, int bits) {
    return ErrorDiffusionDriver(image, bits, kMethodSA);
}

} // extern "C"
