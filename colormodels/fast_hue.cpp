#include "run_kernels.h"
namespace pax {
void FastHueKernels(ModelKernels *, ModelKernels *) {}
}
