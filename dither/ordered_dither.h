// The threshold matrices of DitherOrdered, visible to the tests.
#ifndef PAX_DITHER_ORDERED_DITHER_H
#define PAX_DITHER_ORDERED_DITHER_H

#include "paximage.h"

// A square threshold table of side n, stored row by row, and its largest entry.
struct OrderedMatrix {
    int n;
    int maxM;
    const BYTE *entries;
};

constexpr int kOrderedMatrixCount = 7;

// The matrix of type 0..6.
const OrderedMatrix &GetOrderedMatrix(int type);

#endif
