// The records of the grid's cells, filled in from the compact state when somebody asks for them.
#include <utility>

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"
#include "vision/pixelwalk.h"

KsCellDiff& GridCells::operator[](int k) const {
    if (!grid->own->shared[static_cast<std::size_t>(k)]) grid->Share(k);
    return cells[k];
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

void GridColorDiff::Share(int k) {
    own->shared[static_cast<std::size_t>(k)] = 1;
    own->shared_cells.push_back(k);
    const CellBox box = Box(k);
    own->cd[k].KsSetBoxBounds(box.minr, box.maxr, box.minc, box.maxc);
    if (own->unsummed != nullptr) SumColors(std::exchange(own->unsummed, nullptr).get());
    PublishDifferences(k);
    PublishSums(k);
}

KsCellDiff* GridColorDiff::ShareAll() {
    if (own->shared_cells.size() < static_cast<std::size_t>(cnum))
        for (int k = 0; k < cnum; k++) cd[k];
    return own->cd.data();
}

void GridColorDiff::PublishDifferences(int k) {
    const auto derive = [&](const std::vector<int>& sums, int& to, int& x, int& y) {
        to = sums[static_cast<std::size_t>(k)];
        x = y = 0;
        int d[4];
        for (int i = 0; i < 4; i++) {
            if (n[k].n[4 + i] < 0) return;
            d[i] = sums[static_cast<std::size_t>(n[k].n[4 + i])];
        }
        x = (d[2] + d[3]) - (d[0] + d[1]);  // slots: 4 up-right, 5 up-left, 6 down-left, 7 down-right
        y = (d[0] + d[3]) - (d[1] + d[2]);
    };
    KsCellDiff& cell = own->cd[k];
    derive(own->red, cell.RedDiff, cell.Rx, cell.Ry);
    if (CIr != COLOR) return;
    derive(own->green, cell.GreenDiff, cell.Gx, cell.Gy);
    derive(own->blue, cell.BlueDiff, cell.Bx, cell.By);
}

void GridColorDiff::PublishSums(int k) {
    const bool shifted = k >= cnum_2;
    if (shifted && !own->updated) return;  // Deliberate: shifted cells get no sums before the first update
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
