// The 72 single-value conversions as data: for every ordered pair of model
// codes, the export and how it passes through RGB.
#ifndef PAX_CONVERSION_TABLE_H
#define PAX_CONVERSION_TABLE_H

#include "paximage.h"

namespace pax {

using ToThree = BYTE *(PAXCALL *)(BYTE *dst, const BYTE *src);
using ToCMYK = CMYKQUAD(PAXCALL *)(const BYTE *src);
struct Conversion {
    ToThree toThree;
    ToCMYK toCmyk;
}; // exactly one is non-null for a valid pair

// The export for an ordered pair of model codes 1..9 (MODEL_RGB..MODEL_LAB),
// from != to; {nullptr, nullptr} otherwise.
Conversion FindConversion(int fromModel, int toModel);

// How a conversion carries its RGB intermediate.
enum class Path {
    Base,    // a conversion to or from RGB, with its own formula
    Bytes,   // the source's conversion to RGB bytes, then the target's from RGB
    Doubles, // RGB as doubles limited to 0..1, only the target rounds to bytes
    Integer, // CMY or CMYK source: integer complement, then the target's from RGB
};

struct ConversionEntry {
    int fromModel;
    int toModel;
    Path path;
    const char *name;
    Conversion fn;
};

constexpr int kConversionCount = 72;
// Every conversion, in table order (by source row, then target column).
extern const ConversionEntry kConversions[kConversionCount];

// Bytes of a source value of the model: 4 for CMYK, 3 for the others.
constexpr int SourceBytes(int model) { return model == MODEL_CMYK ? 4 : 3; }

} // namespace pax

#endif
