// Fast row passes of the error-diffusion dithers and the fast source reader.
//
// Error diffusion is sequential along a row only through the taps of the
// current row (dx = 1 and 2): the value of pixel x needs the shares of
// pixels x - 1 and x - 2. The row pass therefore runs in two parts:
//  1. the chain: for x = 0..w-1 the pixel's value v = cell + plane + the
//     shares of the two pixels before it, the shares looked up in a table by
//     v (every v of an ordinary picture lies in the table; others are
//     computed). The three channels of 4- and 8-bit output run side by side.
//  2. the spread, over the whole row at once: each pixel's bit or level and
//     error, each distinct weight's share (e * weight) / D, and the shares
//     added into the rows below, tap by tap.
// Cells are 16-bit and additions wrap modulo 65536, so the order in which a
// cell receives its shares does not change it: the cells and the output equal
// the straightforward pass's, which applies every tap at once.
#include "dither_rows_fast.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#if defined(__GNUC__) && !defined(__clang__) && !defined(_WIN32)
// The AVX2 helpers below are only ever inlined into functions compiled for
// AVX2, so the note about passing 32-byte vectors between differently
// compiled functions does not apply.
#pragma GCC diagnostic ignored "-Wpsabi"
// AVX2 copies of the passes, chosen at run time. (Not on Windows: the
// compiler there does not align the stack for 32-byte spills. Not with clang,
// the fuzzing compiler, which refuses 32-byte vectors in the shared templates
// that are inlined into AVX2 functions.)
#define PAX_DITHER_AVX2 1
#define PAX_TARGET_AVX2 __attribute__((target("avx2")))
#endif
#define PAX_INLINE inline __attribute__((always_inline))

namespace {

#ifdef PAX_DITHER_AVX2
bool HaveAvx2() {
    static const bool have = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return have;
}
#endif

// Bit order of a byte reversed: movemask gives pixel 0 in bit 0, the rows
// want it in bit 7.
struct ReversedBytes {
    BYTE v[256];
    constexpr ReversedBytes() : v() {
        for (int i = 0; i < 256; ++i) {
            int r = 0;
            for (int b = 0; b < 8; ++b) r |= ((i >> b) & 1) << (7 - b);
            v[i] = static_cast<BYTE>(r);
        }
    }
};
constexpr ReversedBytes kReversed;

// ---------------------------------------------------------------- source

// (30 r + 59 g + 11 b) is at most 25500, so the quotient is at most 255 and
// the clamp of the plain reader never acts.
PAX_INLINE BYTE Grey(int r, int g, int b) {
    return static_cast<BYTE>(static_cast<unsigned>(30 * r + 59 * g + 11 * b) / 100u);
}

PAX_INLINE void Read24Body(const BYTE *row, int64_t w, BYTE *red, BYTE *green, BYTE *blue,
                           bool grey) {
    if (grey) {
        for (int64_t x = 0; x < w; ++x) red[x] = Grey(row[3 * x + 2], row[3 * x + 1], row[3 * x]);
        return;
    }
    for (int64_t x = 0; x < w; ++x) {
        blue[x] = row[3 * x];
        green[x] = row[3 * x + 1];
        red[x] = row[3 * x + 2];
    }
}
void Read24Plain(const BYTE *row, int64_t w, BYTE *red, BYTE *green, BYTE *blue, bool grey) {
    Read24Body(row, w, red, green, blue, grey);
}
#ifdef PAX_DITHER_AVX2
PAX_TARGET_AVX2 void Read24Avx2(const BYTE *row, int64_t w, BYTE *red, BYTE *green, BYTE *blue,
                                bool grey) {
    Read24Body(row, w, red, green, blue, grey);
}
#endif

} // namespace

void PrepareFastSource(const DitherSource &source, FastSourceTables *tables) {
    for (int i = 0; i < 256; ++i)
        tables->grey[i] = Grey(source.red[i], source.green[i], source.blue[i]);
}

