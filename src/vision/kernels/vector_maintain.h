// Vector form of a cell's cluster maintenance; part of vector_body.h. The steps are those of ClusterMaintenance.cpp.
//
// The cluster of a sample is the one with the largest key 8 (2 p.c - |c|^2) + (7 - j): the index j in the low bits lets
// the lower cluster win ties, and the distance comes back as |p|^2 - (key >> 3). With means within kLowest .. kHighest
// weights of 16 c fit 16 bits and distances times 64 fit 32. A merged mean may leave those bounds: the sum of a cluster
// lies at most 256 above support x mean and, as negative means are rounded towards zero, at most 768 below. So it stays
// within -1024 .. 767; all this holds up to 2047 either way.

constexpr int kGroups = KsBackgroundCell::kMaxSamples / N;

alignas(64) constexpr std::int32_t kLane[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

// Three channels of a cluster in the lanes of a small vector; the fourth lane is whatever follows in memory.
typedef std::int32_t V4 __attribute__((vector_size(16)));
typedef float F4 __attribute__((vector_size(16)));

class Maintainer {
 public:
    Maintainer(KsBackgroundCell& c, bool g) : cell(c), gray(g) {}

    void Update(int maxdist) {
        LoadSamples();
        for (int j = 0; j < cell.nclusters; j++) SetWeights(j);
        Assign(0);
        for (int round = 0; round < 3 && dmax > maxdist; round++) {
            int first = cell.nclusters;  // of the clusters that the samples have not been compared with
            if (cell.nclusters == KsBackgroundCell::kMaxClusters) {
                Merge();
                if (cell.nclusters == KsBackgroundCell::kMaxClusters) break;
                first = 0;
            }
            Open();
            Assign(first);
        }
        Fold();
        cell.nsamples = 0;
    }

 private:
    void LoadSamples() {
        const V channels = V{} + (gray ? 0xff : 0xff00ff);
        const V green = V{} + (gray ? 0 : 0xff);
        for (int i = 0; i < kGroups; i++) {
            const V p = Load(&cell.cv[N * i]);
            rb[i] = p & channels;
            g1[i] = ((p >> 8) & green) | 0x10000;  // a one to count with
            pp[i] = MultiplyAdd(MultiplyAdd(V{} - 1, rb[i], rb[i]), g1[i], g1[i]);
        }
    }

    void SetWeights(int j) {
        const int r = cell.clusters[j].R, g = gray ? 0 : cell.clusters[j].G, b = gray ? 0 : cell.clusters[j].B;
        wrb[j] = static_cast<std::int32_t>((static_cast<std::uint32_t>(16 * r) & 0xffff) |
                                           (static_cast<std::uint32_t>(16 * b) << 16));
        wg[j] = (16 * g) & 0xffff;
        constant[j] = -8 * (r * r + g * g + b * b) + 7 - j;
    }

    // Compares the samples with the clusters from `first` on; those before it they know. Then the largest distance and
    // the first sample with it.
    void Assign(int first) {
        if (first == 0)
            for (int i = 0; i < kGroups; i++) key[i] = V{} + INT_MIN;
        for (int j = first; j < cell.nclusters; j++) {
            const V weight_rb = V{} + wrb[j], weight_g = V{} + wg[j], start = V{} + constant[j];
            for (int i = 0; i < kGroups; i++)
                key[i] = Max(key[i], MultiplyAdd(MultiplyAdd(start, rb[i], weight_rb), g1[i], weight_g));
        }
        V top = V{} - 1;
        for (int i = 0; i < kGroups; i++) {
            const V rank = (63 - N * i) - Load(kLane);  // the earlier sample wins
            top = Max(top, ((pp[i] - (key[i] >> 3)) << 6) + rank);
        }
        const std::int32_t t = LargestLane(top);
        dmax = t >> 6;
        worst = 63 - (t & 63);
    }

    // The closest pair becomes one cluster, if it is closer than the worst sample.
    void Merge() {
        if (gray) {
            int root = 0;  // dmax is a square
            while (root * root < dmax) root++;
            cell.MergeClustersGray(root);
        } else {
            cell.MergeClusters(dmax);
        }
        for (int j = 0; j < cell.nclusters; j++) SetWeights(j);
    }

    // A new cluster at the worst sample; the last sample takes its place in the store.
    void Open() {
        const int j = cell.nclusters++;
        const ColorSample s = cell.cv[worst];
        cell.clusters[j].R = s.R;
        cell.clustersum[j].R = s.R;
        if (!gray) {
            cell.clusters[j].G = s.G;
            cell.clusters[j].B = s.B;
            cell.clustersum[j].G = s.G;
            cell.clustersum[j].B = s.B;
        }
        cell.support[j] = 1;
        SetWeights(j);
        const int last = --cell.nsamples;
        cell.cv[worst] = cell.cv[last];
        for (V* v : {rb, g1, pp, key}) std::memcpy(Lane(v, worst), Lane(v, last), 4);
        // The lane left over is farther from no cluster than any sample, has no channels and counts as none.
        const std::int32_t nothing = 0, near = -(1 << 24);
        std::memcpy(Lane(rb, last), &nothing, 4);
        std::memcpy(Lane(g1, last), &nothing, 4);
        std::memcpy(Lane(pp, last), &near, 4);
    }

    static unsigned char* Lane(V* v, int i) { return reinterpret_cast<unsigned char*>(v) + 4 * i; }

    // Sums are order-free, so the samples of a cluster join it all at once; those that find it at full support each
    // replace one sample at its mean. Then the fresh mean. Its quotient in single precision truncates exactly: a sum is
    // below 2^19, and a quotient that is no integer lies at least 1/512 from one.
    void Fold() {
        for (int i = 0; i < kGroups; i++) key[i] &= 7;
        for (int j = 0; j < cell.nclusters; j++) {
            V srb{}, sg1{};
            for (int i = 0; i < kGroups; i++) {
                const V mine = (V)(key[i] == 7 - j);
                srb += mine & rb[i];
                sg1 += mine & g1[i];
            }
            const std::uint64_t sums = SumLanes(srb, sg1);  // 64 x 255 fits a half
            const int red = sums & 0xffff, blue = sums >> 16 & 0xffff, green = sums >> 32 & 0xffff;
            const int count = static_cast<int>(sums >> 48);
            const int all = cell.support[j] + count;
            const int support = all < KsBackgroundCell::kMaxSupport ? all : KsBackgroundCell::kMaxSupport;
            cell.support[j] = static_cast<std::int16_t>(support);
            cell.added[j] = static_cast<std::int16_t>(count);

            const int over = all - support;
            ColorMean& m = cell.clusters[j];
            ColorValue& s = cell.clustersum[j];
            const V4 sum = V4{s.R + red, s.G + green, s.B + blue, 0} - V4{m.R, m.G, m.B, 0} * over;
            const V4 mean = __builtin_convertvector(
                __builtin_convertvector(sum + support / 2, F4) / static_cast<float>(support), V4);
            s.R = sum[0];
            m.R = static_cast<std::int16_t>(mean[0]);
            if (gray) continue;
            s.G = sum[1];
            s.B = sum[2];
            m.G = static_cast<std::int16_t>(mean[1]);
            m.B = static_cast<std::int16_t>(mean[2]);
        }
    }

    KsBackgroundCell& cell;
    const bool gray;
    V rb[kGroups], g1[kGroups], pp[kGroups], key[kGroups];
    std::int32_t wrb[KsBackgroundCell::kMaxClusters], wg[KsBackgroundCell::kMaxClusters];
    std::int32_t constant[KsBackgroundCell::kMaxClusters];
    int dmax = 0, worst = 0;
};

void Maintain(KsBackgroundCell& cell, int maxdist, bool gray) {
    Maintainer(cell, gray).Update(gray ? maxdist * maxdist : maxdist);
}
