// Table and vector forms of the hue-based adjustments' pixel work.
#include "hue_fast.h"
#include "dib.h"
#include "hue_math.h"
#include "hue_sector_sse2.h"
#include "reference.h"
#include "simd_dispatch.h"
#include "simd_select.h"

#include <emmintrin.h>
#if PAX_HAVE_AVX2_BUILD
#include <immintrin.h>
#endif

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

const HsiForward &ForwardTables() {
    static const HsiForward *tables = new HsiForward(); // kept for the process
    return *tables;
}

const HsiBack &BackTables() { return pax::HsiBackTablesOnce(); }

namespace {

constexpr int kMoveBlock = 256;

// The indices of a pixel's HSI in the tables of HsiForward, as
// ConvertInline forms them, without branches: the sector by masks (red
// first, then green), the saturation's denominator as min(sum, 510 - sum).
inline void HsiIndices(const BYTE *p, int32_t *hueAt, int32_t *satAt, int32_t *lightOf) {
    const int b = p[0], g = p[1], r = p[2];
    const int max = Max3(r, g, b), min = Min3(r, g, b);
    const int sum = max + min, d = max - min;
    const int isR = -(r == max), isG = ~isR & -(g == max), isB = ~(isR | isG);
    const int diff = ((g - b) & isR) | ((b - r) & isG) | ((r - g) & isB);
    *hueAt = ((65536 & isG) | (131072 & isB)) + d * d + d + diff;
    *satAt = d * 256 + std::min(sum, 510 - sum);
    *lightOf = sum >> 1;
}

// The same for 8 pixels at a time on 16-bit lanes with SSE2: every index
// lies in 0..65535 (the hue's without its sector), so the products and sums
// modulo 2^16 are the indices; the sector joins as the upper 16 bits.
int HsiIndicesSse2(const BYTE *in, int block, int32_t *hueAt, int32_t *satAt, int32_t *lightOf) {
    const __m128i zero = _mm_setzero_si128();
    int x = 0;
    for (; x + 8 <= block; x += 8) {
        const BYTE *p = in + 3 * x;
        const __m128i b = _mm_setr_epi16(p[0], p[3], p[6], p[9], p[12], p[15], p[18], p[21]);
        const __m128i g = _mm_setr_epi16(p[1], p[4], p[7], p[10], p[13], p[16], p[19], p[22]);
        const __m128i r = _mm_setr_epi16(p[2], p[5], p[8], p[11], p[14], p[17], p[20], p[23]);
        const __m128i max = _mm_max_epi16(_mm_max_epi16(r, g), b);
        const __m128i min = _mm_min_epi16(_mm_min_epi16(r, g), b);
        const __m128i sum = _mm_add_epi16(max, min), d = _mm_sub_epi16(max, min);
        const __m128i den = _mm_min_epi16(sum, _mm_sub_epi16(_mm_set1_epi16(510), sum));
        const pax::HueSectorSse2 hs = pax::HueSectorOf(r, g, b, max);
        const __m128i isG = hs.isG, isB = hs.isB, diff = hs.diff;
        const __m128i sector = _mm_or_si128(_mm_and_si128(isG, _mm_set1_epi16(1)),
                                            _mm_and_si128(isB, _mm_set1_epi16(2)));
        const __m128i at = _mm_add_epi16(_mm_mullo_epi16(d, d), _mm_add_epi16(d, diff));
        const __m128i sat = _mm_or_si128(_mm_slli_epi16(d, 8), den), light = _mm_srli_epi16(sum, 1);
        __m128i *hueOut = reinterpret_cast<__m128i *>(hueAt + x);
        __m128i *satOut = reinterpret_cast<__m128i *>(satAt + x);
        __m128i *lightOut = reinterpret_cast<__m128i *>(lightOf + x);
        _mm_storeu_si128(hueOut, _mm_unpacklo_epi16(at, sector));
        _mm_storeu_si128(hueOut + 1, _mm_unpackhi_epi16(at, sector));
        _mm_storeu_si128(satOut, _mm_unpacklo_epi16(sat, zero));
        _mm_storeu_si128(satOut + 1, _mm_unpackhi_epi16(sat, zero));
        _mm_storeu_si128(lightOut, _mm_unpacklo_epi16(light, zero));
        _mm_storeu_si128(lightOut + 1, _mm_unpackhi_epi16(light, zero));
    }
    return x;
}

#if PAX_HAVE_AVX2_BUILD
// The same for 8 pixels at a time, while 32 bytes can be read within the
// run of `readable` pixels; returns the pixels done.
PAX_AVX2 int HsiIndicesAvx2(const BYTE *in, int block, int64_t readable, int32_t *hueAt,
                            int32_t *satAt, int32_t *lightOf) {
    // Pixels 0..3 to the low lane, 4..7 to the high one, then each channel's
    // bytes to the 32-bit lanes.
    const __m256i spread = _mm256_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5);
    const __m256i blue = _mm256_setr_epi8(0, -1, -1, -1, 3, -1, -1, -1, 6, -1, -1, -1, 9, -1, -1, -1,
                                          0, -1, -1, -1, 3, -1, -1, -1, 6, -1, -1, -1, 9, -1, -1, -1);
    const __m256i green = _mm256_add_epi8(blue, _mm256_set1_epi32(1));
    const __m256i red = _mm256_add_epi8(blue, _mm256_set1_epi32(2));
    const __m256i ones = _mm256_set1_epi32(-1);
    int x = 0;
    for (; x + 8 <= block && x + 11 <= readable; x += 8) {
        const __m256i raw = _mm256_permutevar8x32_epi32(
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + 3 * x)), spread);
        const __m256i b = _mm256_shuffle_epi8(raw, blue), g = _mm256_shuffle_epi8(raw, green),
                      r = _mm256_shuffle_epi8(raw, red);
        const __m256i max = _mm256_max_epi32(_mm256_max_epi32(r, g), b);
        const __m256i min = _mm256_min_epi32(_mm256_min_epi32(r, g), b);
        const __m256i sum = _mm256_add_epi32(max, min), d = _mm256_sub_epi32(max, min);
        const __m256i den = _mm256_min_epi32(sum, _mm256_sub_epi32(_mm256_set1_epi32(510), sum));
        const __m256i isR = _mm256_cmpeq_epi32(r, max);
        const __m256i isG = _mm256_andnot_si256(isR, _mm256_cmpeq_epi32(g, max));
        const __m256i isB = _mm256_andnot_si256(_mm256_or_si256(isR, isG), ones);
        const __m256i diff = _mm256_or_si256(
            _mm256_and_si256(_mm256_sub_epi32(g, b), isR),
            _mm256_or_si256(_mm256_and_si256(_mm256_sub_epi32(b, r), isG),
                            _mm256_and_si256(_mm256_sub_epi32(r, g), isB)));
        const __m256i sector = _mm256_or_si256(_mm256_and_si256(isG, _mm256_set1_epi32(65536)),
                                               _mm256_and_si256(isB, _mm256_set1_epi32(131072)));
        const __m256i at = _mm256_add_epi32(
            _mm256_add_epi32(sector, _mm256_mullo_epi32(d, d)), _mm256_add_epi32(d, diff));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(hueAt + x), at);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(satAt + x),
                            _mm256_add_epi32(_mm256_slli_epi32(d, 8), den));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(lightOf + x), _mm256_srli_epi32(sum, 1));
    }
    return x;
}

