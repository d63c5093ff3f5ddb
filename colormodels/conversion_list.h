// The table of the 72 single-value conversions, one X(from, to, path) per
// ordered pair of models, with the path that carries the RGB intermediate:
//   BASE  conversion to or from RGB, written out in its model's file
//   B     through RGB bytes: the two exports called one after the other
//   D     through RGB doubles limited to 0..1; only the target rounds
//   I     CMY or CMYK source: integer RGB, then the target's from-RGB
// It yields the exports, the lookup table and the enumerations of the tests
// and tools.
#ifndef PAX_CONVERSION_LIST_H
#define PAX_CONVERSION_LIST_H

// X(from, to, path), rows by source model, columns by target model.
#define PAX_CONVERSIONS(X)                                                                    \
    X(RGB, CMY, BASE) X(RGB, CMYK, BASE) X(RGB, HSV, BASE) X(RGB, HSI, BASE)                \
    X(RGB, YIQ, BASE) X(RGB, YUV, BASE) X(RGB, XYZ, BASE) X(RGB, LAB, BASE)                 \
    X(CMY, RGB, BASE) X(CMY, CMYK, I) X(CMY, HSV, I) X(CMY, HSI, I)                         \
    X(CMY, YIQ, I) X(CMY, YUV, I) X(CMY, XYZ, I) X(CMY, LAB, I)                             \
    X(CMYK, RGB, BASE) X(CMYK, CMY, I) X(CMYK, HSV, I) X(CMYK, HSI, I)                      \
    X(CMYK, YIQ, I) X(CMYK, YUV, I) X(CMYK, XYZ, I) X(CMYK, LAB, I)                         \
    X(HSV, RGB, BASE) X(HSV, CMY, B) X(HSV, CMYK, B) X(HSV, HSI, B)                         \
    X(HSV, YIQ, B) X(HSV, YUV, B) X(HSV, XYZ, B) X(HSV, LAB, D)                             \
    X(HSI, RGB, BASE) X(HSI, CMY, B) X(HSI, CMYK, B) X(HSI, HSV, B)                         \
    X(HSI, YIQ, D) X(HSI, YUV, D) X(HSI, XYZ, D) X(HSI, LAB, D)                             \
    X(YIQ, RGB, BASE) X(YIQ, CMY, B) X(YIQ, CMYK, B) X(YIQ, HSV, B)                         \
    X(YIQ, HSI, B) X(YIQ, YUV, B) X(YIQ, XYZ, B) X(YIQ, LAB, D)                             \
    X(YUV, RGB, BASE) X(YUV, CMY, B) X(YUV, CMYK, B) X(YUV, HSV, B)                         \
    X(YUV, HSI, B) X(YUV, YIQ, B) X(YUV, XYZ, B) X(YUV, LAB, D)                             \
    X(XYZ, RGB, BASE) X(XYZ, CMY, B) X(XYZ, CMYK, B) X(XYZ, HSV, B)                         \
    X(XYZ, HSI, B) X(XYZ, YIQ, B) X(XYZ, YUV, B) X(XYZ, LAB, D)                             \
    X(LAB, RGB, BASE) X(LAB, CMY, B) X(LAB, CMYK, B) X(LAB, HSV, B)                         \
    X(LAB, HSI, B) X(LAB, YIQ, B) X(LAB, YUV, B) X(LAB, XYZ, B)

// PAX_CONVERSION_FN(to, fn): the pax::Conversion holding fn in the field
// that matches the calling shape of the target model.
#define PAX_CONVERSION_FN(T, fn) PAX_FN_##T(fn)
#define PAX_FN_RGB(fn) pax::Conversion{fn, nullptr}
#define PAX_FN_CMY(fn) pax::Conversion{fn, nullptr}
#define PAX_FN_CMYK(fn) pax::Conversion{nullptr, fn}
#define PAX_FN_HSV(fn) pax::Conversion{fn, nullptr}
#define PAX_FN_HSI(fn) pax::Conversion{fn, nullptr}
#define PAX_FN_YIQ(fn) pax::Conversion{fn, nullptr}
#define PAX_FN_YUV(fn) pax::Conversion{fn, nullptr}
#define PAX_FN_XYZ(fn) pax::Conversion{fn, nullptr}
#define PAX_FN_LAB(fn) pax::Conversion{fn, nullptr}

#endif
