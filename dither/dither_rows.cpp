// Entry checks, source rows, result header and 4-bit packing shared by the
// error-diffusion and block dithers.
#include "dither_rows.h"

#include "thread_state.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr DWORD kMaxSizeImage = 0xFFFFFFFFu; // biSizeImage is 32 bits

// Checks that follow a successful lock. The pixel rows are located after the
// header's own colour table: biClrUsed entries when it is not 0, else the full
// 2^depth (none at 24 bits). A table shorter than 2^depth thus still finds
// its pixels, and indices past its end read as black; a table that claims
// more than the block holds is refused like any other row that does not fit.
PaxImageStatus DescribeSource(BYTE *block, SIZE_T blockSize, int bits, DitherSource *src) {
    LayoutRules rules;
    rules.depths = uint64_t{1} << 4 | uint64_t{1} << 8 | uint64_t{1} << 24;
    rules.topDown = true;
    const DibLayout l = LocateImage(block, blockSize, rules);
    if (!l.header) return IMS_BADPARAM;
    if (bits >= l.bits) return IMS_BADBITS;
    if (!l.depthAccepted) return IMS_BADBITS;
    if (!l.ok()) return IMS_BADPARAM;

    const int depth = l.bits;
    const int64_t entries = l.tableEntries;
    src->pixels = l.pixels;
    src->stride = l.stride;
    src->width = l.width;
    src->rows = l.height;
    src->heightField = static_cast<LONG>(l.heightField);
    src->bitCount = depth;
    src->xPelsPerMeter = l.header->biXPelsPerMeter;
    src->yPelsPerMeter = l.header->biYPelsPerMeter;
    if (depth != 24) {
        const BYTE *table = block + kDibHeaderSize;
        int present = static_cast<int>(std::min<int64_t>(entries, int64_t{1} << depth));
        for (int i = 0; i < present; ++i) {
            src->blue[i] = table[4 * i];
            src->green[i] = table[4 * i + 1];
            src->red[i] = table[4 * i + 2];
        }
    }
    return IMS_OK;
}

} // namespace

bool BeginDither(HDIB image, int bits, bool bitsOffered, const DitherEntryCodes &codes,
                 DitherEntry *entry) {
    ThreadState *state = GetThreadState();
    if (!bitsOffered) return Fail(state, IMS_BADPARAM);
    if (!image) return Fail(state, codes.nullImage);
    entry->lock.emplace(image);
    if (!*entry->lock) return Fail(state, codes.lockFailed);
    PaxImageStatus code =
        DescribeSource(entry->lock->data(), entry->lock->size(), bits, &entry->source);
    if (code != IMS_OK) {
        entry->lock.reset();
        return Fail(state, code);
    }
    state->imageStatus = IMS_NOMEMORY;
    // No pixels: working blocks of 0 bytes cannot be locked, so such an image
    // ends as a failed allocation would, with IMS_NOMEMORY.
    if (entry->source.width == 0 || entry->source.rows == 0) {
        entry->lock.reset();
        return false;
    }
    // The result's biSizeImage must hold S x h for every depth it can take.
    if (DitherRowBytes(entry->source.width, 8) * entry->source.rows >
        static_cast<int64_t>(kMaxSizeImage)) {
        entry->lock.reset();
        return false;
    }
    return true;
}

void SourceRowReader(const DitherSource &source, int64_t storedRow, BYTE *red, BYTE *green,
                     BYTE *blue, bool grey) {
    const BYTE *row = source.pixels + storedRow * source.stride;
    const int64_t w = source.width;
    switch (source.bitCount) {
    case 24:
        for (int64_t x = 0; x < w; ++x) {
            blue[x] = row[3 * x];
            green[x] = row[3 * x + 1];
            red[x] = row[3 * x + 2];
        }
        break;
    case 8:
        for (int64_t x = 0; x < w; ++x) {
            BYTE i = row[x];
            red[x] = source.red[i];
            green[x] = source.green[i];
            blue[x] = source.blue[i];
        }
        break;
    case 4:
        for (int64_t x = 0; x < w; ++x) {
            BYTE b = row[x / 2];
            BYTE i = (x & 1) ? (b & 0x0F) : (b >> 4);
            red[x] = source.red[i];
            green[x] = source.green[i];
            blue[x] = source.blue[i];
        }
        break;
    default: break;
    }
    if (grey) {
        for (int64_t x = 0; x < w; ++x) {
            int v = (30 * red[x] + 59 * green[x] + 11 * blue[x]) / 100;
            red[x] = static_cast<BYTE>(std::min(v, 255));
        }
    }
}