// B | G << 8 | R << 16 of n pixels to 3 bytes each, 4 pixels a step with
// 16-byte stores (the 4 bytes beyond each are written again by the next);
// returns the pixels done, the last ones left to the caller.
PAX_AVX2 int PackAvx2(const uint32_t *bgr, int n, BYTE *out) {
    const __m128i squeeze = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    int k = 0;
    for (; k + 8 <= n; k += 4)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 3 * k),
                         _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(bgr + k)), squeeze));
    return k;
}
#else
inline int HsiIndicesAvx2(const BYTE *, int, int64_t, int32_t *, int32_t *, int32_t *) { return 0; }
inline int PackAvx2(const uint32_t *, int, BYTE *) { return 0; }
#endif

} // namespace

void HueMoveRun::Prepare() {
    avx2 = pax::HsiToBgrAvx2() != nullptr;
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
    // Per block: the table indices of each pixel's HSI, without branches,
    // eight pixels at a time (AVX2 or SSE2); the moved (H, S, I) of the
    // selected pixels gathered into planes (the others copied); the way back
    // of all of them at once, four or two in vector registers; then their
    // bytes put in place.
    const HsiForward &forward = ForwardTables();
    const BYTE *hueTable = forward.hue[0];
    const bool vector = avx2;
    const pax::HsiToBgrKernel back = vector ? pax::HsiToBgrAvx2() : pax::HsiToBgrSse2();
    int32_t hueAt[kMoveBlock], satAt[kMoveBlock], lightOf[kMoveBlock], at[kMoveBlock];
    alignas(16) BYTE hue[kMoveBlock + 4], sat[kMoveBlock + 4], light[kMoveBlock + 4];
    alignas(16) uint32_t bgr[kMoveBlock + 4];
    while (count > 0) {
        const int block = static_cast<int>(std::min<int64_t>(count, kMoveBlock));
        int n = 0;
        if (!vector && !selectByHue) {
            // Without AVX2 the colour box is tested before the conversion it
            // may not need, which is then made pixel by pixel (the box leaves
            // every hue in range).
            for (int x = 0; x < block; ++x) {
                const BYTE *p = in + 3 * x;
                const int b = p[0], g = p[1], r = p[2];
                if (b >= blueLo && b <= blueHi && g >= greenLo && g <= greenHi && r >= redLo && r <= redHi) {
                    BYTE hsi[3];
                    forward.ConvertInline(r, g, b, hsi);
                    hue[n] = static_cast<BYTE>(movedHue[hsi[0]]);
                    sat[n] = movedSaturation[hsi[1]];
                    light[n] = movedLightness[hsi[2]];
                    at[n++] = 3 * x;
                } else {
                    BYTE *q = out + 3 * x;
                    q[0] = p[0], q[1] = p[1], q[2] = p[2];
                }
            }
        } else {
            int x = vector ? HsiIndicesAvx2(in, block, count, hueAt, satAt, lightOf)
                           : HsiIndicesSse2(in, block, hueAt, satAt, lightOf);
            for (; x < block; ++x) HsiIndices(in + 3 * x, &hueAt[x], &satAt[x], &lightOf[x]);
            for (x = 0; x < block; ++x) {
                const BYTE *p = in + 3 * x;
                const int b = p[0], g = p[1], r = p[2];
                if (selectByHue || (b >= blueLo && b <= blueHi && g >= greenLo && g <= greenHi &&
                                    r >= redLo && r <= redHi)) {
                    const int moved = movedHue[hueTable[hueAt[x]]];
                    if (moved >= 0) {
                        hue[n] = static_cast<BYTE>(moved);
                        sat[n] = movedSaturation[forward.saturation[satAt[x]]];
                        light[n] = movedLightness[lightOf[x]];
                        at[n++] = 3 * x;
                        continue;
                    }
                }
                // A pixel left alone is copied: the result holds no copy of it yet.
                BYTE *q = out + 3 * x;
                q[0] = p[0], q[1] = p[1], q[2] = p[2];
            }
        }
        for (int k = n; k < n + 4; ++k) hue[k] = sat[k] = light[k] = 0;
        back(hue, sat, light, bgr, n);
        int k = vector && n == block ? PackAvx2(bgr, n, out) : 0;
        for (; k < n; ++k) {
            BYTE *q = out + at[k];
            const uint32_t v = bgr[k];
            q[0] = static_cast<BYTE>(v), q[1] = static_cast<BYTE>(v >> 8), q[2] = static_cast<BYTE>(v >> 16);
        }
        in += 3 * block, out += 3 * block, count -= block;
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
