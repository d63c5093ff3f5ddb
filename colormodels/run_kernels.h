// The pieces the run functions are built from: per model, kernels that convert
// a block of up to kRunBlock pixels held as planes (one array per component)
// to and from RGB, as bytes or as doubles limited to 0..1. Each kernel gives,
// for every pixel, exactly what the model's single-value conversion (or its
// half that stops at RGB doubles) gives; the sweeps in the tests show it over
// every input value.
#ifndef PAX_RUN_KERNELS_H
#define PAX_RUN_KERNELS_H

#include "paximage.h"

namespace pax {

constexpr int kRunBlock = 64;

struct BytePlanes {
    alignas(32) BYTE c[4][kRunBlock];
};
struct UnitPlanes {
    alignas(32) double c[3][kRunBlock];
};

using ByteKernel = void (*)(const BytePlanes &in, BytePlanes &out, int n);
using ToUnitKernel = void (*)(const BytePlanes &in, UnitPlanes &out, int n);
using FromUnitKernel = void (*)(UnitPlanes &in, BytePlanes &out, int n); // may use `in` as scratch

struct ModelKernels {
    ByteKernel toRgb;         // the model's conversion to RGB bytes
    ByteKernel fromRgb;       // RGB bytes to the model
    ToUnitKernel toUnit;      // to RGB doubles, limited to 0..1 (models converted through doubles)
    FromUnitKernel fromUnit;  // RGB doubles to the model (models converted from doubles)
};

// The kernels of a model code 1..9: the fast ones, picked once for the
// processor, where there are any; the single-value conversions otherwise.
const ModelKernels &KernelsOf(int model);

// The fast kernels of each family, filled in by their files; null entries
// keep the per-pixel kernels.
void FastHueKernels(ModelKernels *hsv, ModelKernels *hsi);
void FastHueBackKernels(ModelKernels *hsv, ModelKernels *hsi);
void FastLinearKernels(ModelKernels *yiq, ModelKernels *yuv, ModelKernels *xyz);
void FastLabKernels(ModelKernels *lab);
void FastInkKernels(ModelKernels *cmy, ModelKernels *cmyk);

} // namespace pax

#endif
