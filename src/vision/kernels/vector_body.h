// The vector kernels, one body for every instruction set. A file of its own per set defines KERNELS_NAME and
// KERNELS_LANES (32-bit lanes of a vector) and includes this one; the compiler maps the vector type to registers.
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vision/kernels/kernels.h"
#include "vision/kernels/row_loops.h"

// Nothing from headers that might not be inlined: the linker could give such a function to plain code.
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
typedef std::int16_t W8 __attribute__((vector_size(32)));  // two halves of it
typedef std::int16_t H8 __attribute__((vector_size(16)));
typedef std::uint8_t B8 __attribute__((vector_size(8)));
typedef float F8 __attribute__((vector_size(32)));

// A vector anywhere in memory. Not by memcpy: GCC 12 takes some copies through general registers and the stack.
template <class T>
struct __attribute__((packed, may_alias)) Anywhere {
    T v;
};
template <class T>
inline T LoadAs(const void* p) {
    return static_cast<const Anywhere<T>*>(p)->v;
}
inline V Load(const void* p) {
    return LoadAs<V>(p);
}
template <class T>
inline void Store(void* p, const T& v) {
    static_cast<Anywhere<T>*>(p)->v = v;
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

// Whether a lane is larger than the limit.
inline bool AnyAbove(V v, std::int32_t limit) {
    const V bound = V{} + limit;
#if KERNELS_LANES == 16
    return _mm512_cmpgt_epi32_mask((__m512i)v, (__m512i)bound) != 0;
#elif KERNELS_LANES == 8
    return _mm256_movemask_ps((__m256)(v > bound)) != 0;
#elif defined(__SSE2__)
    return _mm_movemask_ps((__m128)(v > bound)) != 0;
#else
    const V above = v > bound;
    return (above[0] | above[1] | above[2] | above[3]) != 0;
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

// Sums of p's and of q's lanes in each block of four, in turn: each lane one of half as many.
inline V AddPairs(V p, V q) {
#if KERNELS_LANES == 16
    return __builtin_shufflevector(p, q, 0, 16, 1, 17, 4, 20, 5, 21, 8, 24, 9, 25, 12, 28, 13, 29) +
           __builtin_shufflevector(p, q, 2, 18, 3, 19, 6, 22, 7, 23, 10, 26, 11, 27, 14, 30, 15, 31);
#elif KERNELS_LANES == 8
    return __builtin_shufflevector(p, q, 0, 8, 1, 9, 4, 12, 5, 13) +
           __builtin_shufflevector(p, q, 2, 10, 3, 11, 6, 14, 7, 15);
#else
    return __builtin_shufflevector(p, q, 0, 4, 1, 5) + __builtin_shufflevector(p, q, 2, 6, 3, 7);
#endif
}

// Sums of all lanes of p, q, r and s.
typedef std::int32_t V4 __attribute__((vector_size(16)));
inline V4 AddQuads(V p, V q, V r, V s) {
#if defined(__ARM_NEON)
    return (V4)vpaddq_s32(vpaddq_s32((int32x4_t)p, (int32x4_t)q), vpaddq_s32((int32x4_t)r, (int32x4_t)s));
#else
    const V pq = AddPairs(p, q), rs = AddPairs(r, s);
#if KERNELS_LANES == 16
    const V t = __builtin_shufflevector(pq, rs, 0, 1, 16, 17, 4, 5, 20, 21, 8, 9, 24, 25, 12, 13, 28, 29) +
                __builtin_shufflevector(pq, rs, 2, 3, 18, 19, 6, 7, 22, 23, 10, 11, 26, 27, 14, 15, 30, 31);
    const V8 half = __builtin_shufflevector(t, t, 0, 1, 2, 3, 4, 5, 6, 7) +
                    __builtin_shufflevector(t, t, 8, 9, 10, 11, 12, 13, 14, 15);
#elif KERNELS_LANES == 8
    const V8 half = __builtin_shufflevector(pq, rs, 0, 1, 8, 9, 4, 5, 12, 13) +
                    __builtin_shufflevector(pq, rs, 2, 3, 10, 11, 6, 7, 14, 15);
#endif
#if KERNELS_LANES >= 8
    return __builtin_shufflevector(half, half, 0, 1, 2, 3) + __builtin_shufflevector(half, half, 4, 5, 6, 7);
#else
    return __builtin_shufflevector(pq, rs, 0, 1, 4, 5) + __builtin_shufflevector(pq, rs, 2, 3, 6, 7);
#endif
#endif
}

// Sums of the lanes of a[j] into lane j of sum_a, likewise b; six of each; the other lanes are left over. No sum may
// exceed 32 bits.
inline void SumLanes(const V (&a)[kClusters], const V (&b)[kClusters], V8& sum_a, V8& sum_b) {
    const V4 first_a = AddQuads(a[0], a[1], a[2], a[3]), first_b = AddQuads(b[0], b[1], b[2], b[3]);
    const V4 rest = AddQuads(a[4], a[5], b[4], b[5]);
    sum_a = __builtin_shufflevector(first_a, rest, 0, 1, 2, 3, 4, 5, 6, 7);
    sum_b = __builtin_shufflevector(first_b, rest, 0, 1, 2, 3, 6, 7, 4, 5);
}

// acc + a.low * b.low + a.high * b.high of every lane's 16-bit halves.
inline V MultiplyAdd(V acc, V a, V b) {
#if defined(__AVX512VNNI__) && KERNELS_LANES == 16
    return (V)_mm512_dpwssd_epi32((__m512i)acc, (__m512i)a, (__m512i)b);
#elif defined(__AVXVNNI__) && KERNELS_LANES == 8
    return (V)_mm256_dpwssd_avx_epi32((__m256i)acc, (__m256i)a, (__m256i)b);
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

// The same without a sum, lane by lane of a cell's clusters.
inline V8 MultiplyPairs(V8 a, V8 b) {
#if defined(__AVX2__)
    return (V8)_mm256_madd_epi16((__m256i)a, (__m256i)b);
#else
    const auto low = [](V8 v) { return __builtin_shufflevector(v, v, 0, 1, 2, 3); };
    const auto high = [](V8 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7); };
    return __builtin_shufflevector(MultiplyAdd(V{}, low(a), low(b)), MultiplyAdd(V{}, high(a), high(b)), 0, 1, 2, 3, 4,
                                   5, 6, 7);
#endif
}
// Products of values that fit 16 bits: on x86-64 those of 32 bits take longer.
inline V8 Times(V8 a, V8 b) {
#if defined(__SSE2__)
    return MultiplyPairs(a, b & 0xffff);
#else
    return a * b;
#endif
}

// Red and blue of RGB0 pixels in the halves of a lane; green in the low half.
inline V RedBlue(V px) {
    return px & 0x00ff00ff;
}
inline V Green(V px) {
    return (px >> 8) & 0xff;
}

// Neighbours change places: lanes of a pair, rows of four lanes.
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

#include "vision/kernels/vector_pixels.h"

#include "vision/kernels/vector_compare.h"

#include "vision/kernels/vector_samples.h"

#include "vision/kernels/vector_cluster.h"
#include "vision/kernels/vector_maintain.h"

}  // namespace

extern const Table KERNELS_NAME;
const Table KERNELS_NAME{KERNELS_STRING, LoadPixels, Compare, Cluster, Maintain, Sums, Add, Measure, Derive};

}  // namespace kernels
