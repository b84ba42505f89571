// The records of the model's cells.
#include "vision/background/backgroundprivate.h"
#include "vision/grid/gridcolordiff.h"

KsBackgroundCell& BackgroundCells::operator[](int k) {
    return model->Hold(k);
}

KsBackgroundCell BackgroundCells::operator[](int k) const {
    return model->Copy(k);
}

KsBackgroundCell& BackgroundModel::Hold(int k) {
    std::uint8_t& shared = own->shared[static_cast<std::size_t>(k)];
    if (shared == 0) own->shared_cells.push_back(k);
    shared = 1;
    KsBackgroundCell& record = own->records[k];
    std::uint8_t& stage = own->stage[static_cast<std::size_t>(k)];
    if (stage != Storage::kRecord) {
        record = Copy(k);
        stage = Storage::kRecord;
    }
    return record;
}

KsBackgroundCell BackgroundModel::Copy(int k) const {
    KsBackgroundCell cell = Look(k);
    if (own->stage[static_cast<std::size_t>(k)] == Storage::kRecord) return cell;
    kernels::PixelBlock px[kernels::kFrames];
    const int blocks = own->Samples(k, px);
    for (int i = 0; i < blocks; i++) cell.TakeSamples(px[i], CIr == IR);
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

BackgroundModel::QueryRow BackgroundModel::Queries(int row) const {
    const Storage::Lattice &main = own->lattices[0], &shifted = own->lattices[1];
    const kernels::CandidateList* const above = shifted.lists.data() + row * shifted.list_stride;
    return {row < main.whole_rows ? main.whole_cols : 0, main.lists.data() + row * main.cols, above,
            above + shifted.list_stride};
}
