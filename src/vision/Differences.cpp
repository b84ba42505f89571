// Differences against the background: per pixel, then summed per cell.
#include <utility>

#include "backgroundprivate.h"
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

}  // namespace

// The sixteen pixels of a main cell share the clusters that they are compared with: those of the cell and of its four
// diagonal neighbours, in this order. Cells at a clipped edge, cells of another size and cells with a cluster out of
// the kernels' bounds take the plain way, pixel by pixel.
void GridColorDiff::Compare(KsColorImage& CI, BackgroundModel& B) {
    if (cnum == 0) return;
    B.PrepareQueries();
    const kernels::Table& kernel = kernels::Active();
    const std::size_t width = static_cast<std::size_t>(NofC);
    const auto &main = B.own->lattices[0], &shifted = B.own->lattices[1];
    for (int i = 0; i < own->inum; i++) {
        const int k = i * own->jnum;
        const int whole = i < main.whole_rows ? main.whole_cols : 0;
        if (whole > 0) {
            const std::size_t first = static_cast<std::size_t>(4 * i) * width;
            kernel.load(CI.rawsrc + first * 3, width * 3, whole, own->pixels.data());
            const kernels::CandidateList* const above = shifted.lists.data() + i * shifted.list_stride;
            const bool color = CIr == COLOR;
            kernel.compare({whole,
                            own->pixels.data(),
                            main.lists.data() + k,
                            above,
                            above + shifted.list_stride,
                            {RedD + first, color ? GreenD + first : nullptr, color ? BlueD + first : nullptr},
                            width,
                            own->quadrants.data() + k,
                            own->outcome.data()});
        }
        for (int j = 0; j < own->jnum; j++) {
            const kernels::Outcome outcome = j < whole ? own->outcome[static_cast<std::size_t>(j)] : kernels::kUnfit;
            if (outcome == kernels::kWithout) KeptCell(k + j);
            if (outcome == kernels::kUnfit) PlainCell(CI, B, k + j);
        }
    }
}

void GridColorDiff::PlainCell(const KsColorImage& CI, const BackgroundModel& B, int k) {
    KsBackgroundCell around[5];
    int count = 0;
    around[count++] = B.Look(k);
    for (int slot = 4; slot < 8; slot++)
        if (n[k].n[slot] >= 0) around[count++] = B.Look(n[k].n[slot]);
    ForEachPixel(Box(k), NofR, NofC, [&](int r, int c) {
        const std::size_t i =
            static_cast<std::size_t>(r) * static_cast<std::size_t>(NofC) + static_cast<std::size_t>(c);
        int red = RedD[i], green = GreenD[i], blue = BlueD[i], min = kFarthest;
        for (int a = 0; a < count; a++)
            min = CIr == COLOR
                      ? around[a].GetMinDifference(min, CI.Red(r, c), CI.Green(r, c), CI.Blue(r, c), red, green, blue)
                      : around[a].GetMinDifferenceGray(min, CI.Red(r, c), red);
        RedD[i] = static_cast<std::int16_t>(red);
        GreenD[i] = static_cast<std::int16_t>(green);
        BlueD[i] = static_cast<std::int16_t>(blue);
    });
    KeptCell(k);
}

// The quadrant sums of the differences as they stand.
void GridColorDiff::KeptCell(int k) {
    kernels::QuadrantSums& quadrants = own->quadrants[k] = {};
    ForEachInQuadrants(Box(k), cellsize_2, NofR, NofC, [&](int r, int c, int q) {
        const std::size_t i =
            static_cast<std::size_t>(r) * static_cast<std::size_t>(NofC) + static_cast<std::size_t>(c);
        quadrants.Add(q, RedD[i], GreenD[i], BlueD[i]);
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
