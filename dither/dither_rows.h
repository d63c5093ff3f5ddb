// Pieces shared by the error-diffusion and block dithers: the entry checks,
// the checked description of the source, row reading, the result header and
// colour tables, 4-bit packing, and the scratch blocks.
#ifndef PAX_DITHER_DITHER_ROWS_H
#define PAX_DITHER_DITHER_ROWS_H

#include "dib.h"
#include "paximage.h"

#include <cstdint>
#include <optional>

// A source image that passed the checks: its rows lie inside its block.
struct DitherSource {
    const BYTE *pixels = nullptr; // first stored row
    int64_t stride = 0;           // bytes per stored row
    int64_t width = 0;
    int64_t rows = 0;             // |biHeight|
    LONG heightField = 0;         // biHeight as stored; negative for top-down rows
    int bitCount = 0;             // 4, 8 or 24
    LONG xPelsPerMeter = 0, yPelsPerMeter = 0;
    // Palette of a 4- or 8-bit source, 2^bitCount entries; an index with no
    // entry in the image's table reads as black.
    BYTE red[256] = {}, green[256] = {}, blue[256] = {};
};

// The status codes that differ between the dithers.
struct DitherEntryCodes {
    PaxImageStatus nullImage;  // stored for a null handle
    PaxImageStatus lockFailed; // stored when the caller's block cannot be locked
};

// The lock on the caller's image and what the checks found in it.
struct DitherEntry {
    std::optional<BlockLock> lock;
    DitherSource source;
};

// The checks every dither makes on entry, in order, each storing its code in
// imageStatus: bits not offered (IMS_BADPARAM); a null handle and a failed
// lock (the caller's codes); a block too small for a header (IMS_BADPARAM);
// bits not below the source's depth, or a depth other than 4, 8 or 24
// (IMS_BADBITS); a header size other than 40, a negative width, or rows that
// do not fit in the block (IMS_BADPARAM). Then IMS_NOMEMORY is stored, and an
// image without pixels (width or height 0) stops there. True when the caller
// may go on: the source is locked and described, imageStatus holds
// IMS_NOMEMORY.
bool BeginDither(HDIB image, int bits, bool bitsOffered, const DitherEntryCodes &codes,
                 DitherEntry *entry);

// Bytes per row of d bits per pixel, padded to 4 bytes.
inline int64_t DitherRowBytes(int64_t width, int bits) { return ((width * bits + 31) / 32) * 4; }

// Fills the red, green and blue planes (width bytes each) from one stored row;
// with grey set, the red plane then holds min(255, (30 r + 59 g + 11 b) / 100).
void SourceRowReader(const DitherSource &source, int64_t storedRow, BYTE *red, BYTE *green,
                     BYTE *blue, bool grey);

// Header and colour table of a result of 1, 4 or 8 bits. The pixels-per-metre
// fields are left to the caller.
void WriteDitherHeader(BYTE *result, int bits, int64_t width, LONG heightField, DWORD sizeImage);

// Three 1-bit planes (rows of planeRowBytes) into 4-bit rows: index 8r + 4g + 2b,
// the left pixel in the high nibble.
void PackPlanesToNibbles(const BYTE *red, const BYTE *green, const BYTE *blue,
                         int64_t planeRowBytes, int64_t width, int64_t rows, BYTE *out);

// Makes the result image from the work output: a copy of the packed rows for
// 1 and 8 bits, the three 1-bit planes packed to nibbles for 4 bits. Null
// when the result cannot be allocated or locked.
HDIB MakeDitherResult(const DitherSource &source, int bits, const BYTE *work);

// A zero-filled movable working block, locked for its lifetime and freed at
// the end of it.
class ScratchBlock {
public:
    ScratchBlock() = default;
    ~ScratchBlock() {
        if (data_) GlobalUnlock(owned_.get());
    }
    ScratchBlock(const ScratchBlock &) = delete;
    ScratchBlock &operator=(const ScratchBlock &) = delete;
    // False when the block cannot be allocated or locked (a block of 0 bytes
    // cannot be locked).
    bool Allocate(int64_t bytes) {
        if (bytes < 0) return false;
        owned_.Reset(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, static_cast<SIZE_T>(bytes)));
        if (!owned_) return false;
        data_ = static_cast<BYTE *>(GlobalLock(owned_.get()));
        return data_ != nullptr;
    }
    BYTE *data() const { return data_; }

private:
    OwnedBlock owned_; // destroyed after the unlock above
    BYTE *data_ = nullptr;
};

#endif
