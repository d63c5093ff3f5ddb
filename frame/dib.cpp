// Packed-DIB helpers shared by every image operation.
#include "dib.h"

#include "result_frame.h"

#include <cstring>

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

HGLOBAL DuplicateDIBAroundRows(HGLOBAL block, const RowFrame &pixels, bool *filled) {
    *filled = false;
    if (!block) return nullptr;
    SIZE_T size = GlobalSize(block);
    HGLOBAL copy = GlobalAlloc(GMEM_MOVEABLE, size);
    if (!copy) return nullptr;
    BlockLock from(block);
    BlockLock to(copy);
    if (from && to) {
        FillAroundRows(to.data(), from.data(), static_cast<int64_t>(size), pixels.pixelsOffset,
                       pixels.stride, pixels.rows, pixels.rowBytes);
        *filled = true;
    }
    return copy;
}

namespace {

// wholePixels: the caller writes every pixel, so the block is neither
// zero-filled nor are its pixels written here.
HDIB CreateDIBLike(HDIB source, int bits, bool wholePixels) {
    BlockLock src(source);
    if (!src) return nullptr;
    // Only the dimensions matter here: the source's own rows are not read.
    const DibLayout in = LocateImage(src.data(), src.size(), LayoutRules{});
    if (!in.header || in.width < 0 || in.heightField < 0) return nullptr;
    const BITMAPINFOHEADER *header = in.header;
    uint64_t size = 0;
    if (!CheckedImageSize(RowBytes(static_cast<uint64_t>(in.width), static_cast<uint64_t>(bits)),
                          static_cast<uint64_t>(in.height), 0xFFFFFFFFull - kDibHeaderSize, &size))
        return nullptr; // biSizeImage is 32 bits
    OwnedBlock result(GlobalAlloc(wholePixels ? GMEM_MOVEABLE : GHND, static_cast<SIZE_T>(kDibHeaderSize + size)));
    if (!result) return nullptr;
    BlockLock dst(result.get());
    if (!dst) return nullptr;
    if (wholePixels) // zeros around the rows: the header below, the row padding
        FillAroundRows(dst.data(), nullptr, static_cast<int64_t>(kDibHeaderSize + size), kDibHeaderSize,
                       static_cast<int64_t>(RowBytes(static_cast<uint64_t>(in.width), static_cast<uint64_t>(bits))),
                       in.height, in.width * (bits / 8));
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

HDIB CreateDIB32Like(HDIB source) { return CreateDIBLike(source, 32, false); }
HDIB CreateDIB24Like(HDIB source) { return CreateDIBLike(source, 24, false); }
HDIB CreateDIBLikeAroundRows(HDIB source, int bits) { return CreateDIBLike(source, bits, true); }

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
    LayoutRules rules;
    rules.depths = bitsPerPixel > 0 && bitsPerPixel < 64 ? uint64_t{1} << bitsPerPixel : 0;
    rules.requireInfoHeader = false;
    DibLayout l = LocateImage(block, blockSize, rules);
    if (!l.ok() || !l.depthAccepted) return false;
    *layout = l;
    return true;
}
