// Differences against the background: per pixel, then summed per cell.
#include <utility>

#include "vision/background/backgroundmodel.h"
#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"
#include "vision/pixelwalk.h"

void GridColorDiff::ComputeDifferences(KsColorImage& CI, BackgroundModel* B) {
    own->quartered = B->BType == MULTIPLE;
    if (cnum == 0) return;
    if (B->BType != MULTIPLE) {
        SubtractBackground(CI, B->IBkg);
        return;
    }
    B->PrepareQueries();
    for (int row = 0; row < own->inum; row++) CompareRow(CI, *B, row);
}

void GridColorDiff::SubtractBackground(const KsColorImage& CI, const KsColorImage& bkg) {
    std::size_t i = 0;
    for (int r = 0; r < NofR; r++) {
        for (int c = 0; c < NofC; c++, i++) {
            // Deliberate: frame minus background here, cluster minus frame for MULTIPLE
            // (Background.SingleModelDrawsAndHistogram).
            RedD[i] = static_cast<std::int16_t>(CI.Red(r, c) - bkg.Red(r, c));
            if (CIr != COLOR) continue;
            GreenD[i] = static_cast<std::int16_t>(CI.Green(r, c) - bkg.Green(r, c));
            BlueD[i] = static_cast<std::int16_t>(CI.Blue(r, c) - bkg.Blue(r, c));
        }
    }
}

// The sixteen pixels of a main cell share the clusters that they are compared with: those of the cell and of its four
// diagonal neighbours, in this order. Cells at a clipped edge, cells of another size and cells with a cluster out of
// the kernels' bounds take the plain way, pixel by pixel.
void GridColorDiff::CompareRow(const KsColorImage& CI, const BackgroundModel& B, int row) {
    const kernels::Table& kernel = kernels::Active();
    const std::size_t width = static_cast<std::size_t>(NofC);
    const int k = row * own->jnum;
    const BackgroundModel::QueryRow queries = B.Queries(row);
    if (queries.whole > 0) {
        const std::size_t first = static_cast<std::size_t>(4 * row) * width;
        kernel.load(CI.rawsrc + first * 3, width * 3, queries.whole, own->pixels.data());
        const bool color = CIr == COLOR;
        const auto sums = [&](int channel) { return own->quadrants[channel].data() + 4 * k; };
        kernel.compare({queries.whole,
                        own->pixels.data(),
                        queries.own,
                        queries.above,
                        queries.below,
                        {RedD + first, color ? GreenD + first : nullptr, color ? BlueD + first : nullptr},
                        width,
                        {sums(0), color ? sums(1) : nullptr, color ? sums(2) : nullptr},
                        static_cast<std::size_t>(2 * own->jnum),
                        own->outcome.data()});
    }
    for (int j = 0; j < own->jnum; j++) {
        const kernels::Outcome outcome =
            j < queries.whole ? own->outcome[static_cast<std::size_t>(j)] : kernels::kUnfit;
        if (outcome == kernels::kWithout) KeptCell(k + j);
        if (outcome == kernels::kUnfit) PlainCell(CI, B, k + j);
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
    const std::int16_t* const planes[3] = {RedD, GreenD, BlueD};
    const int first = k / own->jnum * 4 * own->jnum + k % own->jnum * 2;
    for (int channel = 0; channel < 3; channel++) {
        int sums[4] = {};
        ForEachInQuadrants(Box(k), cellsize_2, NofR, NofC, [&](int r, int c, int q) {
            sums[q] += planes[channel][static_cast<std::size_t>(r) * static_cast<std::size_t>(NofC) +
                                       static_cast<std::size_t>(c)];
        });
        for (int q = 0; q < 4; q++)
            own->quadrants[channel][first + (q >> 1) * 2 * own->jnum + (q & 1)] = static_cast<std::int16_t>(sums[q]);
    }
}

void GridColorDiff::AddDifferences() {
    if (std::exchange(own->quartered, false))
        SumQuadrants();
    else
        SumPixels();
    for (const int k : own->shared_cells) PublishDifferences(k);
}

// The sums of both lattices from the quadrants of the main cells.
void GridColorDiff::SumQuadrants() {
    const kernels::Table& kernel = kernels::Active();
    const int rows = own->inum, columns = own->jnum, width = 2 * columns;
    std::vector<int>* const sums[3] = {&own->red, &own->green, &own->blue};
    for (int channel = 0; channel < (CIr == COLOR ? 3 : 1); channel++) {
        int* const main = sums[channel]->data();
        for (int i = 0; i < rows; i++) {
            const std::int16_t* const at = own->quadrants[channel].data() + 2 * i * width;
            kernel.add(at, at + width, columns, main + i * columns);
            if (i + 1 < rows)
                kernel.add(at + width + 1, at + 2 * width + 1, columns - 1, main + cnum_2 + i * (columns - 1));
        }
    }
}

// The same from the pixels as they stand.
void GridColorDiff::SumPixels() {
    const std::int16_t* const planes[3] = {RedD, GreenD, BlueD};
    std::vector<int>* const sums[3] = {&own->red, &own->green, &own->blue};
    for (int channel = 0; channel < (CIr == COLOR ? 3 : 1); channel++) {  // IR has no others
        for (int k = 0; k < cnum; k++) {
            int sum = 0;
            ForEachPixel(Box(k), NofR, NofC, [&](int r, int c) {
                sum += planes[channel][static_cast<std::size_t>(r) * static_cast<std::size_t>(NofC) +
                                       static_cast<std::size_t>(c)];
            });
            (*sums[channel])[static_cast<std::size_t>(k)] = sum;
        }
    }
}