void FastSourceRowReader(const DitherSource &source, const FastSourceTables &tables,
                         int64_t storedRow, BYTE *red, BYTE *green, BYTE *blue, bool grey) {
    const BYTE *row = source.pixels + storedRow * source.stride;
    const int64_t w = source.width;
    switch (source.bitCount) {
    case 24:
#ifdef PAX_DITHER_AVX2
        if (HaveAvx2()) {
            Read24Avx2(row, w, red, green, blue, grey);
            break;
        }
#endif
        Read24Plain(row, w, red, green, blue, grey);
        break;
    case 8:
        if (grey) {
            for (int64_t x = 0; x < w; ++x) red[x] = tables.grey[row[x]];
        } else {
            for (int64_t x = 0; x < w; ++x) {
                const BYTE i = row[x];
                red[x] = source.red[i];
                green[x] = source.green[i];
                blue[x] = source.blue[i];
            }
        }
        break;
    case 4: {
        // Two pixels a byte: the pair's two lookups, then an odd last pixel.
        const int64_t pairs = w / 2;
        const BYTE *t = grey ? tables.grey : source.red;
        for (int64_t p = 0; p < pairs; ++p) {
            const BYTE b = row[p];
            red[2 * p] = t[b >> 4];
            red[2 * p + 1] = t[b & 15];
        }
        if (w & 1) red[w - 1] = t[row[pairs] >> 4];
        if (grey) break;
        for (int64_t p = 0; p < pairs; ++p) {
            const BYTE b = row[p];
            green[2 * p] = source.green[b >> 4];
            green[2 * p + 1] = source.green[b & 15];
            blue[2 * p] = source.blue[b >> 4];
            blue[2 * p + 1] = source.blue[b & 15];
        }
        if (w & 1) {
            green[w - 1] = source.green[row[pairs] >> 4];
            blue[w - 1] = source.blue[row[pairs] >> 4];
        }
        break;
    }
    default: break;
    }
}

// ------------------------------------------------------- error diffusion

