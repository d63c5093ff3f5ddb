// One table of every exported operation on images: how to call it with
// decoded arguments, where its codes go, which failures it survives, its
// parameter dialog and the shape of its progress walk. The failure, dialog,
// progress and Cancel tests, the fuzz targets and the threads test all
// iterate this table instead of listing the exports again. It uses the
// public interface only, so it also builds against the DLL.
#ifndef PAX_TESTS_IMAGE_EXPORTS_H
#define PAX_TESTS_IMAGE_EXPORTS_H

#include "paximage.h"

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace paxtest {

// Where an export leaves its code.
enum class CodeChannel { ConvertError, ImageStatus, ErrorVariable };
// What the progress walk counts: bytes of the rows by 1500; columns by 5
// with a total of width + 1, or of the width rounded up to a multiple of 5;
// the convolution's rows from -n/2 by 5.
enum class ProgressShape { None, Bytes1500, Columns5, Columns5Rounded, Rows5 };
// How a mode 0..3 (bit 0 progress, bit 1 parameter dialog) reaches the export.
enum class ModeArg { None, Mode, ProgressFlag, DialogFlag };

// Scalar arguments in the export's order (the image first). Split: a[0] the
// model, a[1] nonzero for a null array. Replace colour:
// a[0] target and a[1] tolerance as 0xBBGGRR-packed bytes, a[5] bit 0 null
// target, bit 1 null tolerance. Convolution: a[0] intensity mode, a[1] type,
// a[2] size, a[3] which built-in coefficient list (type 1).
struct Args {
    int32_t a[6] = {};
    int32_t mode = 0; // passed as it is
    HWND owner = nullptr;
    const char *filterFile = nullptr;
};

struct Outcome {
    std::vector<HGLOBAL> results; // new blocks the caller owns (never its own)
    bool returnedCaller = false;  // the caller's own handle came back
    long value = 0;               // a split's channel count; -1: ReplaceColor wrote the caller's colours
    DWORD convertError = 0;       // GetLastColorConvertError right after the call
    int errorCode = -1;           // the convolution's status variable
    int arrayCleared = 0;         // a failed split: 1 cleared its array, -1 wrote it otherwise
    bool ok() const { return returnedCaller || !results.empty(); }
};

// What an export's own refusal leaves in its channel: nothing.
constexpr DWORD kUntouched = 0xC0DE;

struct ImageExport {
    const char *name;
    HDIB (*invoke)(HDIB image, const Args &args, Outcome &o);
    CodeChannel channel;
    int depth;         // of the valid image it takes
    DWORD compression; // model tag of that image
    Args typical;      // valid on such an image
    ModeArg modeArg;
    int dialog;        // the dialog double's entry number, -1 none
    ProgressShape progress;
    bool writesCaller; // filters the caller's block in place
    std::vector<DWORD> failureCodes; // codes an allocation, lock or file failure may leave
    // Its checks, in order, with their codes: image_export_checks.txt.
};

const std::vector<ImageExport> &ImageExports();
enum : size_t { kConvertExport = 0, kHueSaturationExport = 2, kConvolveNewExport = 8, kConvolveInPlaceExport = 9 };

// Arguments with the given leading scalars.
Args A(std::initializer_list<int32_t> values);

// Calls the export; for the convolution, with its status variable first set
// to 12345.
Outcome Invoke(const ImageExport &e, HDIB image, const Args &args);

// The export's own mode value for mode 0..3, in the typical arguments.
Args WithMode(const ImageExport &e, int mode, HWND owner = nullptr);

// A valid image for the export: w x h pixels of its depth and tag, a grey
// table below 16 bits (or of `entries`, named by biClrUsed), pixel bytes from
// a seed (zero padding).
HGLOBAL MakeImageFor(const ImageExport &e, int w, int h, uint32_t seed = 1, int entries = -1);

// FNV-1a over the bytes of a block (locks and unlocks it).
uint64_t BlockDigest(HGLOBAL block);

// Frees the results of a call.
void FreeResults(const Outcome &o);

} // namespace paxtest

#endif
