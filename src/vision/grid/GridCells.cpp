// The records of the grid's cells, filled in from the compact state when somebody asks for them.
#include <utility>

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"
#include "vision/pixelwalk.h"

KsCellDiff& GridCells::operator[](int k) const {
    return grid.Hold(k);
}

CellBox GridColorDiff::Box(int k) const {
    const bool shifted = k >= cnum_2;
    const int columns = own->jnum - (shifted ? 1 : 0), index = shifted ? k - cnum_2 : k;
    const int offset = shifted ? cellsize_2 : 0;
    const int r = index / columns * cellsize + offset, c = index % columns * cellsize + offset;
    return {r, r + cellsize - 1, c, c + cellsize - 1};
}

// Whether all pixels of a cell lie inside the frame and it is of the kernels' size.
bool GridColorDiff::IsWhole(const CellBox& box) const {
    return cellsize == 4 && box.maxr < NofR && box.maxc < NofC;
}

KsCellDiff& GridColorDiff::Hold(int k) {
    KsCellDiff& cell = own->cd[k];
    if (own->shared[static_cast<std::size_t>(k)]) return cell;
    own->shared[static_cast<std::size_t>(k)] = 1;
    own->shared_cells.push_back(k);
    const CellBox box = Box(k);
    cell.KsSetBoxBounds(box.minr, box.maxr, box.minc, box.maxc);
    if (own->unsummed != nullptr) SumColors(std::exchange(own->unsummed, nullptr).get());
    PublishDifferences(k);
    PublishDerivatives(k);
    PublishSums(k);
    return cell;
}

void GridColorDiff::PublishDifferences(int k) {
    const auto i = static_cast<std::size_t>(k);
    KsCellDiff& cell = own->cd[k];
    cell.RedDiff = own->red[i];
    if (CIr != COLOR) return;  // Deliberate: neither cleared nor written (Differences.SumsOverTheCellsPixels)
    cell.GreenDiff = own->green[i];
    cell.BlueDiff = own->blue[i];
}

void GridColorDiff::AdoptDifferences() {
    for (const int k : own->shared_cells) {
        const auto i = static_cast<std::size_t>(k);
        const KsCellDiff& cell = own->cd[k];
        own->red[i] = cell.RedDiff;
        if (CIr != COLOR) continue;
        own->green[i] = cell.GreenDiff;
        own->blue[i] = cell.BlueDiff;
    }
}

void GridColorDiff::PublishSums(int k) {
    const bool shifted = k >= cnum_2;
    // Deliberate: shifted cells get no sums before the first update (Grid.BoxesNeighboursAndSums).
    if (shifted && !own->updated) return;
    int sum[4] = {};
    for (int i = 0; i < 4; i++) {
        // A shifted cell consists of the inner quadrants of the four main cells around it.
        const int m = shifted ? n[k].n[4 + i] : k;
        static constexpr int kInner[4] = {2, 3, 1, 0};
        const std::int16_t* q = own->colors[m].q[shifted ? kInner[i] : i];
        for (int channel = 0; channel < 3; channel++) sum[channel] += q[channel];
    }
    ColorValue& to = own->cd[k].sum;
    to.R = sum[0];
    if (CIr != COLOR && !own->updated) return;  // AddAllGray before the first update, AddAll from then on
    to.G = sum[2];
    to.B = sum[1];
}

void GridColorDiff::SumColors(const unsigned char* rgb) {
    const kernels::Table& kernel = kernels::Active();
    const std::size_t width = static_cast<std::size_t>(NofC);
    own->updated = true;
    for (int k = 0; k < cnum_2; k++) {
        const CellBox cell = Box(k);
        kernels::QuadrantSums& quadrants = own->colors[k];
        if (IsWhole(cell)) {
            kernels::PixelBlock px;
            const std::size_t first = static_cast<std::size_t>(cell.minr) * width + static_cast<std::size_t>(cell.minc);
            kernel.load(rgb + first * 3, width * 3, 1, &px);
            kernel.sums(px, quadrants);
            continue;
        }
        quadrants = {};
        ForEachInQuadrants(cell, cellsize_2, NofR, NofC, [&](int r, int c, int q) {
            const unsigned char* p = rgb + (static_cast<std::size_t>(r) * width + static_cast<std::size_t>(c)) * 3;
            quadrants.Add(q, p[0], p[1], p[2]);
        });
    }
    for (const int k : own->shared_cells) PublishSums(k);
}

void GridColorDiff::RememberColors(const std::shared_ptr<unsigned char[]>& frame) {
    own->unsummed = frame;
    if (!own->shared_cells.empty()) SumColors(std::exchange(own->unsummed, nullptr).get());
}

void KsCellDiff::AddAll(KsColorImage& CI) {
    sum = {0, 0, 0};
    ForEachPixel(*this, CI.NofR, CI.NofC, [&](int r, int c) {
        sum.R += CI.Red(r, c);
        sum.G += CI.Green(r, c);
        sum.B += CI.Blue(r, c);
    });
}

void KsCellDiff::AddAllGray(KsColorImage& CI) {
    sum.R = 0;
    ForEachPixel(*this, CI.NofR, CI.NofC, [&](int r, int c) { sum.R += CI.Red(r, c); });
}
