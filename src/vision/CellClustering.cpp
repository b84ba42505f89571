// First clustering of a cell's samples: one cluster if they lie close together, else a small k-means with random
// starting centres for two and then three clusters.
#include <algorithm>

#include "backgroundmodel.h"
#include "clusterchannels.h"
#include "randomdraws.h"

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
    explicit KMeans(KsBackgroundCell& c) : cell(c), ns(c.nsamples) {}

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
            for (int i = 0; i < ns; i++)
                cl[i] = NearestCluster<Channels>(cell.clusters, cell.nclusters, cell.cv[i], d[i]);
            // Deliberate: prcl carries over from one attempt to the next. A first pass that reproduces the earlier
            // assignment counts as converged: the centres stay at sample colours, and support keeps the values of the
            // failed attempt, one of which can be 0 (maintenance removes that cluster).
            if (std::equal(cl, cl + ns, prcl)) return true;
            std::copy_n(cl, ns, prcl);
            if (!Recentre()) return false;
        }
        return true;
    }

    bool Recentre() {
        int ncl[KsBackgroundCell::kMaxClusters] = {};
        for (int j = 0; j < cell.nclusters; j++) Channels::Clear(cell.clustersum[j]);
        for (int i = 0; i < ns; i++) {
            Channels::Add(cell.clustersum[cl[i]], cell.cv[i]);
            ncl[cl[i]]++;
        }
        bool filled = true;
        for (int j = 0; j < cell.nclusters; j++) {
            cell.support[j] = static_cast<std::int16_t>(ncl[j]);
            if (ncl[j] > 0)
                Channels::SetMean(cell.clusters[j], cell.clustersum[j], ncl[j]);
            else
                filled = false;
        }
        return filled;
    }

    KsBackgroundCell& cell;
    const int ns;
    int d[KsBackgroundCell::kMaxSamples] = {};     // distance of each sample to its centre, latest pass
    int cl[KsBackgroundCell::kMaxSamples] = {};    // cluster of each sample, latest pass
    int prcl[KsBackgroundCell::kMaxSamples] = {};  // the same of the pass before
};

}  // namespace

void KsBackgroundCell::ClusterCell(int max) {
    KMeans<ColorChannels>(*this).Run(max);
}

void KsBackgroundCell::ClusterCellGray(int max) {
    KMeans<GrayChannel>(*this).Run(max);
}
