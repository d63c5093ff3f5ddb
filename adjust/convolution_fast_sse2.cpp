// The convolution's fast engine on the SSE2 baseline.
#include "convolution_fast.inc"

convfast::Engine convfast::BaselineEngine() { return {FeedRow, EmitRow}; }
