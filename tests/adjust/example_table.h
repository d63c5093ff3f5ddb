// Tables of worked examples kept as text beside the tests, one case a line: a
// word naming what the case exercises, then its numbers; lines starting with
// '#' are comments. And the digest that pins whole outputs.
#ifndef PAX_TESTS_EXAMPLE_TABLE_H
#define PAX_TESTS_EXAMPLE_TABLE_H

#include "paximage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace paxtest {

struct Example {
    std::string tag, line;
    std::vector<double> v; // read with strtod: hex, nan and inf too
    int I(size_t i) const { return static_cast<int>(v.at(i)); }
};

// The rows of `file`, a table in the folder of the test's sources.
inline std::vector<Example> ReadExamples(const std::string &file) {
    std::ifstream in(std::string(PAX_EXAMPLES_DIR) + "/" + file);
    EXPECT_TRUE(in.good()) << file;
    std::vector<Example> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        Example e{"", line, {}};
        if (!(words >> e.tag) || e.tag[0] == '#') continue;
        for (std::string w; words >> w;) e.v.push_back(std::strtod(w.c_str(), nullptr));
        rows.push_back(e);
    }
    return rows;
}

// FNV-1a over the bytes, then their count.
inline uint64_t Fold(uint64_t digest, const std::vector<BYTE> &bytes) {
    for (BYTE b : bytes) digest = (digest ^ b) * 0x100000001B3ull;
    return (digest ^ bytes.size()) * 0x100000001B3ull;
}
constexpr uint64_t kDigestStart = 14695981039346656037ull;

} // namespace paxtest

#endif
