// Vector form of a cell's cluster maintenance; part of vector_body.h. The steps are those of ClusterMaintenance.cpp.

// Of six clusters, the pair (i, j), i < j, that lies closest together, the earlier one on a tie: 64 times their squared
// distance + 8 i + j.
inline std::int32_t ClosestPair(const Means& m) {
#if KERNELS_LANES == 16
    // All fifteen pairs side by side; the last lane repeats the last pair.
    constexpr V kPair = {001, 002, 003, 004, 005, 012, 013, 014, 015, 023, 024, 025, 034, 035, 045, 045};
    const auto apart = [](V8 v) {
        return (V)((W)__builtin_shufflevector(v, v, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 3, 3, 4, 4) -
                   (W)__builtin_shufflevector(v, v, 1, 2, 3, 4, 5, 2, 3, 4, 5, 3, 4, 5, 4, 5, 5, 5));
    };
    const V rg = apart(m.RedGreen()), blue = apart(m.b & 0xffff);
    const V d = MultiplyAdd(MultiplyAdd(V{}, rg, rg), blue, blue);
    return -LargestLane(-(d << 6 | kPair));
#else
    // Each against those one, two and three places on, in a ring: all fifteen, some of them twice.
    const auto ring = [](V8 v) { return __builtin_shufflevector(v, v, 0, 1, 2, 3, 4, 5, 0, 1); };
    const V8 rg = ring(m.RedGreen()), blue = ring(m.b);
    const auto apart = [&](V8 next_rg, V8 next_blue, V8 pair) {
        const V8 d = (V8)((W8)rg - (W8)next_rg), e = blue - next_blue;
        return ((MultiplyPairs(d, d) + Times(e, e)) << 6) | pair;
    };
    constexpr V8 kOne = {001, 012, 023, 034, 045, 005, 001, 012}, kTwo = {002, 013, 024, 035, 004, 015, 002, 013};
    constexpr V8 kThree = {003, 014, 025, 003, 014, 025, 003, 014};
    V8 least = apart(__builtin_shufflevector(rg, rg, 1, 2, 3, 4, 5, 0, 1, 2),
                     __builtin_shufflevector(blue, blue, 1, 2, 3, 4, 5, 0, 1, 2), kOne);
    least = Min(least, apart(__builtin_shufflevector(rg, rg, 2, 3, 4, 5, 0, 1, 2, 3),
                             __builtin_shufflevector(blue, blue, 2, 3, 4, 5, 0, 1, 2, 3), kTwo));
    least = Min(least, apart(__builtin_shufflevector(rg, rg, 3, 4, 5, 0, 1, 2, 3, 4),
                             __builtin_shufflevector(blue, blue, 3, 4, 5, 0, 1, 2, 3, 4), kThree));
    least = Min(least, __builtin_shufflevector(least, least, 4, 5, 6, 7, 0, 1, 2, 3));
    least = Min(least, __builtin_shufflevector(least, least, 2, 3, 0, 1, 6, 7, 4, 5));
    const std::int32_t a = least[0], b = least[1];
    return a < b ? a : b;
#endif
}

// Opens clusters for samples that are far from all others. It works in memory, on a copy of the samples, which the rest
// of maintenance keeps in registers.
template <bool gray>
class Opening {
 public:
    Opening(ClusterSet& s, const Samples<gray>& in) : samples(in), set(s), n(s.n) {
        for (int i = 0; i < kGroups; i++) rank[i] = (kSamples - 1 - N * i) - Load(kLane);  // the earlier sample wins
        for (int i = 0; i < kSamples; i++) lane_at[i] = static_cast<std::uint8_t>(i);
    }

    // Kept apart from the frequent case, which needs the registers.
    __attribute__((noinline)) void Run(int maxdist) {
        FindWorst();
        for (int round = 0; round < 3 && dmax > maxdist; round++) {
            int first = n;  // of the clusters that the samples have not been compared with
            if (n == kClusters) {
                Merge();
                if (n == kClusters) break;
                first = 0;
            }
            Open();
            samples.Compare(first, n);
            FindWorst();
        }
        set.n = static_cast<std::int16_t>(n);
    }

    Samples<gray> samples;

 private:
    static constexpr int kChannels = gray ? 1 : 3;

