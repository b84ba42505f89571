// The vector kernels, one body for every instruction set. A file of its own per set defines KERNELS_NAME and
// KERNELS_LANES (32-bit lanes of a vector) and includes this one; the compiler maps the vector type to registers.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "backgroundmodel.h"
#include "kernels.h"
#include "row_loops.h"

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace kernels {
namespace {

constexpr int N = KERNELS_LANES;
typedef std::int32_t V __attribute__((vector_size(4 * N)));
typedef std::int16_t W __attribute__((vector_size(4 * N)));
typedef std::int16_t H __attribute__((vector_size(2 * N)));
typedef std::int32_t V8 __attribute__((vector_size(32)));  // one lane per cluster of a cell
typedef std::int16_t H8 __attribute__((vector_size(16)));
typedef float F8 __attribute__((vector_size(32)));

inline V Load(const void* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class T>
inline void Store(void* p, const T& v) {
    std::memcpy(p, &v, sizeof v);
}
inline V Max(V a, V b) {
#if defined(__AVX512F__) && KERNELS_LANES == 16
    return (V)_mm512_maskz_max_epi32(0xffff, (__m512i)a, (__m512i)b);  // the plain form warns in GCC 12's own header
#elif defined(__AVX2__) && KERNELS_LANES == 8
    return (V)_mm256_max_epi32((__m256i)a, (__m256i)b);
#else
    return a > b ? a : b;
#endif
}

// Whether a comparison holds anywhere.
inline bool Any(V comparison) {
#if KERNELS_LANES == 16
    return _mm512_cmpneq_epi32_mask((__m512i)comparison, _mm512_setzero_si512()) != 0;
#elif KERNELS_LANES == 8
    return _mm256_movemask_ps((__m256)comparison) != 0;
#elif defined(__SSE2__)
    return _mm_movemask_ps((__m128)comparison) != 0;
#else
    return (comparison[0] | comparison[1] | comparison[2] | comparison[3]) != 0;
#endif
}

// Largest lane.
inline std::int32_t LargestLane(V v) {
#if KERNELS_LANES == 16
    v = Max(v, __builtin_shufflevector(v, v, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7));
    v = Max(v, __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15, 8, 9, 10, 11));
    v = Max(v, __builtin_shufflevector(v, v, 2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13));
    return Max(v, __builtin_shufflevector(v, v, 1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14))[0];
#elif KERNELS_LANES == 8
    v = Max(v, __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3));
    v = Max(v, __builtin_shufflevector(v, v, 2, 3, 0, 1, 6, 7, 4, 5));
    return Max(v, __builtin_shufflevector(v, v, 1, 0, 3, 2, 5, 4, 7, 6))[0];
#else
    v = Max(v, __builtin_shufflevector(v, v, 2, 3, 0, 1));
    return Max(v, __builtin_shufflevector(v, v, 1, 0, 3, 2))[0];
#endif
}

template <class T>
inline T LoadAs(const void* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Sums of the lanes of a[j] into lane j of sum_a, likewise b; six of each. No sum may exceed 32 bits.
inline void SumLanes(const V (&a)[kClusters], const V (&b)[kClusters], V8& sum_a, V8& sum_b) {
#if KERNELS_LANES == 16
    const auto add_pairs = [](V p, V q) {  // of both, in turn, within each quarter
        return __builtin_shufflevector(p, q, 0, 16, 1, 17, 4, 20, 5, 21, 8, 24, 9, 25, 12, 28, 13, 29) +
               __builtin_shufflevector(p, q, 2, 18, 3, 19, 6, 22, 7, 23, 10, 26, 11, 27, 14, 30, 15, 31);
    };
    const auto add_quads = [&](V p, V q, V r, V s) {  // of all four, in turn; then the upper half onto the lower
        const V pq = add_pairs(p, q), rs = add_pairs(r, s);
        const V t = __builtin_shufflevector(pq, rs, 0, 1, 16, 17, 4, 5, 20, 21, 8, 9, 24, 25, 12, 13, 28, 29) +
                    __builtin_shufflevector(pq, rs, 2, 3, 18, 19, 6, 7, 22, 23, 10, 11, 26, 27, 14, 15, 30, 31);
        return __builtin_shufflevector(t, t, 0, 1, 2, 3, 4, 5, 6, 7) +
               __builtin_shufflevector(t, t, 8, 9, 10, 11, 12, 13, 14, 15);
    };
    const V8 first_a = add_quads(a[0], a[1], a[2], a[3]), first_b = add_quads(b[0], b[1], b[2], b[3]);
    const V8 rest = add_quads(a[4], a[5], b[4], b[5]);
    sum_a = __builtin_shufflevector(first_a, rest, 0, 1, 2, 3, 8, 9, 10, 11) +
            __builtin_shufflevector(first_a, rest, 4, 5, 6, 7, 12, 13, 14, 15);
    const V8 t = __builtin_shufflevector(first_b, rest, 0, 1, 2, 3, 10, 11, 8, 9) +
                 __builtin_shufflevector(first_b, rest, 4, 5, 6, 7, 14, 15, 12, 13);
    sum_b = t;
#else
    sum_a = sum_b = V8{};
    for (int j = 0; j < kClusters; j++) {
#if KERNELS_LANES == 8
        const V t = __builtin_shufflevector(a[j], b[j], 0, 8, 1, 9, 4, 12, 5, 13) +
                    __builtin_shufflevector(a[j], b[j], 2, 10, 3, 11, 6, 14, 7, 15);
        auto q = __builtin_shufflevector(t, t, 0, 1, 2, 3) + __builtin_shufflevector(t, t, 4, 5, 6, 7);
#else
        V q = __builtin_shufflevector(a[j], b[j], 0, 4, 1, 5) + __builtin_shufflevector(a[j], b[j], 2, 6, 3, 7);
#endif
        q += __builtin_shufflevector(q, q, 2, 3, 0, 1);
        sum_a[j] = q[0];
        sum_b[j] = q[1];
    }
#endif
}

// acc + a.low * b.low + a.high * b.high of every lane's 16-bit halves.
inline V MultiplyAdd(V acc, V a, V b) {
#if defined(__AVX512VNNI__) && KERNELS_LANES == 16
    return (V)_mm512_dpwssd_epi32((__m512i)acc, (__m512i)a, (__m512i)b);
#elif defined(__AVX2__) && KERNELS_LANES == 8
    return acc + (V)_mm256_madd_epi16((__m256i)a, (__m256i)b);
#elif defined(__SSE2__) && KERNELS_LANES == 4
    return acc + (V)_mm_madd_epi16((__m128i)a, (__m128i)b);
#elif defined(__ARM_NEON) && KERNELS_LANES == 4
    const int16x8_t x = (int16x8_t)a, y = (int16x8_t)b;
    const int32x4_t lo = vmull_s16(vget_low_s16(x), vget_low_s16(y)), hi = vmull_high_s16(x, y);
    return acc + (V)vpaddq_s32(lo, hi);
#else
#error "no multiply-add for this instruction set"
#endif
}

// Red and blue of RGB0 pixels in the halves of a lane; green in the low half.
inline V RedBlue(V px) {
    return px & 0x00ff00ff;
}
inline V Green(V px) {
    return (px >> 8) & 0xff;
}

// Lanes of two rows of four: each lane plus its right or left neighbour of the pair.
#if KERNELS_LANES == 16
inline V SwapPairs(V v) {
    return __builtin_shufflevector(v, v, 1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
}
inline V SwapRows(V v) {
    return __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15, 8, 9, 10, 11);
}
#elif KERNELS_LANES == 8
inline V SwapPairs(V v) {
    return __builtin_shufflevector(v, v, 1, 0, 3, 2, 5, 4, 7, 6);
}
inline V SwapRows(V v) {
    return __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3);
}
#else
inline V SwapPairs(V v) {
    return __builtin_shufflevector(v, v, 1, 0, 3, 2);
}
#endif
inline V AddHalves(V a, V b) {
    return (V)((W)a + (W)b);
}

constexpr int kChunks = kPixels / N;

#if KERNELS_LANES < 16
// Three bytes a pixel become four. A row's twelve bytes are read exactly: nothing behind the frame is touched.
inline void LoadCell(const unsigned char* rgb, std::size_t stride, PixelBlock& px) {
    for (int r = 0; r < 4; r++, rgb += stride) {
        std::uint64_t a;
        std::uint32_t b;
        std::memcpy(&a, rgb, 8);
        std::memcpy(&b, rgb + 8, 4);
#if defined(__SSE4_1__)
        const __m128i packed = _mm_insert_epi32(_mm_cvtsi64_si128(static_cast<long long>(a)), static_cast<int>(b), 2);
        const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
        const __m128i row = _mm_shuffle_epi8(packed, spread);
        std::memcpy(px.p + 4 * r, &row, sizeof row);
#else
        px.p[4 * r] = static_cast<std::uint32_t>(a) & 0xffffff;
        px.p[4 * r + 1] = static_cast<std::uint32_t>(a >> 24) & 0xffffff;
        px.p[4 * r + 2] = (static_cast<std::uint32_t>(a >> 48) | b << 16) & 0xffffff;
        px.p[4 * r + 3] = b >> 8;
#endif
    }
}
#else
// Quarters i of a, b, c and d side by side in to[i].
inline void ExchangeQuarters(V a, V b, V c, V d, V (&to)[4]) {
    const auto low = [](V p, V q) {
        return __builtin_shufflevector(p, q, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
    };
    const auto high = [](V p, V q) {
        return __builtin_shufflevector(p, q, 8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30, 31);
    };
    const auto even = [](V p, V q) {
        return __builtin_shufflevector(p, q, 0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 24, 25, 26, 27);
    };
    const auto odd = [](V p, V q) {
        return __builtin_shufflevector(p, q, 4, 5, 6, 7, 12, 13, 14, 15, 20, 21, 22, 23, 28, 29, 30, 31);
    };
    to[0] = even(low(a, b), low(c, d));
    to[1] = odd(low(a, b), low(c, d));
    to[2] = even(high(a, b), high(c, d));
    to[3] = odd(high(a, b), high(c, d));
}

// Up to four cells at a time: 48 bytes of each row, spread to four bytes a pixel; then the 4 x 4 quarters change
// places.
inline void LoadCells(const unsigned char* rgb, std::size_t stride, int n, PixelBlock* px) {
    const __mmask64 inside = (__mmask64{1} << (12 * n)) - 1;
    // Bytes 0 1 2, 3 4 5, 6 7 8 and 9 10 11 of each quarter, with a zero behind each three.
    constexpr std::int32_t kSpread[4] = {-0x7ffdff00, -0x7ffafbfd, -0x7ff7f8fa, -0x7ff4f5f7};
    const V spread = {kSpread[0], kSpread[1], kSpread[2], kSpread[3], kSpread[0], kSpread[1], kSpread[2], kSpread[3],
                      kSpread[0], kSpread[1], kSpread[2], kSpread[3], kSpread[0], kSpread[1], kSpread[2], kSpread[3]};
    const auto row = [&](std::size_t r) {
        const V bytes = (V)_mm512_maskz_loadu_epi8(inside, rgb + r * stride);
        const V spaced = __builtin_shufflevector(bytes, bytes, 0, 1, 2, 2, 3, 4, 5, 5, 6, 7, 8, 8, 9, 10, 11, 11);
        return (V)_mm512_shuffle_epi8((__m512i)spaced, (__m512i)spread);
    };
    const V a = row(0), b = row(1), c = row(2), d = row(3);
    V cells[4];
    ExchangeQuarters(a, b, c, d, cells);
    Store(px, cells[0]);
    if (n > 1) Store(px + 1, cells[1]);
    if (n > 2) Store(px + 2, cells[2]);
    if (n > 3) Store(px + 3, cells[3]);
}
#endif

void LoadPixels(const unsigned char* rgb, std::size_t stride, int n, PixelBlock* px) {
#if KERNELS_LANES == 16
    for (; n >= 4; n -= 4, rgb += 48, px += 4) LoadCells(rgb, stride, 4, px);
    if (n > 0) LoadCells(rgb, stride, n, px);
#else
    for (int j = 0; j < n; j++) LoadCell(rgb + 12 * j, stride, px[j]);
#endif
}

// Quadrant sums of 16 pixels given as red-blue and green halves per lane.
inline void SumQuadrants(const V (&rb)[kChunks], const V (&g)[kChunks], QuadrantSums& q) {
#if KERNELS_LANES == 16
    V a = AddHalves(rb[0], SwapPairs(rb[0])), b = AddHalves(g[0], SwapPairs(g[0]));
    a = AddHalves(a, SwapRows(a));
    b = AddHalves(b, SwapRows(b));
    const V all = __builtin_shufflevector(a, b, 0, 16, 2, 18, 8, 24, 10, 26, 0, 0, 0, 0, 0, 0, 0, 0);
    std::memcpy(&q, &all, sizeof q);
#else
    alignas(64) std::int32_t srb[kPixels], sg[kPixels];
    for (int i = 0; i < kChunks; i++) {
        V a = AddHalves(rb[i], SwapPairs(rb[i])), b = AddHalves(g[i], SwapPairs(g[i]));
#if KERNELS_LANES >= 8
        a = AddHalves(a, SwapRows(a));
        b = AddHalves(b, SwapRows(b));
#else
        if (i % 2 == 1) {  // the row above
            a = AddHalves(a, Load(srb + N * (i - 1)));
            b = AddHalves(b, Load(sg + N * (i - 1)));
        }
#endif
        Store(srb + N * i, a);
        Store(sg + N * i, b);
    }
    constexpr int kRow = KERNELS_LANES >= 8 ? 0 : 4;  // lanes of the sums: of either row, or of the lower one
    for (int i = 0; i < 4; i++) {
        const int lane = (i >> 1) * 8 + kRow + (i & 1) * 2;
        std::memcpy(q.q[i], srb + lane, 4);
        std::memcpy(q.q[i] + 2, sg + lane, 4);
    }
#endif
}

// The candidates of a comparison side by side, in order, and a few behind them that never win.
struct Candidates {
    // The last group may begin behind 30 candidates.
    alignas(64) std::int32_t constant[40], rb[40], g[40];

    void Put(int at, const V8& c, const V8& red_blue, const V8& green) {
        Store(constant + at, c);
        Store(rb + at, red_blue);
        Store(g + at, green);
    }
    int Append(int at, const CandidateList& list) {
        Put(at, LoadAs<V8>(list.constant) - at, LoadAs<V8>(list.rb), LoadAs<V8>(list.g));
        return at + list.n;
    }
};

// Cluster minus pixel: red and blue in the halves of a lane; green in the low half.
struct Difference {
    V rb[kChunks], g[kChunks];
};

inline Outcome CompareCell(const PixelBlock& px, const CandidateList* const (&lists)[5], Difference& d) {
    if ((lists[0]->n | lists[1]->n | lists[2]->n | lists[3]->n | lists[4]->n) < 0) return kUnfit;
    Candidates all;
    int total = 0;
    for (const CandidateList* list : lists) total = all.Append(total, *list);
    all.Put(total, V8{} + INT_MIN / 2, V8{}, V8{});
    if (total == 0) return kWithout;
    V rb[kChunks], g[kChunks], best[kChunks], brb[kChunks], bg[kChunks];
    for (int i = 0; i < kChunks; i++) {
        const V p = Load(px.p + N * i);
        rb[i] = RedBlue(p);
        g[i] = Green(p);
        best[i] = V{} + INT_MIN;
        brb[i] = bg[i] = V{};
    }
    constexpr int kStep = 2;  // candidates a turn; those behind the last never win
    for (int c = 0; c < total; c += kStep) {
#pragma GCC unroll 2
        for (int j = c; j < c + kStep; j++) {
            const V wrb = V{} + all.rb[j], wg = V{} + all.g[j], constant = V{} + all.constant[j];
            for (int i = 0; i < kChunks; i++) {
                const V score = MultiplyAdd(MultiplyAdd(constant, rb[i], wrb), g[i], wg);
#if KERNELS_LANES < 16
                const auto better = score > best[i];
                brb[i] = better ? wrb : brb[i];
                bg[i] = better ? wg : bg[i];
#endif
                best[i] = Max(best[i], score);
            }
        }
    }
#if KERNELS_LANES == 16
    // The place of the best stands in its low bits.
    const __m512i place = (__m512i)(31 - (best[0] & 31));
    brb[0] = (V)_mm512_permutex2var_epi32(_mm512_load_si512(all.rb), place, _mm512_load_si512(all.rb + 16));
    bg[0] = (V)_mm512_permutex2var_epi32(_mm512_load_si512(all.g), place, _mm512_load_si512(all.g + 16));
#endif
    for (int i = 0; i < kChunks; i++) {
        d.rb[i] = (V)(((W)brb[i] >> 6) - (W)rb[i]);
        d.g[i] = (V)(((W)bg[i] >> 6) - (W)g[i]);
    }
    return kCompared;
}

// The differences of cell j of a row, and their sums.
inline void StoreCell(const ComparisonRow& row, int j, const Difference& d) {
    alignas(64) std::int16_t channels[3][kPixels];
    for (int i = 0; i < kChunks; i++) {
        Store(channels[0] + N * i, __builtin_convertvector(d.rb[i], H));
        Store(channels[1] + N * i, __builtin_convertvector(d.g[i], H));
        Store(channels[2] + N * i, __builtin_convertvector(d.rb[i] >> 16, H));
    }
    for (std::size_t channel = 0; channel < 3; channel++)
        if (std::int16_t* const plane = row.planes[channel])
            for (std::size_t r = 0; r < 4; r++)
                std::memcpy(plane + 4 * j + r * row.width, channels[channel] + 4 * r, 8);
    SumQuadrants(d.rb, d.g, row.quadrants[j]);
}

#if KERNELS_LANES == 16
// The same of cells j .. j + 3.
inline void StoreFourCells(const ComparisonRow& row, int j, const Difference (&d)[4]) {
    V rb[4], g[4];  // row by row, four cells side by side
    ExchangeQuarters(d[0].rb[0], d[1].rb[0], d[2].rb[0], d[3].rb[0], rb);
    ExchangeQuarters(d[0].g[0], d[1].g[0], d[2].g[0], d[3].g[0], g);
    for (std::size_t r = 0; r < 4; r++) {
        const std::size_t at = static_cast<std::size_t>(4 * j) + r * row.width;
        Store(row.planes[0] + at, __builtin_convertvector(rb[r], H));
        if (row.planes[1] != nullptr) Store(row.planes[1] + at, __builtin_convertvector(g[r], H));
        if (row.planes[2] != nullptr) Store(row.planes[2] + at, __builtin_convertvector(rb[r] >> 16, H));
    }
    // Each half of the cells: lanes 0 and 2 of a quarter receive the sums of a cell's left and right quadrant.
    const auto half = [](V rb0, V rb1, V g0, V g1) {
        const V a = AddHalves(rb0, rb1), b = AddHalves(g0, g1);
        const V sa = AddHalves(a, SwapPairs(a)), sb = AddHalves(b, SwapPairs(b));
        return __builtin_shufflevector(sa, sb, 0, 16, 2, 18, 4, 20, 6, 22, 8, 24, 10, 26, 12, 28, 14, 30);
    };
    const V upper = half(rb[0], rb[1], g[0], g[1]), lower = half(rb[2], rb[3], g[2], g[3]);
    Store(row.quadrants + j,
          __builtin_shufflevector(upper, lower, 0, 1, 2, 3, 16, 17, 18, 19, 4, 5, 6, 7, 20, 21, 22, 23));
    Store(row.quadrants + j + 2,
          __builtin_shufflevector(upper, lower, 8, 9, 10, 11, 24, 25, 26, 27, 12, 13, 14, 15, 28, 29, 30, 31));
}
#endif

void Compare(const ComparisonRow& row) {
    const auto compare = [&](int j, Difference& d) {
        const CandidateList* const lists[5] = {row.own + j, row.above + j + 1, row.above + j, row.below + j,
                                               row.below + j + 1};
        return row.outcome[j] = CompareCell(row.px[j], lists, d);
    };
    int j = 0;
#if KERNELS_LANES == 16
    for (; j + 4 <= row.n; j += 4) {
        Difference d[4];
        int left_out = 0;
        for (int i = 0; i < 4; i++) left_out |= compare(j + i, d[i]);
        if (left_out == 0) {
            StoreFourCells(row, j, d);
            continue;
        }
        for (int i = 0; i < 4; i++)
            if (row.outcome[j + i] == kCompared) StoreCell(row, j + i, d[i]);
    }
#endif
    for (; j < row.n; j++) {
        Difference d;
        if (compare(j, d) == kCompared) StoreCell(row, j, d);
    }
}

void Sums(const PixelBlock& px, QuadrantSums& q) {
    V rb[kChunks], g[kChunks];
    for (int i = 0; i < kChunks; i++) {
        const V p = Load(px.p + N * i);
        rb[i] = RedBlue(p);
        g[i] = Green(p);
    }
    SumQuadrants(rb, g, q);
}

#include "vector_samples.h"

#include "vector_cluster.h"
#include "vector_maintain.h"

}  // namespace

extern const Table KERNELS_NAME;
const Table KERNELS_NAME{KERNELS_STRING, LoadPixels, Compare, Cluster, Maintain, Sums, Measure, Derive};

}  // namespace kernels
