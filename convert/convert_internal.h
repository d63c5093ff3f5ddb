// Internal entry points of the buffer and image conversions and of channel
// splitting, with the walk that the exports use made selectable, so that tests
// can run the plain byte walk and the row walk side by side.
#ifndef PAX_CONVERT_INTERNAL_H
#define PAX_CONVERT_INTERNAL_H

#include "dib.h"
#include "paximage.h"
#include "progress.h"
#include "walk.h"

namespace pax {

// Units per progress step of the conversions: one step per 1500 source bytes.
constexpr LONG kConvertProgressDivisor = 1500;

// Colour-model codes run from MODEL_RGB (1) to MODEL_LAB (9).
inline bool IsModelCode(int model) { return model >= MODEL_RGB && model <= MODEL_LAB; }

// The biCompression tag of an image holding model: 0 for RGB, code + 8 otherwise.
inline DWORD ModelTag(int model) { return model == MODEL_RGB ? 0 : static_cast<DWORD>(model + 8); }

// Where the rows of a locked image lie for the image conversions: 24 or 32
// bits, a 40-byte header, bottom-up rows after the colour table inside the
// block. A block shorter than a header leaves layout.header null.
inline DibLayout LocateConvertedImage(const BlockLock &lock) {
    LayoutRules rules;
    rules.depths = uint64_t{1} << 24 | uint64_t{1} << 32;
    return LocateImage(lock.data(), lock.size(), rules);
}

int ConvertColorSpaceWith(WalkKind kind, const BYTE *source, BYTE *destination, int count,
                          int sourceModel, int destinationModel, int showProgress, HWND owner);
int ConvertCMYKBuffer(WalkKind kind, const BYTE *source, BYTE *destination, int count,
                      int destinationModel, int showProgress, HWND owner);

HDIB ConvertDIBColorSpaceWith(WalkKind kind, HDIB image, int sourceModel, int destinationModel,
                              int showProgress, HWND owner);
// ConvertDIBColorSpace without a progress dialog and without its walk: the
// same checks, blocks, locks and codes, and a result whose biCompression
// carries the destination's tag but whose pixel bytes (3 or 4 a pixel, as the
// result's depth says) are left unwritten, for a caller that writes them all.
HDIB ConvertDIBColorSpaceFrame(HDIB image, int sourceModel, int destinationModel);
HDIB ConvertCMYKImage(WalkKind kind, HDIB image, int destinationModel, int showProgress,
                      HWND owner);

} // namespace pax

#endif