namespace {

// How a channel's value becomes its output and error: the 1-bit threshold at
// 128, or a 3-3-2 level of 32 (red, green) or 64 (blue).
enum Quantizer { kThreshold = 0, kLevel32 = 1, kLevel64 = 2 };

template <int Q> PAX_INLINE int LevelOf(int v) {
    constexpr int shift = Q == kLevel32 ? 5 : 6, top = Q == kLevel32 ? 7 : 3;
    // v / step truncated and clamped to 0..top: for v < 0 the clamp gives 0,
    // and for v >= 0 truncation is the shift.
    return std::min(std::max(v, 0) >> shift, top);
}
template <int Q> PAX_INLINE int ErrorOf(int v) {
    if (Q == kThreshold) return v > 128 ? v - 255 : v;
    return v - (LevelOf<Q>(v) << (Q == kLevel32 ? 5 : 6));
}
inline int ErrorOfKind(int q, int v) {
    return q == kThreshold ? ErrorOf<kThreshold>(v)
                           : q == kLevel32 ? ErrorOf<kLevel32>(v) : ErrorOf<kLevel64>(v);
}

// The weight of the tap dx columns right in the current row, 0 if none.
constexpr int RightWeight(const DiffusionKernel &k, int dx) {
    for (int i = 0; i < k.tapCount; ++i)
        if (k.taps[i].dy == 0 && k.taps[i].dx == dx) return k.taps[i].weight;
    return 0;
}
// Every tap of the current row lies one or two columns right.
constexpr bool RightTapsNear(const DiffusionKernel &k) {
    for (int i = 0; i < k.tapCount; ++i)
        if (k.taps[i].dy == 0 && (k.taps[i].dx < 1 || k.taps[i].dx > 2)) return false;
    return true;
}
static_assert(RightTapsNear(kKernelFS4) && RightTapsNear(kKernelBurkes) &&
                  RightTapsNear(kKernelSierra) && RightTapsNear(kKernelJJN) &&
                  RightTapsNear(kKernelStucki) && RightTapsNear(kKernelSA),
              "taps of the current row reach at most two columns");

// The distinct weights of the taps below the current row.
struct Weights {
    int count = 0;
    int w[kMaxTaps] = {};
};
constexpr Weights LowerWeights(const DiffusionKernel &k) {
    Weights out;
    for (int i = 0; i < k.tapCount; ++i) {
        if (k.taps[i].dy == 0) continue;
        bool seen = false;
        for (int j = 0; j < out.count; ++j) seen = seen || out.w[j] == k.taps[i].weight;
        if (!seen) out.w[out.count++] = k.taps[i].weight;
    }
    return out;
}
constexpr int WeightIndex(const Weights &ws, int weight) {
    for (int j = 0; j < ws.count; ++j)
        if (ws.w[j] == weight) return j;
    return -1;
}
constexpr int kMaxLowerWeights = 6;

// Tables of the current-row shares by value: v in -kHalf..kHalf-1.
constexpr int kHalf = 1024;
constexpr int kTableCells = 2 * kHalf;

// Working memory, in 16-bit cells from a 64-byte boundary: the share tables
// ([quantizer][dx - 1]), three rows of values, the rows of shares per lower
// weight (with margins of zeros), and three rows of levels.
constexpr int64_t kShareMargin = 8;
struct Layout {
    int16_t *table[3][2];
    int16_t *values[3];
    int16_t *shares[kMaxLowerWeights]; // at column 0; columns -8..-1 and w..w+7 are 0
    BYTE *levels[3];
    Layout(BYTE *scratch, int64_t w) {
        auto base = reinterpret_cast<uintptr_t>(scratch);
        auto *p = reinterpret_cast<int16_t *>((base + 63) & ~uintptr_t{63});
        for (auto &q : table)
            for (int16_t *&t : q) {
                t = p + kHalf;
                p += kTableCells;
            }
        const int64_t rowCells = (w + 2 * kShareMargin + 31) & ~int64_t{31};
        for (int16_t *&v : values) {
            v = p;
            p += rowCells;
        }
        for (int16_t *&s : shares) {
            s = p + kShareMargin;
            p += rowCells;
        }
        for (BYTE *&l : levels) {
            l = reinterpret_cast<BYTE *>(p);
            p += rowCells / 2;
        }
    }
};

int64_t ScratchBytes(int64_t w) {
    const int64_t rowCells = (w + 2 * kShareMargin + 31) & ~int64_t{31};
    return 64 + 2 * (6 * kTableCells + (3 + kMaxLowerWeights) * rowCells + 3 * (rowCells / 2));
}

template <const DiffusionKernel &K> void Prepare(BYTE *scratch, int64_t w) {
    Layout l(scratch, w);
    for (int q = 0; q < 3; ++q)
        for (int dx = 1; dx <= 2; ++dx)
            for (int v = -kHalf; v < kHalf; ++v)
                l.table[q][dx - 1][v] =
                    static_cast<int16_t>(ErrorOfKind(q, v) * RightWeight(K, dx) / K.divisor);
    for (int16_t *s : l.shares) {
        std::memset(s - kShareMargin, 0, kShareMargin * sizeof(int16_t));
        std::memset(s + w, 0, kShareMargin * sizeof(int16_t));
    }
}

// Part 1: the chain of NC channels side by side. values[c][x] receives the
// pixel's value, wrapped to 16 bits.
template <const DiffusionKernel &K, int NC>
PAX_INLINE void Chain(const FastDiffusionRow &row, const Layout &l, const int (&quant)[3],
                      int64_t w) {
    constexpr int W1 = RightWeight(K, 1), W2 = RightWeight(K, 2);
    const int16_t *row0[NC];
    const BYTE *plane[NC];
    int16_t *values[NC];
    const int16_t *t1[NC], *t2[NC];
    for (int c = 0; c < NC; ++c) {
        row0[c] = row.rows[c][0];
        plane[c] = row.planes[c];
        values[c] = l.values[c];
        t1[c] = l.table[quant[c]][0];
        t2[c] = l.table[quant[c]][1];
    }
    // 64-bit throughout, so that the sum indexes the table directly: the
    // chain from one pixel to the next is an addition and a load.
    int64_t oneBack[NC] = {};     // share reaching x from x - 1
    int64_t twoBack[NC] = {};     // share reaching x from x - 2
    int64_t twoBackNext[NC] = {}; // share reaching x + 1 from x - 1
    for (int64_t x = 0; x < w; ++x) {
#pragma GCC unroll 3
        for (int c = 0; c < NC; ++c) {
            const int64_t s = (int64_t{row0[c][x]} + plane[c][x] + twoBack[c]) + oneBack[c];
            int64_t v, a, b;
            if (__builtin_expect(static_cast<uint64_t>(s + kHalf) < uint64_t{kTableCells}, 1)) {
                v = s;
                a = W1 ? t1[c][s] : 0;
                b = W2 ? t2[c][s] : 0;
            } else {
                v = static_cast<int16_t>(static_cast<uint16_t>(s));
                const int e = ErrorOfKind(quant[c], v);
                a = e * W1 / K.divisor;
                b = e * W2 / K.divisor;
            }
            values[c][x] = static_cast<int16_t>(v);
            oneBack[c] = a;
            twoBack[c] = twoBackNext[c];
            twoBackNext[c] = b;
        }
    }
}

// Part 2 for one channel: the shares of every lower weight, then the rows
// below, each cell taking its taps' shares at once. With the threshold the
// bits go to out; with a level the levels go to levels.
template <const DiffusionKernel &K, int Q>
PAX_INLINE void Spread(int16_t *const (&rows)[kMaxKernelRows], const Layout &l, int channel,
                       int64_t w, BYTE *out) {
    constexpr Weights ws = LowerWeights(K);
    static_assert(ws.count <= kMaxLowerWeights, "too many lower weights");
    const int16_t *__restrict values = l.values[channel];
    int16_t *const *shares = l.shares;
#pragma GCC unroll 6
    for (int i = 0; i < ws.count; ++i) {
        int16_t *__restrict share = shares[i];
        for (int64_t x = 0; x < w; ++x)
            share[x] = static_cast<int16_t>(ErrorOf<Q>(values[x]) * ws.w[i] / K.divisor);
    }
#pragma GCC unroll 3
    for (int dy = 1; dy < K.rows; ++dy) {
        int16_t *__restrict cells = rows[dy];
        for (int64_t x = 0; x < w; ++x) {
            int sum = cells[x];
#pragma GCC unroll 12
            for (int t = 0; t < K.tapCount; ++t)
                if (K.taps[t].dy == dy)
                    sum += shares[WeightIndex(ws, K.taps[t].weight)][x - K.taps[t].dx];
            cells[x] = static_cast<int16_t>(static_cast<uint16_t>(sum));
        }
    }
    if (Q == kThreshold) {
        // White above 128, sixteen pixels at a time; the bits after the last
        // pixel of the row stay 0.
        const __m128i limit = _mm_set1_epi16(128);
        int64_t x = 0;
        for (; x + 16 <= w; x += 16) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(values + x));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(values + x + 8));
            const int m = _mm_movemask_epi8(
                _mm_packs_epi16(_mm_cmpgt_epi16(a, limit), _mm_cmpgt_epi16(b, limit)));
            out[x >> 3] = kReversed.v[m & 255];
            out[(x >> 3) + 1] = kReversed.v[m >> 8];
        }
        unsigned byte = 0;
        for (; x < w; ++x) {
            byte |= (values[x] > 128 ? 0x80u : 0u) >> (x & 7);
            if ((x & 7) == 7) {
                out[x >> 3] = static_cast<BYTE>(byte);
                byte = 0;
            }
        }
        if (w & 7) out[w >> 3] = static_cast<BYTE>(byte);
    } else {
        BYTE *levels = l.levels[channel];
        for (int64_t x = 0; x < w; ++x) levels[x] = static_cast<BYTE>(LevelOf<Q>(values[x]));
    }
}

