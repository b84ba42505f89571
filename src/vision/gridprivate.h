// Storage behind the grid's public arrays.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "gridcolordiff.h"

struct GridColorDiff::Storage {
    std::vector<KsCellDiff> cd;
    std::vector<Neighbors> n;
    std::vector<std::unique_ptr<int[]>> ints;
    std::vector<std::unique_ptr<double[]>> doubles;
    std::vector<std::unique_ptr<ContNode[]>> blocks;  // kPoolBlock nodes each
    std::vector<int> stack, cells;                    // scratch of the components, cnum entries each

    int* Ints(std::size_t count) { return ints.emplace_back(new int[count]()).get(); }
    int* Pixels(std::size_t count) { return Ints(count); }
    double* Doubles(std::size_t count) { return doubles.emplace_back(new double[count]()).get(); }
};
