// The convolution's fast engine with AVX2 (this file is compiled with -mavx2).
#include "convolution_fast.inc"

convfast::Engine convfast::Avx2Engine() { return {FeedRow, EmitRow}; }
