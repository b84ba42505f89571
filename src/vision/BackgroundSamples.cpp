// The samples of the model's cells: the ring of frames, and what leaves it.
#include <algorithm>
#include <cstring>

#include "backgroundprivate.h"
#include "gridcolordiff.h"
#include "pixelwalk.h"
#include "randomdraws.h"

BackgroundModel::Storage::Storage(const GridColorDiff& grid, int rows, int cols)
    : width(cols),
      height(rows),
      stage(static_cast<std::size_t>(grid.cnum), kRecord),
      sets(static_cast<std::size_t>(grid.cnum)),
      samples(static_cast<std::size_t>(grid.cnum)),
      records(static_cast<std::size_t>(grid.cnum)),
      shared(static_cast<std::size_t>(grid.cnum)),
      flags(static_cast<std::size_t>(grid.cnum)) {
    const int edge = grid.cellsize;
    const int inum = grid.cnum > 0 ? (rows + edge - 1) / edge : 0, jnum = grid.cnum > 0 ? (cols + edge - 1) / edge : 0;
    for (int l = 0; l < 2; l++) {
        Lattice& of = lattices[l];
        const int offset = l == 0 ? 0 : grid.cellsize_2;
        of.rows = inum - l;
        of.cols = jnum - l;
        // Whether a shifted cell is whole does not hang on the last half cell of a side that is no multiple of four.
        const auto whole = [&](int pixels, int cells) {
            return edge == 4 ? std::clamp((pixels - offset) / 4, 0, std::max(cells, 0)) : 0;
        };
        of.whole_rows = whole(rows, of.rows);
        of.whole_cols = whole(cols, of.cols);
        of.first = l == 0 ? 0 : grid.cnum_2;
        of.offset = offset;
        // A border of empty lists around the shifted lattice spares comparisons the question who has neighbours.
        of.list_stride = jnum + l;
        of.list_first = l == 0 ? 0 : of.list_stride + 1;
        of.lists.resize(static_cast<std::size_t>((inum + l) * (jnum + l)));
        for (int i = 0; i < of.whole_rows; i++)
            std::memset(stage.data() + of.first + i * of.cols, 0, static_cast<std::size_t>(of.whole_cols));
    }
    strip.resize(static_cast<std::size_t>(jnum) * kernels::kFrames);
}

void BackgroundModel::Storage::Remember(const KsColorImage& CI) {
    const std::size_t bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
    std::shared_ptr<unsigned char[]>& frame = ring[++latest % 4];
    if (frame == nullptr || frame.use_count() > 1) frame = std::make_shared_for_overwrite<unsigned char[]>(bytes);
    std::memcpy(frame.get(), CI.rawsrc, bytes);
}

void BackgroundModel::Storage::Load(const Lattice& l, int row, int first_col, int n, int back,
                                    kernels::PixelBlock* px) const {
    const std::size_t stride = static_cast<std::size_t>(width) * 3;
    const std::size_t r = static_cast<std::size_t>(4 * row + l.offset),
                      c = static_cast<std::size_t>(4 * first_col + l.offset);
    kernels::Active().load(Frame(back).get() + r * stride + c * 3, stride, n, px);
}

int BackgroundModel::Storage::Samples(int k, kernels::PixelBlock (&px)[kernels::kFrames]) {
    const int s = stage[static_cast<std::size_t>(k)];
    if (s >= kOwn) {
        std::copy_n(samples[k].begin(), kernels::kFrames, px);
        return s - kOwn;
    }
    const Lattice& l = Of(k);
    for (int i = 0; i < s; i++) Load(l, (k - l.first) / l.cols, (k - l.first) % l.cols, 1, s - 1 - i, px + i);
    return s;
}

// A cell leaves the ring: the frame that has just come is not among its samples, so these end one frame earlier.
void BackgroundModel::TakeOut(int k) {
    Storage& s = *own;
    std::uint8_t& stage = s.stage[static_cast<std::size_t>(k)];
    const Storage::Lattice& l = s.Of(k);
    for (int i = 0; i < stage; i++)
        s.Load(l, (k - l.first) / l.cols, (k - l.first) % l.cols, 1, stage - i,
               &s.samples[k][static_cast<std::size_t>(i)]);
    stage = static_cast<std::uint8_t>(stage + Storage::kOwn);
}

// Whether the pixels of one more frame would not fit.
bool BackgroundModel::Full(const KsBackgroundCell& cell) const {
    return cell.nsamples + cellsize * cellsize > KsBackgroundCell::kMaxSamples;
}

void BackgroundModel::Gather(const KsColorImage& CI, const std::uint8_t* flags, Action action) {
    own->Remember(CI);
    for (int l = 0; l < 2; l++)
        for (int i = 0; i < own->lattices[l].rows; i++) GatherRow(CI, l, i, flags, action);
}

