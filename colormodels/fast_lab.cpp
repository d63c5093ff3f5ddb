#include "run_kernels.h"
namespace pax {
void FastLabKernels(ModelKernels *) {}
}
