// Shared pieces of the hue-based adjustment tests: straightforward reference
// pixels, whole-image comparison, the four operations behind one signature,
// and the progress-dialog arrangements of each platform.
#ifndef PAX_TESTS_ADJUST_HUE_TEST_UTIL_H
#define PAX_TESTS_ADJUST_HUE_TEST_UTIL_H

#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace huetest {

using paxtest::Rgb;

// ---- Reference pixels, evaluated as the operations describe them ----------

inline int Units(double degrees) { return static_cast<int>(degrees / 360.0 * 255.0); }

inline BYTE Limit(long long v) { return static_cast<BYTE>(v < 0 ? 0 : v > 255 ? 255 : v); }

inline std::array<BYTE, 3> Hsi(Rgb p) {
    BYTE src[3] = {p.r, p.g, p.b};
    std::array<BYTE, 3> hsi{};
    RGBtoHSI(hsi.data(), src);
    return hsi;
}

// Hue wrap, one correction; beyond -255..510 the correction is repeated.
inline int Wrap(long long h) {
    while (h < 0) h += 255;
    while (h > 255) h -= 255;
    return static_cast<int>(h);
}

inline Rgb Move(std::array<BYTE, 3> hsi, long long shift, long long sat, long long light) {
    BYTE moved[3] = {static_cast<BYTE>(Wrap(hsi[0] + shift)), Limit(hsi[1] + sat),
                     Limit(hsi[2] + light)};
    BYTE out[3];
    HSItoRGB(out, moved);
    return Rgb{out[0], out[1], out[2]};
}

// The hue-saturation pixel with values already in hue units.
inline Rgb RefHueSaturationUnits(Rgb p, long long shift, long long sat, long long light, int lo,
                                 int hi) {
    auto hsi = Hsi(p);
    int h = hsi[0];
    bool selected = lo <= hi ? (lo <= h && h <= hi) : (h >= lo || h <= hi);
    return selected ? Move(hsi, shift, sat, light) : p;
}

inline Rgb RefHueSaturation(Rgb p, int hue, int sat, int light, unsigned from, unsigned to) {
    int lo = 0, hi = 255;
    if (from || to) {
        lo = Units(from);
        hi = Units(to);
    }
    return RefHueSaturationUnits(p, Units(hue), sat, light, lo, hi);
}

inline Rgb RefDesaturate(Rgb p) {
    auto hsi = Hsi(p);
    hsi[1] = 0;
    BYTE out[3];
    HSItoRGB(out, hsi.data());
    return Rgb{out[0], out[1], out[2]};
}

// target: blue, green, red; tolerance: red, green, blue.
inline Rgb RefReplaceUnits(Rgb p, const BYTE target[3], const BYTE tolerance[3], long long shift,
                           long long sat, long long light) {
    bool match = p.b >= target[0] - tolerance[2] && p.b <= target[0] + tolerance[2] &&
                 p.g >= target[1] - tolerance[1] && p.g <= target[1] + tolerance[1] &&
                 p.r >= target[2] - tolerance[0] && p.r <= target[2] + tolerance[0];
    return match ? Move(Hsi(p), shift, sat, light) : p;
}

inline double Factor(int level) { return level >= 0 ? level / 100.0 + 1.0 : (level + 100) / 100.0; }

inline BYTE Ink(BYTE ink, double factor) {
    double v = ink * factor;
    if (v != v || v <= -2147483648.0) return 0;
    if (v >= 2147483647.0) return 255;
    int32_t t = static_cast<int32_t>(v);
    return static_cast<BYTE>(t < 0 ? 0 : t > 255 ? 255 : t);
}

inline Rgb RefCmykFactors(Rgb p, const double f[4]) {
    int c = 255 - p.r, m = 255 - p.g, y = 255 - p.b;
    int k = std::min({c, m, y});
    int inks[4] = {Ink(static_cast<BYTE>(c - k), f[0]), Ink(static_cast<BYTE>(m - k), f[1]),
                   Ink(static_cast<BYTE>(y - k), f[2]), Ink(static_cast<BYTE>(k), f[3])};
    auto ch = [&](int ink) { return static_cast<BYTE>(std::max(0, 255 - inks[3] - ink)); };
    return Rgb{ch(inks[0]), ch(inks[1]), ch(inks[2])};
}

inline Rgb RefCmyk(Rgb p, int c, int m, int y, int k) {
    double f[4] = {Factor(c), Factor(m), Factor(y), Factor(k)};
    return RefCmykFactors(p, f);
}

// ---- Images ---------------------------------------------------------------

// Expects result to be the source with every pixel replaced by expect(pixel):
// same size, same header and padding, pixels as given. Also unlocked.
inline void ExpectImage(HGLOBAL source, HGLOBAL result, const std::function<Rgb(Rgb)> &expect) {
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(paxtest::LockCount(result), 0);
    std::vector<BYTE> in = paxtest::BlockBytes(source), out = paxtest::BlockBytes(result);
    ASSERT_EQ(in.size(), out.size());
    BITMAPINFOHEADER h = paxtest::HeaderOf(source);
    int64_t stride = ((h.biWidth * 3 + 3) / 4) * 4;
    std::vector<BYTE> want = in;
    for (int y = 0; y < h.biHeight; ++y)
        for (int x = 0; x < h.biWidth; ++x) {
            size_t at = 40 + static_cast<size_t>((h.biHeight - 1 - y) * stride + 3 * x);
            Rgb e = expect(Rgb{in[at + 2], in[at + 1], in[at]});
            want[at] = e.b;
            want[at + 1] = e.g;
            want[at + 2] = e.r;
        }
    size_t differing = 0, first = 0;
    for (size_t i = 0; i < want.size(); ++i)
        if (want[i] != out[i] && differing++ == 0) first = i;
    EXPECT_EQ(differing, 0u) << "first difference at byte " << first << ": " << int(out[first])
                             << " instead of " << int(want[first]) << " (source "
                             << int(in[first]) << ")";
}

inline HGLOBAL Solid(Rgb c, int w = 1, int h = 1) {
    return paxtest::MakeDib24(w, h, [c](int, int) { return c; });
}

// A layout-revealing image: odd width, padding bytes set, every colour
// different.
inline HGLOBAL Random(int w, int h, uint32_t seed) {
    paxtest::Rng rng(seed);
    std::vector<Rgb> px(static_cast<size_t>(w) * h);
    for (auto &c : px) c = Rgb{rng.Byte(), rng.Byte(), rng.Byte()};
    return paxtest::MakeDib24(
        w, h, [&](int x, int y) { return px[static_cast<size_t>(y) * w + x]; }, 0xA5);
}

// ---- The operations behind one signature ---------------------------------

struct Operation {
    const char *name;
    int entry; // DialogDoubleEntry of its dialog
    std::function<HDIB(HDIB image, int mode, HWND owner)> run;
    std::function<Rgb(Rgb)> expect; // what run does to a pixel without a dialog
};

std::vector<Operation> Operations();

inline std::string OperationName(const testing::TestParamInfo<int> &info) {
    return Operations()[static_cast<size_t>(info.param)].name;
}

inline DWORD LastError() { return GetLastColorConvertError(); }

} // namespace huetest

#endif
