// Benchmark main. Freed memory stays in the heap (no mmap for large blocks, no
// trimming), as in a long-running host, so a figure measures the operation and
// not the first touch of freshly mapped pages.
#include "bench_util.h"

#include <cstring>
#include <vector>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace paxbench {

void MemcpyBaseline(benchmark::State &state, int64_t bytes, int64_t pixels) {
    std::vector<unsigned char> from(static_cast<size_t>(bytes), 1), to(static_cast<size_t>(bytes));
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    SetMegapixelRate(state, pixels);
}

} // namespace paxbench

int main(int argc, char **argv) {
#ifdef __GLIBC__
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
