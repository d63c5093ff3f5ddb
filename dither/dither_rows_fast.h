// Fast row passes of the dithers. Each gives the same bytes and leaves the
// same cells as the straightforward pass beside it (dither_rows.cpp,
// error_diffusion.cpp, block_dither.cpp, ordered_dither.cpp), which
// PAXIMAGE_REFERENCE=1 forces instead.
#ifndef PAX_DITHER_DITHER_ROWS_FAST_H
#define PAX_DITHER_DITHER_ROWS_FAST_H

#include "dither_rows.h"
#include "kernels.h"

#include <cstdint>

// The grey value of every palette entry, made once per call.
struct FastSourceTables {
    BYTE grey[256];
};
void PrepareFastSource(const DitherSource &source, FastSourceTables *tables);

// SourceRowReader's planes. With grey set only the red plane (the grey one)
// is written; the other two are left as they are.
void FastSourceRowReader(const DitherSource &source, const FastSourceTables &tables,
                         int64_t storedRow, BYTE *red, BYTE *green, BYTE *blue, bool grey);

// One image row of error diffusion over every dithered channel.
struct FastDiffusionRow {
    int16_t *rows[3][kMaxKernelRows]; // each channel's K rows of cells, at column 0
    const BYTE *planes[3];            // the channels' source values (grey in planes[0])
    BYTE *out[3]; // 1 and 4 bits: each channel's 1-bit row; 8 bits: out[0], one byte a pixel
};

// Bytes of working memory the fast passes need beside the error rows, for a
// row of w pixels, and the passes of one kernel. prepare fills the tables at
// the start of a call; row dithers one image row. Neither touches the cells
// of row 0 outside columns 0..w-1 or writes the margins; row 0 itself is left
// in any state (the driver clears it when it becomes the last row).
int64_t FastDiffusionScratchBytes(int64_t w);
struct FastDiffusionPasses {
    void (*prepare)(BYTE *scratch, int64_t w);
    void (*row)(const FastDiffusionRow &row, int bits, int64_t w, BYTE *scratch);
};
FastDiffusionPasses FastDiffusionFor(const DiffusionKernel &kernel);

// The 2x2 block dither of a whole image: the priming pass and every row pass
// of the plain driver in block_dither.cpp, for one channel (grey) or three,
// into the work output's 1-bit planes (rows of workRowBytes, planes of
// workPlaneBytes).
int64_t FastBlockScratchBytes(int64_t w);
void FastBlockDither(const DitherSource &source, const FastSourceTables &tables, int channels,
                     bool grey, bool halve, BYTE *work, int64_t workRowBytes,
                     int64_t workPlaneBytes, BYTE *scratch);

// The ordered thresholding of a whole 8-bit image in place: the largest
// pixel maxPix, then every pixel 255 when v * maxM > M * maxPix and 0
// otherwise, M the entry at matrix row x mod n and column y mod n, y counted
// from the top of the picture.
void FastOrderedThreshold(BYTE *pixels, int64_t stride, int64_t w, int64_t rows, bool topDown,
                          const BYTE *entries, int n, int maxM);

#endif
