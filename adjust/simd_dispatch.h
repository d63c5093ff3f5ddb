// Which vector instruction set the fast paths run on. SSE2 is the baseline of
// every x86-64 processor; AVX2 is used when the processor has it. Both give
// the same bytes: each fast path is integer arithmetic, or the same IEEE
// operations in the same order, on either.
#ifndef PAX_ADJUST_SIMD_DISPATCH_H
#define PAX_ADJUST_SIMD_DISPATCH_H

inline bool CpuHasAvx2() {
    static const bool has = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return has;
}

#endif
