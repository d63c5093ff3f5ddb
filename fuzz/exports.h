// The library's image exports as one table, called with decoded arguments.
// Shared by the fuzz targets and the threads test; uses only the public API,
// so it builds against the DLL as well.
#ifndef PAX_FUZZ_EXPORTS_H
#define PAX_FUZZ_EXPORTS_H

#include "paximage.h"

#include <cstdint>
#include <vector>

namespace paxfuzz {

enum Export : int {
    kConvert, kSplit, kHueSaturation, kDesaturate, kReplaceColor, kCmykLevels,
    kBrightnessContrast, kGamma, kConvolveNew, kConvolveInPlace,
    kDitherFS4, kDitherBurkes, kDitherSierra, kDitherJJN, kDitherStucki, kDitherSA,
    kDitherSharp, kDitherSmooth, kDitherOrdered, kExportCount
};
extern const char *const kExportNames[kExportCount];

// Scalar arguments in the export's order (the image first, the mode or
// progress flag and owner last). Convolution: a[0] intensity mode, a[1] type,
// a[2] size, a[3] which built-in coefficient list (caller's array, type 1).
struct Args {
    int32_t a[6] = {};
    int32_t mode = 0;
    HWND owner = nullptr;
    const char *filterFile = nullptr;
};

// Arguments a careful caller would pass: each export succeeds with them on a
// 24-bit RGB image.
Args TypicalArgs(int which);

struct Outcome {
    std::vector<HGLOBAL> results; // new blocks the caller owns (never its own)
    bool returnedCaller = false;  // the caller's own handle came back
    long value = 0;               // the channel count of a split
    DWORD convertError = 0;       // GetLastColorConvertError right after the call
    int errorCode = -1;           // the convolution's status variable
};

Outcome Invoke(int which, HDIB image, const Args &args);

// FNV-1a over the bytes of a block (locks and unlocks it).
uint64_t BlockDigest(HGLOBAL block);

} // namespace paxfuzz

#endif
