// The block-redistribution row pass of DitherSharp and DitherSmooth, visible
// to the tests.
#ifndef PAX_DITHER_BLOCK_DITHER_H
#define PAX_DITHER_BLOCK_DITHER_H

#include "paximage.h"

#include <cstdint>

// Decides one image row of one channel. a and b hold w + 1 cells: the row
// being decided and the row after it, plus one cell beyond the last column
// that the last pixel's block reaches. Each pixel's 2x2 block (a[x], a[x+1],
// b[x], b[x+1]) plus the carry from the pixel before is dealt out again as
// whole 255s to its brightest cells, the remainder to the next and 0 to the
// rest; the pixel is white when a[x] ends at 255. A black pixel hands its
// value on as the next carry, halved (truncating) when halve is set.
void BlockRowPass(int16_t *a, int16_t *b, BYTE *out, int64_t w, bool halve);

#endif
