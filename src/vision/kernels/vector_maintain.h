// Vector form of a cell's cluster maintenance; part of vector_body.h. The steps are those of ClusterMaintenance.cpp.
//
// The cluster of a sample is the one with the largest key 8 (2 p.c - |c|^2) + (7 - j): the index j in the low bits lets
// the lower cluster win ties, and the distance comes back as |p|^2 - (key >> 3). With means within kLowest .. kHighest
// weights of 16 c fit 16 bits and distances times 64 fit 32. A merged mean may leave those bounds: the sum of a cluster
// lies at most 256 above support x mean and, as negative means are rounded towards zero, at most 768 below. So it stays
// within -1024 .. 767; all this holds up to 2047 either way.

constexpr int kGroups = kFrames * kPixels / N;
constexpr int kSamples = kFrames * kPixels;
constexpr int kMaxSupport = KsBackgroundCell::kMaxSupport, kMinSupport = KsBackgroundCell::kMinSupport;

alignas(64) constexpr std::int32_t kLane[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

inline V8 Slots() {
    return LoadAs<V8>(kLane);
}
inline V8 Widen(const std::int16_t* v) {
    return __builtin_convertvector(LoadAs<H8>(v), V8);
}
inline void Narrow(std::int16_t* to, V8 v) {
    Store(to, __builtin_convertvector(v, H8));
}
// All lanes zero.
inline bool None(V8 v) {
#if defined(__AVX__)
    return _mm256_testz_si256((__m256i)v, (__m256i)v) != 0;
#else
    typedef std::int64_t L4 __attribute__((vector_size(32)));
    const L4 l = (L4)v;
    return (l[0] | l[1] | l[2] | l[3]) == 0;
#endif
}
// The three channels of all means; a gray cell has one.
struct Means {
    V8 r, g, b;
    Means(const ClusterSet& set, bool gray)
        : r(Widen(set.mean[0])), g(gray ? V8{} : Widen(set.mean[1])), b(gray ? V8{} : Widen(set.mean[2])) {}
    V8 Squares() const { return r * r + g * g + b * b; }
};

class Maintainer {
 public:
    Maintainer(ClusterSet& s, bool g) : set(s), gray(g), n(s.n) {}

    void Update(const PixelBlock* const* samples, int maxdist) {
        LoadSamples(samples);
        SetWeights();
        Assign(0);
        for (int round = 0; round < 3 && dmax > maxdist; round++) {
            if (round == 0)
                for (int i = 0; i < kSamples; i++) lane_at[i] = static_cast<std::uint8_t>(i);
            int first = n;  // of the clusters that the samples have not been compared with
            if (n == kClusters) {
                Merge();
                if (n == kClusters) break;
                first = 0;
            }
            Open(samples);
            Assign(first);
        }
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
    void LoadSamples(const PixelBlock* const* samples) {
        const V channels = V{} + (gray ? 0xff : 0xff00ff);
        const V green = V{} + (gray ? 0 : 0xff);
        for (int i = 0; i < kGroups; i++) {
            const V p = Load(samples[i / kChunks]->p + N * (i % kChunks));
            rb[i] = p & channels;
            g1[i] = ((p >> 8) & green) | 0x10000;  // a one to count with
            pp[i] = MultiplyAdd(MultiplyAdd(V{} - 1, rb[i], rb[i]), g1[i], g1[i]);
            rank[i] = (kSamples - 1 - N * i) - Load(kLane);  // the earlier sample wins
        }
    }

    void SetWeights() {
        const Means m(set, gray);
        Store(wrb, ((16 * m.r) & 0xffff) | (m.b << 20));
        Store(wg, (16 * m.g) & 0xffff);
        Store(constant, 7 - Slots() - 8 * m.Squares());
    }

    // Compares the samples with the clusters from `first` on; those before it they know. Then the largest distance and
    // the first sample with it.
    void Assign(int first) {
        if (first == 0)
            for (int i = 0; i < kGroups; i++) key[i] = V{} + INT_MIN;
        for (int j = first; j < n; j++) {
            const V weight_rb = V{} + wrb[j], weight_g = V{} + wg[j], start = V{} + constant[j];
            for (int i = 0; i < kGroups; i++)
                key[i] = Max(key[i], MultiplyAdd(MultiplyAdd(start, rb[i], weight_rb), g1[i], weight_g));
        }
        V top = V{} - 1;
        for (int i = 0; i < kGroups; i++) top = Max(top, ((pp[i] - (key[i] >> 3)) << 6) + rank[i]);
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
        SetWeights();
    }
    static V8 Least(V8 a, V8 b) {
        return a < b ? a : b;
    }

    // A new cluster at the worst sample; the last sample takes its place in the order of the store.
    void Open(const PixelBlock* const* samples) {
        const int j = n++, lane = lane_at[worst], last = lane_at[--left];
        const std::uint32_t p = samples[lane / kPixels]->p[lane % kPixels];
        const int r = p & 255, g = gray ? 0 : p >> 8 & 255, b = gray ? 0 : p >> 16 & 255;
        const int values[3] = {r, g, b};
        for (int channel = 0; channel < (gray ? 1 : 3); channel++) {
            set.mean[channel][j] = static_cast<std::int16_t>(values[channel]);
            set.sum[channel][j] = values[channel];
        }
        set.support[j] = 1;
        wrb[j] = 16 * r | static_cast<std::int32_t>(static_cast<std::uint32_t>(b) << 20);
        wg[j] = 16 * g;
        constant[j] = 7 - j - 8 * (r * r + g * g + b * b);
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
    // replace one sample at its mean. Then the fresh means. Their quotient in single precision truncates exactly: a sum
    // is below 2^19, and a quotient that is no integer lies at least 1/512 from one.
    void Fold() {
        V srb[kClusters], sg1[kClusters];
        for (int i = 0; i < kGroups; i++) key[i] &= 7;
        for (int j = 0; j < kClusters; j++) srb[j] = sg1[j] = V{};
        for (int j = 0; j < n; j++) {
            for (int i = 0; i < kGroups; i++) {
                const V mine = (V)(key[i] == 7 - j);
                srb[j] += mine & rb[i];
                sg1[j] += mine & g1[i];
            }
        }
        V8 red_blue, green_count;
        SumLanes(srb, sg1, red_blue, green_count);  // 64 x 255 fits a half
        const V8 used = Slots() < n, count = green_count >> 16;
        const V8 before = Widen(set.support), all = before + count;
        const V8 support = Least(all, V8{} + kMaxSupport), over = all - support;
        // Slots behind the clusters keep what they hold.
        Narrow(set.support, used ? support : before);
        Narrow(set.added, used ? count : Widen(set.added));
        const F8 divisor = __builtin_convertvector(used ? support : V8{} + 1, F8);
        const auto settle = [&](int channel, V8 given) {
            const V8 mean = Widen(set.mean[channel]), old = LoadAs<V8>(set.sum[channel]);
            const V8 sum = old + given - mean * over;
            const V8 fresh = __builtin_convertvector(__builtin_convertvector(sum + (support >> 1), F8) / divisor, V8);
            Store(set.sum[channel], used ? sum : old);
            Narrow(set.mean[channel], used ? fresh : mean);
        };
        settle(0, red_blue & 0xffff);
        set.n = static_cast<std::int16_t>(n);
        if (gray) return;
        settle(1, green_count & 0xffff);
        settle(2, red_blue >> 16);
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
    const bool gray;
    int n;                // clusters in use
    int left = kSamples;  // samples in the store
    V rb[kGroups], g1[kGroups], pp[kGroups], key[kGroups], rank[kGroups];
    alignas(32) std::int32_t wrb[ClusterSet::kSlots], wg[ClusterSet::kSlots], constant[ClusterSet::kSlots];
    std::uint8_t lane_at[kSamples];  // which lane holds the sample at each place of the store; set when first needed
    int dmax = 0, worst = 0;
};

void Maintain(ClusterSet& set, const PixelBlock* const* samples, int maxdist, bool gray, bool forget,
              CandidateList& list) {
    Maintainer cell(set, gray);
    cell.Update(samples, gray ? maxdist * maxdist : maxdist);
    if (forget) cell.Forget();
    cell.List(list);
}
