// Foreground confidences: difference measure, thresholds that follow the statistics of the whole grid, two ramps.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"

namespace {

double Square(double v) {
    return v * v;
}

// 0 up to lo, 1 from hi on, linear in between; both ends inclusive.
double Ramp(double v, double lo, double hi) {
    if (v <= lo) return 0.0;
    if (v >= hi) return 1.0;
    return (v - lo) / (hi - lo);
}

// Rises at once, falls by a quarter of the way a frame, and never ends below the floor.
void Adapt(double& threshold, double fresh, double floor) {
    threshold = fresh > threshold ? fresh : (fresh + 3 * threshold) * 0.25;
    if (floor > threshold) threshold = floor;
}

}  // namespace

void GridColorDiff::AdaptThresholds(double total, double squares, double& clt, double& cht, double ltmin, double htmin,
                                    double low, double high) const {
    const double m = total / cnum;
    // Deliberate: the squares are divided by one less than the mean is. A grid of one cell divides by zero here: its
    // thresholds become infinite or no number, and the comparisons behind take them as they are.
    const double s = std::sqrt(squares / (cnum - 1) - m * m);
    const double ltnew = m + s * low;
    const double htnew = ltnew + s * high;  // Deliberate: stacked on the low threshold
    Adapt(clt, ltnew, ltmin);
    Adapt(cht, htnew, htmin);
}

void GridColorDiff::Confidences(double& clt, double& cht, double ltmin, double htmin, double derlt, double derht,
                                float color_low, float color_high, float ir_low, float ir_high) {
    const KsCellDiff* const cells = ShareAll();
    // Both sums are exact: integers far below 2^53.
    double total = 0, squares = 0;
    for (int k = 0; k < cnum; k++) {
        const KsCellDiff& cell = cells[k];
        diff[k] = CIr == COLOR
                      ? std::trunc(std::sqrt(Square(cell.RedDiff) + Square(cell.GreenDiff) + Square(cell.BlueDiff)))
                      : std::fabs(static_cast<double>(cell.RedDiff));
        total += diff[k];
        squares += Square(diff[k]);
    }
    AdaptThresholds(total, squares, clt, cht, ltmin, htmin, CIr == COLOR ? color_low : ir_low,
                    CIr == COLOR ? color_high : ir_high);
    for (int k = 0; k < cnum; k++) {
        const KsCellDiff& cell = cells[k];
        conf[k] = Ramp(diff[k], clt, cht);
        double d = Square(cell.Rx) + Square(cell.Ry);
        if (CIr == COLOR) d += Square(cell.Gx) + Square(cell.Gy) + Square(cell.Bx) + Square(cell.By);
        der_conf[k] = Ramp(std::sqrt(d), derlt, derht);
    }
}

// AddDifferences, CellDerivatives and Confidences over the quadrant sums of Compare, with the seeds of the components.
void GridColorDiff::Score(double& clt, double& cht, double ltmin, double htmin, double derlt, double derht, double low,
                          double high) {
    SumCells();
    double total = 0, squares = 0;
    kernels::Active().measure(own->red.data(), own->green.data(), own->blue.data(), cnum, diff, total, squares);
    AdaptThresholds(total, squares, clt, cht, ltmin, htmin, low, high);
    ScoreDerivatives(derlt, derht);
    own->seeds.clear();
    for (int k = 0; k < cnum; k++) {
        conf[k] = Ramp(diff[k], clt, cht);
        if (conf[k] >= 1.0 || der_conf[k] >= 1.0) own->seeds.push_back(k);
    }
    for (const int k : own->shared_cells) PublishDifferences(k);
}

// Row by row in both lattices. A cell on the frame's border lacks neighbours and has no derivative.
void GridColorDiff::ScoreDerivatives(double derlt, double derht) {
    const int rows = own->inum, columns = own->jnum;
    const auto shifted = [&](int i) { return cnum_2 + i * (columns - 1); };
    const double none = Ramp(0.0, derlt, derht);
    for (int i = 0; i < rows; i++) {
        double* const row = der_conf + i * columns;
        if (i == 0 || i == rows - 1 || columns < 3) {
            std::fill_n(row, columns, none);
        } else {
            row[0] = row[columns - 1] = none;
            ScoreRow(i * columns + 1, shifted(i - 1), shifted(i), columns - 2, derlt, derht);
        }
        if (i + 1 < rows) ScoreRow(shifted(i), i * columns, (i + 1) * columns, columns - 1, derlt, derht);
    }
}

// Cells k .. k + count - 1, whose upper left and lower left neighbours are `above` and `below` and those that follow.
void GridColorDiff::ScoreRow(int k, int above, int below, int count, double derlt, double derht) {
    const int* const up[] = {own->red.data() + above, own->green.data() + above, own->blue.data() + above};
    const int* const down[] = {own->red.data() + below, own->green.data() + below, own->blue.data() + below};
    double* const d = own->squares.data();
    kernels::Active().derive(up, down, count, d);
    // A square up to that of the low threshold has a root up to it, so most roots need not be drawn.
    const double low = derlt >= 0 ? derlt * derlt : -1;
    for (int j = 0; j < count; j++) der_conf[k + j] = d[j] <= low ? 0.0 : Ramp(std::sqrt(d[j]), derlt, derht);
}

// Each score is an exponential mean of the cell's confidence: score += (confidence - score) / (1 + memory), with a
// memory of 1, 2 or 5 frames for motion1 (num 4, short), motion2 (num 3, medium) and motion5 (num 0, long). A cell that
// has just changed stands high in motion1 and low in motion5; one that has been changing for long stands high in all.
// The confidence is the ramp of diff between clt and cht, as in Confidences. `motion` receives the score just updated;
// other values of num change nothing. Scores start at 0 and stay within 0..1.
void GridColorDiff::ConfidencesMotion(double clt, double cht, int num) {
    if (num != 4 && num != 3 && num != 0) return;
    if (motion == nullptr) {
        const std::size_t cells = static_cast<std::size_t>(cnum);
        motion1 = own->Doubles(cells);
        motion2 = own->Doubles(cells);
        motion5 = own->Doubles(cells);
        motion = own->Doubles(cells);
    }
    double* score = num == 4 ? motion1 : num == 3 ? motion2 : motion5;
    const double memory = num == 4 ? 1 : num == 3 ? 2 : 5;
    for (int k = 0; k < cnum; k++) {
        score[k] += (Ramp(diff[k], clt, cht) - score[k]) / (1 + memory);
        motion[k] = score[k];
    }
}
