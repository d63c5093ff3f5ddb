// 3-byte pixels to three planes and back (plane k holds byte k of each
// pixel), and pixels spread into grey images, picked once for the processor.
#ifndef PAX_PLANE_SHUFFLE_H
#define PAX_PLANE_SHUFFLE_H

#include "paximage.h"

namespace pax {

using SplitFn = void (*)(const BYTE *src, BYTE *c0, BYTE *c1, BYTE *c2, int n);
using JoinFn = void (*)(const BYTE *c0, const BYTE *c1, const BYTE *c2, BYTE *dst, int n);
// Channel splitting: every byte of pixel p of output k gets byte 2 - k of
// source pixel p.
using SpreadFn = void (*)(const BYTE *src, BYTE *o0, BYTE *o1, BYTE *o2, int n);
// The same for 4-byte pixels: output k gets byte 2, 1, 0, 3 of source pixel p
// for k = 0, 1, 2, 3 in all four bytes of its pixel p.
using Spread4Fn = void (*)(const BYTE *src, BYTE *const out[4], int n);
// One plane to grey pixels: byte p of the plane in each of the 3 (triple) or
// 4 (quadruple) bytes of pixel p.
using RepeatFn = void (*)(const BYTE *plane, BYTE *dst, int n);
struct PlaneShuffles {
    SplitFn split;
    JoinFn join;
    SpreadFn spread;
    Spread4Fn spread4;
    RepeatFn triple, quadruple;
};
const PlaneShuffles &Shuffles();

} // namespace pax

#endif