// Cell by cell: first clusterings draw random numbers in this order.
void BackgroundModel::GatherRow(const KsColorImage& CI, int lattice, int row, const std::uint8_t* flags,
                                Action action) {
    Storage& s = *own;
    const Storage::Lattice& l = s.lattices[lattice];
    const int first = l.first + row * l.cols;
    std::uint8_t* const stage = s.stage.data() + first;
    if (flags != nullptr) flags += first;
    int run = 0;  // full cells just before the current one, which wait to be acted on together
    for (int j = 0; j < l.cols; j++) {
        const bool update = flags == nullptr || flags[j] != 0;
        if (update && stage[j] == kernels::kFrames - 1) {
            run++;
            continue;
        }
        if (run > 0) ActOnRun(lattice, row, j - run, run, action);
        run = 0;
        if (!update) {
            if (stage[j] > 0 && stage[j] < Storage::kOwn) TakeOut(first + j);
        } else if (stage[j] < Storage::kOwn) {
            stage[j]++;
        } else if (stage[j] == Storage::kRecord) {
            GatherRecord(CI, first + j, action);
        } else {
            auto& px = s.samples[first + j];
            s.Load(l, row, j, 1, 0, &px[static_cast<std::size_t>(stage[j] - Storage::kOwn)]);
            if (++stage[j] < Storage::kOwn + kernels::kFrames) continue;
            stage[j] = 0;
            ActOn({1, &s.sets[first + j], &s.List(l, row, j), px.data(), 1}, action);
        }
    }
    if (run > 0) ActOnRun(lattice, row, l.cols - run, run, action);
}

// Full cells side by side whose samples are the pixels of the latest four frames.
void BackgroundModel::ActOnRun(int lattice, int row, int first_col, int count, Action action) {
    Storage& s = *own;
    const Storage::Lattice& l = s.lattices[lattice];
    kernels::PixelBlock* const px = s.strip.data();
    for (int i = 0; i < kernels::kFrames; i++)
        s.Load(l, row, first_col, count, kernels::kFrames - 1 - i, px + i * count);
    const int first = l.first + row * l.cols + first_col;
    std::memset(s.stage.data() + first, 0, static_cast<std::size_t>(count));
    ActOn({count, &s.sets[first], &s.List(l, row, first_col), px, static_cast<std::size_t>(count)}, action);
}

// The kernels take cells that fit them; all others go the plain way.
void BackgroundModel::ActOn(const kernels::CellRun& run, Action action) {
    const kernels::Table& kernel = kernels::Active();
    const bool gray = CIr == IR;
    const bool fits = maxdist >= 0 && maxdist < (gray ? 182 : 32768);
    if (action == Action::kCluster && fits) {
        kernel.cluster(run, maxdist, gray, random_draws::Random);
        return;
    }
    for (int j = 0; j < run.n;) {
        int end = j;
        while (action >= Action::kMaintain && fits && end < run.n && run.lists[end].n >= 0 && run.sets[end].n > 0)
            end++;
        if (end > j) {
            kernel.maintain({end - j, run.sets + j, run.lists + j, run.samples + j, run.stride}, maxdist, gray,
                            action == Action::kMaintainAndForget);
            j = end;
            continue;
        }
        KsBackgroundCell cell{};
        cell.TakeClusters(run.sets[j]);
        for (std::size_t i = 0; i < kernels::kFrames; i++)
            cell.TakeSamples(run.samples[i * run.stride + static_cast<std::size_t>(j)], gray);
        ActOnRecord(cell, action);
        cell.GiveClusters(run.sets[j]);
        kernels::ListCandidates(run.sets[j], gray, run.lists[j]);
        j++;
    }
}

void BackgroundModel::GatherRecord(const KsColorImage& CI, int k, Action action) {
    KsBackgroundCell& cell = own->records[k];
    ForEachPixel(cell, NofR, NofC, [&](int r, int c) {
        ColorSample& sample = cell.cv[cell.nsamples++];
        sample.R = static_cast<unsigned char>(CI.Red(r, c));
        if (CIr != COLOR) return;
        sample.G = static_cast<unsigned char>(CI.Green(r, c));
        sample.B = static_cast<unsigned char>(CI.Blue(r, c));
    });
    if (!Full(cell)) return;
    ActOnRecord(cell, action);
    ListRecord(k);
}

void BackgroundModel::ActOnRecord(KsBackgroundCell& cell, Action action) const {
    const bool gray = CIr == IR;
    if (action == Action::kClusterAsColor || (action == Action::kCluster && !gray))
        cell.ClusterCell(maxdist);
    else if (action == Action::kCluster)
        cell.ClusterCellGray(maxdist);
    else if (gray)
        cell.UpdateCellClustersGray(maxdist);
    else
        cell.UpdateCellClusters(maxdist);
    if (action != Action::kMaintainAndForget) return;
    if (gray)
        cell.ForgetUnsupportedClustersGray();
    else
        cell.ForgetUnsupportedClusters();
}
