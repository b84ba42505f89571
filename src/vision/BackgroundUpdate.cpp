// The per-frame update of the background model.
#include <cstring>

#include "backgroundmodel.h"
#include "pixelwalk.h"
#include "randomdraws.h"

namespace {

// A foreground cell is updated when a uniform draw exceeds this: on about 3 frames in 10.
constexpr double kSkipForeground = 0.7;
constexpr double kTwoToMinus31 = 4.656612873077393e-10;

}  // namespace

void BackgroundModel::GatherSamples(KsBackgroundCell& cell, const KsColorImage& CI) const {
    int count = cell.nsamples;
    if (CIr == COLOR && cellsize == 4 && cell.maxr < NofR && cell.maxc < NofC) {
        const std::size_t stride = static_cast<std::size_t>(NofC) * 3;
        kernels::PixelBlock px;
        kernels::Active().load(
            CI.rawsrc + static_cast<std::size_t>(cell.minr) * stride + static_cast<std::size_t>(cell.minc) * 3, stride,
            px);
        std::memcpy(&cell.cv[count], px.p, sizeof px.p);
        cell.nsamples = static_cast<std::int16_t>(count + kernels::kPixels);
        return;
    }
    ForEachPixel(cell, NofR, NofC, [&](int r, int c) {
        ColorSample& s = cell.cv[count++];
        s.R = static_cast<unsigned char>(CI.Red(r, c));
        if (CIr == COLOR) {
            s.G = static_cast<unsigned char>(CI.Green(r, c));
            s.B = static_cast<unsigned char>(CI.Blue(r, c));
        }
    });
    cell.nsamples = static_cast<std::int16_t>(count);
}

// Whether the pixels of one more frame would not fit.
bool BackgroundModel::Full(const KsBackgroundCell& cell) const {
    return cell.nsamples + cellsize * cellsize > KsBackgroundCell::kMaxSamples;
}

void BackgroundModel::PrepareQueries() {
    for (int k = 0; k < cnum; k++)
        if (cd.shared[static_cast<std::size_t>(k)])
            kernels::ListCandidates(cd.cells[k], CIr == IR, candidates[static_cast<std::size_t>(k)]);
}

void BackgroundModel::UpdateSingle(bool updateall) {
    for (int i = 0; i < G->cnum_2; i++) G->aux[i] = G->conf[i] <= 0.0 || updateall;
    // Deliberate: the draws only advance the shared generator.
    for (int i = 0; i < G->cnum_2; i++)
        if (G->aux[i] == 0) random_draws::Rand();
    CountBrightness(IBkg, CIr, NofR, NofC, G->bhist);
}

void BackgroundModel::Learn(const KsColorImage& CI) {
    for (int k = 0; k < cnum; k++) {
        KsBackgroundCell& cell = cd.cells[k];
        GatherSamples(cell, CI);
        if (!Full(cell)) continue;
        if (CIr == COLOR)
            cell.ClusterCell(maxdist);
        else
            cell.ClusterCellGray(maxdist);
        kernels::ListCandidates(cell, CIr == IR, candidates[static_cast<std::size_t>(k)]);
    }
}

// The kernels take full cells that fit them and that nobody else holds; all others go the plain way.
void BackgroundModel::MaintainCell(int k, bool forget) {
    KsBackgroundCell& cell = cd.cells[k];
    kernels::CandidateList& list = candidates[static_cast<std::size_t>(k)];
    const bool fits = list.n >= 0 && !cd.shared[static_cast<std::size_t>(k)] && cell.nclusters > 0 &&
                      cell.nsamples == KsBackgroundCell::kMaxSamples && maxdist >= 0 && maxdist < 182;
    (fits ? kernels::Active() : kernels::scalar).maintain(cell, maxdist, CIr == IR);
    if (forget && CIr == COLOR) cell.ForgetUnsupportedClusters();
    if (forget && CIr == IR) cell.ForgetUnsupportedClustersGray();
    kernels::ListCandidates(cell, CIr == IR, list);
}

void BackgroundModel::Maintain(const KsColorImage& CI, bool updateall) {
    for (int k = 0; k < cnum; k++) {
        if (G->aux[k] == 0 && !(random_draws::Rand() * kTwoToMinus31 > kSkipForeground)) continue;
        GatherSamples(cd.cells[k], CI);
        if (Full(cd.cells[k])) MaintainCell(k, !updateall);
    }
}

void BackgroundModel::UpdateBackground(KsColorImage& CI, bool updateall, int tnew) {
    t = tnew;
    if (BType == SINGLE) {
        UpdateSingle(updateall);
        return;
    }
    if (cnum == 0) return;
    G->SumColors(CI);
    if (cd.cells[0].nclusters == 0) Learn(CI);  // cell 0 stands for the whole model
    for (int i = 0; i < cnum; i++) G->aux[i] = G->conf[i] <= 0.0 || updateall;
    // Deliberate: tested anew, so the frame whose samples were just clustered is gathered once more.
    if (cd.cells[0].nclusters > 0) Maintain(CI, updateall);
}
