// The colour value handed to a single-value conversion.
//
// The value's bytes are written with one 32-bit store. A conversion may read
// two or more components with one wider load, and a load that spans several
// separate byte stores cannot be forwarded from them: the processor waits for
// the stores to retire, which made byte-by-byte values cost more than the
// conversion itself on the simplest models.
#ifndef PAX_CONVERT_PIXEL_VALUE_H
#define PAX_CONVERT_PIXEL_VALUE_H

#include "paximage.h"

#include <cstdint>
#include <cstring>

namespace pax {

struct alignas(4) PixelValue {
    BYTE bytes[4];
};

// bytes[0..3] = c0, c1, c2, c3.
inline void SetValue(PixelValue &v, BYTE c0, BYTE c1, BYTE c2, BYTE c3 = 0) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    const uint32_t word = static_cast<uint32_t>(c0) | static_cast<uint32_t>(c1) << 8 |
                          static_cast<uint32_t>(c2) << 16 | static_cast<uint32_t>(c3) << 24;
    std::memcpy(v.bytes, &word, sizeof word);
#else
    v.bytes[0] = c0;
    v.bytes[1] = c1;
    v.bytes[2] = c2;
    v.bytes[3] = c3;
#endif
}

} // namespace pax

#endif
