// ColorBrightnessContrast: every colour component through one 256-entry tone
// table. Palette images (4 and 8 bits) are adjusted through their colour
// table, 24-bit images component by component. The caller's image is only
// read; the result is a new block. Codes go to imageStatus.
//
// Choices beyond the plain rules:
// - Only 4, 8 and 24 bits per pixel are adjusted; 16 and 32 bits (like 1 bit)
//   are refused with IMS_BADDEPTH before any dialog, since no transform and no
//   colour-table size is defined for them.
// - Top-down images (negative biHeight) are adjusted like bottom-up ones: the
//   table applies to every component whatever the row order. The size rule
//   uses the number of rows, |biHeight|, and the header keeps its sign.
// - A header that claims more than its block holds (colour table, biSizeImage
//   or rows beyond the block's end, or a biSizeImage smaller than the rows), or
//   a negative width, is refused with IMS_BADPARAM: nothing is read outside
//   the block and the result always holds every row it declares.
#include "dib.h"
#include "param_dialog.h"
#include "thread_state.h"

#include <cstring>

namespace {

using ToneTable = BYTE[256];

// T[i]: brightness moves i by brightness x 128 / 100 (integer, truncated) and
// clamps it; contrast scales around 128 by (contrast + 100) / 100 in double
// precision, in the order: multiply, divide by 100.0, subtract the offset.
void BuildToneTable(int brightness, int contrast, ToneTable table) {
    int bo = brightness * 128 / 100;
    int co = contrast * 128 / 100;
    for (int i = 0; i < 256; ++i) {
        int a = i + bo;
        if (a < 0) a = 0;
        if (a > 255) a = 255;
        double v = static_cast<double>(a * (contrast + 100)) / 100.0 - co;
        if (v < 0.0) v = 0.0;
        if (v > 255.0) v = 255.0;
        table[i] = static_cast<BYTE>(v);
    }
}

// Header checks in their fixed order; IMS_OK when the image can be adjusted.
// The pixel-data size is biSizeImage, or the rows' size when it is 0: it must
// cover the rows and lie in the block, and it goes into the result.
PaxImageStatus CheckHeader(const BlockLock &image, DibLayout *layout) {
    LayoutRules rules;
    rules.depths = uint64_t{1} << 4 | uint64_t{1} << 8 | uint64_t{1} << 24;
    rules.topDown = true;
    rules.sizeImage = SizeImageRule::InsideBlock;
    *layout = LocateImage(image.data(), image.size(), rules);
    const DibLayout &l = *layout;
    if (!l.header || !l.infoHeader) return IMS_BADPARAM;
    if (l.header->biCompression != BI_RGB) return IMS_COMPRESSED;
    if (!l.depthAccepted) return IMS_BADDEPTH;
    if (l.width == 0 || l.heightField == 0) return IMS_EMPTYIMAGE;
    if (!l.ok() || l.sizeImage > 0xFFFFFFFFll) return IMS_BADPARAM;
    return IMS_OK;
}

bool InRange(short value) { return static_cast<unsigned short>(value + 100) <= 200; }

// Allocation of the result, tried twice.
HGLOBAL AllocateResult(int64_t bytes) {
    HGLOBAL block = GlobalAlloc(GHND, static_cast<SIZE_T>(bytes));
    if (!block) block = GlobalAlloc(GHND, static_cast<SIZE_T>(bytes));
    return block;
}

// Palette images: the table's blue, green and red bytes through T; the fourth
// byte and the pixel indices unchanged.
void AdjustPalette(const DibLayout &src, BYTE *dstTable, BYTE *dstPixels, int64_t pixelBytes,
                   const ToneTable t) {
    const BYTE *table = reinterpret_cast<const BYTE *>(src.header) + kDibHeaderSize;
    for (int64_t e = 0; e < src.tableEntries; ++e) {
        const BYTE *from = table + 4 * e;
        BYTE *to = dstTable + 4 * e;
        to[0] = t[from[0]];
        to[1] = t[from[1]];
        to[2] = t[from[2]];
        to[3] = from[3];
    }
    std::memcpy(dstPixels, src.pixels, static_cast<size_t>(pixelBytes));
}

// 24-bit images: the first 3 x width bytes of every row through T; the
// padding of the zero-filled result stays zero.
void AdjustRows(const DibLayout &src, BYTE *dstPixels, const ToneTable t) {
    int64_t bytes = 3 * src.width;
    for (int64_t r = 0; r < src.height; ++r) {
        const BYTE *from = src.pixels + r * src.stride;
        BYTE *to = dstPixels + r * src.stride;
        for (int64_t i = 0; i < bytes; ++i) to[i] = t[from[i]];
    }
}

HDIB BrightnessContrast(HDIB hDib, short brightness, short contrast, int showDialog,
                        ThreadState *state) {
    if (!hDib) return Fail(state, IMS_BADPARAM);
    BlockLock image(hDib);
    if (!image) return Fail(state, IMS_LOCKFAILED);
    DibLayout src;
    if (PaxImageStatus code = CheckHeader(image, &src)) return Fail(state, code);

    if (showDialog &&
        RunParamDialog("CONTRASTUI", hDib, &brightness, &contrast) == DialogOutcome::Cancelled)
        return nullptr;
    // The range is checked after the dialog, so the dialog's values are too.
    if (!InRange(brightness) || !InRange(contrast)) return Fail(state, IMS_BADPARAM);

    ToneTable t;
    BuildToneTable(brightness, contrast, t);

    const int64_t tableBytes = src.tableBytes;
    const int64_t pixelBytes = src.sizeImage;
    OwnedBlock result(AllocateResult(kDibHeaderSize + tableBytes + pixelBytes));
    if (!result) return Fail(state, IMS_NOMEMORY);
    BlockLock out(result.get());
    if (!out) return Fail(state, IMS_LOCKFAILED);
    BYTE *dst = out.data();
    std::memcpy(dst, src.header, kDibHeaderSize);
    reinterpret_cast<BITMAPINFOHEADER *>(dst)->biSizeImage = static_cast<DWORD>(pixelBytes);
    std::memcpy(dst + kDibHeaderSize, image.data() + kDibHeaderSize, static_cast<size_t>(tableBytes));
    BYTE *dstPixels = dst + kDibHeaderSize + tableBytes;
    if (src.bits == 24)
        AdjustRows(src, dstPixels, t);
    else
        AdjustPalette(src, dst + kDibHeaderSize, dstPixels, pixelBytes, t);

    out.Unlock();
    image.Unlock();
    return result.Release();
}

} // namespace

extern "C" HDIB PAXCALL ColorBrightnessContrast(HDIB hDib, short brightness, short contrast,
                                                int showDialog) {
    ThreadState *state = GetThreadState();
    state->imageStatus = IMS_OK;
    return BrightnessContrast(hDib, brightness, contrast, showDialog, state);
}
