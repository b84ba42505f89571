// Vector form of a cell's cluster maintenance; part of vector_body.h. The steps are those of ClusterMaintenance.cpp.

constexpr int kMaxSupport = KsBackgroundCell::kMaxSupport, kMinSupport = KsBackgroundCell::kMinSupport;

class Maintainer : private Samples {
 public:
    Maintainer(ClusterSet& s, const PixelBlock* const* samples, bool g) : Samples(samples, g), set(s), n(s.n) {
        for (int i = 0; i < kGroups; i++) rank[i] = (kSamples - 1 - N * i) - Load(kLane);  // the earlier sample wins
    }

    void Update(int maxdist) {
        Weigh(Means(set, gray));
        Assign(0);
        if (dmax > maxdist) OpenClusters(maxdist);
        Fold();
    }

    void Forget() {
        const V8 used = Slots() < n, support = Widen(set.support), added = Widen(set.added);
        const V8 losing = used & (support < kMaxSupport) & (added < 2);
        if (None(losing)) return;
        const V8 step = losing & (added - 2), rest = support + step;
        if (!None(used & (rest <= 0))) {
            ForgetOneByOne();
            return;
        }
        Narrow(set.support, rest);
        for (int channel = 0; channel < (gray ? 1 : 3); channel++)
            Store(set.sum[channel], LoadAs<V8>(set.sum[channel]) + Widen(set.mean[channel]) * step);
    }

    void List(CandidateList& list) const {
        const Means m(set, gray);
        const V8 used = Slots() < n, support = Widen(set.support);
        const auto out = [](V8 v) { return (v < kLowest) | (v > kHighest); };
        if (!None(used & (out(m.r) | out(m.g) | out(m.b) | (support < 1)))) {
            list.n = -1;
            return;
        }
        const V8 qualifies = used & (support > kMinSupport);
        const V8 start = 31 - 32 * m.Squares(), red_blue = ((64 * m.r) & 0xffff) | (m.b << 22),
                 green = (64 * m.g) & 0xffff;
#if KERNELS_LANES == 16
        const auto mask = static_cast<__mmask8>(_mm256_movemask_ps((__m256)qualifies));
        const auto pack = [&](V8 v) { return (V8)_mm256_maskz_compress_epi32(mask, (__m256i)v); };
        Store(list.constant, pack(start) - Slots());  // each store runs into the next member, which follows
        Store(list.rb, pack(red_blue));
        Store(list.g, pack(green));
        list.n = __builtin_popcount(mask);
#else
        int count = 0;
        for (int j = 0; j < kClusters; j++) {
            list.constant[count] = start[j] - count;
            list.rb[count] = red_blue[j];
            list.g[count] = green[j];
            count -= qualifies[j];
        }
        list.n = count;
#endif
    }

 private:
    void OpenClusters(int maxdist) {
        for (int i = 0; i < kSamples; i++) lane_at[i] = static_cast<std::uint8_t>(i);
        for (int round = 0; round < 3 && dmax > maxdist; round++) {
            int first = n;  // of the clusters that the samples have not been compared with
            if (n == kClusters) {
                Merge();
                if (n == kClusters) break;
                first = 0;
            }
            Open();
            Assign(first);
        }
    }

    // Then the largest distance and the first sample with it.
    void Assign(int first) {
        Compare(first, n);
        V top = V{} - 1;
        for (int i = 0; i < kGroups; i++) top = Max(top, (Distances(i) << 6) + rank[i]);
        const std::int32_t t = LargestLane(top);
        dmax = t >> 6;
        worst = kSamples - 1 - (t & 63);
    }

    // The closest pair becomes one cluster, if it is closer than the worst sample; the last one moves into the gap.
    void Merge() {
        const Means m(set, gray);
        V8 least = V8{} + INT_MAX;
        for (int i = 0; i + 1 < kClusters; i++) {
            const V8 r = m.r - m.r[i], g = m.g - m.g[i], b = m.b - m.b[i];
            const V8 d = (r * r + g * g + b * b) * 64 + (Slots() + 8 * i);  // the earlier pair wins
            const V8 pair = (Slots() > i) & (Slots() < kClusters);
            const V8 now = (d & pair) | (~pair & INT_MAX);
            least = now < least ? now : least;
        }
        least = Least(least, __builtin_shufflevector(least, least, 4, 5, 6, 7, 0, 1, 2, 3));
        least = Least(least, __builtin_shufflevector(least, least, 2, 3, 0, 1, 6, 7, 4, 5));
        const std::int32_t a = least[0], b = least[1], closest = a < b ? a : b;
        if (closest >> 6 >= dmax) return;
        const int i = closest >> 3 & 7, j = closest & 7, last = --n;
        const int all = set.support[i] + set.support[j], support = all < kMaxSupport ? all : kMaxSupport;
        for (int channel = 0; channel < (gray ? 1 : 3); channel++) {
            std::int32_t* const sum = set.sum[channel];
            std::int16_t* const mean = set.mean[channel];
            const int s = sum[i] + sum[j], fresh = RoundedMean(s, all);
            sum[i] = s - (all - support) * fresh;
            mean[i] = static_cast<std::int16_t>(fresh);
            sum[j] = sum[last];
            mean[j] = mean[last];
        }
        set.support[i] = static_cast<std::int16_t>(support);
        set.support[j] = set.support[last];
        Weigh(Means(set, gray));
    }
    static V8 Least(V8 a, V8 b) {
        return a < b ? a : b;
    }

