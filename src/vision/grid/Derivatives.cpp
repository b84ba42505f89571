// Derivatives of the cells from their four diagonal neighbours, half a cell away:
//
//     UL   UR        x (down the rows)      = (DL + DR) - (UL + UR)
//       cell         y (across the columns) = (UR + DR) - (UL + DL)
//     DL   DR
#include <cmath>

#include "vision/grid/gridcolordiff.h"

namespace {

// Calls set(k, x, y) for every cell; value(k) is what is derived. A cell without all four neighbours gets zeros.
template <class Value, class Set>
void DeriveCells(const Neighbors* n, int cnum, Value value, Set set) {
    for (int k = 0; k < cnum; k++) {
        const int ur = n[k].n[4], ul = n[k].n[5], dl = n[k].n[6], dr = n[k].n[7];
        if (ur < 0 || ul < 0 || dl < 0 || dr < 0)
            set(k, 0, 0);
        else
            set(k, (value(dl) + value(dr)) - (value(ur) + value(ul)),
                (value(ur) + value(dr)) - (value(ul) + value(dl)));
    }
}

}  // namespace

void GridColorDiff::CellDerivatives() {
    KsCellDiff* const cells = ShareAll();
    DeriveCells(
        n, cnum, [cells](int k) { return cells[k].RedDiff; },
        [cells](int k, int x, int y) {
            cells[k].Rx = x;
            cells[k].Ry = y;
        });
    if (CIr != COLOR) return;
    DeriveCells(
        n, cnum, [cells](int k) { return cells[k].GreenDiff; },
        [cells](int k, int x, int y) {
            cells[k].Gx = x;
            cells[k].Gy = y;
        });
    DeriveCells(
        n, cnum, [cells](int k) { return cells[k].BlueDiff; },
        [cells](int k, int x, int y) {
            cells[k].Bx = x;
            cells[k].By = y;
        });
}

void GridColorDiff::CellPartialDerivatives() {
    KsCellDiff* const cells = ShareAll();
    DeriveCells(
        n, cnum, [cells](int k) { return cells[k].sum.R; },
        [cells](int k, int x, int y) {
            cells[k].der.Rx = x;
            cells[k].der.Ry = y;
        });
    if (CIr != COLOR) return;
    DeriveCells(
        n, cnum, [cells](int k) { return cells[k].sum.G; },
        [cells](int k, int x, int y) {
            cells[k].der.Gx = x;
            cells[k].der.Gy = y;
        });
    DeriveCells(
        n, cnum, [cells](int k) { return cells[k].sum.B; },
        [cells](int k, int x, int y) {
            cells[k].der.Bx = x;
            cells[k].der.By = y;
        });
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