template <const DiffusionKernel &K>
PAX_INLINE void RowBody(const FastDiffusionRow &row, int bits, int64_t w, BYTE *scratch) {
    const Layout l(scratch, w);
    if (bits == 1) {
        Chain<K, 1>(row, l, {kThreshold, kThreshold, kThreshold}, w);
        Spread<K, kThreshold>(row.rows[0], l, 0, w, row.out[0]);
    } else if (bits == 4) {
        Chain<K, 3>(row, l, {kThreshold, kThreshold, kThreshold}, w);
        for (int c = 0; c < 3; ++c) Spread<K, kThreshold>(row.rows[c], l, c, w, row.out[c]);
    } else {
        Chain<K, 3>(row, l, {kLevel32, kLevel32, kLevel64}, w);
        Spread<K, kLevel32>(row.rows[0], l, 0, w, nullptr);
        Spread<K, kLevel32>(row.rows[1], l, 1, w, nullptr);
        Spread<K, kLevel64>(row.rows[2], l, 2, w, nullptr);
        const BYTE *r = l.levels[0], *g = l.levels[1], *b = l.levels[2];
        BYTE *out = row.out[0];
        for (int64_t x = 0; x < w; ++x)
            out[x] = static_cast<BYTE>((r[x] << 5) | (g[x] << 2) | b[x]);
    }
}

template <const DiffusionKernel &K>
void RowPlain(const FastDiffusionRow &row, int bits, int64_t w, BYTE *scratch) {
    RowBody<K>(row, bits, w, scratch);
}
#ifdef PAX_DITHER_AVX2
template <const DiffusionKernel &K>
PAX_TARGET_AVX2 void RowAvx2(const FastDiffusionRow &row, int bits, int64_t w, BYTE *scratch) {
    RowBody<K>(row, bits, w, scratch);
}
#endif

template <const DiffusionKernel &K> FastDiffusionPasses PassesOf() {
#ifdef PAX_DITHER_AVX2
    if (HaveAvx2()) return {&Prepare<K>, &RowAvx2<K>};
#endif
    return {&Prepare<K>, &RowPlain<K>};
}

} // namespace

int64_t FastDiffusionScratchBytes(int64_t w) { return ScratchBytes(w); }

FastDiffusionPasses FastDiffusionFor(const DiffusionKernel &kernel) {
    if (&kernel == &kKernelFS4) return PassesOf<kKernelFS4>();
    if (&kernel == &kKernelBurkes) return PassesOf<kKernelBurkes>();
    if (&kernel == &kKernelSierra) return PassesOf<kKernelSierra>();
    if (&kernel == &kKernelJJN) return PassesOf<kKernelJJN>();
    if (&kernel == &kKernelStucki) return PassesOf<kKernelStucki>();
    return PassesOf<kKernelSA>();
}

// ------------------------------------------------------------ block dither
//
// A row pass of the 2x2 block dither is sequential along the row (block x
// starts from the cells that block x - 1 rewrote), and the next image row's
// pass needs this row's rewritten B cells. Block x of a row needs only
// blocks up to x + 1 of the row before, so eight rows run at once, each two
// blocks behind the one above: one 16-bit lane a row, one step a block.
// The rows of a run are the priming pass (row -1) and the stored rows 0..h-1
// in order. Row -1 and the last stored row see B equal to their A (the
// driver does not refresh B for them); every other row r takes B from the
// source's stored row r + 1.
//
// Lane L at step t decides block x = t - 2L from q0, q2 (the cells its block
// x - 1 rewrote), q1 (cell x + 1 of the row above as that row left it, the
// lane above's output of the step before) and q3 (cell x + 1 of its B row).
// Each block ranks its cells as the plain pass does and gives the cell of
// rank k the value clamp(s - 255 k, 0, 255), which is 255 below rank n, the
// remainder at rank n and 0 above.

