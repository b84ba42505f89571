// Vector form of the comparison of pixels with the clusters around them; part of vector_body.h.

// The green weights of a list in the low halves of lanes.
inline V8 Greens(const CandidateList& list) {
#if defined(__AVX2__)
    return (V8)_mm256_cvtepu16_epi32(LoadAs<__m128i>(list.g));
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

// Cluster minus pixel: red and blue in the halves of a lane; green in the low half.
struct Difference {
    V rb[kChunks], g[kChunks];
};

inline void Compare(const PixelBlock& px, const Candidates& all, Difference& d) {
    V rb[kChunks], g[kChunks], best[kChunks], brb[kChunks], bg[kChunks];
    for (int i = 0; i < kChunks; i++) {
        const V p = Load(px.p + N * i);
        rb[i] = RedBlue(p);
        g[i] = Green(p);
        best[i] = V{} + INT_MIN;
        brb[i] = bg[i] = V{};
    }
    constexpr int kStep = 2;  // candidates a turn; those behind the last never win
    for (int c = 0; c < all.total; c += kStep) {
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
    QuadrantSums q;
    SumQuadrants(d.rb, d.g, q);
    StoreQuadrants(row, j, q);
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
    // Each row of quadrants: a pair of lanes adds up to one of them.
    const auto store = [&](V rb0, V rb1, V g0, V g1, std::size_t at) {
        typedef std::int64_t L __attribute__((vector_size(64)));
        const V a = AddHalves(rb0, rb1), b = AddHalves(g0, g1);
        const L sa = (L)AddHalves(a, SwapPairs(a)), sb = (L)AddHalves(b, SwapPairs(b));
        Store(row.sums[0] + at, __builtin_convertvector(sa, H8));
        if (row.sums[1] != nullptr) Store(row.sums[1] + at, __builtin_convertvector(sb, H8));
        if (row.sums[2] != nullptr) Store(row.sums[2] + at, __builtin_convertvector(sa >> 16, H8));
    };
    const std::size_t upper = 2 * static_cast<std::size_t>(j);
    store(rb[0], rb[1], g[0], g[1], upper);
    store(rb[2], rb[3], g[2], g[3], upper + row.sums_width);
}
#endif

void Compare(const ComparisonRow& row) {
    const auto gather = [&](int j, Candidates& all) {
        const CandidateList* const lists[5] = {row.own + j, row.above + j + 1, row.above + j, row.below + j,
                                               row.below + j + 1};
        return row.outcome[j] = all.Gather(lists);
    };
    int j = 0;
#if KERNELS_LANES == 16
    // Gathering for four cells ahead of comparing lets the writes reach the cache before they are read as whole lines.
    for (; j + 4 <= row.n; j += 4) {
        Candidates all[4];
        Difference d[4];
        int left_out = 0;
        for (int i = 0; i < 4; i++) left_out |= gather(j + i, all[i]);
        if (left_out == 0) {
            for (int i = 0; i < 4; i++) Compare(row.px[j + i], all[i], d[i]);
            StoreFourCells(row, j, d);
            continue;
        }
        for (int i = 0; i < 4; i++) {
            if (row.outcome[j + i] != kCompared) continue;
            Compare(row.px[j + i], all[i], d[i]);
            StoreCell(row, j + i, d[i]);
        }
    }
#endif
    for (; j < row.n; j++) {
        Candidates all;
        Difference d;
        if (gather(j, all) != kCompared) continue;
        Compare(row.px[j], all, d);
        StoreCell(row, j, d);
    }
}
