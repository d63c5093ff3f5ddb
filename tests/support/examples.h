// Shared by the tests: tables of cases kept as text beside the tests (one
// case a line: a word naming what the case exercises, then its numbers; '#'
// starts a comment line), read from PAX_EXAMPLES_DIR; the digest that pins
// whole outputs; seeded images.
#ifndef PAX_TESTS_EXAMPLES_H
#define PAX_TESTS_EXAMPLES_H

#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace paxtest {

// A row: its tag, the words after it up to the first ':' (as text and as
// numbers), then the numbers of each field that a ':' opens.
struct Example {
    std::string tag, line;
    std::vector<std::string> words;
    std::vector<double> v;
    std::vector<std::vector<int>> fields;
    int I(size_t i) const { return static_cast<int>(v.at(i)); }
};

// A word as a number: a code name (IMS_BADPARAM, CCE_NONE, ...), gN the grey
// N and #RRGGBB a colour as 0xRRGGBB, or what strtod reads (hex, nan, inf).
inline double NumberOf(const std::string &word) {
#define PAX_TEST_CODE_OF(name, value, message) \
    if (word == #name) return value;
    PAX_CCE_CODES(PAX_TEST_CODE_OF)
    PAX_IMS_CODES(PAX_TEST_CODE_OF)
#undef PAX_TEST_CODE_OF
    if (word[0] == 'g') return 0x010101 * std::strtol(word.c_str() + 1, nullptr, 10);
    if (word[0] == '#') return std::strtol(word.c_str() + 1, nullptr, 16);
    return std::strtod(word.c_str(), nullptr);
}

// The rows of `file`, a table in the folder of the test's sources; with a
// tag, only the rows of that tag (there must be some).
inline std::vector<Example> ReadExamples(const std::string &file, const std::string &tag = "") {
    std::ifstream in(std::string(PAX_EXAMPLES_DIR) + "/" + file);
    EXPECT_TRUE(in.good()) << file;
    std::vector<Example> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        Example e{"", line, {}, {}, {}};
        if (!(words >> e.tag) || e.tag[0] == '#' || (!tag.empty() && e.tag != tag)) continue;
        for (std::string w; words >> w;) {
            if (w == ":") e.fields.emplace_back();
            else if (!e.fields.empty()) e.fields.back().push_back(static_cast<int>(NumberOf(w)));
            else e.words.push_back(w);
        }
        for (const std::string &w : e.words) e.v.push_back(NumberOf(w));
        rows.push_back(e);
    }
    EXPECT_TRUE(tag.empty() || !rows.empty()) << file << ": no " << tag;
    return rows;
}

// FNV-1a over the bytes, then their count.
constexpr uint64_t kDigestStart = 14695981039346656037ull;
inline uint64_t Fold(uint64_t digest, const std::vector<BYTE> &bytes) {
    for (BYTE b : bytes) digest = (digest ^ b) * 0x100000001B3ull;
    return (digest ^ bytes.size()) * 0x100000001B3ull;
}

inline BITMAPINFOHEADER *Header(std::vector<BYTE> &bytes) {
    return reinterpret_cast<BITMAPINFOHEADER *>(bytes.data());
}

// A new GHND block holding exactly these bytes.
inline HGLOBAL BlockFrom(const std::vector<BYTE> &bytes) {
    HGLOBAL block = GlobalAlloc(GHND, bytes.size());
    std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
    GlobalUnlock(block);
    return block;
}

// The bytes of a block, which is then freed; none for a null handle.
inline std::vector<BYTE> Consume(HGLOBAL block) {
    std::vector<BYTE> bytes = block ? BlockBytes(block) : std::vector<BYTE>{};
    GlobalFree(block);
    return bytes;
}

template <typename F> void EditHeader(HGLOBAL block, F edit) {
    edit(static_cast<BITMAPINFOHEADER *>(GlobalLock(block)));
    GlobalUnlock(block);
}

// The same image with its rows stored in the other order, biHeight negated.
inline std::vector<BYTE> FlipStorage(std::vector<BYTE> block) {
    const BITMAPINFOHEADER hd = *Header(block);
    const size_t stride = (hd.biBitCount * hd.biWidth + 31) / 32 * 4, rows = std::abs(hd.biHeight);
    const size_t offset = 40 + 4 * (hd.biClrUsed ? hd.biClrUsed : hd.biBitCount <= 8 ? 1u << hd.biBitCount : 0);
    std::vector<BYTE> out = block;
    for (size_t r = 0; r < rows; ++r)
        std::memcpy(&out[offset + r * stride], &block[offset + (rows - 1 - r) * stride], stride);
    Header(out)->biHeight = -hd.biHeight;
    return out;
}

// A seeded image: noise pixels (indices below 8 bits), `entries` colour-table
// entries of noise (-1: the full table of a palette depth, none at 24 bits),
// padding 0xEE, stored top-down when asked.
inline HGLOBAL SeededImage(int w, int h, int bits, uint32_t seed, int entries = -1, bool topDown = false) {
    auto noise = [seed](int x, int y, int k) {
        return static_cast<BYTE>(((x * 73856093u) ^ (y * 19349663u) ^ (k * 83492791u) ^ seed) * 2654435761u >> 24);
    };
    std::vector<BYTE> bytes = Consume(MakeDib(w, h, bits, noise, entries, 0xEE));
    const size_t table = entries >= 0 ? entries : bits <= 8 ? size_t{1} << bits : 0;
    for (size_t i = 40; i < 40 + 4 * table; ++i) bytes[i] = noise(static_cast<int>(i), -1, 0);
    return BlockFrom(topDown ? FlipStorage(bytes) : bytes);
}

// The pixel that op makes of a one-pixel image of `in`.
inline Rgb OnePixel(Rgb in, const std::function<HDIB(HDIB)> &op) {
    HDIB image = MakeDib(1, 1, 24, [in](int, int, int k) { return k == 0 ? in.b : k == 1 ? in.g : in.r; });
    HDIB out = op(image);
    const Rgb p = out ? Pixel24(out, 0, 0) : Rgb{1, 2, 3};
    GlobalFree(out);
    GlobalFree(image);
    return p;
}

} // namespace paxtest

#endif