#ifdef PAX_DITHER_AVX2
#include <immintrin.h>
#endif

namespace {

constexpr int kLag = 2;        // blocks between a lane and the one below it
constexpr int kMaxLanes = 16;  // AVX2; SSE2 runs 8

// The vector operations of a wavefront, on 8 (SSE2) or 16 (AVX2) 16-bit lanes.
struct Sse2 {
    using V = __m128i;
    static constexpr int kLanes = 8;
    static V Load(const int16_t *p) { return _mm_load_si128(reinterpret_cast<const V *>(p)); }
    static V Set1(int v) { return _mm_set1_epi16(static_cast<int16_t>(v)); }
    static V And(V a, V b) { return _mm_and_si128(a, b); }
    static V Or(V a, V b) { return _mm_or_si128(a, b); }
    static V AndNot(V a, V b) { return _mm_andnot_si128(a, b); } // ~a & b
    static V Xor(V a, V b) { return _mm_xor_si128(a, b); }
    static V Blend(V mask, V ifSet, V ifClear) { return Xor(ifClear, And(mask, Xor(ifSet, ifClear))); }
    static V Add(V a, V b) { return _mm_add_epi16(a, b); }
    static V Gt(V a, V b) { return _mm_cmpgt_epi16(a, b); }
    static V Eq(V a, V b) { return _mm_cmpeq_epi16(a, b); }
    static V SubSat(V a, V b) { return _mm_subs_epu16(a, b); }
    static V Min(V a, V b) { return _mm_min_epi16(a, b); }
    static V Half(V a) { return _mm_srli_epi16(a, 1); }
    // Lane L takes lane L - 1's value; lane 0 takes first.
    static V ShiftIn(V v, int16_t first) { return _mm_insert_epi16(_mm_slli_si128(v, 2), first, 0); }
    static unsigned Bits(V mask) { return _mm_movemask_epi8(_mm_packs_epi16(mask, mask)) & 0xFFu; }
    static int16_t LastLane(V v) { return static_cast<int16_t>(_mm_extract_epi16(v, 7)); }
};

#ifdef PAX_DITHER_AVX2
struct Avx2 {
    using V = __m256i;
    static constexpr int kLanes = 16;
    PAX_TARGET_AVX2 static V Load(const int16_t *p) {
        return _mm256_load_si256(reinterpret_cast<const V *>(p));
    }
    PAX_TARGET_AVX2 static V Set1(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
    PAX_TARGET_AVX2 static V And(V a, V b) { return _mm256_and_si256(a, b); }
    PAX_TARGET_AVX2 static V Or(V a, V b) { return _mm256_or_si256(a, b); }
    PAX_TARGET_AVX2 static V AndNot(V a, V b) { return _mm256_andnot_si256(a, b); }
    PAX_TARGET_AVX2 static V Xor(V a, V b) { return _mm256_xor_si256(a, b); }
    PAX_TARGET_AVX2 static V Blend(V mask, V ifSet, V ifClear) {
        return Xor(ifClear, And(mask, Xor(ifSet, ifClear)));
    }
    PAX_TARGET_AVX2 static V Add(V a, V b) { return _mm256_add_epi16(a, b); }
    PAX_TARGET_AVX2 static V Gt(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
    PAX_TARGET_AVX2 static V Eq(V a, V b) { return _mm256_cmpeq_epi16(a, b); }
    PAX_TARGET_AVX2 static V SubSat(V a, V b) { return _mm256_subs_epu16(a, b); }
    PAX_TARGET_AVX2 static V Min(V a, V b) { return _mm256_min_epi16(a, b); }
    PAX_TARGET_AVX2 static V Half(V a) { return _mm256_srli_epi16(a, 1); }
    PAX_TARGET_AVX2 static V ShiftIn(V v, int16_t first) {
        const V low = _mm256_permute2x128_si256(v, v, 0x08); // (0, low half of v)
        return _mm256_insert_epi16(_mm256_alignr_epi8(v, low, 14), first, 0);
    }
    PAX_TARGET_AVX2 static unsigned Bits(V mask) {
        const unsigned m = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_packs_epi16(mask, mask)));
        return (m & 0xFFu) | ((m >> 8) & 0xFF00u);
    }
    PAX_TARGET_AVX2 static int16_t LastLane(V v) {
        return static_cast<int16_t>(_mm256_extract_epi16(v, 15));
    }
};
#endif

struct BlockLayout {
    int16_t *skew[3];    // [u][lane]: cell u - 2 lane of the lane's B row
    int16_t *rows[3][2]; // per channel: the row above lane 0 (cells 0..w), the next one
    uint16_t *whites;    // [step]: bit L set when lane L's pixel is white
    BYTE *planes[3];
    int64_t steps;
    static int64_t Steps(int64_t w) { return w + kLag * kMaxLanes + 48; }
    static int64_t RowBytes(int64_t w) { return (Steps(w) * 2 + 63) & ~int64_t{63}; }
    static int64_t PlaneBytes(int64_t w) { return (w + 8 + 63) & ~int64_t{63}; }
    static int64_t Bytes(int64_t w) {
        return 64 + 3 * Steps(w) * kMaxLanes * 2 + 7 * RowBytes(w) + 3 * PlaneBytes(w);
    }
    BlockLayout(BYTE *scratch, int64_t w) : steps(Steps(w)) {
        auto base = reinterpret_cast<uintptr_t>(scratch);
        BYTE *p = reinterpret_cast<BYTE *>((base + 63) & ~uintptr_t{63});
        for (int16_t *&s : skew) {
            s = reinterpret_cast<int16_t *>(p);
            p += steps * kMaxLanes * 2;
        }
        for (auto &pair : rows)
            for (int16_t *&r : pair) {
                r = reinterpret_cast<int16_t *>(p);
                p += RowBytes(w);
            }
        whites = reinterpret_cast<uint16_t *>(p);
        p += RowBytes(w);
        for (BYTE *&pl : planes) {
            pl = p;
            p += PlaneBytes(w);
        }
    }
};

// One wavefront of one channel. above holds the row over lane 0 (cells
// 0..w); below receives the last lane's B row as that lane leaves it. asA
// (-1 in sameRow) marks the lanes whose B row is their A row.
template <class Vec>
PAX_INLINE void BlockWavefront(const int16_t *skew, const int16_t *above, int16_t *below,
                               uint16_t *whites, int64_t w, const int16_t *sameRow, bool halve) {
    using V = typename Vec::V;
    const V asA = Vec::Load(sameRow);
    constexpr int N = Vec::kLanes;
    constexpr int64_t skewSteps = kLag * (N - 1);
    const V zero = Vec::Set1(0), ones = Vec::Set1(-1), c255 = Vec::Set1(255),
            c510 = Vec::Set1(510);
    // oneLane[L]: lane L set; oneLane[N]: none. A lane starts its row when
    // t = 2L and passes its last block when t = w + 2L.
    alignas(32) int16_t oneLane[N + 1][N] = {};
    for (int lane = 0; lane < N; ++lane) oneLane[lane][lane] = -1;
    auto laneAt = [](int64_t steps) {
        return steps >= 0 && steps % kLag == 0 && steps / kLag < N ? steps / kLag : int64_t{N};
    };
    V q0n = zero, q2n = zero, carry = zero, prev1 = zero, prev2 = zero;
    const int64_t last = w + skewSteps;
    for (int64_t t = 0; t <= last; ++t) {
        // Cells x and x + 1 of each lane's B row.
        const V freshBefore = Vec::Load(skew + t * N);
        const V fresh = Vec::Load(skew + (t + 1) * N);
        const V q1 = Vec::ShiftIn(prev1, above[t + 1]);
        const V startA = Vec::ShiftIn(prev2, above[t]);
        const V start = Vec::Load(oneLane[laneAt(t)]);
        const V q0 = Vec::Blend(start, startA, q0n);
        const V q2 = Vec::Blend(start, Vec::Blend(asA, startA, freshBefore), q2n);
        const V q3 = Vec::Blend(asA, q1, fresh);
        const V c = Vec::AndNot(start, carry);
        const V s = Vec::Add(Vec::Add(q0, q1), Vec::Add(Vec::Add(q2, q3), c));

        const V q[4] = {q0, q1, q2, q3};
        V gt[4][4]; // q_a > q_b
        for (int a = 0; a < 4; ++a)
            for (int b = 0; b < 4; ++b) gt[a][b] = a == b ? zero : Vec::Gt(q[a], q[b]);
        // First: the lowest index holding the maximum (greater than every
        // cell before it, not less than any after). Last: the highest index
        // holding the minimum (not greater than any before, less than every
        // cell after).
        V first[4], lastCell[4], middle[4];
        for (int i = 0; i < 4; ++i) {
            V aboveBefore = ones, notBelowBefore = zero, belowAfter = ones, aboveAfter = zero;
            for (int j = 0; j < i; ++j) {
                aboveBefore = Vec::And(aboveBefore, gt[i][j]);
                notBelowBefore = Vec::Or(notBelowBefore, gt[i][j]);
            }
            for (int j = i + 1; j < 4; ++j) {
                belowAfter = Vec::And(belowAfter, gt[j][i]);
                aboveAfter = Vec::Or(aboveAfter, gt[j][i]);
            }
            first[i] = Vec::AndNot(aboveAfter, aboveBefore);
            lastCell[i] = Vec::AndNot(notBelowBefore, belowAfter);
            middle[i] = Vec::AndNot(Vec::Or(first[i], lastCell[i]), ones);
        }
        // Of the two middle cells the brighter ranks second, the higher index
        // on a tie: cell i is third when the other middle cell beats it.
        V value[4];
        for (int i = 0; i < 4; ++i) {
            V beaten = zero;
            for (int j = 0; j < 4; ++j) {
                if (j == i) continue;
                const V beats = j > i ? Vec::AndNot(gt[i][j], middle[j]) : Vec::And(gt[j][i], middle[j]);
                beaten = Vec::Or(beaten, beats);
            }
            const V third = Vec::And(middle[i], beaten);
            // 255 x rank: 0 first, 255 second, 510 third, 765 last.
            const V rank = Vec::Add(Vec::Add(Vec::AndNot(first[i], c255), Vec::And(lastCell[i], c510)),
                                    Vec::And(third, c255));
            value[i] = Vec::Min(Vec::SubSat(s, rank), c255);
        }
        const V white = Vec::Eq(value[0], c255);
        whites[t] = static_cast<uint16_t>(Vec::Bits(white));
        carry = Vec::AndNot(white, value[0]);
        if (halve) carry = Vec::Half(carry);
        q0n = value[1];
        q2n = value[3];
        // Past its last block a lane hands down its B cell w unchanged.
        const V out = Vec::Blend(Vec::Load(oneLane[laneAt(t - w)]), q2, value[2]);
        if (t >= skewSteps) below[t - skewSteps] = Vec::LastLane(out);
        prev2 = prev1;
        prev1 = out;
    }
}

// A lane's bits of one row from the per-step white words: pixel x is bit L
// of whites[x + 2L]. Bits after the last pixel are 0.
void UnskewBits(const uint16_t *whites, int lane, int64_t w, BYTE *out) {
    const uint16_t *from = whites + kLag * lane;
    const __m128i shift = _mm_cvtsi32_si128(15 - lane);
    int64_t x = 0;
    for (; x + 16 <= w; x += 16) {
        const __m128i a = _mm_srai_epi16(
            _mm_sll_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(from + x)), shift), 15);
        const __m128i b = _mm_srai_epi16(
            _mm_sll_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(from + x + 8)), shift),
            15);
        const int m = _mm_movemask_epi8(_mm_packs_epi16(a, b));
        out[x >> 3] = kReversed.v[m & 255];
        out[(x >> 3) + 1] = kReversed.v[m >> 8];
    }
    for (; x < w; x += 8) {
        unsigned byte = 0;
        for (int i = 0; i < 8 && x + i < w; ++i) byte |= ((from[x + i] >> lane) & 1u) << (7 - i);
        out[x >> 3] = static_cast<BYTE>(byte);
    }
}

