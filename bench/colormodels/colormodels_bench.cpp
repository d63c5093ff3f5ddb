// Single-value conversions: nanoseconds per value for each of the 72 exports
// (over 65,536 random source values, CMYK sources as RGBtoCMYK makes them),
// the LAB powers beside the platform's pow, and a copy of the same bytes.
#include "bench_util.h"
#include "color_math.h"
#include "conversion_table.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kValues = 65536;

void SetNanosecondsPerValue(benchmark::State &state) {
    state.counters["ns/value"] = benchmark::Counter(
        kValues, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

std::vector<BYTE> Sources(int model) {
    std::mt19937 rng(12345);
    std::vector<BYTE> v(4 * kValues);
    for (int i = 0; i < kValues; ++i) {
        BYTE *s = &v[4 * i];
        for (int k = 0; k < 3; ++k) s[k] = static_cast<BYTE>(rng());
        if (model == MODEL_CMYK) {
            const CMYKQUAD q = RGBtoCMYK(s);
            s[0] = q.c;
            s[1] = q.m;
            s[2] = q.y;
            s[3] = q.k;
        }
    }
    return v;
}

void Conversion(benchmark::State &state, const pax::ConversionEntry *e) {
    const std::vector<BYTE> src = Sources(e->fromModel);
    std::vector<BYTE> dst(4 * kValues);
    for (auto _ : state) {
        for (int i = 0; i < kValues; ++i) {
            if (e->fn.toCmyk) {
                const CMYKQUAD q = e->fn.toCmyk(&src[4 * i]);
                std::memcpy(&dst[4 * i], &q, 4);
            } else {
                e->fn.toThree(&dst[4 * i], &src[4 * i]);
            }
        }
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    SetNanosecondsPerValue(state);
}

std::vector<double> PowArguments(double low, double high) {
    std::mt19937 rng(777);
    std::uniform_real_distribution<double> d(low, high);
    std::vector<double> v(kValues);
    for (double &x : v) x = d(rng);
    return v;
}

template <typename Fn>
void Power(benchmark::State &state, double low, double high, Fn fn) {
    const std::vector<double> x = PowArguments(low, high);
    double sum = 0;
    for (auto _ : state) {
        for (double v : x) sum += fn(v);
        benchmark::DoNotOptimize(sum);
    }
    SetNanosecondsPerValue(state);
}

void CopyValues(benchmark::State &state) {
    const std::vector<BYTE> src = Sources(MODEL_RGB);
    std::vector<BYTE> dst(src.size());
    for (auto _ : state) {
        for (int i = 0; i < kValues; ++i) std::memcpy(&dst[4 * i], &src[4 * i], 3);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    SetNanosecondsPerValue(state);
}

const bool kRegistered = [] {
    benchmark::RegisterBenchmark("CopyValues", CopyValues);
    for (const pax::ConversionEntry &e : pax::kConversions)
        benchmark::RegisterBenchmark(e.name, Conversion, &e);
    benchmark::RegisterBenchmark("PowOneThird", [](benchmark::State &s) {
        Power(s, 0.008856, 1.0, pax::PowOneThird);
    });
    benchmark::RegisterBenchmark("StdPowOneThird", [](benchmark::State &s) {
        Power(s, 0.008856, 1.0, [](double x) { return std::pow(x, 0.3333333333333333); });
    });
    benchmark::RegisterBenchmark("PowCube", [](benchmark::State &s) { Power(s, -0.3, 1.0, pax::PowCube); });
    benchmark::RegisterBenchmark("StdPowCube", [](benchmark::State &s) {
        Power(s, -0.3, 1.0, [](double x) { return std::pow(x, 3); });
    });
    return true;
}();

} // namespace
