// Conversions over runs of pixels: one run function per ordered pair of models
// and pixel layout, generated from the table of conversion_list.h, giving for
// every pixel exactly the bytes of the pair's single-value conversion.
//
// A run converts `count` consecutive pixels from `src` to `dst`. The source
// and destination must not overlap, except that they may be the same address
// when a destination pixel is no wider than a source pixel (the value is read
// before it is written, as with the single-value conversions).
#ifndef PAX_CONVERSION_RUNS_H
#define PAX_CONVERSION_RUNS_H

#include "paximage.h"
#include "run_kernels.h"

#include <cstdint>

namespace pax {

using RunFn = void (*)(const BYTE *src, BYTE *dst, int64_t count);

enum class RunLayout {
    // Pixel buffers: components in order (C, M, Y, K for CMYK), 3 bytes a
    // pixel, 4 for CMYK, no padding.
    Buffer,
    // Image rows: the components stored reversed (byte 0 holds the last
    // component; CMYK as K, Y, M, C), 3 bytes a pixel, 4 for CMYK.
    Image,
    // 32-bit image rows of a three-component model: 4 bytes a pixel whose bytes
    // 2, 1, 0 hold the components and whose byte 3 is neither read nor written
    // (into CMYK, the four bytes K, Y, M, C are written).
    Image32,
};

// The run of the pair of model codes 1..9 (from != to) in the layout; null
// for an invalid pair, and for Image32 from CMYK.
RunFn FindRun(int fromModel, int toModel, RunLayout layout);

// Bytes a pixel in the layout, on the source and the destination side.
int RunSourceStep(int fromModel, RunLayout layout);
int RunDestinationStep(int toModel, RunLayout layout);

// Direct runs of the ink models that need no planes (fast_ink.cpp), picked
// once for the processor: the complement of every byte (RGB and CMY both
// ways, whatever the byte order), and RGB to CMYK and back in the image
// layout. The same overlap rule as above.
struct InkRuns {
    void (*complement)(const BYTE *src, BYTE *dst, int64_t bytes);
    RunFn rgbToCmykImage, cmykToRgbImage;
};
const InkRuns &DirectInkRuns();

// Up to kRunBlock pixels of 24-bit RGB image rows (B, G, R stored) converted
// into the model (2..9) and left as planes: plane k holds component k of each
// pixel (C, M, Y, K for CMYK), the bytes the image-layout run stores reversed.
void RgbImageToPlanes(int toModel, const BYTE *src, BytePlanes &out, int n);

} // namespace pax

#endif
