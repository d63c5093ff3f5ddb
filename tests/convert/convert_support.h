// Shared pieces of the conversion tests: images of any model, the expected
// value of one pixel from the single-value conversion, and a watch on the
// progress bar that can press Cancel after a given step on both platforms.
#ifndef PAX_TESTS_CONVERT_SUPPORT_H
#define PAX_TESTS_CONVERT_SUPPORT_H

#include "conversion_table.h"
#include "dib_builder.h"
#include "paximage.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace convtest {

// Bytes per pixel of a buffer of the model: 4 for CMYK, 3 otherwise.
inline int BufferBytes(int model) { return model == MODEL_CMYK ? 4 : 3; }
// The tag an image of the model carries.
inline DWORD TagOf(int model) { return model == MODEL_RGB ? 0 : static_cast<DWORD>(model + 8); }

// Converts one value, given and returned in component order, with the
// single-value conversion of the pair.
std::vector<BYTE> ConvertOne(int from, int to, const BYTE *value);

std::vector<BYTE> RandomBytes(size_t n, uint32_t seed);

// A seeded random image tagged with the model: 32 bits for CMYK, else `bits`
// (24 or 32). Padding bytes are padByte.
HGLOBAL MakeModelImage(int model, int width, int height, uint32_t seed, int bits = 24,
                       BYTE padByte = 0x5A);
// Sets one field of an image's header in place and returns the image.
template <class F>
HGLOBAL WithField(HGLOBAL image, F BITMAPINFOHEADER::*field, long long value) {
    static_cast<BITMAPINFOHEADER *>(GlobalLock(image))->*field = static_cast<F>(value);
    GlobalUnlock(image);
    return image;
}

// Pixel bytes of a block from its header: offset of the rows and stride.
struct Rows {
    std::vector<BYTE> block;
    BITMAPINFOHEADER header{};
    size_t offset = 0;
    size_t stride = 0;
    const BYTE *Pixel(int x, int y, int bytesPerPixel) const; // y = 0 the top row
};
Rows ReadRows(HGLOBAL image);

// A progress-bar watch for the current thread. On Windows it hooks the
// messages sent to the real bar; on Linux it reads the stand-in's record and
// script. With cancelAfter = k > 0, Cancel is pressed right after the k-th
// step and delivered by the next pump, on both platforms. One watch at a time.
class StepWatch {
public:
    explicit StepWatch(long cancelAfter = 0);
    ~StepWatch();
    long Steps() const;
    long RangeMax() const;
    // Called at every step with its number (1 first); Windows only.
    void OnStep(std::function<void(long)> f);
    static bool SeesEachStep();
};

// Whether the dialog can be shown (a display under Wine; always on Linux).
bool HaveDisplay();
// An owner window for the dialog, and a timer that clicks Cancel after ms
// milliseconds (the real button on Windows; the scripted one on Linux, after
// the second step).
HWND MakeOwner();
void ClickCancelAfter(unsigned ms);
// Makes the next dialog creation fail where that can be arranged: scripted on
// Linux; on Windows only when there is no display, so that it fails anyway.
bool ArrangeDialogFailure();
void ResetDialogScript();

} // namespace convtest

#endif
