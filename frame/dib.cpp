// Packed-DIB helpers shared by every image operation.
#include "dib.h"

#include <cstring>

int64_t ColorTableEntries(const BITMAPINFOHEADER *header) {
    int bits;
    if (header->biSize == kDibHeaderSize) {
        if (header->biClrUsed != 0) return header->biClrUsed;
        bits = header->biBitCount;
    } else {
        bits = reinterpret_cast<const BITMAPCOREHEADER *>(header)->bcBitCount;
    }
    switch (bits) {
    case 1: return 2;
    case 4: return 16;
    case 8: return 256;
    default: return 0;
    }
}

int64_t ColorTableSize(const BITMAPINFOHEADER *header) {
    return ColorTableEntries(header) * (header->biSize == kDibHeaderSize ? 4 : 3);
}

HGLOBAL DuplicateDIB(HGLOBAL block) {
    if (!block) return nullptr;
    SIZE_T size = GlobalSize(block);
    HGLOBAL copy = GlobalAlloc(GHND, size);
    if (!copy) return nullptr;
    BlockLock from(block);
    BlockLock to(copy);
    if (from && to) std::memcpy(to.data(), from.data(), size);
    return copy;
}

namespace {

HDIB CreateDIBLike(HDIB source, int bits) {
    BlockLock src(source);
    if (!src || src.size() < kDibHeaderSize) return nullptr;
    const auto *header = reinterpret_cast<const BITMAPINFOHEADER *>(src.data());
    if (header->biWidth < 0 || header->biHeight < 0) return nullptr;
    int64_t stride = bits == 32 ? Stride32(header->biWidth) : Stride24(header->biWidth);
    int64_t size = stride * header->biHeight;
    if (size > 0xFFFFFFFFll - kDibHeaderSize) return nullptr; // biSizeImage is 32 bits
    OwnedBlock result(GlobalAlloc(GHND, static_cast<SIZE_T>(kDibHeaderSize + size)));
    if (!result) return nullptr;
    BlockLock dst(result.get());
    if (!dst) return nullptr;
    std::memcpy(dst.data(), header, kDibHeaderSize);
    auto *out = reinterpret_cast<BITMAPINFOHEADER *>(dst.data());
    out->biBitCount = static_cast<WORD>(bits);
    out->biCompression = BI_RGB;
    out->biSizeImage = static_cast<DWORD>(size);
    // The new block has no colour table; a copied count would declare one.
    out->biClrUsed = 0;
    dst.Unlock();
    return result.Release();
}

} // namespace

HDIB CreateDIB32Like(HDIB source) { return CreateDIBLike(source, 32); }
HDIB CreateDIB24Like(HDIB source) { return CreateDIBLike(source, 24); }

long GetDIBModelTag(HDIB image) {
    if (!image) return -1;
    BlockLock lock(image);
    if (!lock || lock.size() < kDibHeaderSize) return -1;
    return static_cast<long>(reinterpret_cast<const BITMAPINFOHEADER *>(lock.data())->biCompression);
}

int ModelTagMatches(int model, DWORD tag) {
    if (model == MODEL_RGB) return tag == 0;
    if (model < MODEL_YUV || model > MODEL_LAB) return 0;
    return tag == static_cast<DWORD>(model + 8);
}

bool DescribeDib(void *block, SIZE_T blockSize, int bitsPerPixel, DibLayout *layout) {
    if (!block || blockSize < kDibHeaderSize) return false;
    auto *header = static_cast<BITMAPINFOHEADER *>(block);
    if (header->biWidth < 0 || header->biHeight < 0) return false;
    int64_t offset = kDibHeaderSize + ColorTableSize(header);
    int64_t stride = StrideForBits(header->biWidth, bitsPerPixel);
    int64_t imageSize = stride * header->biHeight;
    if (offset > static_cast<int64_t>(blockSize) ||
        imageSize > static_cast<int64_t>(blockSize) - offset)
        return false;
    layout->header = header;
    layout->pixels = static_cast<BYTE *>(block) + offset;
    layout->width = header->biWidth;
    layout->height = header->biHeight;
    layout->stride = stride;
    layout->imageSize = imageSize;
    return true;
}
