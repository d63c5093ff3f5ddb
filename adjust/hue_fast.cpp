// Table and vector forms of the hue-based adjustments' pixel work.
#include "hue_fast.h"
#include "dib.h"
#include "hue_math.h"
#include "reference.h"
#include "simd_dispatch.h"

#include <emmintrin.h>

#include <algorithm>

namespace hueadjust {

namespace {

inline BYTE ClampUnitByte(double v) {
    if (v > 255) return 255;
    if (v < 0) return 0;
    return static_cast<BYTE>(v);
}

inline int Max3(int a, int b, int c) {
    int m = a > b ? a : b;
    return m > c ? m : c;
}
inline int Min3(int a, int b, int c) {
    int m = a < b ? a : b;
    return m < c ? m : c;
}

} // namespace

// The expressions of RGBtoHSI: S = d / (max + min) when the lightness is at
// most 127.5 (max + min <= 255), else d / (510 - (max + min)), times 255;
// H from the sector difference over d, + 2 or + 4, times 60, + 360 when
// negative, times 255 / 360.
HsiForward::HsiForward() : saturation(), hue() {
    for (int d = 1; d < 256; ++d)
        for (int den = d; den < 256; ++den)
            saturation[d * 256 + den] =
                ClampUnitByte(static_cast<double>(d) / static_cast<double>(den) * 255);
    for (int sector = 0; sector < 3; ++sector)
        for (int d = 1; d < 256; ++d)
            for (int diff = -d; diff <= d; ++diff) {
                double h = static_cast<double>(diff) / d + 2 * sector;
                h = h * 60;
                if (h < 0) h = h + 360;
                hue[sector][d * d + diff + d] = ClampUnitByte(h * 255 / 360);
            }
}

void HsiForward::Convert(int r, int g, int b, BYTE hsi[3]) const { ConvertInline(r, g, b, hsi); }

// Without branches: a grey (d = 0) finds 0 in both tables, the hue of
// every grey and its saturation; the sector is chosen red first, then green.
inline void HsiForward::ConvertInline(int r, int g, int b, BYTE hsi[3]) const {
    const int max = Max3(r, g, b), min = Min3(r, g, b);
    const int sum = max + min, d = max - min;
    hsi[2] = static_cast<BYTE>(sum >> 1);
    hsi[1] = saturation[d * 256 + (sum <= 255 ? sum : 510 - sum)];
    const int sector = r == max ? 0 : g == max ? 1 : 2;
    const int diff = r == max ? g - b : g == max ? b - r : r - g;
    hsi[0] = hue[sector][d * d + d + diff];
}

// HueRamp's corrections and regions for x = h + 120, h and h - 120, with
// h = H x 360 / 255.
HsiBack::HsiBack() : unit(), region(), ramp() {
    for (int v = 0; v < 256; ++v) unit[v] = v / 255.0;
    for (int hb = 0; hb < 256; ++hb) {
        const double h = hb * 360.0 / 255.0;
        const double xs[3] = {h + 120, h, h - 120};
        for (int ch = 0; ch < 3; ++ch) {
            double x = xs[ch];
            if (x > 360)
                x = x - 360;
            else if (x < 0)
                x = x + 360;
            if (x < 60) {
                region[hb][ch] = Rising;
                ramp[hb][ch] = x;
            } else if (x < 180) {
                region[hb][ch] = High;
            } else if (x < 240) {
                region[hb][ch] = Falling;
                ramp[hb][ch] = 240 - x;
            } else {
                region[hb][ch] = Low;
            }
        }
    }
}

void HsiBack::Convert(int h, int s, int i, BYTE rgb[3]) const { ConvertInline(h, s, i, rgb); }

const HsiForward &ForwardTables() {
    static const HsiForward *tables = new HsiForward(); // kept for the process
    return *tables;
}

const HsiBack &BackTables() {
    static const HsiBack tables;
    return tables;
}

void HueMoveRun::Prepare() {
    for (int v = 0; v < 256; ++v) {
        movedHue[v] = static_cast<int16_t>(selectByHue && !HueInRange(v, lo, hi)
                                               ? -1
                                               : WrapHue(static_cast<int64_t>(v) + shift));
        movedSaturation[v] = ClampToByteRange(static_cast<int64_t>(v) + saturation);
        movedLightness[v] = ClampToByteRange(static_cast<int64_t>(v) + lightness);
    }
}

void HueMoveRun::Run(const BYTE *in, BYTE *out, int64_t count) const {
    if (reference) {
        for (int64_t x = 0; x < count; ++x, in += 3, out += 3) {
            BYTE rgb[3], hsi[3], moved[3];
            GetPixel3(in, rgb);
            RGBtoHSI(hsi, rgb);
            if (selectByHue ? !HueInRange(hsi[0], lo, hi)
                            : !(rgb[2] >= blueLo && rgb[2] <= blueHi && rgb[1] >= greenLo &&
                                rgb[1] <= greenHi && rgb[0] >= redLo && rgb[0] <= redHi))
                continue;
            MoveHsi(hsi, shift, saturation, lightness, moved);
            PutPixel3(out, moved);
        }
        return;
    }
    const HsiForward &forward = ForwardTables();
    const HsiBack &back = BackTables();
    for (int64_t x = 0; x < count; ++x, in += 3, out += 3) {
        const int b = in[0], g = in[1], r = in[2];
        // A pixel left alone is copied: the result holds no copy of it yet.
        if (!selectByHue && !(b >= blueLo && b <= blueHi && g >= greenLo && g <= greenHi &&
                              r >= redLo && r <= redHi)) {
            out[0] = in[0], out[1] = in[1], out[2] = in[2];
            continue; // the box is tested before the conversion it does not need
        }
        BYTE hsi[3];
        forward.ConvertInline(r, g, b, hsi);
        const int hue = movedHue[hsi[0]];
        if (hue < 0) {
            out[0] = in[0], out[1] = in[1], out[2] = in[2];
            continue;
        }
        BYTE rgb[3];
        back.ConvertInline(hue, movedSaturation[hsi[1]], movedLightness[hsi[2]], rgb);
        out[0] = rgb[2];
        out[1] = rgb[1];
        out[2] = rgb[0];
    }
}

DesaturateRun::DesaturateRun() : reference(UseReferencePaths()), table(), identity(true) {
    for (int i = 0; i < 256; ++i)
        for (int k = 0; k < 3; ++k) identity = identity && table.grey[i][k] == i;
}

namespace {

// Byte i of the 48-byte stream a|b|c takes byte i + k (k = 1 or 2); bytes
// beyond the end become 0.
template <int K> inline void Ahead(__m128i a, __m128i b, __m128i c, __m128i out[3]) {
    out[0] = _mm_or_si128(_mm_srli_si128(a, K), _mm_slli_si128(b, 16 - K));
    out[1] = _mm_or_si128(_mm_srli_si128(b, K), _mm_slli_si128(c, 16 - K));
    out[2] = _mm_srli_si128(c, K);
}
// Byte i takes byte i - K.
template <int K> inline void Behind(__m128i a, __m128i b, __m128i c, __m128i out[3]) {
    out[0] = _mm_slli_si128(a, K);
    out[1] = _mm_or_si128(_mm_slli_si128(b, K), _mm_srli_si128(a, 16 - K));
    out[2] = _mm_or_si128(_mm_slli_si128(c, K), _mm_srli_si128(b, 16 - K));
}

// 16 pixels: at each pixel's first byte, the max and min of its three bytes
// and their truncated mean; then that byte copied to the pixel's other two.
inline void Desaturate16(const BYTE *in, BYTE *out) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 16));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 32));
    __m128i one[3], two[3];
    Ahead<1>(a, b, c, one);
    Ahead<2>(a, b, c, two);
    const __m128i v[3] = {a, b, c};
    // Pixel starts: bytes 0, 3, .. 45 of the 48.
    const __m128i starts[3] = {
        _mm_setr_epi8(-1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1),
        _mm_setr_epi8(0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0),
        _mm_setr_epi8(0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0)};
    __m128i grey[3];
    for (int k = 0; k < 3; ++k) {
        const __m128i hi = _mm_max_epu8(v[k], _mm_max_epu8(one[k], two[k]));
        const __m128i lo = _mm_min_epu8(v[k], _mm_min_epu8(one[k], two[k]));
        // (hi + lo) >> 1: the rounded-up mean less the carry of the odd sum.
        const __m128i mean = _mm_sub_epi8(_mm_avg_epu8(hi, lo),
                                          _mm_and_si128(_mm_xor_si128(hi, lo), _mm_set1_epi8(1)));
        grey[k] = _mm_and_si128(mean, starts[k]);
    }
    __m128i b1[3], b2[3];
    Behind<1>(grey[0], grey[1], grey[2], b1);
    Behind<2>(grey[0], grey[1], grey[2], b2);
    for (int k = 0; k < 3; ++k)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 16 * k),
                         _mm_or_si128(grey[k], _mm_or_si128(b1[k], b2[k])));
}

} // namespace

