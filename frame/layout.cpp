// The image-layout rules shared by every image operation.
#include "layout.h"

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

DibLayout LocateImage(void *block, SIZE_T blockSize, const LayoutRules &rules) {
    DibLayout l;
    if (!block || blockSize < static_cast<SIZE_T>(kDibHeaderSize)) return l; // ShortBlock
    auto *h = static_cast<BITMAPINFOHEADER *>(block);
    l.header = h;
    l.infoHeader = h->biSize == static_cast<DWORD>(kDibHeaderSize);
    l.bits = h->biBitCount;
    l.depthAccepted = l.bits < 64 && (rules.depths >> l.bits & 1u) != 0;
    l.width = h->biWidth;
    l.heightField = h->biHeight;
    l.topDown = rules.topDown && h->biHeight < 0;
    l.height = l.topDown ? -static_cast<int64_t>(h->biHeight) : h->biHeight;

    const uint64_t size = blockSize;
    if (rules.requireInfoHeader && !l.infoHeader) return l.fault = LayoutFault::HeaderSize, l;
    if (l.width < 0) return l.fault = LayoutFault::NegativeWidth, l;
    if (l.height < 0) return l.fault = LayoutFault::NegativeHeight, l;

    if (rules.rowsStart == RowsStart::AfterTable) {
        l.tableEntries = ColorTableEntries(h);               // at most 2^32 - 1
        l.tableBytes = l.tableEntries * (l.infoHeader ? 4 : 3); // below 2^34
    }
    const uint64_t offset = kDibHeaderSize + static_cast<uint64_t>(l.tableBytes);
    if (offset > size) return l.fault = LayoutFault::Table, l;

    // width < 2^31 and bits < 2^16: the product stays below 2^47.
    const uint64_t stride = RowBytes(static_cast<uint64_t>(l.width), static_cast<uint64_t>(l.bits));
    uint64_t imageSize = 0;
    l.stride = static_cast<int64_t>(stride);
    if (!CheckedImageSize(stride, static_cast<uint64_t>(l.height), size - offset, &imageSize))
        return l.fault = LayoutFault::Rows, l;
    l.imageSize = static_cast<int64_t>(imageSize);
    l.sizeImage = h->biSizeImage != 0 ? static_cast<int64_t>(h->biSizeImage) : l.imageSize;

    switch (rules.sizeImage) {
    case SizeImageRule::Ignored: break;
    case SizeImageRule::InsideBlock:
        if (l.sizeImage < l.imageSize || static_cast<uint64_t>(l.sizeImage) > size - offset)
            return l.fault = LayoutFault::SizeImage, l;
        break;
    case SizeImageRule::SizesResult:
        if (l.sizeImage < l.imageSize) return l.fault = LayoutFault::SizeImage, l;
        break;
    }
    l.pixels = static_cast<BYTE *>(block) + offset;
    l.fault = LayoutFault::None;
    return l;
}
