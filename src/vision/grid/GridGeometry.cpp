// Construction of the grid: boxes, neighbours, arrays, tables, the contour node pool.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"
#include "vision/pixelwalk.h"

GridColorDiff::GridColorDiff(KsColorImage& CI, int cellsize_in, ImageType CIr_in)
    : Equalise(false),
      SharpChange(false),
      CIr(CIr_in),
      FreeNodes(nullptr),
      tmpstorage(nullptr),
      cellsize(cellsize_in),
      cellsize_2(cellsize_in / 2),
      NofR(CI.NofR),
      NofC(CI.NofC),
      RedD(nullptr),
      GreenD(nullptr),
      BlueD(nullptr),
      bhist{},
      chist{},
      lut{},
      cd(*this),
      n(nullptr),
      cnum(0),
      cnum_2(0),
      conf(nullptr),
      diff(nullptr),
      der_conf(nullptr),
      motion1(nullptr),
      motion2(nullptr),
      motion5(nullptr),
      motion(nullptr),
      label(nullptr),
      prevlabel(nullptr),
      labelconf(nullptr),
      numlabel(0),
      numprevlabel(0),
      aux(nullptr),
      auxdiv{},
      auxmult16{},
      auxmult256{},
      own(std::make_unique<Storage>()) {
    BuildGeometry();

    const std::size_t pixels = cnum > 0 ? static_cast<std::size_t>(NofR) * static_cast<std::size_t>(NofC) : 0;
    const std::size_t cells = static_cast<std::size_t>(cnum);
    RedD = own->Pixels(pixels);
    GreenD = own->Pixels(pixels);
    BlueD = own->Pixels(pixels);
    conf = own->Doubles(cells);
    der_conf = own->Doubles(cells);
    diff = own->Doubles(cells);
    label = own->Ints(cells);
    prevlabel = own->Ints(cells);
    labelconf = own->Doubles(cells + 1);  // labels start at 1
    aux = own->Ints(cells);
    for (ZeroPages<std::int16_t>& sums : own->quadrants)
        sums = ZeroPages<std::int16_t>(4 * static_cast<std::size_t>(cnum_2));
    own->colors = ZeroPages<kernels::QuadrantSums>(static_cast<std::size_t>(cnum_2));
    for (std::vector<int>* sums : {&own->red, &own->green, &own->blue}) sums->resize(cells + 1);
    own->pixels.resize(static_cast<std::size_t>(own->jnum));
    own->outcome.resize(static_cast<std::size_t>(own->jnum));
    own->squares.resize(cells);
    own->first.resize(cells + 2);
    own->members.resize(cells);
    own->stack.resize(cells);
    own->cells.resize(cells);

    for (int i = 0; i < 256; i++) auxdiv[i] = i >> 4;
    for (int i = 0; i < 16; i++) {
        auxmult16[i] = 16 * i;
        auxmult256[i] = 256 * i;
    }
    FreeNodes = tmpstorage = NewPoolBlock();

    if (cnum == 0) return;
    CountBrightness(CI, CIr, NofR, NofC, bhist);
    SumColors(CI.rawsrc);
    own->updated = false;
}

GridColorDiff::~GridColorDiff() = default;

void GridColorDiff::BuildGeometry() {
    const bool empty = NofR < 1 || NofC < 1;
    const int inum = empty ? 0 : (NofR + cellsize - 1) / cellsize;
    const int jnum = empty ? 0 : (NofC + cellsize - 1) / cellsize;
    cnum_2 = inum * jnum;
    cnum = empty ? 0 : cnum_2 + (inum - 1) * (jnum - 1);

    own->inum = inum;
    own->jnum = jnum;
    const std::size_t cells = static_cast<std::size_t>(cnum);
    own->cd = ZeroPages<KsCellDiff>(cells + 1, true);
    own->shared.resize(cells);
    own->n.resize(cells, Neighbors{{-1, -1, -1, -1, -1, -1, -1, -1}});
    n = own->n.data();

    LinkNeighbors(inum, jnum);
}

void GridColorDiff::LinkNeighbors(int inum, int jnum) {
    const auto main_cell = [=](int i, int j) { return i >= 0 && i < inum && j >= 0 && j < jnum ? i * jnum + j : -1; };
    const auto shifted = [=, this](int i, int j) {
        return i >= 0 && i < inum - 1 && j >= 0 && j < jnum - 1 ? cnum_2 + i * (jnum - 1) + j : -1;
    };
    // Slots: right, up, left, down in the own lattice; up-right, up-left, down-left, down-right in the other one.
    for (int i = 0; i < inum; i++)
        for (int j = 0; j < jnum; j++)
            n[main_cell(i, j)] = {{main_cell(i, j + 1), main_cell(i - 1, j), main_cell(i, j - 1), main_cell(i + 1, j),
                                   shifted(i - 1, j), shifted(i - 1, j - 1), shifted(i, j - 1), shifted(i, j)}};
    for (int i = 0; i + 1 < inum; i++)
        for (int j = 0; j + 1 < jnum; j++)
            n[shifted(i, j)] = {{shifted(i, j + 1), shifted(i - 1, j), shifted(i, j - 1), shifted(i + 1, j),
                                 main_cell(i, j + 1), main_cell(i, j), main_cell(i + 1, j), main_cell(i + 1, j + 1)}};
}
