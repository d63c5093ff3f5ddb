// CMY and CMYK against RGB: integer complements, no floating point.
#include "color_math.h"

// C = 255 - R and so on; the same complement goes both ways.
BYTE *PAXCALL RGBtoCMY(BYTE *dst, const BYTE *src) {
    return pax::Store3(dst, static_cast<BYTE>(255 - src[0]), static_cast<BYTE>(255 - src[1]),
                       static_cast<BYTE>(255 - src[2]));
}

BYTE *PAXCALL CMYtoRGB(BYTE *dst, const BYTE *src) { return RGBtoCMY(dst, src); }

// Full grey-component replacement: K is the smallest complement, so one of
// C, M, Y is always 0.
CMYKQUAD PAXCALL RGBtoCMYK(const BYTE *src) {
    const int c = 255 - src[0], m = 255 - src[1], y = 255 - src[2];
    int k = c < m ? c : m;
    if (y < k) k = y;
    CMYKQUAD q;
    q.c = static_cast<BYTE>(c - k);
    q.m = static_cast<BYTE>(m - k);
    q.y = static_cast<BYTE>(y - k);
    q.k = static_cast<BYTE>(k);
    return q;
}

// 255 - K - ink, limited below at 0 (reached only by inks this library never
// produces, where ink + K exceeds 255).
BYTE *PAXCALL CMYKtoRGB(BYTE *dst, const BYTE *src) {
    const int k = src[3];
    auto channel = [k](int ink) { return static_cast<BYTE>(255 - k - ink < 0 ? 0 : 255 - k - ink); };
    return pax::Store3(dst, channel(src[0]), channel(src[1]), channel(src[2]));
}
