// Storage behind the grid's public arrays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "gridcolordiff.h"
#include "kernels/kernels.h"

struct GridColorDiff::Storage {
    std::vector<KsCellDiff> cd;
    std::vector<Neighbors> n;
    std::vector<std::unique_ptr<int[]>> ints;
    std::vector<std::unique_ptr<double[]>> doubles;
    std::vector<std::unique_ptr<ContNode[]>> blocks;  // kPoolBlock nodes each
    std::vector<int> stack, cells;                    // scratch of the components, cnum entries each

    int* Ints(std::size_t count) { return ints.emplace_back(new int[count]()).get(); }
    std::vector<std::unique_ptr<std::int16_t[]>> planes;
    std::vector<kernels::QuadrantSums> quadrants;  // of the main cells: a cell of either lattice consists of four
    std::int16_t* Pixels(std::size_t count) { return planes.emplace_back(new std::int16_t[count]()).get(); }
    double* Doubles(std::size_t count) { return doubles.emplace_back(new double[count]()).get(); }
};

// Calls f(k, r, g, b) with the channel sums of every cell, from the quadrants of the main cells. A shifted cell
// consists of the inner quadrants of the four main cells around it.
template <class F>
void GridColorDiff::ForEachCellSum(F f) const {
    const kernels::QuadrantSums* const at = own->quadrants.data();
    const auto give = [&](int k, const std::int16_t* a, const std::int16_t* b, const std::int16_t* c,
                          const std::int16_t* d) {
        f(k, a[0] + b[0] + c[0] + d[0], a[2] + b[2] + c[2] + d[2], a[1] + b[1] + c[1] + d[1]);
    };
    for (int k = 0; k < cnum_2; k++) give(k, at[k].q[0], at[k].q[1], at[k].q[2], at[k].q[3]);
    for (int k = cnum_2; k < cnum; k++) {
        const int* diagonal = n[k].n;  // slots: 4 up-right, 5 up-left, 6 down-left, 7 down-right
        give(k, at[diagonal[5]].q[3], at[diagonal[4]].q[2], at[diagonal[6]].q[1], at[diagonal[7]].q[0]);
    }
}