void DesaturateRun::Run(const BYTE *in, BYTE *out, int64_t count) const {
    int64_t x = 0;
    if (!reference && identity)
        for (; x + 16 <= count; x += 16, in += 48, out += 48) Desaturate16(in, out);
    for (; x < count; ++x, in += 3, out += 3) {
        BYTE rgb[3], grey[3];
        GetPixel3(in, rgb);
        if (reference)
            DesaturatePixel(rgb, grey);
        else
            DesaturatePixelFast(table, rgb, grey);
        PutPixel3(out, grey);
    }
}

bool FindCmykForm(const BYTE scaled[4][256], CmykIntegerForm *form) {
    for (int k = 0; k < 4; ++k) {
        bool found = false;
        // The largest shift first. Each ink v bounds the multiplier: below by
        // T(v) x 2^s / v, and, unless T(v) is the limit 255, above by
        // (T(v) + 1) x 2^s / v. The smallest admissible one is then checked
        // over every ink.
        for (int s = 16; s >= 8 && !found; --s) {
            int64_t lo = 0, hi = 0xFFFF;
            for (int v = 1; v < 256; ++v) {
                const int64_t t = scaled[k][v];
                lo = std::max(lo, ((t << s) + v - 1) / v);
                if (t < 255) hi = std::min(hi, (((t + 1) << s) - 1) / v);
            }
            if (lo > hi) continue;
            bool same = scaled[k][0] == 0;
            for (int v = 1; v < 256 && same; ++v) {
                const int64_t t = (v * lo) >> s;
                same = (t > 255 ? 255 : t) == scaled[k][v];
            }
            if (same) {
                form->multiplier[k] = static_cast<uint16_t>(lo);
                form->shift[k] = s;
                found = true;
            }
        }
        if (!found) return false;
    }
    return true;
}

