// Maintenance of a cell's clusters: folding new samples in, opening, merging and forgetting clusters.
#include <algorithm>

#include "vision/background/backgroundmodel.h"
#include "vision/background/clusterchannels.h"

namespace {

constexpr int kMaxOpened = 3;  // clusters that one call may open

template <class Channels>
class Maintenance {
 public:
    explicit Maintenance(KsBackgroundCell& c) : cell(c) {}

    void Update(int maxdist) {
        Assign();
        for (int round = 0; round < kMaxOpened; round++) {
            if (dmax <= maxdist) break;
            if (cell.nclusters == KsBackgroundCell::kMaxClusters) {
                Merge(dmax);
                if (cell.nclusters == KsBackgroundCell::kMaxClusters) break;
            }
            Open();
            Assign();
        }
        Fold();
        Settle();
        cell.nsamples = 0;
    }

    void Merge(int maxdist) {
        int i1 = -1, j1 = -1, dmin = maxdist;
        for (int i = 0; i < cell.nclusters; i++)
            for (int j = i + 1; j < cell.nclusters; j++) {
                const int d = Channels::Distance(cell.clusters[i], cell.clusters[j]);
                if (d < dmin) {
                    dmin = d;
                    i1 = i;
                    j1 = j;
                }
            }
        if (i1 < 0) return;
        const int s = cell.support[i1] + cell.support[j1];
        Channels::Add(cell.clustersum[i1], cell.clustersum[j1]);
        if (s > 0) Channels::SetMean(cell.clusters[i1], cell.clustersum[i1], s);
        cell.support[i1] =
            static_cast<std::int16_t>(s < KsBackgroundCell::kMaxSupport ? s : KsBackgroundCell::kMaxSupport);
        if (s > KsBackgroundCell::kMaxSupport)
            Channels::AddTimes(cell.clustersum[i1], cell.clusters[i1], KsBackgroundCell::kMaxSupport - s);
        Remove(j1);
    }

    void Forget() {
        int j = 0;
        while (j < cell.nclusters) {
            if (cell.support[j] >= KsBackgroundCell::kMaxSupport || cell.added[j] > 1) {
                j++;
                continue;
            }
            const int step = cell.added[j] - 2;
            cell.support[j] = static_cast<std::int16_t>(cell.support[j] + step);
            Channels::AddTimes(cell.clustersum[j], cell.clusters[j], step);
            if (cell.support[j] > 0)
                j++;
            else
                Remove(j);  // slot j now holds another cluster and is examined again
        }
    }

 private:
    // Nearest cluster of every sample; dmax and worst: the largest of these distances and the first sample with it.
    void Assign() {
        dmax = 0;
        worst = 0;
        for (int i = 0; i < cell.nsamples; i++) {
            int d;
            cl[i] = NearestCluster<Channels>(cell.clusters, cell.nclusters, cell.cv[i], d);
            if (d > dmax) {
                dmax = d;
                worst = i;
            }
        }
    }

    // A new cluster at the worst sample, which leaves the store; the last sample takes its place.
    void Open() {
        const int j = cell.nclusters++;
        Channels::Copy(cell.clusters[j], cell.cv[worst]);
        Channels::Copy(cell.clustersum[j], cell.cv[worst]);
        cell.support[j] = 1;
        cell.cv[worst] = cell.cv[--cell.nsamples];
    }

    // Every sample joins its cluster. At full support the sum moves as if one sample at the mean were replaced.
    void Fold() {
        std::fill_n(cell.added, cell.nclusters, std::int16_t{0});
        for (int i = 0; i < cell.nsamples; i++) {
            const int j = cl[i];
            Channels::Add(cell.clustersum[j], cell.cv[i]);
            if (cell.support[j] < KsBackgroundCell::kMaxSupport)
                cell.support[j]++;
            else
                Channels::AddTimes(cell.clustersum[j], cell.clusters[j], -1);
            cell.added[j]++;
        }
    }

    // Fresh means; clusters without support go.
    void Settle() {
        for (int j = 0; j < cell.nclusters; j++) {
            while (cell.support[j] == 0) {
                Remove(j);
                if (cell.nclusters <= j) return;
            }
            Channels::SetMean(cell.clusters[j], cell.clustersum[j], cell.support[j]);
        }
    }

    // The last cluster moves into slot j. Deliberate: `added` does not move with it, so the moved cluster is judged
    // by what the removed one was given and may lose support in the same call although it did receive samples
    // (Maintenance.Table).
    void Remove(int j) {
        const int last = --cell.nclusters;
        Channels::Copy(cell.clusters[j], cell.clusters[last]);
        Channels::Copy(cell.clustersum[j], cell.clustersum[last]);
        cell.support[j] = cell.support[last];
    }

    KsBackgroundCell& cell;
    int cl[KsBackgroundCell::kMaxSamples] = {};
    int dmax = 0, worst = 0;
};

}  // namespace

void KsBackgroundCell::UpdateCellClusters(int max) {
    Maintenance<ColorChannels>(*this).Update(max);
}

void KsBackgroundCell::UpdateCellClustersGray(int max) {
    Maintenance<GrayChannel>(*this).Update(max);
}

void KsBackgroundCell::MergeClusters(int max) {
    Maintenance<ColorChannels>(*this).Merge(max);
}

void KsBackgroundCell::MergeClustersGray(int max) {
    Maintenance<GrayChannel>(*this).Merge(max);
}

void KsBackgroundCell::ForgetUnsupportedClusters() {
    Maintenance<ColorChannels>(*this).Forget();
}

void KsBackgroundCell::ForgetUnsupportedClustersGray() {
    Maintenance<GrayChannel>(*this).Forget();
}
