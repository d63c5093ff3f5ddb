// Choosing kernels for the processor: AVX2 builds of the same loops where the
// processor has it. Vector IEEE double arithmetic gives each lane the very
// double the scalar operation gives (no fused multiply-add: contraction is off
// everywhere), so both builds produce the same bytes. The 64-bit Windows build
// keeps the SSE2 loops: its compiler cannot align the stack for spilled AVX
// registers. Defining PAX_NO_AVX2 builds the SSE2 loops alone (to test them
// on a processor that has AVX2).
#ifndef PAX_SIMD_SELECT_H
#define PAX_SIMD_SELECT_H

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__)) && !defined(_WIN32) && !defined(PAX_NO_AVX2)
#define PAX_HAVE_AVX2_BUILD 1
#define PAX_AVX2 __attribute__((target("avx2")))
#else
#define PAX_HAVE_AVX2_BUILD 0
#define PAX_AVX2
#endif
#define PAX_INLINE inline __attribute__((always_inline))

namespace pax {

inline bool ProcessorHasAvx2() {
#if PAX_HAVE_AVX2_BUILD
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

} // namespace pax

#endif
