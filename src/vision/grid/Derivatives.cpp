// Derivatives of the cells from their four diagonal neighbours, half a cell away:
//
//     UL   UR        x (down the rows)      = (DL + DR) - (UL + UR)
//       cell         y (across the columns) = (UR + DR) - (UL + DL)
//     DL   DR
#include <algorithm>
#include <cmath>

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"

// Row by row in both lattices. A cell on the frame's border lacks neighbours and has no derivative.
void GridColorDiff::CellDerivatives() {
    AdoptDifferences();
    const int rows = own->inum, columns = own->jnum;
    const auto shifted = [&](int i) { return cnum_2 + i * (columns - 1); };
    double* const squares = own->squares.data();
    for (int i = 0; i < rows; i++) {
        double* const row = squares + i * columns;
        if (i == 0 || i == rows - 1 || columns < 3) {
            std::fill_n(row, columns, 0.0);
        } else {
            row[0] = row[columns - 1] = 0;
            DeriveRow(i * columns + 1, shifted(i - 1), shifted(i), columns - 2);
        }
        if (i + 1 < rows) DeriveRow(shifted(i), i * columns, (i + 1) * columns, columns - 1);
    }
    for (const int k : own->shared_cells) PublishDerivatives(k);
}

// Cells k .. k + count - 1, whose upper left and lower left neighbours are `above` and `below` and those that follow.
void GridColorDiff::DeriveRow(int k, int above, int below, int count) {
    const int* const up[] = {own->red.data() + above, own->green.data() + above, own->blue.data() + above};
    const int* const down[] = {own->red.data() + below, own->green.data() + below, own->blue.data() + below};
    kernels::Active().derive(up, down, count, own->squares.data() + k);
}

namespace {

// Derivatives of one cell; value(k) is what is derived. Zeros without all four neighbours.
template <class Value>
void DeriveCell(const Neighbors& around, Value value, int& x, int& y) {
    const int ur = around.n[4], ul = around.n[5], dl = around.n[6], dr = around.n[7];
    x = y = 0;
    if (ur < 0 || ul < 0 || dl < 0 || dr < 0) return;
    x = kernels::Slope(value(ul), value(ur), value(dl), value(dr));
    y = kernels::Slope(value(ul), value(dl), value(ur), value(dr));
}

double Square(double v) {
    return v * v;
}

}  // namespace

void GridColorDiff::PublishDerivatives(int k) {
    const auto sum = [](const std::vector<int>& sums) {
        return [&sums](int i) { return sums[static_cast<std::size_t>(i)]; };
    };
    KsCellDiff& cell = own->cd[k];
    DeriveCell(n[k], sum(own->red), cell.Rx, cell.Ry);
    if (CIr != COLOR) return;
    DeriveCell(n[k], sum(own->green), cell.Gx, cell.Gy);
    DeriveCell(n[k], sum(own->blue), cell.Bx, cell.By);
}

void GridColorDiff::AdoptDerivatives() {
    for (const int k : own->shared_cells) {
        const KsCellDiff& cell = own->cd[k];
        double d = Square(cell.Rx) + Square(cell.Ry);
        if (CIr == COLOR) d += Square(cell.Gx) + Square(cell.Gy) + Square(cell.Bx) + Square(cell.By);
        own->squares[static_cast<std::size_t>(k)] = d;
    }
}

void GridColorDiff::CellPartialDerivatives() {
    for (int k = 0; k < cnum; k++) Hold(k);
    for (int k = 0; k < cnum; k++) {
        ColorDerivative& der = own->cd[k].der;
        DeriveCell(
            n[k], [&](int i) { return own->cd[i].sum.R; }, der.Rx, der.Ry);
        if (CIr != COLOR) continue;
        DeriveCell(
            n[k], [&](int i) { return own->cd[i].sum.G; }, der.Gx, der.Gy);
        DeriveCell(
            n[k], [&](int i) { return own->cd[i].sum.B; }, der.Bx, der.By);
    }
}

namespace {

// Sum of six squares as a 32-bit integer: it wraps as that type does, without undefined behaviour.
int SumOfSquares(const ColorDerivative& d) {
    unsigned sum = 0;
    for (const int v : {d.Rx, d.Ry, d.Gx, d.Gy, d.Bx, d.By}) sum += static_cast<unsigned>(v) * static_cast<unsigned>(v);
    return static_cast<int>(sum);
}

int Subtract(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

}  // namespace

double derNorm(ColorDerivative cd) {
    return std::sqrt(static_cast<double>(SumOfSquares(cd)));
}

double CellPartialDerivativeDistance(ColorDerivative cd1, ColorDerivative cd2, double n1, double n2, int mindist) {
    if (mindist > n1 + n2) return 0.0;
    const int d = SumOfSquares({Subtract(cd1.Rx, cd2.Rx), Subtract(cd1.Ry, cd2.Ry), Subtract(cd1.Gx, cd2.Gx),
                                Subtract(cd1.Gy, cd2.Gy), Subtract(cd1.Bx, cd2.Bx), Subtract(cd1.By, cd2.By)});
    return 2.0 * d / (n1 + n2);
}