    // The largest distance and the first sample with it.
    void FindWorst() {
        V top = V{} - 1;
        for (int i = 0; i < kGroups; i++) top = Max(top, (samples.Distances(i) << 6) + rank[i]);
        const std::int32_t t = LargestLane(top);
        dmax = t >> 6;
        worst = kSamples - 1 - (t & 63);
    }

    // The closest pair becomes one cluster, if it is closer than the worst sample; the last one moves into the gap.
    void Merge() {
        const std::int32_t closest = ClosestPair(MeansOf<gray>(set));
        if (closest >> 6 >= dmax) return;
        const int i = closest >> 3 & 7, j = closest & 7, last = --n;
        const int all = set.support[i] + set.support[j], support = all < kMaxSupport ? all : kMaxSupport;
        for (int channel = 0; channel < kChannels; channel++) {
            std::int32_t* const sum = set.sum[channel];
            std::int16_t* const mean = set.mean[channel];
            const int s = sum[i] + sum[j], fresh = (s + all / 2) / all;
            sum[i] = s - (all - support) * fresh;
            mean[i] = static_cast<std::int16_t>(fresh);
            sum[j] = sum[last];
            mean[j] = mean[last];
        }
        set.support[i] = static_cast<std::int16_t>(support);
        set.support[j] = set.support[last];
        samples.Weigh(MeansOf<gray>(set), n);
    }

    // A new cluster at the worst sample; the last sample takes its place in the order of the store.
    void Open() {
        const int j = n++, lane = lane_at[worst], last = lane_at[--left];
        const auto c = samples.At(lane);
        for (int channel = 0; channel < kChannels; channel++) {
            set.mean[channel][j] = static_cast<std::int16_t>(c.v[channel]);
            set.sum[channel][j] = c.v[channel];
        }
        set.support[j] = 1;
        samples.Weigh(j, c);
        lane_at[worst] = static_cast<std::uint8_t>(last);
        // The lane left over is farther from no cluster than any sample, has no channels and counts as none.
        for (int i = 0; i < kGroups; i++) {
            const V number = Load(kLane) + N * i;
            rank[i] = number == last ? V{} + (kSamples - 1 - worst) : rank[i];
            const V stays = (V)(number != lane);
            samples.rb[i] &= stays;
            samples.g1[i] &= stays;
            samples.pp[i] = (samples.pp[i] & stays) | (~stays & -(1 << 24));
        }
    }

    ClusterSet& set;
    int n;                // clusters in use
    int left = kSamples;  // samples in the store
    V rank[kGroups];
    std::uint8_t lane_at[kSamples];  // which lane holds the sample at each place of the store
    int dmax = 0, worst = 0;
};

// Where clusters vanish: the last one moves into the gap and is judged by what the vanished one was given.
template <bool gray>
__attribute__((noinline)) void ForgetOneByOne(ClusterSet& set) {
    constexpr int kChannels = gray ? 1 : 3;
    int n = set.n;
    for (int j = 0; j < n;) {
        if (set.support[j] >= kMaxSupport || set.added[j] > 1) {
            j++;
            continue;
        }
        const int step = set.added[j] - 2, support = set.support[j] + step;
        set.support[j] = static_cast<std::int16_t>(support);
        for (int channel = 0; channel < kChannels; channel++) set.sum[channel][j] += set.mean[channel][j] * step;
        if (support > 0) {
            j++;
            continue;
        }
        n--;
        set.support[j] = set.support[n];
        for (int channel = 0; channel < kChannels; channel++) {
            set.sum[channel][j] = set.sum[channel][n];
            set.mean[channel][j] = set.mean[channel][n];
        }
    }
    set.n = static_cast<std::int16_t>(n);
}

