// Packed DIBs in global memory: layout rules, the helpers that copy and make
// images, pixel access, and guards that unlock and free on every path.
#ifndef PAX_FRAME_DIB_H
#define PAX_FRAME_DIB_H

#include "layout.h"
#include "paximage.h"

#include <cstdint>

// Row strides. 64-bit so that no width overflows them.
inline int64_t Stride24(int64_t width) { return ((width + 1) * 3 / 4) * 4; }
inline int64_t Stride32(int64_t width) { return ((4 * width + 3) / 4) * 4; }
inline int64_t StrideForBits(int64_t width, int64_t bits) { return ((width * bits + 31) / 32) * 4; }

// A byte-for-byte copy in a new GHND block of the same size; null for a null
// handle or when the allocation fails. A block that cannot be locked gives a
// zero-filled copy (nothing is copied).
HGLOBAL DuplicateDIB(HGLOBAL block);

// New images with the source's header and dimensions, no colour table, all
// pixels zero: 32 or 24 bits, biCompression 0, biSizeImage = stride x height.
// The new header's biClrUsed is cleared, so its pixels begin right after the
// header as the header says. Null on any failure, including a source whose
// block is smaller than its header or whose dimensions are negative.
HDIB CreateDIB32Like(HDIB source);
HDIB CreateDIB24Like(HDIB source);

// Where the pixels of a block lie for the two helpers below: `rows` rows of
// rowBytes bytes, the first at pixelsOffset, stride bytes apart.
struct RowFrame {
    int64_t pixelsOffset = 0, stride = 0, rows = 0, rowBytes = 0;
};

// For a caller that writes every pixel byte itself: the same blocks as
// DuplicateDIB and CreateDIB32Like / CreateDIB24Like, made by the same
// allocation and the same locks in the same order, but only the bytes around
// the pixels are written (copied from the source, or zero: header, colour
// table, row padding, anything after the rows) and the pixels are left
// unwritten. Once the caller has written them the block equals the plain
// helper's. DuplicateDIBAroundRows sets *filled to false when a lock failed
// (DuplicateDIB would then hand back zeros); the block is not to be used.
HGLOBAL DuplicateDIBAroundRows(HGLOBAL block, const RowFrame &pixels, bool *filled);
HDIB CreateDIBLikeAroundRows(HDIB source, int bits);

// biCompression of the image, or -1 when the handle is null or cannot be locked.
long GetDIBModelTag(HDIB image);

// 1 when tag is the tag of model (1: 0; 2..9: model + 8), else 0.
int ModelTagMatches(int model, DWORD tag);

// LocateImage for a bottom-up image of bitsPerPixel whose colour table
// follows the header (any header size). False when the header does not fit,
// the depth differs, width or height is negative, or the table or rows do not
// lie inside the block.
bool DescribeDib(void *block, SIZE_T blockSize, int bitsPerPixel, DibLayout *layout);

// Pixel access. (x, y) with y = 0 the top row, in rows stored bottom-up.
inline BYTE *PixelAt(const DibLayout &d, int64_t x, int64_t y, int bytesPerPixel) {
    return d.pixels + d.imageSize - (y + 1) * d.stride + x * bytesPerPixel;
}
// A stored 3-component pixel holds the first component in byte 2.
inline void GetPixel3(const BYTE *p, BYTE v[3]) { v[0] = p[2]; v[1] = p[1]; v[2] = p[0]; }
inline void PutPixel3(BYTE *p, const BYTE v[3]) { p[0] = v[2]; p[1] = v[1]; p[2] = v[0]; }
// 32-bit pixels: components 0..2 in bytes 2, 1, 0 and component 3 in byte 3.
inline void GetPixel4(const BYTE *p, BYTE v[4]) { v[0] = p[2]; v[1] = p[1]; v[2] = p[0]; v[3] = p[3]; }
inline void PutPixel4(BYTE *p, const BYTE v[4]) { p[0] = v[2]; p[1] = v[1]; p[2] = v[0]; p[3] = v[3]; }
// A stored CMYK pixel holds K, Y, M, C in bytes 0..3.
inline void PutCMYKPixel(BYTE *p, const BYTE cmyk[4]) {
    p[0] = cmyk[3]; p[1] = cmyk[2]; p[2] = cmyk[1]; p[3] = cmyk[0];
}
inline void GetCMYKPixel(const BYTE *p, BYTE cmyk[4]) {
    cmyk[0] = p[3]; cmyk[1] = p[2]; cmyk[2] = p[1]; cmyk[3] = p[0];
}

// Holds a lock for the life of the guard (or until Unlock).
class BlockLock {
public:
    explicit BlockLock(HGLOBAL block)
        : block_(block), data_(block ? static_cast<BYTE *>(GlobalLock(block)) : nullptr) {}
    ~BlockLock() { Unlock(); }
    BlockLock(const BlockLock &) = delete;
    BlockLock &operator=(const BlockLock &) = delete;
    explicit operator bool() const { return data_ != nullptr; }
    BYTE *data() const { return data_; }
    SIZE_T size() const { return data_ ? GlobalSize(block_) : 0; }
    void Unlock() {
        if (data_) GlobalUnlock(block_);
        data_ = nullptr;
    }

private:
    HGLOBAL block_;
    BYTE *data_;
};

// Frees the block when the guard ends, unless Release() hands it on.
class OwnedBlock {
public:
    explicit OwnedBlock(HGLOBAL block = nullptr) : block_(block) {}
    ~OwnedBlock() { Reset(); }
    OwnedBlock(const OwnedBlock &) = delete;
    OwnedBlock &operator=(const OwnedBlock &) = delete;
    HGLOBAL get() const { return block_; }
    explicit operator bool() const { return block_ != nullptr; }
    HGLOBAL Release() {
        HGLOBAL b = block_;
        block_ = nullptr;
        return b;
    }
    void Reset(HGLOBAL block = nullptr) {
        if (block_) GlobalFree(block_);
        block_ = block;
    }

private:
    HGLOBAL block_;
};

#endif
