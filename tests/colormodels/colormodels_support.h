// Shared pieces of the single-value conversion tests.
#ifndef PAX_TEST_COLORMODELS_SUPPORT_H
#define PAX_TEST_COLORMODELS_SUPPORT_H

#include "conversion_table.h"
#include "dib_builder.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace cmtest {

inline const pax::ConversionEntry *EntryNamed(const std::string &name) {
    for (const pax::ConversionEntry &e : pax::kConversions)
        if (name == e.name) return &e;
    return nullptr;
}

// The conversion of one value (3 or 4 bytes) into a buffer of guard bytes,
// in place (the value copied into it) or not; a guard byte written past the
// result, a three-byte result's K byte of a CMYK source overwritten or a
// wrong returned pointer each show as a result of 9 bytes. A CMYKQUAD is
// returned as the four bytes it holds in memory.
inline std::vector<BYTE> Convert(const pax::ConversionEntry &e, const BYTE *src, bool inPlace) {
    const int n = pax::SourceBytes(e.fromModel);
    if (e.fn.toCmyk) {
        static_assert(sizeof(CMYKQUAD) == 4, "four bytes by value");
        const CMYKQUAD q = e.fn.toCmyk(src);
        return std::vector<BYTE>(reinterpret_cast<const BYTE *>(&q), reinterpret_cast<const BYTE *>(&q) + 4);
    }
    BYTE buf[8];
    std::memset(buf, 0xA5, sizeof buf);
    if (inPlace) std::memcpy(buf, src, n);
    const BYTE *returned = e.fn.toThree(buf, inPlace ? buf : src);
    bool intact = returned == buf;
    for (int k = 3; k < 8; ++k) intact = intact && buf[k] == (inPlace && k < n ? src[k] : 0xA5);
    if (!intact) return std::vector<BYTE>(9);
    return {buf[0], buf[1], buf[2]};
}

// The exponent of the LAB cube root, the double nearest 1/3, as a long double.
constexpr long double kWideThird = 0.3333333333333333;

inline bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Whether d is the double nearest to the value that w approximates with a
// relative error of a few units of long double: no neighbour of d is nearer
// to w by more than that error. The Windows C runtime's long double power
// loses that accuracy away from 1 (the LAB arguments lie near it); only the
// Linux build checks there.
inline bool NearestToWide(double d, long double w) {
    if (!std::isfinite(d)) return false;
#ifdef _WIN32
    if (std::fabs(std::logb(d)) > 4) return true;
#endif
    const double toward = std::nextafter(d, static_cast<double>(w) > d ? HUGE_VAL : -HUGE_VAL);
    const long double tolerance = fabsl(w) * 0x1p-60L;
    return fabsl(w - d) <= fabsl(w - toward) + tolerance;
}

// 64-bit FNV-1a, the digest of the conversion tests and tools.
struct Digest {
    uint64_t h = 0xcbf29ce484222325ull;
    void Byte(BYTE b) { h = (h ^ b) * 0x100000001b3ull; }
    void Bytes(const BYTE *p, size_t n) {
        for (size_t k = 0; k < n; ++k) Byte(p[k]);
    }
    void Word(uint64_t v) {
        for (int k = 0; k < 8; ++k) Byte(BYTE(v >> (8 * k)));
    }
    void Double(double v) {
        uint64_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        Word(bits);
    }
};

} // namespace cmtest

#endif