// Sums are order-free, so the samples of a cluster join it all at once; those that find it at full support each replace
// one sample at its mean. Then the fresh means. Slots behind the clusters keep what they hold.
// Always inline: the sums stay in registers.
template <bool gray>
inline __attribute__((always_inline)) void FoldAndForget(const GivenSums& given, ClusterSet& set, bool forget,
                                                         CandidateList& list) {
    const V8 count = given.Count();
    const V8 used = Slots() < set.n, before = Widen(set.support), all = before + count;
    const V8 support = Min(all, V8{} + kMaxSupport), over = all - support;
    const F8 divisor = __builtin_convertvector(used ? support : V8{} + 1, F8);
    Means m = MeansOf<gray>(set);
    V8 sums[3];
    const auto settle = [&](int channel, V8 joining, V8& mean) {
        const V8 old = LoadAs<V8>(set.sum[channel]), sum = old + joining - Times(mean, over);
        sums[channel] = used ? sum : old;
        mean = used ? RoundedMeans(sum, support, divisor) : mean;
        StoreSlots(set.mean[channel], mean);
    };
    settle(0, given.Red(), m.r);
    if (!gray) settle(1, given.Green(), m.g);
    if (!gray) settle(2, given.Blue(), m.b);
    StoreSlots(set.added, used ? count : Widen(set.added));

    // Clusters at full support, or with two samples or more, keep all they have.
    const V8 losing = used & (support < kMaxSupport) & (count < 2) & (forget ? -1 : 0);
    const V8 step = losing & (count - 2), rest = support + step;
    const bool vanish = !None(used & (rest <= 0));
    const V8 taken = vanish ? V8{} : step, kept = support + taken;
    StoreSlots(set.support, used ? kept : before);
    StoreSlots(set.sum[0], sums[0] + Times(m.r, taken));
    if (!gray) StoreSlots(set.sum[1], sums[1] + Times(m.g, taken));
    if (!gray) StoreSlots(set.sum[2], sums[2] + Times(m.b, taken));
    if (!vanish) {
        List(set.n, kept, m, list);
        return;
    }
    ForgetOneByOne<gray>(set);
    List(set.n, Widen(set.support), MeansOf<gray>(set), list);
}

// A cell of up to kMost clusters: a known number of turns is faster. Returns what its clusters are given.
template <bool gray, int kMost>
inline GivenSums Assign(const CellRun& run, int j, int maxdist) {
    ClusterSet& set = run.sets[run.cells[j]];
    Samples<gray> samples(run.samples + j, run.stride);
    samples.Weigh(MeansOf<gray>(set), set.n);
    samples.Compare(0, kMost);
    V top = samples.Distances(0);
    for (int i = 1; i < kGroups; i++) top = Max(top, samples.Distances(i));
    // Nothing opens either where six clusters are farther apart than any sample is from its own.
    if (!AnyAbove(top, maxdist) || (set.n == kClusters && !AnyAbove(top, ClosestPair(MeansOf<gray>(set)) >> 6)))
        return samples.template SumClusters<kMost>();
    Opening<gray> opening(set, samples);
    opening.Run(maxdist);
    return opening.samples.template SumClusters<kClusters>();
}

// Cells j on, to the end of the batch or the first one that does not fit; returns how many.
template <bool gray>
int AssignBatch(const CellRun& run, int j, int count, int maxdist, GivenSums* given) {
    for (int i = 0; i < count; i++, j++) {
        // The next cells' clusters and lists come from the outer caches, whose latency would show.
        constexpr int kAhead = 4, kLine = 64;
        const int next = run.cells[j + kAhead < run.n ? j + kAhead : j];
        for (int byte = 0; byte < static_cast<int>(sizeof(ClusterSet)); byte += kLine)
            __builtin_prefetch(reinterpret_cast<const char*>(run.sets + next) + byte, 1);
        __builtin_prefetch(run.lists + next, 1);
        const int n = run.sets[run.cells[j]].n;
        if (n == 0 || run.lists[run.cells[j]].n < 0) return i;
        if (n > 4)
            given[i] = Assign<gray, 6>(run, j, maxdist);
        else if (n > 2)
            given[i] = Assign<gray, 4>(run, j, maxdist);
        else
            given[i] = Assign<gray, 2>(run, j, maxdist);
    }
    return count;
}

// Folding is one long chain a cell, of sum, quotient, mean and list: those of several cells overlap where nothing else
// stands between them.
template <bool gray>
int MaintainRun(const CellRun& run, int maxdist, bool forget) {
    constexpr int kBatch = 16;
    GivenSums given[kBatch];
    for (int j = 0; j < run.n;) {
        const int count = run.n - j < kBatch ? run.n - j : kBatch;
        const int done = AssignBatch<gray>(run, j, count, maxdist, given);
        for (int i = 0; i < done; i++, j++)
            FoldAndForget<gray>(given[i], run.sets[run.cells[j]], forget, run.lists[run.cells[j]]);
        if (done < count) return j;
    }
    return run.n;
}

int Maintain(const CellRun& run, int maxdist, bool gray, bool forget) {
    return gray ? MaintainRun<true>(run, maxdist * maxdist, forget) : MaintainRun<false>(run, maxdist, forget);
}
