// CMY and CMYK kernels over planes: integer complements and minima, the same
// integer steps as the single-value conversions.
#include "run_kernels.h"

namespace pax {
namespace {

void Complement3(const BytePlanes &in, BytePlanes &out, int n) {
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; ++p) out.c[k][p] = static_cast<BYTE>(255 - in.c[k][p]);
}

// 255 - K - ink, limited below at 0.
void CmykToRgb(const BytePlanes &in, BytePlanes &out, int n) {
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < n; ++p) {
            const int v = 255 - in.c[3][p] - in.c[k][p];
            out.c[k][p] = static_cast<BYTE>(v < 0 ? 0 : v);
        }
}

// K = the smallest complement, subtracted from each.
void RgbToCmyk(const BytePlanes &in, BytePlanes &out, int n) {
    for (int p = 0; p < n; ++p) {
        const BYTE c = static_cast<BYTE>(255 - in.c[0][p]), m = static_cast<BYTE>(255 - in.c[1][p]),
                   y = static_cast<BYTE>(255 - in.c[2][p]);
        BYTE k = c < m ? c : m;
        k = y < k ? y : k;
        out.c[0][p] = static_cast<BYTE>(c - k);
        out.c[1][p] = static_cast<BYTE>(m - k);
        out.c[2][p] = static_cast<BYTE>(y - k);
        out.c[3][p] = k;
    }
}

} // namespace

void FastInkKernels(ModelKernels *cmy, ModelKernels *cmyk) {
    cmy->toRgb = Complement3;
    cmy->fromRgb = Complement3;
    cmyk->toRgb = CmykToRgb;
    cmyk->fromRgb = RgbToCmyk;
}

} // namespace pax
