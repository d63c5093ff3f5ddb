// Helpers of the sweeps over every source value of a colour model.
#ifndef PAX_TEST_SWEEP_H
#define PAX_TEST_SWEEP_H

#include "conversion_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace sweep {

constexpr uint32_t kCount = 1u << 24;
constexpr BYTE kGuard = 0xA5;

// The i-th value of a sweep: the three bytes of i (byte 0 the lowest); for a
// CMYK source the CMYK value that RGBtoCMYK makes of them, so a CMYK sweep
// covers exactly the values the conversions produce.
inline void SourceValue(int model, uint32_t i, BYTE *out) {
    const BYTE rgb[3] = {BYTE(i), BYTE(i >> 8), BYTE(i >> 16)};
    if (model == MODEL_CMYK) {
        const CMYKQUAD q = RGBtoCMYK(rgb);
        out[0] = q.c;
        out[1] = q.m;
        out[2] = q.y;
        out[3] = q.k;
    } else {
        std::memcpy(out, rgb, 3);
    }
}

inline uint32_t Pack3(const BYTE *b) { return b[0] | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16; }
inline uint32_t PackQuad(CMYKQUAD q) { return q.c | uint32_t(q.m) << 8 | uint32_t(q.y) << 16 | uint32_t(q.k) << 24; }

// Runs body(begin, end) over 0..count split across the machine's cores.
template <typename Body>
void ParallelFor(uint32_t count, Body body) {
    const unsigned n = std::max(1u, std::min(4u, std::thread::hardware_concurrency()));
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < n; ++t)
        threads.emplace_back([=] { body(uint32_t(uint64_t(count) * t / n), uint32_t(uint64_t(count) * (t + 1) / n)); });
    for (std::thread &th : threads) th.join();
}

// Records which packed values a sweep produced, to show that it varied.
class Coverage {
public:
    explicit Coverage(uint64_t range) : seen_((range + 63) / 64) {}
    void Mark(uint32_t v) { __atomic_fetch_or(&seen_[v / 64], uint64_t{1} << (v % 64), __ATOMIC_RELAXED); }
    uint64_t Distinct() const {
        uint64_t n = 0;
        for (uint64_t w : seen_) n += __builtin_popcountll(w);
        return n;
    }

private:
    std::vector<uint64_t> seen_;
};

} // namespace sweep

#endif