    // A new cluster at the worst sample; the last sample takes its place in the order of the store.
    void Open() {
        const int j = n++, lane = lane_at[worst], last = lane_at[--left];
        const Channels c = At(lane);
        for (int channel = 0; channel < (gray ? 1 : 3); channel++) {
            set.mean[channel][j] = static_cast<std::int16_t>(c.v[channel]);
            set.sum[channel][j] = c.v[channel];
        }
        set.support[j] = 1;
        Weigh(j, c);
        lane_at[worst] = static_cast<std::uint8_t>(last);
        // The lane left over is farther from no cluster than any sample, has no channels and counts as none.
        for (int i = 0; i < kGroups; i++) {
            const V number = Load(kLane) + N * i;
            rank[i] = number == last ? V{} + (kSamples - 1 - worst) : rank[i];
            const V stays = (V)(number != lane);
            rb[i] &= stays;
            g1[i] &= stays;
            pp[i] = (pp[i] & stays) | (~stays & -(1 << 24));
        }
    }

    // Sums are order-free, so the samples of a cluster join it all at once; those that find it at full support each
    // replace one sample at its mean. Then the fresh means. Slots behind the clusters keep what they hold.
    void Fold() {
        const Sums given = SumClusters<kClusters>();  // of unused ones, too: a known number of turns is faster
        const V8 used = Slots() < n, before = Widen(set.support), all = before + given.count;
        const V8 support = Least(all, V8{} + kMaxSupport), over = all - support;
        Narrow(set.support, used ? support : before);
        Narrow(set.added, used ? given.count : Widen(set.added));
        const F8 divisor = __builtin_convertvector(used ? support : V8{} + 1, F8);
        const auto settle = [&](int channel, V8 joining) {
            const V8 mean = Widen(set.mean[channel]), old = LoadAs<V8>(set.sum[channel]);
            const V8 sum = old + joining - mean * over;
            Store(set.sum[channel], used ? sum : old);
            Narrow(set.mean[channel], used ? RoundedMeans(sum, support, divisor) : mean);
        };
        settle(0, given.red);
        set.n = static_cast<std::int16_t>(n);
        if (gray) return;
        settle(1, given.green);
        settle(2, given.blue);
    }

    // Where clusters vanish: the last one moves into the gap and is judged by what the vanished one was given.
    void ForgetOneByOne() {
        for (int j = 0; j < n;) {
            if (set.support[j] >= kMaxSupport || set.added[j] > 1) {
                j++;
                continue;
            }
            const int step = set.added[j] - 2, support = set.support[j] + step;
            set.support[j] = static_cast<std::int16_t>(support);
            for (int channel = 0; channel < (gray ? 1 : 3); channel++)
                set.sum[channel][j] += set.mean[channel][j] * step;
            if (support > 0) {
                j++;
                continue;
            }
            n--;
            set.support[j] = set.support[n];
            for (int channel = 0; channel < (gray ? 1 : 3); channel++) {
                set.sum[channel][j] = set.sum[channel][n];
                set.mean[channel][j] = set.mean[channel][n];
            }
        }
        set.n = static_cast<std::int16_t>(n);
    }

    ClusterSet& set;
    int n;                // clusters in use
    int left = kSamples;  // samples in the store
    V rank[kGroups];
    std::uint8_t lane_at[kSamples];  // which lane holds the sample at each place of the store; set when first needed
    int dmax = 0, worst = 0;
};

void Maintain(ClusterSet& set, const PixelBlock* const* samples, int maxdist, bool gray, bool forget,
              CandidateList& list) {
    Maintainer cell(set, samples, gray);
    cell.Update(gray ? maxdist * maxdist : maxdist);
    if (forget) cell.Forget();
    cell.List(list);
}