template <class Vec>
PAX_INLINE void BlockDitherBody(const DitherSource &source, const FastSourceTables &tables,
                                int channels, bool grey, bool halve, BYTE *work,
                                int64_t workRowBytes, int64_t workPlaneBytes, BYTE *scratch) {
    constexpr int N = Vec::kLanes;
    const int64_t w = source.width, h = source.rows;
    const BlockLayout l(scratch, w);
    // Row -1 (the priming pass) takes stored row 0 as its A row; its B row
    // is the same.
    FastSourceRowReader(source, tables, 0, l.planes[0], l.planes[1], l.planes[2], grey);
    int cur = 0;
    for (int c = 0; c < channels; ++c) {
        int16_t *a = l.rows[c][0];
        for (int64_t x = 0; x < w; ++x) a[x] = l.planes[c][x];
        std::fill(a + w, a + l.steps, int16_t{0});
    }
    for (int64_t top = -1; top < h; top += N) {
        alignas(32) int16_t sameRow[N];
        for (int lane = 0; lane < N; ++lane) {
            const int64_t r = top + lane;
            sameRow[lane] = r == -1 || r == h - 1 ? -1 : 0;
            if (r < 0 || r + 1 >= h) continue;
            FastSourceRowReader(source, tables, r + 1, l.planes[0], l.planes[1], l.planes[2],
                                grey);
            for (int c = 0; c < channels; ++c) {
                int16_t *skew = l.skew[c] + lane;
                const BYTE *plane = l.planes[c];
                const int64_t from = kLag * lane; // u of cell 0
                for (int64_t u = 0; u < from; ++u) skew[u * N] = 0;
                for (int64_t x = 0; x < w; ++x) skew[(from + x) * N] = plane[x];
                for (int64_t u = from + w; u < l.steps; ++u) skew[u * N] = 0;
            }
        }
        for (int c = 0; c < channels; ++c) {
            BlockWavefront<Vec>(l.skew[c], l.rows[c][cur], l.rows[c][1 - cur], l.whites, w,
                                sameRow, halve);
            for (int lane = 0; lane < N; ++lane) {
                const int64_t r = top + lane;
                if (r >= 0 && r < h)
                    UnskewBits(l.whites, lane, w, work + c * workPlaneBytes + r * workRowBytes);
            }
        }
        cur = 1 - cur;
    }
}

