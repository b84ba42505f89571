// Vector form of a cell's cluster maintenance; part of vector_body.h. The steps are those of ClusterMaintenance.cpp.
//
// The cluster of a sample is the one with the largest key 8 (2 p.c - |c|^2) + (7 - j): the index j in the low bits lets
// the lower cluster win ties, and the distance comes back as |p|^2 - (key >> 3).

constexpr int kSamples = KsBackgroundCell::kMaxSamples;
constexpr int kGroups = kSamples / N;
constexpr int kBound = 1024;  // of means, so that weights of 16 c fit 16 bits and distances times 64 fit 32

alignas(64) constexpr std::int32_t kLane[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

class Maintainer {
 public:
    Maintainer(KsBackgroundCell& c, bool g) : cell(c), gray(g) {}

    // Whether every cluster is within the bounds that keep the arithmetic exact, now and after any merge.
    bool Fits() const {
        if (cell.nsamples != kSamples || cell.nclusters < 1 || cell.nclusters > KsBackgroundCell::kMaxClusters)
            return false;
        for (int j = 0; j < cell.nclusters; j++) {
            const int s = cell.support[j], limit = kBound * s;
            if (s < 1 || s > KsBackgroundCell::kMaxSupport) return false;
            for (const int m : {cell.clusters[j].R, cell.clusters[j].G, cell.clusters[j].B})
                if (m < -kBound || m > kBound) return false;
            for (const int v : {cell.clustersum[j].R, cell.clustersum[j].G, cell.clustersum[j].B})
                if (v < -limit || v > limit) return false;
        }
        return true;
    }

    void Update(int maxdist) {
        LoadSamples();
        for (int j = 0; j < cell.nclusters; j++) SetWeights(j);
        Assign();
        for (int round = 0; round < 3 && dmax > maxdist; round++) {
            if (cell.nclusters == KsBackgroundCell::kMaxClusters) {
                Merge();
                if (cell.nclusters == KsBackgroundCell::kMaxClusters) break;
            }
            Open();
            Assign();
        }
        Fold();
        Settle();
        cell.nsamples = 0;
    }

 private:
    void LoadSamples() {
        const V channels = V{} + (gray ? 0xff : 0xff00ff);
        for (int i = 0; i < kGroups; i++) {
            const V p = Load(&cell.cv[N * i]);
            rb[i] = p & channels;
            g1[i] = (gray ? V{} : Green(p)) | 0x10000;  // a one to count with
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

    // Keys of all samples; the largest distance and the first sample with it. Samples behind nsamples get the key of no
    // cluster (its low bits are those of j = 7).
    void Assign() {
        V top = V{} - 1;
        for (int i = 0; i < kGroups; i++) {
            V best = V{} + INT_MIN;
            for (int j = 0; j < cell.nclusters; j++)
                best = Max(best, MultiplyAdd(MultiplyAdd(V{} + constant[j], rb[i], V{} + wrb[j]), g1[i], V{} + wg[j]));
            const V index = Load(kLane) + N * i;
            const auto in_store = index < cell.nsamples;
            key[i] = in_store ? best : V{} + INT_MIN;
            const V ranked = ((pp[i] - (best >> 3)) << 6) + (kSamples - 1 - index);
            top = Max(top, in_store ? ranked : V{} - 1);
        }
        const std::int32_t t = LargestLane(top);
        dmax = t >> 6;
        worst = kSamples - 1 - (t & 63);
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
        MoveLane(rb, worst, last);
        MoveLane(g1, worst, last);
        MoveLane(pp, worst, last);
    }

    static void MoveLane(V* v, int to, int from) {
        auto* lanes = reinterpret_cast<unsigned char*>(v);
        std::memcpy(lanes + 4 * to, lanes + 4 * from, 4);
    }

    // Sums are order-free, so the samples of a cluster join it all at once; those that find it at full support each
    // replace one sample at its mean.
    void Fold() {
        for (int j = 0; j < cell.nclusters; j++) {
            V srb{}, sg1{};
            for (int i = 0; i < kGroups; i++) {
                const auto mine = (key[i] & 7) == 7 - j;
                srb += mine ? rb[i] : V{};
                sg1 += mine ? g1[i] : V{};
            }
            const std::uint64_t sums = SumLanes(srb, sg1);  // 64 x 255 fits a half
            const int red = sums & 0xffff, blue = sums >> 16 & 0xffff, green = sums >> 32 & 0xffff;
            const int count = static_cast<int>(sums >> 48);
            const int room = KsBackgroundCell::kMaxSupport - cell.support[j];
            const int over = count > room ? count - room : 0;
            cell.clustersum[j].R += red - over * cell.clusters[j].R;
            if (!gray) {
                cell.clustersum[j].G += green - over * cell.clusters[j].G;
                cell.clustersum[j].B += blue - over * cell.clusters[j].B;
            }
            cell.support[j] = static_cast<std::int16_t>(cell.support[j] + count - over);
            cell.added[j] = static_cast<std::int16_t>(count);
        }
    }

    // Fresh means. The quotients in single precision truncate exactly: a sum is below 2^20, and a quotient that is no
    // integer lies at least 1/512 from one.
    void Settle() {
        for (int j = 0; j < cell.nclusters; j++) {
            const int s = cell.support[j];
            const auto mean = [s](int sum) {
                return static_cast<std::int16_t>(static_cast<float>(sum + s / 2) / static_cast<float>(s));
            };
            cell.clusters[j].R = mean(cell.clustersum[j].R);
            if (!gray) {
                cell.clusters[j].G = mean(cell.clustersum[j].G);
                cell.clusters[j].B = mean(cell.clustersum[j].B);
            }
        }
    }

    KsBackgroundCell& cell;
    const bool gray;
    V rb[kGroups], g1[kGroups], pp[kGroups], key[kGroups];
    std::int32_t wrb[KsBackgroundCell::kMaxClusters], wg[KsBackgroundCell::kMaxClusters];
    std::int32_t constant[KsBackgroundCell::kMaxClusters];
    int dmax = 0, worst = 0;
};

bool Maintain(KsBackgroundCell& cell, int maxdist, bool forget, bool gray) {
    Maintainer m(cell, gray);
    if (!m.Fits()) return false;
    m.Update(gray ? maxdist * maxdist : maxdist);
    if (forget) {
        if (gray)
            cell.ForgetUnsupportedClustersGray();
        else
            cell.ForgetUnsupportedClusters();
    }
    return true;
}
