// Header checks and the progress total of the column walk.
#include "column_walk.h"

namespace hueadjust {

SourceKind DescribeSource(BYTE *block, SIZE_T blockSize, DibLayout *layout) {
    // The header size is not checked: a header of another size finds its
    // table by the core-header rule, and its rows after that table.
    LayoutRules rules;
    rules.depths = uint64_t{1} << 24;
    rules.requireInfoHeader = false;
    *layout = LocateImage(block, blockSize, rules);
    if (!layout->header) return SourceKind::Malformed;
    if (!layout->depthAccepted) return SourceKind::OtherDepth;
    if (layout->width <= 0 || layout->heightField <= 0) return SourceKind::Empty;
    return layout->ok() ? SourceKind::Pixels : SourceKind::Malformed;
}

} // namespace hueadjust
