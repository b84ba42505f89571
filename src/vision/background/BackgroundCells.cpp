// The records of the model's cells.
#include "vision/background/backgroundprivate.h"
#include "vision/grid/gridcolordiff.h"

KsBackgroundCell& BackgroundCells::operator[](int k) {
    BackgroundModel::Storage& s = *model->own;
    if (s.shared[static_cast<std::size_t>(k)] == 0) {
        s.shared_cells.push_back(k);
        s.shared[static_cast<std::size_t>(k)] = 1;
    }
    return model->Record(k);
}

KsBackgroundCell BackgroundCells::operator[](int k) const {
    BackgroundModel::Storage& s = *model->own;
    KsBackgroundCell cell = model->Look(k);
    if (s.stage[static_cast<std::size_t>(k)] == BackgroundModel::Storage::kRecord) return cell;
    kernels::PixelBlock px[kernels::kFrames];
    const int blocks = s.Samples(k, px);
    for (int i = 0; i < blocks; i++) cell.TakeSamples(px[i], model->CIr == IR);
    return cell;
}

KsBackgroundCell BackgroundModel::Look(int k) const {
    if (own->stage[static_cast<std::size_t>(k)] == Storage::kRecord) return own->records[k];
    KsBackgroundCell cell{};
    const CellBox box = G->Box(k);
    cell.KsSetBoxBounds(box.minr, box.maxr, box.minc, box.maxc);
    cell.TakeClusters(own->sets[k]);
    return cell;
}

KsBackgroundCell& BackgroundModel::Record(int k) {
    KsBackgroundCell& record = own->records[k];
    std::uint8_t& stage = own->stage[static_cast<std::size_t>(k)];
    if (stage != Storage::kRecord) {
        const BackgroundCells& cells = cd;
        record = cells[k];
        stage = Storage::kRecord;
    }
    return record;
}

kernels::CandidateList& BackgroundModel::List(int k) {
    const Storage::Lattice& l = own->Of(k);
    return own->List(l, (k - l.first) / l.cols, (k - l.first) % l.cols);
}

void BackgroundModel::ListRecord(int k) {
    kernels::ClusterSet set{};
    own->records[k].GiveClusters(set);
    kernels::ListCandidates(set, CIr == IR, List(k));
}

void BackgroundModel::PrepareQueries() {
    for (const int k : own->shared_cells) ListRecord(k);
}
