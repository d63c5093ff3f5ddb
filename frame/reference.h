// Reference paths beside fast paths. Every operation that has a fast path keeps
// its straightforward code beside it, and the two must give the same bytes.
// PAXIMAGE_REFERENCE=1 in the environment forces the straightforward code
// everywhere; the variable is read once, on the first call that asks.
#ifndef PAX_FRAME_REFERENCE_H
#define PAX_FRAME_REFERENCE_H

// True when PAXIMAGE_REFERENCE is set to a value starting with '1'.
bool UseReferencePaths();

#endif
