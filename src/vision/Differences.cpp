// Differences against the background: per pixel, then summed per cell.
#include <cstring>

#include "backgroundmodel.h"
#include "gridcolordiff.h"
#include "gridprivate.h"
#include "pixelwalk.h"

void GridColorDiff::ComputeDifferences(KsColorImage& CI, BackgroundModel* B) {
    if (B->BType == MULTIPLE) {
        CompareCells(CI, *B);
        return;
    }
    const KsColorImage& bkg = B->IBkg;
    std::size_t i = 0;
    for (int r = 0; r < NofR; r++) {
        for (int c = 0; c < NofC; c++, i++) {
            // Deliberate: frame minus background here, cluster minus frame for MULTIPLE.
            RedD[i] = static_cast<std::int16_t>(CI.Red(r, c) - bkg.Red(r, c));
            if (CIr != COLOR) continue;
            GreenD[i] = static_cast<std::int16_t>(CI.Green(r, c) - bkg.Green(r, c));
            BlueD[i] = static_cast<std::int16_t>(CI.Blue(r, c) - bkg.Blue(r, c));
        }
    }
}

namespace {

// Calls f(r, c, quadrant) for the pixels of a cell inside the frame; quadrants as in QuadrantSums.
template <class F>
void ForEachInQuadrants(const KsCellDiff& cell, int half, int rows, int cols, F f) {
    ForEachPixel(cell, rows, cols,
                 [&](int r, int c) { f(r, c, (r >= cell.minr + half ? 2 : 0) + (c >= cell.minc + half ? 1 : 0)); });
}

// The four rows of a cell into a plane.
void StoreRows(const std::int16_t* block, std::int16_t* plane, std::size_t width) {
    for (int r = 0; r < 4; r++) std::memcpy(plane + static_cast<std::size_t>(r) * width, block + 4 * r, 8);
}

}  // namespace

// Whether all pixels of a cell lie inside the frame and it is of the kernels' size.
bool GridColorDiff::IsWhole(const KsCellDiff& cell) const {
    return cellsize == 4 && cell.maxr < NofR && cell.maxc < NofC;
}

// The sixteen pixels of a main cell share the clusters that they are compared with: those of the cell and of its four
// diagonal neighbours, in this order. Cells at a clipped edge, cells of another size, cells without any qualifying
// cluster and cells with one out of the kernels' bounds take the plain way, pixel by pixel.
void GridColorDiff::CompareCells(KsColorImage& CI, BackgroundModel& B) {
    const kernels::Table& kernel = kernels::Active();
    const std::size_t width = static_cast<std::size_t>(NofC);
    B.PrepareQueries();
    for (int k = 0; k < cnum_2; k++) {
        const KsCellDiff& cell = cd[k];
        kernels::QuadrantSums& quadrants = own->quadrants[static_cast<std::size_t>(k)];
        const kernels::CandidateList* lists[5];
        int nlists = 0, candidates = 0;
        bool plain = !IsWhole(cell);
        const auto add = [&](int m) {
            const kernels::CandidateList& list = B.Candidates(m);
            plain |= list.n < 0;
            if (list.n > 0) lists[nlists++] = &list;
            candidates += list.n;
        };
        add(k);
        for (int slot = 4; slot < 8; slot++)
            if (n[k].n[slot] >= 0) add(n[k].n[slot]);

        const std::size_t first = static_cast<std::size_t>(cell.minr) * width + static_cast<std::size_t>(cell.minc);
        if (!plain && candidates > 0) {
            kernels::PixelBlock px;
            kernel.load(CI.rawsrc + first * 3, width * 3, px);
            kernels::DifferenceBlock d;
            kernel.nearest(px, lists, nlists, d, quadrants);
            StoreRows(d.r, RedD + first, width);
            if (CIr == COLOR) {
                StoreRows(d.g, GreenD + first, width);
                StoreRows(d.b, BlueD + first, width);
            }
            continue;
        }
        quadrants = {};
        ForEachInQuadrants(cell, cellsize_2, NofR, NofC, [&](int r, int c, int q) {
            const std::size_t i = static_cast<std::size_t>(r) * width + static_cast<std::size_t>(c);
            int red = RedD[i], green = GreenD[i], blue = BlueD[i];
            if (CIr == COLOR)
                B.GetDifference(r, c, CI.Red(r, c), CI.Green(r, c), CI.Blue(r, c), red, green, blue);
            else
                B.GetDifferenceGray(r, c, CI.Red(r, c), red);
            RedD[i] = static_cast<std::int16_t>(red);
            GreenD[i] = static_cast<std::int16_t>(green);
            BlueD[i] = static_cast<std::int16_t>(blue);
            quadrants.Add(q, red, green, blue);
        });
    }
}

void GridColorDiff::AddDifferences() {
    const std::size_t width = static_cast<std::size_t>(NofC);
    for (int k = 0; k < cnum_2; k++) {
        kernels::QuadrantSums& quadrants = own->quadrants[static_cast<std::size_t>(k)] = {};
        ForEachInQuadrants(cd[k], cellsize_2, NofR, NofC, [&](int r, int c, int q) {
            const std::size_t i = static_cast<std::size_t>(r) * width + static_cast<std::size_t>(c);
            quadrants.Add(q, RedD[i], GreenD[i], BlueD[i]);
        });
    }
    AddQuadrants();
}

void GridColorDiff::AddQuadrants() {
    ForEachCellSum([this](int k, int r, int g, int b) {
        cd[k].RedDiff = r;
        if (CIr != COLOR) return;  // Deliberate: neither cleared nor written
        cd[k].GreenDiff = g;
        cd[k].BlueDiff = b;
    });
}

void GridColorDiff::SumColors(const KsColorImage& CI) {
    const kernels::Table& kernel = kernels::Active();
    const std::size_t width = static_cast<std::size_t>(NofC);
    for (int k = 0; k < cnum_2; k++) {
        const KsCellDiff& cell = cd[k];
        kernels::QuadrantSums& quadrants = own->quadrants[static_cast<std::size_t>(k)];
        if (IsWhole(cell)) {
            kernels::PixelBlock px;
            const std::size_t first = static_cast<std::size_t>(cell.minr) * width + static_cast<std::size_t>(cell.minc);
            kernel.load(CI.rawsrc + first * 3, width * 3, px);
            kernel.sums(px, quadrants);
            continue;
        }
        quadrants = {};
        ForEachInQuadrants(cell, cellsize_2, NofR, NofC,
                           [&](int r, int c, int q) { quadrants.Add(q, CI.Red(r, c), CI.Green(r, c), CI.Blue(r, c)); });
    }
    ForEachCellSum([this](int k, int r, int g, int b) { cd[k].sum = {r, g, b}; });
}
