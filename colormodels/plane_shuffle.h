// 3-byte pixels to three planes and back (plane k holds byte k of each
// pixel), picked once for the processor.
#ifndef PAX_PLANE_SHUFFLE_H
#define PAX_PLANE_SHUFFLE_H

#include "paximage.h"

namespace pax {

using SplitFn = void (*)(const BYTE *src, BYTE *c0, BYTE *c1, BYTE *c2, int n);
using JoinFn = void (*)(const BYTE *c0, const BYTE *c1, const BYTE *c2, BYTE *dst, int n);
struct PlaneShuffles {
    SplitFn split;
    JoinFn join;
};
const PlaneShuffles &Shuffles();

} // namespace pax

#endif
