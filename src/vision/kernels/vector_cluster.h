// Vector form of a cell's first clustering; part of vector_body.h. The steps are those of CellClustering.cpp.

template <bool gray>
class Clusterer : private Samples<gray> {
 public:
    Clusterer(ClusterSet& s, const PixelBlock* first, std::size_t stride, long (*draw_in)())
        : Samples<gray>(first, stride), set(s), draw(draw_in) {
        for (V& v : earlier) v = V{} + 7;
    }

    void Run(int maxdist) {
        if (OneCluster(maxdist)) return;
        int k = 1;
        for (bool first = true;; first = false) {
            set.n = static_cast<std::int16_t>(k + 1);
            ChooseCenters();
            if (!Converge()) {
                set.n = static_cast<std::int16_t>(k);
                if (k > 2) break;
                continue;
            }
            if (set.n > 2 || (first && LargestDistance() <= maxdist)) break;
            k = set.n;
        }
    }

 private:
    using Base = Samples<gray>;
    using Base::At;
    using Base::Compare;
    using Base::Distances;
    using Base::key;
    using Base::Weigh;
    using typename Base::Channels;

    bool OneCluster(int maxdist) {
        const GivenSums all = Base::template SumClusters<1>();
        StoreSums(all, 1);
        const V8 divisor = V8{} + kSamples;
        const auto mean = [&](V8 s) { return RoundedMeans(s, divisor, __builtin_convertvector(divisor, F8))[0]; };
        const Channels c{{mean(all.Red()), gray ? 0 : mean(all.Green()), gray ? 0 : mean(all.Blue())}};
        Weigh(0, c);
        Compare(0, 1);
        if (LargestDistance() > maxdist) return false;
        SetMean(0, c);
        set.support[0] = kSamples;
        set.n = 1;
        return true;
    }

    int LargestDistance() const {
        V top{};
        for (int i = 0; i < kGroups; i++) top = Max(top, Distances(i));
        return LargestLane(top);
    }

    void SetMean(int j, const Channels& c) {
        for (int channel = 0; channel < (gray ? 1 : 3); channel++)
            set.mean[channel][j] = static_cast<std::int16_t>(c.v[channel]);
    }

    // Starting centres at distinct samples of distinct colours, with new draws as often as needed.
    void ChooseCenters() {
        int icl[kMost];
        Channels c[kMost];
        bool distinct;
        do {
            distinct = true;
            for (int j = 0; j < set.n; j++) {
                do {
                    icl[j] = static_cast<int>(draw() % kSamples);
                } while ((j > 0 && icl[j] == icl[0]) || (j > 1 && icl[j] == icl[1]));
                c[j] = At(icl[j]);
                for (int i = 0; i < j; i++)
                    distinct &= c[i].v[0] != c[j].v[0] || c[i].v[1] != c[j].v[1] || c[i].v[2] != c[j].v[2];
            }
        } while (!distinct);
        for (int j = 0; j < set.n; j++) {
            SetMean(j, c[j]);
            Weigh(j, c[j]);
        }
    }

    // Passes until nothing moves, at most 16. False where a cluster came out empty.
    bool Converge() {
        for (int pass = 0; pass < kPasses; pass++) {
            Compare(0, set.n);
            V moved{};
            for (int i = 0; i < kGroups; i++) {
                moved |= (key[i] ^ earlier[i]) & 7;
                earlier[i] = key[i];
            }
            if (LargestLane(moved) == 0) return true;
            if (!Recentre()) return false;
        }
        return true;
    }

    bool Recentre() {
        const GivenSums all = Base::template SumClusters<kMost>();
        StoreSums(all, set.n);
        const V8 used = Slots() < set.n;
        const V8 filled = all.Count() > 0;
        const V8 fresh = used & filled;
        StoreSlots(set.support, used ? all.Count() : Widen(set.support));
        const V8 m = fresh ? all.Count() : V8{} + 1;
        const F8 divisor = __builtin_convertvector(m, F8);
        const auto settle = [&](int channel, V8 s) {
            StoreSlots(set.mean[channel], fresh ? RoundedMeans(s, m, divisor) : Widen(set.mean[channel]));
        };
        settle(0, all.Red());
        if (!gray) {
            settle(1, all.Green());
            settle(2, all.Blue());
        }
        if (!None(used & ~filled)) return false;
        Weigh(MeansOf<gray>(set), set.n);
        return true;
    }

    // The channel sums of the first n clusters.
    void StoreSums(const GivenSums& all, int n) {
        const V8 which = Slots() < n;
        StoreSlots(set.sum[0], which ? all.Red() : LoadAs<V8>(set.sum[0]));
        if (gray) return;
        StoreSlots(set.sum[1], which ? all.Green() : LoadAs<V8>(set.sum[1]));
        StoreSlots(set.sum[2], which ? all.Blue() : LoadAs<V8>(set.sum[2]));
    }

    static constexpr int kMost = 3;     // clusters
    static constexpr int kPasses = 16;  // of assignment and recentring in one attempt
    ClusterSet& set;
    long (*const draw)();
    V earlier[kGroups];  // keys of the pass before; they carry over from one attempt to the next
};

template <bool gray>
void ClusterRun(const CellRun& run, int maxdist, long (*draw)()) {
    for (int j = 0; j < run.n; j++) {
        ClusterSet& set = run.sets[run.cells[j]];
        Clusterer<gray>(set, run.samples + j, run.stride, draw).Run(maxdist);
        List(set.n, Widen(set.support), MeansOf<gray>(set), run.lists[run.cells[j]]);
    }
}

void Cluster(const CellRun& run, int maxdist, bool gray, long (*draw)()) {
    if (gray)
        ClusterRun<true>(run, maxdist * maxdist, draw);
    else
        ClusterRun<false>(run, maxdist, draw);
}
