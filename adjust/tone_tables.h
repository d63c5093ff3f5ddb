// Fast forms of the tone tables over runs of pixel bytes, beside the plain
// per-byte lookups they replace (UseReferencePaths() keeps those).
//
// - Brightness and contrast: T[i] = trunc(a x (contrast + 100) / 100.0 - co)
//   limited to 0..255, with a = i + bo limited to 0..255. The product is a
//   whole number p <= 51000, and p / 100.0 lies either on a whole number or at
//   least 1/100 from one, so the truncation is floor(p / 100) - co exactly;
//   that is taken on 16-bit lanes (p / 100 as (p >> 2) x 5243 >> 17, checked
//   here over every p) and limited by the saturating pack. The form is
//   compared with the table at run time too, and the table is used should
//   they ever differ.
// - Gamma: three 256-entry tables, one per stored byte of a pixel, looked up
//   from the caller's rows straight into the result's (no copy of the pixels
//   first), four pixels to a loop step.
#ifndef PAX_ADJUST_TONE_TABLES_H
#define PAX_ADJUST_TONE_TABLES_H

#include "paximage.h"

#include <cstdint>

namespace tonefast {

// Brightness and contrast by the integer form, or by `table` (the 256-entry
// tone table) when the form does not give that table.
class ToneRows {
public:
    ToneRows(int brightness, int contrast, const BYTE table[256]);
    // `bytes` bytes of a row through the table, from in to out.
    void Run(const BYTE *in, BYTE *out, int64_t bytes) const;
    bool UsesIntegerForm() const { return integer_; }

private:
    int bo_, co_, scale_; // brightness offset, contrast offset, contrast + 100
    bool integer_;
    BYTE table_[256];
};

// The integer form's entry i (exposed for the exhaustive check).
BYTE ToneByIntegers(int i, int brightness, int contrast);

// count pixels of 3 stored bytes through one table per byte.
void GammaRun(const BYTE *in, BYTE *out, int64_t count, const BYTE *t0, const BYTE *t1,
              const BYTE *t2);

} // namespace tonefast

#endif
