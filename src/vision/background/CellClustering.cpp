// First clustering of a cell's samples: one cluster if they lie close together, else a small k-means with random
// starting centres for two and then three clusters.
#include <algorithm>
#include <cstdint>

#include "vision/background/backgroundmodel.h"
#include "vision/background/clusterchannels.h"
#include "vision/background/randomdraws.h"

void RandomCenters(int* icl, int n, int range) {
    for (int i = 0; i < n; i++) {
        do {
            icl[i] = static_cast<int>(random_draws::Random() % range);
        } while (std::find(icl, icl + i, icl[i]) != icl + i);
    }
}

namespace {

constexpr int kPasses = 16;  // of assignment and recentring in one attempt

template <class Channels>
class KMeans {
 public:
    explicit KMeans(KsBackgroundCell& c) : cell(c), ns(c.nsamples) {
        for (int i = 0; i < ns; i++) {
            const ColorSample v = cell.cv[i];
            r[i] = v.R;
            g[i] = v.G;
            b[i] = v.B;
            packed[i] = v.R | std::uint64_t{v.G} << 16 | std::uint64_t{v.B} << 32 | std::uint64_t{1} << 48;
        }
    }

    void Run(int maxdist) {
        if (OneCluster(maxdist)) return;
        int k = 1;
        bool first = true;
        // Two clusters are kept only if the very first attempt succeeds and explains every sample. After any failed
        // attempt the cell goes on to three.
        for (;;) {
            SetCount(k + 1);
            ChooseCenters();
            if (!Converge()) {  // a cluster came out empty
                SetCount(k);
                if (k > 2) break;
                first = false;
                continue;
            }
            if (cell.nclusters > 2) break;
            if (first && *std::max_element(d, d + ns) <= maxdist) break;
            k = cell.nclusters;
            first = false;
        }
        cell.nsamples = 0;
    }

 private:
    void SetCount(int n) { cell.nclusters = static_cast<std::int16_t>(n); }

    bool OneCluster(int maxdist) {
        Channels::Clear(cell.clustersum[0]);
        for (int i = 0; i < ns; i++) Channels::Add(cell.clustersum[0], cell.cv[i]);
        ColorValue mean{};
        Channels::SetMean(mean, cell.clustersum[0], ns);
        int maxd = 0;
        for (int i = 0; i < ns; i++) maxd = std::max(maxd, Channels::Distance(cell.cv[i], mean));
        cell.nclusters = 1;
        if (maxd > maxdist) return false;
        Channels::Copy(cell.clusters[0], mean);
        cell.support[0] = static_cast<std::int16_t>(ns);
        cell.nsamples = 0;
        return true;
    }

    // Starting centres at distinct samples of distinct colours, with new draws as often as needed.
    void ChooseCenters() {
        int icl[KsBackgroundCell::kMaxClusters];
        bool distinct;
        do {
            RandomCenters(icl, cell.nclusters, ns);
            distinct = true;
            for (int j = 0; j < cell.nclusters; j++) {
                Channels::Copy(cell.clusters[j], cell.cv[icl[j]]);
                for (int i = 0; i < j; i++) distinct &= Channels::Distance(cell.clusters[j], cell.clusters[i]) != 0;
            }
        } while (!distinct);
    }

    // Passes until nothing moves, at most 16. False where a cluster came out empty.
    bool Converge() {
        for (int pass = 0; pass < kPasses; pass++) {
            Assign();
            // Deliberate: prcl carries over from one attempt to the next, and a first pass that reproduces the earlier
            // assignment would count as converged. It cannot happen: centres have distinct colours, so each is given
            // its own sample at least, while the earlier assignment lacks a cluster
            // (FirstClustering.TwoAndThreeColours).
            if (std::equal(cl, cl + ns, prcl)) return true;
            std::copy_n(cl, ns, prcl);
            if (!Recentre()) return false;
        }
        return true;
    }

    // Nearest centre of every sample, the lower one on a tie. Over the whole arrays, a loop that compilers turn into
    // vectors; what stands behind the samples is never read.
    void Assign() {
        for (int j = 0; j < cell.nclusters; j++) {
            const ColorMean c = cell.clusters[j];
            for (int i = 0; i < kSamples; i++) {
                const int dj =
                    Channels::Length(static_cast<std::int16_t>(r[i] - c.R), static_cast<std::int16_t>(g[i] - c.G),
                                     static_cast<std::int16_t>(b[i] - c.B));
                const bool closer = j == 0 || dj < d[i];
                d[i] = closer ? dj : d[i];
                cl[i] = closer ? j : cl[i];
            }
        }
    }

    bool Recentre() {
        std::uint64_t sums[KsBackgroundCell::kMaxClusters] = {};  // 64 x 255 fits a quarter
        for (int i = 0; i < ns; i++) sums[cl[i]] += packed[i];
        bool filled = true;
        for (int j = 0; j < cell.nclusters; j++) {
            const auto part = [&](int shift) { return static_cast<int>(sums[j] >> shift & 0xffff); };
            const int count = part(48);
            Channels::Copy(cell.clustersum[j], ColorValue{part(0), part(16), part(32)});
            cell.support[j] = static_cast<std::int16_t>(count);
            if (count > 0)
                Channels::SetMean(cell.clusters[j], cell.clustersum[j], count);
            else
                filled = false;
        }
        return filled;
    }

    static constexpr int kSamples = KsBackgroundCell::kMaxSamples;
    KsBackgroundCell& cell;
    const int ns;
    std::int16_t r[kSamples] = {}, g[kSamples] = {}, b[kSamples] = {};  // channels of the samples
    std::uint64_t packed[kSamples];  // all three and a one to count with, 16 bits each
    int d[kSamples] = {};            // distance of each sample to its centre, latest pass
    int cl[kSamples] = {};           // cluster of each sample, latest pass
    int prcl[kSamples] = {};         // the same of the pass before
};

}  // namespace

void KsBackgroundCell::ClusterCell(int max) {
    KMeans<ColorChannels>(*this).Run(max);
}

void KsBackgroundCell::ClusterCellGray(int max) {
    KMeans<GrayChannel>(*this).Run(max);
}