CmykLevelsRun::CmykLevelsRun(const double f[4])
    : reference(UseReferencePaths()), factors(), scaled(), vector(false), form() {
    for (int k = 0; k < 4; ++k) {
        factors[k] = f[k];
        for (int v = 0; v < 256; ++v) scaled[k][v] = ScaleInk(static_cast<BYTE>(v), f[k]);
    }
    vector = CpuHasAvx2() && FindCmykForm(scaled, &form);
}

void CmykLevelsRun::Run(const BYTE *in, BYTE *out, int64_t count) const {
    if (reference) {
        for (int64_t x = 0; x < count; ++x, in += 3, out += 3) {
            BYTE rgb[3], back[3];
            GetPixel3(in, rgb);
            CMYKQUAD ink = RGBtoCMYK(rgb);
            BYTE moved[4] = {ScaleInk(ink.c, factors[0]), ScaleInk(ink.m, factors[1]),
                             ScaleInk(ink.y, factors[2]), ScaleInk(ink.k, factors[3])};
            CMYKtoRGB(back, moved);
            PutPixel3(out, back);
        }
        return;
    }
    // With K = 255 - max, each ink is max - channel; each channel comes back
    // as 255 - K' - ink', limited below at 0. Stored bytes are blue (yellow
    // ink), green (magenta), red (cyan).
    const BYTE *cyan = scaled[0], *magenta = scaled[1], *yellow = scaled[2], *black = scaled[3];
    if (vector) {
        const int64_t done = CmykLevelsAvx2(in, out, count, form);
        in += 3 * done, out += 3 * done, count -= done;
    }
    for (int64_t x = 0; x < count; ++x, in += 3, out += 3) {
        const int b = in[0], g = in[1], r = in[2];
        const int max = Max3(r, g, b);
        const int white = 255 - black[255 - max];
        const int ob = white - yellow[max - b], og = white - magenta[max - g], orr = white - cyan[max - r];
        out[0] = static_cast<BYTE>(ob < 0 ? 0 : ob);
        out[1] = static_cast<BYTE>(og < 0 ? 0 : og);
        out[2] = static_cast<BYTE>(orr < 0 ? 0 : orr);
    }
}

} // namespace hueadjust
