// A cell's clusters between the record that others see and the compact form that the kernels work on.
#include "vision/background/backgroundmodel.h"

void KsBackgroundCell::TakeClusters(const kernels::ClusterSet& set) {
    nclusters = set.n;
    for (int j = 0; j < kMaxClusters; j++) {
        support[j] = set.support[j];
        added[j] = set.added[j];
        clusters[j] = {set.mean[0][j], set.mean[1][j], set.mean[2][j]};
        clustersum[j] = {set.sum[0][j], set.sum[1][j], set.sum[2][j]};
    }
}

void KsBackgroundCell::GiveClusters(kernels::ClusterSet& set) const {
    set.n = nclusters;
    for (int j = 0; j < kMaxClusters; j++) {
        set.support[j] = support[j];
        set.added[j] = static_cast<std::uint8_t>(added[j]);
        const ColorMean& m = clusters[j];
        set.mean[0][j] = m.R;
        set.mean[1][j] = m.G;
        set.mean[2][j] = m.B;
        const ColorValue& s = clustersum[j];
        set.sum[0][j] = s.R;
        set.sum[1][j] = s.G;
        set.sum[2][j] = s.B;
    }
}

void KsBackgroundCell::TakeSamples(const kernels::PixelBlock& px, bool gray) {
    for (const std::uint32_t p : px.p) {
        ColorSample& s = cv[nsamples++];
        s.R = p & 255;
        if (gray) continue;
        s.G = p >> 8 & 255;
        s.B = p >> 16 & 255;
    }
}

namespace {

template <class F>
void ForEachCell(const kernels::CellRun& run, bool gray, F act) {
    for (int j = 0; j < run.n; j++) {
        kernels::ClusterSet& set = run.sets[run.cells[j]];
        KsBackgroundCell cell{};
        cell.TakeClusters(set);
        for (std::size_t i = 0; i < kernels::kFrames; i++)
            cell.TakeSamples(run.samples[i * run.stride + static_cast<std::size_t>(j)], gray);
        act(cell);
        cell.GiveClusters(set);
        kernels::ListCandidates(set, gray, run.lists[run.cells[j]]);
    }
}

}  // namespace

// Draws by itself: `draw` is the model's own generator.
void kernels::ClusterPlainly(const CellRun& run, int maxdist, bool gray, long (*)()) {
    ForEachCell(run, gray, [&](KsBackgroundCell& cell) {
        if (gray)
            cell.ClusterCellGray(maxdist);
        else
            cell.ClusterCell(maxdist);
    });
}

int kernels::MaintainPlainly(const CellRun& run, int maxdist, bool gray, bool forget) {
    ForEachCell(run, gray, [&](KsBackgroundCell& cell) {
        if (gray)
            cell.UpdateCellClustersGray(maxdist);
        else
            cell.UpdateCellClusters(maxdist);
        if (forget && gray) cell.ForgetUnsupportedClustersGray();
        if (forget && !gray) cell.ForgetUnsupportedClusters();
    });
    return run.n;
}
