// Loading pixels, and their sums; part of vector_body.h.

#if KERNELS_LANES < 16
typedef std::uint8_t B16 __attribute__((vector_size(16)));

// The twelve bytes of a row of a cell, and nothing behind them.
inline B16 Twelve(const unsigned char* at) {
    typedef std::int64_t L2 __attribute__((vector_size(16)));
    return (B16)L2{LoadAs<std::int64_t>(at), LoadAs<std::int32_t>(at + 8)};
}

// Twelve bytes of each row become sixteen, with a zero behind each three: those from byte kSkip on, 0 or 4.
#if defined(__AVX2__)
template <int kSkip>
inline V Spread(B16 row, B16 next) {
    const __m256i rows = _mm256_inserti128_si256(_mm256_castsi128_si256((__m128i)row), (__m128i)next, 1);
    const __m128i spread = _mm_setr_epi8(kSkip, kSkip + 1, kSkip + 2, -1, kSkip + 3, kSkip + 4, kSkip + 5, -1,
                                         kSkip + 6, kSkip + 7, kSkip + 8, -1, kSkip + 9, kSkip + 10, kSkip + 11, -1);
    return (V)_mm256_shuffle_epi8(rows, _mm256_broadcastsi128_si256(spread));
}
#elif defined(__SSE2__)
template <int kSkip>
inline V Spread(B16 row) {
    // Two pixels to each half; the second of them makes room for the byte between.
    const __m128i halves =
        _mm_unpacklo_epi64(_mm_srli_si128((__m128i)row, kSkip), _mm_srli_si128((__m128i)row, kSkip + 6));
    const __m128i first = _mm_set1_epi64x(0xffffff), second = _mm_set1_epi64x(0xffffffLL << 32);
    return (V)_mm_or_si128(_mm_and_si128(halves, first), _mm_and_si128(_mm_slli_epi64(halves, 8), second));
}
#else
template <int kSkip>
inline V Spread(B16 row) {
    constexpr B16 kFrom = {kSkip,     kSkip + 1, kSkip + 2, 255, kSkip + 3, kSkip + 4,  kSkip + 5,  255,
                           kSkip + 6, kSkip + 7, kSkip + 8, 255, kSkip + 9, kSkip + 10, kSkip + 11, 255};
    return (V)vqtbl1q_u8((uint8x16_t)row, (uint8x16_t)kFrom);
}
#endif

// The rows come from `row`, a function of an address.
template <int kSkip, class Row>
inline void LoadCell(const unsigned char* rgb, std::size_t stride, PixelBlock& px, Row row) {
    for (int i = 0; i < kChunks; i++) {
#if KERNELS_LANES == 8
        Store(px.p + N * i, Spread<kSkip>(row(rgb), row(rgb + stride)));
        rgb += 2 * stride;
#else
        Store(px.p + N * i, Spread<kSkip>(row(rgb)));
        rgb += stride;
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
    // Sixteen bytes at a time stay inside the cells: those of the first run into the second, all others begin before
    // it.
    if (n == 1) LoadCell<0>(rgb, stride, *px, Twelve);
    if (n < 2) return;
    LoadCell<0>(rgb, stride, *px, LoadAs<B16>);
    for (int j = 1; j < n; j++) LoadCell<4>(rgb + 12 * j - 4, stride, px[j], LoadAs<B16>);
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

void Sums(const PixelBlock& px, QuadrantSums& q) {
    V rb[kChunks], g[kChunks];
    for (int i = 0; i < kChunks; i++) {
        const V p = Load(px.p + N * i);
        rb[i] = RedBlue(p);
        g[i] = Green(p);
    }
    SumQuadrants(rb, g, q);
}
