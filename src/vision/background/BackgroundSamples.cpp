// The samples of the model's cells: the ring of frames, and what leaves it.
#include <algorithm>
#include <cstring>

#include "vision/background/backgroundprivate.h"
#include "vision/background/randomdraws.h"
#include "vision/grid/gridcolordiff.h"
#include "vision/pixelwalk.h"

BackgroundModel::Storage::Storage(const GridColorDiff& grid, int rows, int cols)
    : width(cols),
      height(rows),
      stage(static_cast<std::size_t>(grid.cnum), kRecord),
      sets(static_cast<std::size_t>(grid.cnum)),
      samples(static_cast<std::size_t>(grid.cnum)),
      records(static_cast<std::size_t>(grid.cnum), true),
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
        of.lists = ZeroPages<kernels::CandidateList>(static_cast<std::size_t>((inum + l) * (jnum + l)));
        for (int i = 0; i < of.whole_rows; i++)
            std::memset(stage.data() + of.first + i * of.cols, 0, static_cast<std::size_t>(of.whole_cols));
    }
    strip.resize(std::min(static_cast<std::size_t>(jnum), kMostFull) * kernels::kFrames);
}

void BackgroundModel::Storage::Remember(const KsColorImage& CI) {
    const std::size_t bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
    std::shared_ptr<unsigned char[]>& frame = ring[++latest % 4];
    if (CI.Shared() != nullptr) {
        frame = CI.Shared();
        return;
    }
    // The grid may still have to sum it, where an update did not come to its end.
    if (frame == nullptr || frame.use_count() > 1) frame = std::make_shared_for_overwrite<unsigned char[]>(bytes);
    std::memcpy(frame.get(), CI.rawsrc, bytes);
}

void BackgroundModel::Storage::TouchSamples() {
    constexpr int kParts = 16;
    const int cells = static_cast<int>(stage.size());
    const int end = cells - touched <= cells / kParts ? cells : touched + cells / kParts;
    samples.Touch(touched, end);
    touched = end;
}

void BackgroundModel::Storage::Load(const Lattice& l, int row, int first_col, int count, int back,
                                    kernels::PixelBlock* px) const {
    const std::size_t stride = static_cast<std::size_t>(width) * 3;
    const int r = 4 * row + l.offset, c = 4 * first_col + l.offset;
    kernels::Active().load(Frame(back).get() + static_cast<std::size_t>(r) * stride + static_cast<std::size_t>(c) * 3,
                           stride, count, px);
}

int BackgroundModel::Storage::Samples(int k, kernels::PixelBlock (&px)[kernels::kFrames]) {
    const int held = stage[static_cast<std::size_t>(k)];
    if (held >= kOwn) {
        std::copy_n(samples[k].begin(), held - kOwn, px);
        return held - kOwn;
    }
    const Lattice& l = Of(k);
    for (int i = 0; i < held; i++) Load(l, (k - l.first) / l.cols, (k - l.first) % l.cols, 1, held - 1 - i, px + i);
    return held;
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
    const int rows = own->lattices[0].rows, shifted_rows = own->lattices[1].rows;
    // Rows of the two lattices in turn share the pixels that they read. Not where random numbers are drawn: that goes
    // by the order of cells.
    const int behind = action >= Action::kMaintain ? 1 : rows;
    for (int i = 0; i < rows + behind; i++) {
        if (i < rows) GatherRow(CI, 0, i, flags, action);
        if (i >= behind && i - behind < shifted_rows) GatherRow(CI, 1, i - behind, flags, action);
    }
}

namespace {

// The frequent case: eight cells to update that are all in step, and not yet full with this frame. False where it is
// another one.
bool StepEight(std::uint8_t* stage, const std::uint8_t* flags) {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    std::uint64_t stages, set = kOnes;
    std::memcpy(&stages, stage, sizeof stages);
    if (flags != nullptr) std::memcpy(&set, flags, sizeof set);
    if (set != kOnes || stage[0] >= kernels::kFrames - 1 || stages != stage[0] * kOnes) return false;
    stages += kOnes;
    std::memcpy(stage, &stages, sizeof stages);
    return true;
}

}  // namespace

