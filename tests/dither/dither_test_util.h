// Helpers shared by the dither tests: the dithers by name, the worked
// examples of examples.txt, images made from data, results read as pixels.
#ifndef PAX_TESTS_DITHER_TEST_UTIL_H
#define PAX_TESTS_DITHER_TEST_UTIL_H

#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace dithertest {

using DitherFn = HDIB (*)(HDIB, int);

// Group 0 reports a null handle as a bad parameter, group 1 as a failed lock;
// group 2 are the block dithers; DitherOrdered takes a matrix type.
struct Method {
    std::string name;
    DitherFn dither;
    std::vector<int> args; // depths, or matrix types
    int group;
};
inline const std::vector<Method> &Methods() {
    static const std::vector<Method> methods = {
        {"FS4", DitherFS4, {1, 4, 8}, 0},       {"Burkes", DitherBurkes, {1, 4, 8}, 0},
        {"Sierra", DitherSierra, {1, 4, 8}, 0}, {"JJN", DitherJJN, {1, 4, 8}, 1},
        {"Stucki", DitherStucki, {1, 4, 8}, 1}, {"SA", DitherSA, {1, 4, 8}, 1},
        {"Sharp", DitherSharp, {1, 4}, 2},      {"Smooth", DitherSmooth, {1, 4}, 2},
        {"Ordered", DitherOrdered, {0, 1, 2, 3, 4, 5, 6}, 3}};
    return methods;
}

// Grey g as a 0xRRGGBB colour.
constexpr int G(int g) { return g * 0x010101; }

// A word of examples.txt: gN grey N, #RRGGBB a colour, otherwise a number.
inline int Value(const std::string &w) {
    return w[0] == 'g' ? G(std::stoi(w.substr(1))) : w[0] == '#' ? std::stoi(w.substr(1), nullptr, 16) : std::stoi(w);
}

// The lines of examples.txt that start with `kind`: the words up to the
// first ':', then the values of each field after it.
struct Line {
    std::vector<std::string> head;
    std::vector<std::vector<int>> fields;
};
inline std::vector<Line> Examples(const std::string &kind) {
    std::ifstream in(PAX_DITHER_DATA "/examples.txt");
    EXPECT_TRUE(in) << "examples.txt not found";
    std::vector<Line> lines;
    for (std::string text, word; std::getline(in, text);) {
        std::istringstream words(text);
        if (!(words >> word) || word != kind) continue;
        lines.emplace_back();
        while (words >> word)
            if (word == ":") lines.back().fields.emplace_back();
            else if (lines.back().fields.empty()) lines.back().head.push_back(word);
            else lines.back().fields.back().push_back(Value(word));
    }
    EXPECT_FALSE(lines.empty()) << kind;
    return lines;
}

inline const Method &Named(const std::string &name) {
    for (const Method &m : Methods())
        if (m.name == name) return m;
    throw std::invalid_argument(name);
}

inline DWORD &Status() { return GetThreadState()->imageStatus; }

// Runs a dither and returns its result block (empty on failure); the result
// must come back unlocked.
inline std::vector<BYTE> Dither(DitherFn dither, HGLOBAL image, int arg) {
    HDIB out = dither(image, arg);
    if (!out) return {};
    std::vector<BYTE> bytes = paxtest::BlockBytes(out);
    EXPECT_EQ(paxtest::LockCount(out), 0);
    GlobalFree(out);
    return bytes;
}

// An image from data. Pixels are listed in stored order, the first stored row
// first (one value fills the image): 0xRRGGBB at 24 bits, indices at 4 and 8
// bits. The colour table is given as 0xRRGGBB values and sets biClrUsed; when
// it is empty the table is a full grey ramp. The pixels-per-metre fields are
// 1234 and 5678; a negative h marks the rows top-down.
inline HGLOBAL Image(int depth, int w, int h, const std::vector<int> &pixels, const std::vector<int> &table = {}) {
    const int rows = h < 0 ? -h : h;
    auto fill = [&](int x, int y, int k) {
        const int v = pixels.size() == 1 ? pixels[0] : pixels[size_t(rows - 1 - y) * w + x];
        return static_cast<BYTE>(depth == 24 ? v >> (8 * k) : v);
    };
    HGLOBAL image = paxtest::MakeDib(w, rows, depth, fill, table.empty() ? -1 : int(table.size()));
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    for (size_t i = 0; i < 4 * table.size(); ++i) p[40 + i] = static_cast<BYTE>(table[i / 4] >> (8 * (i % 4)));
    auto *header = reinterpret_cast<BITMAPINFOHEADER *>(p);
    header->biXPelsPerMeter = 1234;
    header->biYPelsPerMeter = 5678;
    header->biHeight = h;
    GlobalUnlock(image);
    return image;
}

// Pixel x of stored row r of a 1-, 4- or 8-bit result.
inline int Pixel(const std::vector<BYTE> &block, int r, int x) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, block.data(), sizeof h);
    const int bits = h.biBitCount;
    const int64_t stride = ((int64_t{h.biWidth} * bits + 31) / 32) * 4, bit = int64_t{x} * bits;
    const BYTE *row = block.data() + 40 + (size_t{4} << bits) + r * stride;
    return (row[bit / 8] >> (8 - bits - bit % 8)) & ((1 << bits) - 1);
}

} // namespace dithertest

#endif