void BlockDitherSse2(const DitherSource &source, const FastSourceTables &tables, int channels,
                     bool grey, bool halve, BYTE *work, int64_t workRowBytes,
                     int64_t workPlaneBytes, BYTE *scratch) {
    BlockDitherBody<Sse2>(source, tables, channels, grey, halve, work, workRowBytes,
                          workPlaneBytes, scratch);
}
#ifdef PAX_DITHER_AVX2
PAX_TARGET_AVX2 void BlockDitherAvx2(const DitherSource &source, const FastSourceTables &tables,
                                     int channels, bool grey, bool halve, BYTE *work,
                                     int64_t workRowBytes, int64_t workPlaneBytes,
                                     BYTE *scratch) {
    BlockDitherBody<Avx2>(source, tables, channels, grey, halve, work, workRowBytes,
                          workPlaneBytes, scratch);
}
#endif

} // namespace

int64_t FastBlockScratchBytes(int64_t w) { return BlockLayout::Bytes(w); }

void FastBlockDither(const DitherSource &source, const FastSourceTables &tables, int channels,
                     bool grey, bool halve, BYTE *work, int64_t workRowBytes,
                     int64_t workPlaneBytes, BYTE *scratch) {
#ifdef PAX_DITHER_AVX2
    if (HaveAvx2())
        return BlockDitherAvx2(source, tables, channels, grey, halve, work, workRowBytes,
                               workPlaneBytes, scratch);
#endif
    BlockDitherSse2(source, tables, channels, grey, halve, work, workRowBytes, workPlaneBytes,
                    scratch);
}

