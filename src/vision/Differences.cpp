// Differences against the background: per pixel, then summed per cell.
#include <cstring>

#include "backgroundmodel.h"
#include "gridcolordiff.h"
#include "gridprivate.h"
#include "pixelwalk.h"

void GridColorDiff::ComputeDifferences(KsColorImage& CI, BackgroundModel* B) {
    if (B->BType == MULTIPLE) {
        Compare(CI, *B);
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

void GridColorDiff::AddDifferences() {
    KsCellDiff* const cells = ShareAll();
    const std::size_t width = static_cast<std::size_t>(NofC);
    for (int k = 0; k < cnum; k++) {
        int red = 0, green = 0, blue = 0;
        ForEachPixel(cells[k], NofR, NofC, [&](int r, int c) {
            const std::size_t i = static_cast<std::size_t>(r) * width + static_cast<std::size_t>(c);
            red += RedD[i];
            green += GreenD[i];
            blue += BlueD[i];
        });
        cells[k].RedDiff = red;
        if (CIr != COLOR) continue;  // Deliberate: neither cleared nor written
        cells[k].GreenDiff = green;
        cells[k].BlueDiff = blue;
    }
}

namespace {

// Calls f(r, c, quadrant) for the pixels of a cell inside the frame; quadrants as in QuadrantSums.
template <class F>
void ForEachInQuadrants(const CellBox& cell, int half, int rows, int cols, F f) {
    ForEachPixel(cell, rows, cols,
                 [&](int r, int c) { f(r, c, (r >= cell.minr + half ? 2 : 0) + (c >= cell.minc + half ? 1 : 0)); });
}

// The four rows of a cell into a plane.
void StoreRows(const std::int16_t* block, std::int16_t* plane, std::size_t width) {
    for (std::size_t r = 0; r < 4; r++) std::memcpy(plane + r * width, block + 4 * r, 8);
}

}  // namespace

// The sixteen pixels of a main cell share the clusters that they are compared with: those of the cell and of its four
// diagonal neighbours, in this order. Cells at a clipped edge, cells of another size, cells without any qualifying
// cluster and cells with one out of the kernels' bounds take the plain way, pixel by pixel.
void GridColorDiff::Compare(KsColorImage& CI, BackgroundModel& B) {
    const kernels::Table& kernel = kernels::Active();
    const std::size_t width = static_cast<std::size_t>(NofC);
    B.PrepareQueries();
    if (cnum == 0) return;
    const kernels::CandidateList* const lists = &B.Candidates(0);
    const int whole_rows = cellsize == 4 ? NofR / 4 : 0, whole_cols = NofC / 4;
    for (int k = 0, i = 0; i < own->inum; i++) {
        for (int j = 0; j < own->jnum; j++, k++) {
            const kernels::CandidateList* around[5];
            int count = 0, candidates = 0;
            bool plain = i >= whole_rows || j >= whole_cols;
            const auto add = [&](int m) {
                plain |= lists[m].n < 0;
                candidates += lists[m].n;
                around[count] = &lists[m];
                count += lists[m].n > 0;
            };
            add(k);
            for (int slot = 4; slot < 8; slot++)
                if (n[k].n[slot] >= 0) add(n[k].n[slot]);
            if (plain || candidates == 0) {
                PlainCell(CI, B, k);
                continue;
            }
            const std::size_t first = static_cast<std::size_t>(4 * i) * width + static_cast<std::size_t>(4 * j);
            kernels::PixelBlock px;
            kernels::DifferenceBlock d;
            kernel.load(CI.rawsrc + first * 3, width * 3, px);
            kernel.nearest(px, around, count, d, own->quadrants[static_cast<std::size_t>(k)]);
            StoreRows(d.r, RedD + first, width);
            if (CIr != COLOR) continue;
            StoreRows(d.g, GreenD + first, width);
            StoreRows(d.b, BlueD + first, width);
        }
    }
}

void GridColorDiff::PlainCell(const KsColorImage& CI, const BackgroundModel& B, int k) {
    kernels::QuadrantSums& quadrants = own->quadrants[static_cast<std::size_t>(k)] = {};
    ForEachInQuadrants(Box(k), cellsize_2, NofR, NofC, [&](int r, int c, int q) {
        const std::size_t i =
            static_cast<std::size_t>(r) * static_cast<std::size_t>(NofC) + static_cast<std::size_t>(c);
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

// The sums of both lattices from the quadrants of the main cells.
void GridColorDiff::SumCells() {
    const kernels::QuadrantSums* const at = own->quadrants.data();
    const auto give = [&](std::size_t k, const std::int16_t* a, const std::int16_t* b, const std::int16_t* c,
                          const std::int16_t* d) {
        own->red[k] = a[0] + b[0] + c[0] + d[0];
        if (CIr != COLOR) return;
        own->blue[k] = a[1] + b[1] + c[1] + d[1];
        own->green[k] = a[2] + b[2] + c[2] + d[2];
    };
    const std::size_t rows = static_cast<std::size_t>(own->inum), columns = static_cast<std::size_t>(own->jnum);
    for (std::size_t k = 0; k < rows * columns; k++) give(k, at[k].q[0], at[k].q[1], at[k].q[2], at[k].q[3]);
    std::size_t k = rows * columns;
    for (std::size_t i = 0; i + 1 < rows; i++)
        for (std::size_t j = 0; j + 1 < columns; j++, k++) {
            const kernels::QuadrantSums *above = at + i * columns + j, *below = above + columns;
            give(k, above[0].q[3], above[1].q[2], below[0].q[1], below[1].q[0]);
        }
}

void GridColorDiff::SumColors(const KsColorImage& CI) {
    const kernels::Table& kernel = kernels::Active();
    const std::size_t width = static_cast<std::size_t>(NofC);
    own->updated = true;
    for (int k = 0; k < cnum_2; k++) {
        const CellBox cell = Box(k);
        kernels::QuadrantSums& quadrants = own->colors[static_cast<std::size_t>(k)];
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
    for (const int k : own->shared_cells) PublishSums(k);
}
