// Vector form of the comparison of pixels with the clusters around them; part of vector_body.h.

// The green weights of a list in the low halves of lanes.
inline V8 Greens(const CandidateList& list) {
#if defined(__AVX2__)
    return (V8)_mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(list.g)));
#else
    return __builtin_convertvector(LoadAs<H8>(list.g), V8) & 0xffff;
#endif
}

// The candidates of a comparison side by side, in order, and a few behind them that never win.
class Candidates {
 public:
    Outcome Gather(const CandidateList* const (&lists)[5]) {
        if ((lists[0]->n | lists[1]->n | lists[2]->n | lists[3]->n | lists[4]->n) < 0) return kUnfit;
        int at = 0;
        for (const CandidateList* list : lists) {
            Put(at, LoadAs<V8>(list->constant) - at, LoadAs<V8>(list->rb), Greens(*list));
            at += list->n;
        }
        Put(at, V8{} + INT_MIN / 2, V8{}, V8{});
        total = at;
        return at == 0 ? kWithout : kCompared;
    }

    int total;
    // The last group of eight may begin behind 30 candidates.
    alignas(64) std::int32_t constant[40], rb[40], g[40];

 private:
    void Put(int at, const V8& c, const V8& red_blue, const V8& green) {
        Store(constant + at, c);
        Store(rb + at, red_blue);
        Store(g + at, green);
    }
};

// The weights of the winners. Their places in the order stand in the low bits of their scores, so that nothing but the
// maximum has to be kept while candidates are compared.
inline void FetchWinners(const Candidates& all, const V (&best)[kChunks], V (&rb)[kChunks], V (&g)[kChunks]) {
    for (int i = 0; i < kChunks; i++) {
        const V place = 31 - (best[i] & 31);
#if KERNELS_LANES == 16
        const __m512i at = (__m512i)place;
        rb[i] = (V)_mm512_permutex2var_epi32(_mm512_load_si512(all.rb), at, _mm512_load_si512(all.rb + 16));
        g[i] = (V)_mm512_permutex2var_epi32(_mm512_load_si512(all.g), at, _mm512_load_si512(all.g + 16));
#elif KERNELS_LANES == 8
        const auto from = [&](const std::int32_t* eight) {  // each lane has eight to choose from
            return (V)_mm256_permutevar8x32_epi32((__m256i)Load(eight), (__m256i)place);
        };
        rb[i] = from(all.rb);
        g[i] = from(all.g);
        for (int first = N; first < all.total; first += N) {
            const V behind = place >= first;
            rb[i] = behind ? from(all.rb + first) : rb[i];
            g[i] = behind ? from(all.g + first) : g[i];
        }
#else
        rb[i] = V{all.rb[place[0]], all.rb[place[1]], all.rb[place[2]], all.rb[place[3]]};
        g[i] = V{all.g[place[0]], all.g[place[1]], all.g[place[2]], all.g[place[3]]};
#endif
    }
}

// Cluster minus pixel: red and blue in the halves of a lane; green in the low half.
inline void Compare(const PixelBlock& px, const Candidates& all, V (&drb)[kChunks], V (&dg)[kChunks]) {
    V rb[kChunks], g[kChunks], best[kChunks], brb[kChunks], bg[kChunks];
    for (int i = 0; i < kChunks; i++) {
        const V p = Load(px.p + N * i);
        rb[i] = RedBlue(p);
        g[i] = Green(p);
        best[i] = V{} + INT_MIN;
    }
    constexpr int kStep = 2;  // candidates a turn; those behind the last never win
    for (int c = 0; c < all.total; c += kStep) {
#pragma GCC unroll 2
        for (int j = c; j < c + kStep; j++) {
            const V wrb = V{} + all.rb[j], wg = V{} + all.g[j], constant = V{} + all.constant[j];
            for (int i = 0; i < kChunks; i++)
                best[i] = Max(best[i], MultiplyAdd(MultiplyAdd(constant, rb[i], wrb), g[i], wg));
        }
    }
    FetchWinners(all, best, brb, bg);
    for (int i = 0; i < kChunks; i++) {
        drb[i] = (V)(((W)brb[i] >> 6) - (W)rb[i]);
        dg[i] = (V)(((W)bg[i] >> 6) - (W)g[i]);
    }
}

constexpr int kTogether = N == 16 ? 4 : 2;                             // cells side by side that are stored at a time
typedef std::int16_t Row __attribute__((vector_size(8 * kTogether)));  // of one channel of theirs, in pixels

// In each block of four lanes, the low (high) halves of a's and behind them those of b's.
inline W LowHalves(V a, V b) {
#if KERNELS_LANES == 16
    return (W)_mm512_maskz_packus_epi32(0xffffffff, (__m512i)(a & 0xffff), (__m512i)(b & 0xffff));
#elif KERNELS_LANES == 8
    return (W)_mm256_packus_epi32((__m256i)(a & 0xffff), (__m256i)(b & 0xffff));
#elif defined(__SSE2__)
    return (W)_mm_packs_epi32((__m128i)(a << 16 >> 16), (__m128i)(b << 16 >> 16));  // as signed ones they fit
#else
    return (W)vuzp1q_s16((int16x8_t)a, (int16x8_t)b);
#endif
}
inline W HighHalves(V a, V b) {
#if defined(__SSE2__)
    return LowHalves(a >> 16, b >> 16);
#else
    return (W)vuzp2q_s16((int16x8_t)a, (int16x8_t)b);
#endif
}