// ------------------------------------------------------- ordered threshold

void FastOrderedThreshold(BYTE *pixels, int64_t stride, int64_t w, int64_t rows, bool topDown,
                          const BYTE *entries, int n, int maxM) {
    // The largest pixel, sixteen bytes at a time.
    __m128i most = _mm_setzero_si128();
    int maxPix = 0;
    for (int64_t r = 0; r < rows; ++r) {
        const BYTE *row = pixels + r * stride;
        int64_t x = 0;
        for (; x + 16 <= w; x += 16)
            most = _mm_max_epu8(most, _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + x)));
        for (; x < w; ++x) maxPix = std::max<int>(maxPix, row[x]);
    }
    alignas(16) BYTE lanes[16];
    _mm_store_si128(reinterpret_cast<__m128i *>(lanes), most);
    for (BYTE b : lanes) maxPix = std::max<int>(maxPix, b);

    // Per matrix column, M * maxPix for x = 0..16n-1: a period of the row
    // that sixteen-pixel steps keep aligned. The products and v * maxM are
    // at most 255 * 255 and are compared as unsigned 16-bit values.
    alignas(16) uint16_t limits[16][256];
    const int period = 16 * n;
    for (int column = 0; column < n; ++column)
        for (int i = 0; i < period; ++i)
            limits[column][i] = static_cast<uint16_t>(entries[(i % n) * n + column] * maxPix);
    const __m128i flip = _mm_set1_epi16(-32768), scale = _mm_set1_epi16(static_cast<int16_t>(maxM));
    const __m128i zero = _mm_setzero_si128();
    for (int64_t r = 0; r < rows; ++r) {
        BYTE *row = pixels + r * stride;
        const int64_t y = topDown ? r : rows - 1 - r;
        const uint16_t *limit = limits[y % n];
        int64_t x = 0;
        int phase = 0; // x mod period
        for (; x + 16 <= w; x += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + x));
            const __m128i lo = _mm_mullo_epi16(_mm_unpacklo_epi8(v, zero), scale);
            const __m128i hi = _mm_mullo_epi16(_mm_unpackhi_epi8(v, zero), scale);
            const __m128i tlo = _mm_load_si128(reinterpret_cast<const __m128i *>(limit + phase));
            const __m128i thi =
                _mm_load_si128(reinterpret_cast<const __m128i *>(limit + phase + 8));
            const __m128i above = _mm_packs_epi16(
                _mm_cmpgt_epi16(_mm_xor_si128(lo, flip), _mm_xor_si128(tlo, flip)),
                _mm_cmpgt_epi16(_mm_xor_si128(hi, flip), _mm_xor_si128(thi, flip)));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(row + x), above);
            phase += 16;
            if (phase == period) phase = 0;
        }
        for (; x < w; ++x) row[x] = row[x] * maxM > limit[x % period] ? 255 : 0;
    }
}
