// The vector kernels, one body for every instruction set. A file of its own per set defines KERNELS_NAME and
// KERNELS_LANES (32-bit lanes of a vector) and includes this one; the compiler maps the vector type to registers.
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
typedef float F __attribute__((vector_size(4 * N)));

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

// Sums of the lanes of a and of b, in the low and the high half of the result. Neither sum may exceed 32 bits.
inline std::uint64_t SumLanes(V a, V b) {
    std::uint64_t sums;
#if KERNELS_LANES == 16
    const V t = __builtin_shufflevector(a, b, 0, 16, 1, 17, 4, 20, 5, 21, 8, 24, 9, 25, 12, 28, 13, 29) +
                __builtin_shufflevector(a, b, 2, 18, 3, 19, 6, 22, 7, 23, 10, 26, 11, 27, 14, 30, 15, 31);
    typedef std::int32_t Half __attribute__((vector_size(32)));
    const Half h = __builtin_shufflevector(t, t, 0, 1, 2, 3, 4, 5, 6, 7) +
                   __builtin_shufflevector(t, t, 8, 9, 10, 11, 12, 13, 14, 15);
    auto q = __builtin_shufflevector(h, h, 0, 1, 2, 3) + __builtin_shufflevector(h, h, 4, 5, 6, 7);
    q += __builtin_shufflevector(q, q, 2, 3, 0, 1);
#elif KERNELS_LANES == 8
    const V t = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13) +
                __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
    auto q = __builtin_shufflevector(t, t, 0, 1, 2, 3) + __builtin_shufflevector(t, t, 4, 5, 6, 7);
    q += __builtin_shufflevector(q, q, 2, 3, 0, 1);
#else
    V q = __builtin_shufflevector(a, b, 0, 4, 1, 5) + __builtin_shufflevector(a, b, 2, 6, 3, 7);
    q += __builtin_shufflevector(q, q, 2, 3, 0, 1);
#endif
    std::memcpy(&sums, &q, sizeof sums);
    return sums;
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

// Three bytes a pixel become four. A row's twelve bytes are read exactly: nothing behind the frame is touched.
void LoadPixels(const unsigned char* rgb, std::size_t stride, PixelBlock& px) {
    for (int r = 0; r < 4; r++, rgb += stride) {
        std::uint64_t a;
        std::uint32_t b;
        std::memcpy(&a, rgb, 8);
        std::memcpy(&b, rgb + 8, 4);
#if defined(__SSSE3__)
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

// Quadrant sums of 16 pixels given as red-blue and green halves per lane.
inline void SumQuadrants(const V (&rb)[kChunks], const V (&g)[kChunks], QuadrantSums& q) {
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
}

void Nearest(const PixelBlock& px, const CandidateList* const* lists, int nlists, DifferenceBlock& d, QuadrantSums& q) {
    V rb[kChunks], g[kChunks], best[kChunks], brb[kChunks], bg[kChunks];
    for (int i = 0; i < kChunks; i++) {
        const V p = Load(px.p + N * i);
        rb[i] = RedBlue(p);
        g[i] = Green(p);
        best[i] = V{} + INT_MIN;
        brb[i] = bg[i] = V{};
    }
    for (int l = 0; l < nlists; l++) {
        const CandidateList& list = *lists[l];
        for (int j = 0; j < list.n; j++) {
            const CandidateList::Candidate& c = list.c[j];
            const V wrb = V{} + c.rb, wg = V{} + c.g, constant = V{} + c.constant;
            for (int i = 0; i < kChunks; i++) {
                const V score = MultiplyAdd(MultiplyAdd(constant, rb[i], wrb), g[i], wg);
                const auto better = score > best[i];
                best[i] = Max(best[i], score);  // beside the comparison, not behind it
                brb[i] = better ? wrb : brb[i];
                bg[i] = better ? wg : bg[i];
            }
        }
    }
    for (int i = 0; i < kChunks; i++) {
        rb[i] = (V)(((W)brb[i] >> 1) - (W)rb[i]);
        g[i] = (V)(((W)bg[i] >> 1) - (W)g[i]);
        Store(d.r + N * i, __builtin_convertvector(rb[i], H));
        Store(d.g + N * i, __builtin_convertvector(g[i], H));
        Store(d.b + N * i, __builtin_convertvector(rb[i] >> 16, H));
    }
    SumQuadrants(rb, g, q);
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

#include "vector_maintain.h"

}  // namespace

extern const Table KERNELS_NAME;
const Table KERNELS_NAME{KERNELS_STRING, LoadPixels, Nearest, Maintain, Sums, Measure, Derive};

}  // namespace kernels