// Sums of neighbours: of a's, then of b's. None exceeds 16 bits.
#if KERNELS_LANES == 16
inline Row AddNeighbors(Row a, Row b) {
    const __m256i one = _mm256_set1_epi16(1);
    const __m256i sums = _mm256_packs_epi32(_mm256_madd_epi16((__m256i)a, one), _mm256_madd_epi16((__m256i)b, one));
    return (Row)_mm256_permute4x64_epi64(sums, 0xd8);
}
#else
inline Row AddNeighbors(Row a, Row b) {
#if defined(__SSE2__)
    const __m128i one = _mm_set1_epi16(1);
    return (Row)_mm_packs_epi32(_mm_madd_epi16((__m128i)a, one), _mm_madd_epi16((__m128i)b, one));
#else
    return (Row)vpaddq_s16((int16x8_t)a, (int16x8_t)b);
#endif
}
#endif

// One channel of kCells cells from j on, out of the halves that `halves` takes; and its quadrant sums. kTogether cells
// are given, whatever they are.
template <int kCells, class Halves>
inline void StoreChannel(const ComparisonRow& to, int channel, int j, const V (&d)[kTogether][kChunks], Halves halves) {
    if (to.planes[channel] == nullptr) return;
    Row rows[4];
#if KERNELS_LANES == 16
    const V left = (V)halves(d[0][0], d[1][0]), right = (V)halves(d[2][0], d[3][0]);
    rows[0] = (Row)__builtin_shufflevector(left, right, 0, 1, 2, 3, 16, 17, 18, 19);
    rows[1] = (Row)__builtin_shufflevector(left, right, 4, 5, 6, 7, 20, 21, 22, 23);
    rows[2] = (Row)__builtin_shufflevector(left, right, 8, 9, 10, 11, 24, 25, 26, 27);
    rows[3] = (Row)__builtin_shufflevector(left, right, 12, 13, 14, 15, 28, 29, 30, 31);
#elif KERNELS_LANES == 8
    for (int i = 0; i < kChunks; i++) {
        const W both = halves(d[0][i], d[1][i]);
        rows[2 * i] = __builtin_shufflevector(both, both, 0, 1, 2, 3, 4, 5, 6, 7);
        rows[2 * i + 1] = __builtin_shufflevector(both, both, 8, 9, 10, 11, 12, 13, 14, 15);
    }
#else
    for (int i = 0; i < kChunks; i++) rows[i] = halves(d[0][i], d[1][i]);
#endif
    std::int16_t* const plane = to.planes[channel] + 4 * j;
    for (std::size_t r = 0; r < 4; r++) std::memcpy(plane + r * to.width, rows + r, 8 * kCells);
    const Row sums = AddNeighbors(rows[0] + rows[1], rows[2] + rows[3]);
    std::int16_t* const quadrants = to.sums[channel] + 2 * j;
    std::memcpy(quadrants, &sums, 4 * kCells);
    std::memcpy(quadrants + to.sums_width, reinterpret_cast<const char*>(&sums) + sizeof sums / 2, 4 * kCells);
}

template <int kCells>
inline void StoreCells(const ComparisonRow& row, int j, const V (&rb)[kTogether][kChunks],
                       const V (&g)[kTogether][kChunks]) {
    StoreChannel<kCells>(row, 0, j, rb, LowHalves);
    StoreChannel<kCells>(row, 1, j, g, LowHalves);
    StoreChannel<kCells>(row, 2, j, rb, HighHalves);
}

void Compare(const ComparisonRow& row) {
    const auto gather = [&](int j, Candidates& all) {
        const CandidateList* const lists[5] = {row.own + j, row.above + j + 1, row.above + j, row.below + j,
                                               row.below + j + 1};
        return row.outcome[j] = all.Gather(lists);
    };
    const auto compare_one = [&](int j, const Candidates& all) {
        V rb[kTogether][kChunks] = {}, g[kTogether][kChunks] = {};
        Compare(row.px[j], all, rb[0], g[0]);
        StoreCells<1>(row, j, rb, g);
    };
    int j = 0;
    // Gathering for some cells ahead of comparing lets the writes reach the cache before they are read as whole lines.
    for (; j + kTogether <= row.n; j += kTogether) {
        Candidates all[kTogether];
        int left_out = 0;
        for (int i = 0; i < kTogether; i++) left_out |= gather(j + i, all[i]);
        if (left_out == 0) {
            V rb[kTogether][kChunks], g[kTogether][kChunks];
            for (int i = 0; i < kTogether; i++) Compare(row.px[j + i], all[i], rb[i], g[i]);
            StoreCells<kTogether>(row, j, rb, g);
            continue;
        }
        for (int i = 0; i < kTogether; i++)
            if (row.outcome[j + i] == kCompared) compare_one(j + i, all[i]);
    }
    for (; j < row.n; j++) {
        Candidates all;
        if (gather(j, all) == kCompared) compare_one(j, all);
    }
}
