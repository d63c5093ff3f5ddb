// One table of every exported operation on images: how to call it with valid
// arguments, where its codes go, the codes a refused image gives, its
// parameter dialog and the shape of its progress walk. Tests that must cover
// every image export (hostile headers, check order, failure sweeps, census,
// dialogs, Cancel) iterate this table instead of listing the exports again.
#ifndef PAX_TESTS_IMAGE_EXPORTS_H
#define PAX_TESTS_IMAGE_EXPORTS_H

#include "paximage.h"

#include <functional>
#include <string>
#include <vector>

namespace paxtest {

// Where an export leaves its code.
enum class CodeChannel { ConvertError, ImageStatus, ErrorVariable };

// What one progress step stands for.
enum class ProgressShape { None, Bytes1500, Columns5, Rows5 };

// What a call gave: the handles it made (the caller's own handle when it
// returns that), and the code read from the export's channel afterwards.
struct CallOutcome {
    std::vector<HGLOBAL> results;
    DWORD code = 0;
    bool ok() const { return !results.empty(); }
};

struct ImageExport {
    std::string name;
    CodeChannel channel;
    int depth;                  // of the valid image it takes
    DWORD compression;          // model tag of that image
    // Calls the export with valid arguments. mode: 0 neither dialog, 1
    // progress, 2 parameter dialog, 3 both, mapped onto the export's own flag
    // (the conversions' progress flag, brightness and contrast's dialog flag);
    // exports without one ignore it.
    std::function<CallOutcome(HGLOBAL image, int mode, HWND owner)> call;
    const char *dialogEntry;    // null when it has no parameter dialog
    ProgressShape progress;
    bool writesCaller;          // filters the caller's block in place
    std::vector<DWORD> refusals; // codes an image it cannot take may leave (0: none)
};

const std::vector<ImageExport> &ImageExports();

// A valid image for the export: w x h pixels of its depth and tag, with a
// grey-ramp table for 8 bits.
HGLOBAL MakeImageFor(const ImageExport &e, int w, int h);

// Frees every result that is not `caller`.
void FreeResults(const CallOutcome &o, HGLOBAL caller);

} // namespace paxtest

#endif
