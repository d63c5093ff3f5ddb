// Header checks and the progress total of the column walk.
#include "column_walk.h"

#include <climits>

namespace hueadjust {

SourceKind DescribeSource(BYTE *block, SIZE_T blockSize, DibLayout *layout) {
    if (blockSize < static_cast<SIZE_T>(kDibHeaderSize)) return SourceKind::Malformed;
    auto *header = reinterpret_cast<BITMAPINFOHEADER *>(block);
    *layout = DibLayout();
    layout->header = header;
    if (header->biBitCount != 24) return SourceKind::OtherDepth;
    if (header->biWidth <= 0 || header->biHeight <= 0) return SourceKind::Empty;
    // A colour table that cannot fit is refused before its size is worked
    // out (biClrUsed is a 32-bit count).
    if (header->biSize == static_cast<DWORD>(kDibHeaderSize) &&
        header->biClrUsed > (blockSize - kDibHeaderSize) / 4)
        return SourceKind::Malformed;
    return DescribeDib(block, blockSize, 24, layout) ? SourceKind::Pixels : SourceKind::Malformed;
}

LONG ProgressTotal(int64_t width) {
    int64_t total = width + 1;
    return total > INT32_MAX ? INT32_MAX : static_cast<LONG>(total);
}

} // namespace hueadjust