// Cell by cell: first clusterings draw random numbers in this order.
void BackgroundModel::GatherRow(const KsColorImage& CI, int lattice, int row, const std::uint8_t* flags,
                                Action action) {
    Storage& s = *own;
    const Storage::Lattice& l = s.lattices[lattice];
    const int first = l.first + row * l.cols;
    std::uint8_t* const stage = s.stage.data() + first;
    if (flags != nullptr) flags += first;
    s.full.clear();
    for (int j = 0; j < l.cols; j++) {
        if (s.full.size() == Storage::kMostFull) ActOnRow(lattice, row, action);
        if (j + 8 <= l.cols && StepEight(stage + j, flags != nullptr ? flags + j : nullptr)) {
            j += 7;
        } else if (flags != nullptr && flags[j] == 0) {
            if (stage[j] > 0 && stage[j] < Storage::kOwn) TakeOut(first + j);
        } else if (stage[j] < kernels::kFrames - 1) {
            stage[j]++;
        } else if (stage[j] == kernels::kFrames - 1 || stage[j] == Storage::kOwn + Storage::kMostOwn) {
            s.full.push_back(j);
        } else if (stage[j] == Storage::kRecord) {
            ActOnRow(lattice, row, action);  // what stands before it
            GatherRecord(CI, first + j, action);
        } else {
            s.Load(l, row, j, 1, 0, &s.samples[first + j][static_cast<std::size_t>(stage[j]++ - Storage::kOwn)]);
        }
    }
    ActOnRow(lattice, row, action);
}

// Acts on the full cells noted so far.
void BackgroundModel::ActOnRow(int lattice, int row, Action action) {
    Storage& s = *own;
    if (s.full.empty()) return;
    const Storage::Lattice& l = s.lattices[lattice];
    const int first = l.first + row * l.cols, count = static_cast<int>(s.full.size());
    std::uint8_t* const stage = s.stage.data() + first;
    const int* const cells = s.full.data();
    const auto stride = static_cast<std::size_t>(count);
    for (int e = 0, end; e < count; e = end) {
        const int j = cells[e];
        end = e + 1;
        if (stage[j] >= Storage::kOwn) {
            kernels::PixelBlock* px = s.strip.data() + e;
            for (const kernels::PixelBlock& block : s.samples[first + j]) {
                *px = block;
                px += count;
            }
            s.Load(l, row, j, 1, 0, px);
            continue;
        }
        // Cells side by side whose samples are the pixels of the latest four frames.
        while (end < count && cells[end] == j + end - e && stage[cells[end]] < Storage::kOwn) end++;
        kernels::PixelBlock* px = s.strip.data() + e;
        for (int back = kernels::kFrames - 1; back >= 0; back--, px += count) s.Load(l, row, j, end - e, back, px);
    }
    for (int e = 0; e < count; e++) stage[cells[e]] = 0;
    ActOn({count, cells, &s.sets[first], &s.List(l, row, 0), s.strip.data(), stride}, action);
    s.full.clear();
}

// The kernels take cells that fit them; all others go the plain way. None of these cells is full in the first frame.
void BackgroundModel::ActOn(const kernels::CellRun& run, Action action) {
    const kernels::Table& kernel = kernels::Active();
    const bool gray = CIr == IR;
    const bool fits = maxdist >= 0 && maxdist <= (gray ? kernels::kMostGray : kernels::kMostColor);
    if (action == Action::kCluster && fits) {
        kernel.cluster(run, maxdist, gray, random_draws::Random);
        return;
    }
    const auto rest = [&](int j, int count) {
        return kernels::CellRun{count, run.cells + j, run.sets, run.lists, run.samples + j, run.stride};
    };
    const bool forget = action == Action::kMaintainAndForget;
    for (int j = 0; j < run.n; j++) {
        if (action < Action::kMaintain) {
            kernels::scalar.cluster(rest(j, 1), maxdist, gray, random_draws::Random);
            continue;
        }
        if (fits) j += kernel.maintain(rest(j, run.n - j), maxdist, gray, forget);
        if (j < run.n) kernels::scalar.maintain(rest(j, 1), maxdist, gray, forget);
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
