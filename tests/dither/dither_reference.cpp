#include "dither_reference.h"

#include "dib_builder.h"

#include <cstring>

namespace ref {

const std::vector<Kernel> &Kernels() {
    static const std::vector<Kernel> kernels = {
        {"FS4", DitherFS4, 2, 16, {{1, 0, 7}, {-1, 1, 3}, {0, 1, 5}, {1, 1, 1}}, IMS_BADPARAM,
         IMS_LOCKFAILED},
        {"Burkes",
         DitherBurkes,
         2,
         32,
         {{1, 0, 8}, {2, 0, 4}, {-2, 1, 4}, {-1, 1, 2}, {0, 1, 8}, {1, 1, 4}, {2, 1, 2}},
         IMS_BADPARAM,
         IMS_LOCKFAILED},
        {"Sierra", DitherSierra, 2, 4, {{1, 0, 2}, {-1, 1, 1}, {0, 1, 1}}, IMS_BADPARAM,
         IMS_LOCKFAILED},
        {"JJN",
         DitherJJN,
         3,
         48,
         {{1, 0, 7}, {2, 0, 5}, {-2, 1, 3}, {-1, 1, 5}, {0, 1, 7}, {1, 1, 5}, {2, 1, 3},
          {-2, 2, 1}, {-1, 2, 3}, {0, 2, 5}, {1, 2, 3}, {2, 2, 1}},
         IMS_LOCKFAILED,
         IMS_NOMEMORY},
        {"Stucki",
         DitherStucki,
         3,
         42,
         {{1, 0, 8}, {2, 0, 4}, {-2, 1, 2}, {-1, 1, 4}, {0, 1, 8}, {1, 1, 4}, {2, 1, 2},
          {-2, 2, 1}, {-1, 2, 2}, {0, 2, 4}, {1, 2, 2}, {2, 2, 1}},
         IMS_LOCKFAILED,
         IMS_NOMEMORY},
        {"SA",
         DitherSA,
         4,
         200,
         {{2, 0, 32}, {-3, 1, 12}, {-1, 1, 26}, {1, 1, 30}, {3, 1, 16}, {-2, 2, 12}, {0, 2, 26},
          {2, 2, 12}, {-3, 3, 5}, {-1, 3, 12}, {1, 3, 12}, {3, 3, 5}},
         IMS_LOCKFAILED,
         IMS_NOMEMORY},
    };
    return kernels;
}

Source Decode(HGLOBAL image) {
    std::vector<BYTE> b = paxtest::BlockBytes(image);
    BITMAPINFOHEADER h;
    std::memcpy(&h, b.data(), sizeof h);
    Source s;
    s.width = h.biWidth;
    s.rows = h.biHeight < 0 ? -static_cast<int64_t>(h.biHeight) : h.biHeight;
    s.heightField = h.biHeight;
    s.xPelsPerMeter = h.biXPelsPerMeter;
    s.yPelsPerMeter = h.biYPelsPerMeter;
    int depth = h.biBitCount;
    int64_t entries = h.biClrUsed ? h.biClrUsed : (depth <= 8 ? (1 << depth) : 0);
    int64_t stride = ((s.width * depth + 31) / 32) * 4;
    const BYTE *pixels = b.data() + 40 + 4 * entries;
    auto colour = [&](int index) -> std::array<int, 3> {
        if (index >= entries) return {0, 0, 0};
        const BYTE *e = b.data() + 40 + 4 * index;
        return {e[2], e[1], e[0]};
    };
    for (int64_t r = 0; r < s.rows; ++r) {
        const BYTE *row = pixels + r * stride;
        std::vector<std::array<int, 3>> out;
        for (int64_t x = 0; x < s.width; ++x) {
            if (depth == 24)
                out.push_back({row[3 * x + 2], row[3 * x + 1], row[3 * x]});
            else if (depth == 8)
                out.push_back(colour(row[x]));
            else
                out.push_back(colour(x % 2 ? row[x / 2] % 16 : row[x / 2] / 16));
        }
        s.rgb.push_back(out);
    }
    return s;
}

namespace {

int Wrap16(int v) {
    v &= 0xFFFF;
    return v >= 32768 ? v - 65536 : v;
}

// Truncation toward zero, written out.
int DivTrunc(int a, int b) {
    int q = (a < 0 ? -a : a) / b;
    return a < 0 ? -q : q;
}

int Grey(const std::array<int, 3> &c) {
    int g = (30 * c[0] + 59 * c[1] + 11 * c[2]) / 100;
    return g > 255 ? 255 : g;
}

int64_t RowBytes(int64_t w, int bits) { return ((w * bits + 31) / 32) * 4; }

void PutBit(std::vector<BYTE> &out, size_t rowStart, int64_t x) {
    out[rowStart + x / 8] |= static_cast<BYTE>(0x80 >> (x % 8));
}

// Bits per channel: [channel][row][x].
using BitPlanes = std::vector<std::vector<std::vector<int>>>;

std::vector<BYTE> Assemble(const Source &src, int bits, const BitPlanes &planes,
                           const std::vector<std::vector<int>> &bytes8) {
    std::vector<BYTE> out = ResultHeaderAndTable(src, bits);
    size_t base = out.size();
    int64_t s = RowBytes(src.width, bits);
    out.resize(base + s * src.rows, 0);
    for (int64_t r = 0; r < src.rows; ++r) {
        size_t rowStart = base + r * s;
        for (int64_t x = 0; x < src.width; ++x) {
            if (bits == 1) {
                if (planes[0][r][x]) PutBit(out, rowStart, x);
            } else if (bits == 4) {
                int index = 8 * planes[0][r][x] + 4 * planes[1][r][x] + 2 * planes[2][r][x];
                out[rowStart + x / 2] |= static_cast<BYTE>(x % 2 ? index : index << 4);
            } else {
                out[rowStart + x] = static_cast<BYTE>(bytes8[r][x]);
            }
        }
    }
    return out;
}

} // namespace

std::vector<BYTE> ResultHeaderAndTable(const Source &src, int bits) {
    std::vector<BYTE> out(40 + 4 * (1 << bits), 0);
    BITMAPINFOHEADER h = {};
    h.biSize = 40;
    h.biWidth = static_cast<LONG>(src.width);
    h.biHeight = src.heightField;
    h.biPlanes = 1;
    h.biBitCount = static_cast<WORD>(bits);
    h.biSizeImage = static_cast<DWORD>(RowBytes(src.width, bits) * src.rows);
    h.biXPelsPerMeter = src.xPelsPerMeter;
    h.biYPelsPerMeter = src.yPelsPerMeter;
    h.biClrUsed = 1u << bits;
    std::memcpy(out.data(), &h, 40);
    for (int i = 0; i < (1 << bits); ++i) {
        BYTE *e = out.data() + 40 + 4 * i;
        if (bits == 1) {
            e[0] = e[1] = e[2] = i ? 255 : 0;
        } else if (bits == 4) {
            e[0] = (i >> 1) & 1 ? 255 : 0;
            e[1] = (i >> 2) & 1 ? 255 : 0;
            e[2] = (i >> 3) & 1 ? 255 : 0;
            e[3] = i & 1 ? 255 : 0;
        } else {
            e[0] = static_cast<BYTE>((i & 3) * 85);
            e[1] = static_cast<BYTE>(((i >> 2) & 7) * 36);
            e[2] = static_cast<BYTE>((i >> 5) * 36);
        }
    }
    return out;
}

std::vector<BYTE> ErrorDiffusion(const Source &src, const Kernel &kernel, int bits, long *wraps) {
    auto add = [wraps](int cell, int v) {
        int sum = cell + v;
        if (wraps && Wrap16(sum) != sum) ++*wraps;
        return Wrap16(sum);
    };
    const int64_t w = src.width;
    const int channels = bits == 1 ? 1 : 3;
    // cells[channel][k][x]
    std::vector<std::vector<std::vector<int>>> cells(
        channels, std::vector<std::vector<int>>(kernel.rows, std::vector<int>(w, 0)));
    BitPlanes planes(channels, std::vector<std::vector<int>>(src.rows, std::vector<int>(w, 0)));
    std::vector<std::vector<int>> bytes8(src.rows, std::vector<int>(w, 0));

    auto diffuse = [&, add](std::vector<std::vector<int>> &c, int64_t x, int e) {
        for (const Tap &t : kernel.taps) {
            int64_t tx = x + t.dx;
            if (tx < 0 || tx >= w) continue;
            c[t.dy][tx] = add(c[t.dy][tx], DivTrunc(e * t.weight, kernel.divisor));
        }
    };
    for (int64_t r = 0; r < src.rows; ++r) {
        for (int ch = 0; ch < channels; ++ch)
            for (int64_t x = 0; x < w; ++x) {
                int v = bits == 1 ? Grey(src.rgb[r][x]) : src.rgb[r][x][ch];
                cells[ch][0][x] = add(cells[ch][0][x], v);
            }
        if (bits == 8) {
            for (int64_t x = 0; x < w; ++x) {
                int byte = 0;
                for (int ch = 0; ch < 3; ++ch) {
                    int v = cells[ch][0][x];
                    int step = ch == 2 ? 64 : 32, maxLevel = ch == 2 ? 3 : 7;
                    int level = DivTrunc(v, step);
                    if (level < 0) level = 0;
                    if (level > maxLevel) level = maxLevel;
                    int e = v - step * level;
                    byte |= level << (ch == 0 ? 5 : ch == 1 ? 2 : 0);
                    if (e != 0) diffuse(cells[ch], x, e);
                }
                bytes8[r][x] = byte;
            }
        } else {
            for (int ch = 0; ch < channels; ++ch)
                for (int64_t x = 0; x < w; ++x) {
                    int v = cells[ch][0][x];
                    int e = v;
                    if (v > 128) {
                        planes[ch][r][x] = 1;
                        e = v - 255;
                    }
                    if (e != 0) diffuse(cells[ch], x, e);
                }
        }
        for (int ch = 0; ch < channels; ++ch) {
            cells[ch].erase(cells[ch].begin());
            cells[ch].push_back(std::vector<int>(w, 0));
        }
    }
    return Assemble(src, bits, planes, bytes8);
}

namespace {

// One image row of one channel; a and b have w + 1 cells.
void RefBlockRow(std::vector<int> &a, std::vector<int> &b, std::vector<int> &bitsOut, bool halve) {
    int carry = 0;
    int64_t w = static_cast<int64_t>(a.size()) - 1;
    for (int64_t x = 0; x < w; ++x) {
        int q[4] = {a[x], a[x + 1], b[x], b[x + 1]};
        int s = q[0] + q[1] + q[2] + q[3] + carry;
        int n = s / 255, rem = s - 255 * n;
        int first = 0;
        for (int i = 0; i < 4; ++i)
            if (q[i] > q[first]) first = i;
        int last = 3;
        for (int i = 0; i < 4; ++i)
            if (q[i] <= q[last]) last = i;
        std::vector<int> others;
        for (int i = 0; i < 4; ++i)
            if (i != first && i != last) others.push_back(i);
        int second = q[others[0]] > q[others[1]] ? others[0] : others[1];
        int third = second == others[0] ? others[1] : others[0];
        int rank[4] = {first, second, third, last};
        for (int k = 0; k < 4; ++k) q[rank[k]] = k < n ? 255 : (k == n ? rem : 0);
        bool white = q[0] == 255;
        bitsOut[x] = white ? 1 : 0;
        carry = white ? 0 : q[0];
        if (halve) carry = carry / 2;
        a[x] = q[0];
        a[x + 1] = q[1];
        b[x] = q[2];
        b[x + 1] = q[3];
    }
}

} // namespace

std::vector<BYTE> BlockDither(const Source &src, bool halve, int bits) {
    const int64_t w = src.width, h = src.rows;
    const int channels = bits == 1 ? 1 : 3;
    BitPlanes planes(channels, std::vector<std::vector<int>>(h, std::vector<int>(w, 0)));
    // Plane of a stored row: w values and a 0 beyond the last column.
    auto plane = [&](int64_t r, int ch) {
        std::vector<int> p(w + 1, 0);
        for (int64_t x = 0; x < w; ++x) p[x] = bits == 1 ? Grey(src.rgb[r][x]) : src.rgb[r][x][ch];
        return p;
    };
    for (int ch = 0; ch < channels; ++ch) {
        std::vector<int> a = plane(0, ch), b = plane(0, ch);
        std::vector<int> scratch(w);
        RefBlockRow(a, b, scratch, halve); // priming pass
        a = b;
        for (int64_t r = 0; r < h; ++r) {
            if (r < h - 1) b = plane(r + 1, ch);
            RefBlockRow(a, b, planes[ch][r], halve);
            a = b;
        }
    }
    return Assemble(src, bits, planes, {});
}

} // namespace ref