void WriteDitherHeader(BYTE *result, int bits, int64_t width, LONG heightField, DWORD sizeImage) {
    BITMAPINFOHEADER h = {};
    h.biSize = kDibHeaderSize;
    h.biWidth = static_cast<LONG>(width);
    h.biHeight = heightField;
    h.biPlanes = 1;
    h.biBitCount = static_cast<WORD>(bits);
    h.biCompression = BI_RGB;
    h.biSizeImage = sizeImage;
    h.biClrUsed = 1u << bits;
    h.biClrImportant = 0;
    std::memcpy(result, &h, sizeof h);

    BYTE *table = result + kDibHeaderSize;
    const int entries = 1 << bits;
    for (int i = 0; i < entries; ++i) {
        BYTE *e = table + 4 * i; // blue, green, red, reserved
        if (bits == 1) {
            BYTE v = i ? 255 : 0;
            e[0] = e[1] = e[2] = v;
            e[3] = 0;
        } else if (bits == 4) {
            // Even entries are the eight corners of the RGB cube; odd ones
            // repeat them with the reserved byte set.
            e[0] = (i & 2) ? 255 : 0;
            e[1] = (i & 4) ? 255 : 0;
            e[2] = (i & 8) ? 255 : 0;
            e[3] = (i & 1) ? 255 : 0;
        } else {
            // 3-3-2: red in bits 7..5, green in 4..2, blue in 1..0. Levels are
            // shown as 36 L and 85 L although the error is measured against
            // 32 L and 64 L.
            e[0] = static_cast<BYTE>((i & 3) * 85);
            e[1] = static_cast<BYTE>(((i >> 2) & 7) * 36);
            e[2] = static_cast<BYTE>((i >> 5) * 36);
            e[3] = 0;
        }
    }
}

void PackPlanesToNibbles(const BYTE *red, const BYTE *green, const BYTE *blue,
                         int64_t planeRowBytes, int64_t width, int64_t rows, BYTE *out) {
    const int64_t outRowBytes = DitherRowBytes(width, 4);
    for (int64_t r = 0; r < rows; ++r) {
        const BYTE *pr = red + r * planeRowBytes;
        const BYTE *pg = green + r * planeRowBytes;
        const BYTE *pb = blue + r * planeRowBytes;
        BYTE *o = out + r * outRowBytes;
        for (int64_t x = 0; x < width; ++x) {
            const int shift = 7 - static_cast<int>(x & 7);
            const int bitR = (pr[x >> 3] >> shift) & 1;
            const int bitG = (pg[x >> 3] >> shift) & 1;
            const int bitB = (pb[x >> 3] >> shift) & 1;
            const int index = 8 * bitR + 4 * bitG + 2 * bitB;
            if (x & 1)
                o[x >> 1] |= static_cast<BYTE>(index);
            else
                o[x >> 1] = static_cast<BYTE>(index << 4);
        }
    }
}

HDIB MakeDitherResult(const DitherSource &source, int bits, const BYTE *work) {
    const int64_t s = DitherRowBytes(source.width, bits);
    const int64_t imageBytes = s * source.rows;
    const int64_t tableBytes = 4 * (int64_t{1} << bits);
    OwnedBlock result(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT,
                                  static_cast<SIZE_T>(kDibHeaderSize + tableBytes + imageBytes)));
    if (!result) return nullptr;
    BlockLock out(result.get());
    if (!out) return nullptr;
    WriteDitherHeader(out.data(), bits, source.width, source.heightField,
                      static_cast<DWORD>(imageBytes));
    auto *header = reinterpret_cast<BITMAPINFOHEADER *>(out.data());
    header->biXPelsPerMeter = source.xPelsPerMeter;
    header->biYPelsPerMeter = source.yPelsPerMeter;
    BYTE *pixels = out.data() + kDibHeaderSize + tableBytes;
    if (bits == 4) {
        const int64_t planeBytes = DitherRowBytes(source.width, 1) * source.rows;
        PackPlanesToNibbles(work, work + planeBytes, work + 2 * planeBytes,
                            DitherRowBytes(source.width, 1), source.width, source.rows, pixels);
    } else {
        std::memcpy(pixels, work, static_cast<size_t>(imageBytes));
    }
    out.Unlock();
    return result.Release();
}
