// Storage behind the grid's public arrays, and the compact state that the stages of a frame work on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "vision/colorbins.h"
#include "vision/grid/gridcolordiff.h"
#include "vision/kernels/kernels.h"
#include "vision/pixelwalk.h"
#include "vision/zeropages.h"

struct GridColorDiff::Storage {
    int inum = 0, jnum = 0;  // cell rows and columns of the main lattice

    // --- what the public members show ---
    ZeroPages<KsCellDiff> cd;
    std::vector<unsigned char> shared;  // cells whose record somebody holds
    std::vector<int> shared_cells;      // the same, listed
    std::vector<Neighbors> n;
    std::vector<ZeroPages<int>> ints;
    std::vector<ZeroPages<double>> doubles;
    std::vector<ZeroPages<std::int16_t>> planes;
    std::vector<std::unique_ptr<ContNode[]>> blocks;  // kPoolBlock nodes each

    // --- per frame ---
    // Sums of the differences over the quadrants of main cells, of red, green and blue: 2 inum x 2 jnum, row by row.
    ZeroPages<std::int16_t> quadrants[3];
    bool quartered = false;                     // whether quadrants hold the differences that are to be summed next
    ZeroPages<kernels::QuadrantSums> colors;    // of the pixels, per main cell
    bool updated = false;                       // whether colors come from an update, or from the first frame
    std::shared_ptr<unsigned char[]> unsummed;  // frame that colors are to be taken from; null where they have been
    std::vector<kernels::PixelBlock> pixels;    // of a row of main cells
    std::vector<kernels::Outcome> outcome;      // of a row of main cells
    std::vector<int> red, green, blue;          // difference sums of both lattices, one entry more behind the end
    std::vector<double> squares;                // squared derivatives of both lattices, over all channels
    std::vector<int> stack, cells;              // scratch of the components, cnum entries each
    // The cells of every component in cell order: those of label l from first[l] to first[l + 1]. Valid while `listed`.
    bool listed = false;
    std::vector<int> first, members;
    std::vector<int> candidate;  // scratch of FindPotentialParents, zero between calls
    ColorBins::Counts counts{};  // scratch of BuildHistogramForComponent, zero between calls

    int* Ints(std::size_t count) { return ints.emplace_back(count).data(); }
    std::int16_t* Pixels(std::size_t count) { return planes.emplace_back(count).data(); }
    double* Doubles(std::size_t count) { return doubles.emplace_back(count).data(); }
};

// Calls f(r, c, quadrant) for the pixels of a cell inside the frame; quadrants as in QuadrantSums.
template <class F>
inline void ForEachInQuadrants(const CellBox& cell, int half, int rows, int cols, F f) {
    ForEachPixel(cell, rows, cols,
                 [&](int r, int c) { f(r, c, (r >= cell.minr + half ? 2 : 0) + (c >= cell.minc + half ? 1 : 0)); });
}
