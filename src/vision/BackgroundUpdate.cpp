// The per-frame update of the background model.
#include "backgroundmodel.h"
#include "pixelwalk.h"
#include "randomdraws.h"

namespace {

// A foreground cell is updated when a uniform draw exceeds this: on about 3 frames in 10.
constexpr double kSkipForeground = 0.7;
constexpr double kTwoToMinus31 = 4.656612873077393e-10;

}  // namespace

void BackgroundModel::GatherSamples(KsBackgroundCell& cell, const KsColorImage& CI) const {
    ForEachPixel(cell, NofR, NofC, [&](int r, int c) {
        ColorSample& s = cell.cv[cell.nsamples++];
        s.R = static_cast<unsigned char>(CI.Red(r, c));
        if (CIr == COLOR) {
            s.G = static_cast<unsigned char>(CI.Green(r, c));
            s.B = static_cast<unsigned char>(CI.Blue(r, c));
        }
    });
}

void BackgroundModel::UpdateSingle(bool updateall) {
    for (int i = 0; i < G->cnum_2; i++) G->aux[i] = G->conf[i] <= 0.0 || updateall;
    // Deliberate: the draws only advance the shared generator.
    for (int i = 0; i < G->cnum_2; i++)
        if (G->aux[i] == 0) random_draws::Rand();
    CountBrightness(IBkg, CIr, NofR, NofC, G->bhist);
}

void BackgroundModel::UpdateBackground(KsColorImage& CI, bool updateall, int tnew) {
    t = tnew;
    if (BType == SINGLE) {
        UpdateSingle(updateall);
        return;
    }
    if (cnum == 0) return;

    const int NinCell = cellsize * cellsize;
    const auto full = [NinCell](const KsBackgroundCell& cell) {
        return cell.nsamples + NinCell > KsBackgroundCell::kMaxSamples;
    };
    for (int k = 0; k < cnum; k++) G->cd[k].AddAll(CI);

    // Learning: cell 0 stands for the whole model.
    if (cd[0].nclusters == 0) {
        for (int k = 0; k < cnum; k++) {
            GatherSamples(cd[k], CI);
            if (!full(cd[k])) continue;
            if (CIr == COLOR)
                cd[k].ClusterCell(maxdist);
            else
                cd[k].ClusterCellGray(maxdist);
        }
    }

    for (int i = 0; i < cnum; i++) G->aux[i] = G->conf[i] <= 0.0 || updateall;

    // Maintenance. Deliberate: tested anew, so the frame whose samples were just clustered is gathered once more.
    if (cd[0].nclusters == 0) return;
    for (int k = 0; k < cnum; k++) {
        if (G->aux[k] == 0 && !(random_draws::Rand() * kTwoToMinus31 > kSkipForeground)) continue;
        GatherSamples(cd[k], CI);
        if (!full(cd[k])) continue;
        if (CIr == COLOR) {
            cd[k].UpdateCellClusters(maxdist);
            if (!updateall) cd[k].ForgetUnsupportedClusters();
        } else {
            cd[k].UpdateCellClustersGray(maxdist);
            if (!updateall) cd[k].ForgetUnsupportedClustersGray();
        }
    }
}
