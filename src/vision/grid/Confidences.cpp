// Foreground confidences: difference measure, thresholds that follow the statistics of the whole grid, two ramps.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"

namespace {

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
    // Deliberate: the squares are divided by one less than the mean is (Confidence.MixedDivisors). A grid of one cell
    // divides by zero here: its thresholds become infinite or no number, and the comparisons behind take them as they
    // are.
    const double s = std::sqrt(squares / (cnum - 1) - m * m);
    const double ltnew = m + s * low;
    const double htnew = ltnew + s * high;  // Deliberate: stacked on the low threshold (Confidence.MixedDivisors)
    Adapt(clt, ltnew, ltmin);
    Adapt(cht, htnew, htmin);
}

void GridColorDiff::Confidences(double& clt, double& cht, double ltmin, double htmin, double derlt, double derht,
                                float color_low, float color_high, float ir_low, float ir_high) {
    AdoptDifferences();
    AdoptDerivatives();
    double total = 0, squares = 0;  // exact: integers far below 2^53
    kernels::Active().measure(own->red.data(), own->green.data(), own->blue.data(), cnum, diff, total, squares);
    AdaptThresholds(total, squares, clt, cht, ltmin, htmin, CIr == COLOR ? color_low : ir_low,
                    CIr == COLOR ? color_high : ir_high);
    for (int k = 0; k < cnum; k++) conf[k] = Ramp(diff[k], clt, cht);
    // A square up to that of the low threshold has a root up to it, so most roots need not be drawn.
    const double none = derlt >= 0 ? derlt * derlt : -1;
    const double* const d = own->squares.data();
    for (int k = 0; k < cnum; k++) der_conf[k] = d[k] <= none ? 0.0 : Ramp(std::sqrt(d[k]), derlt, derht);
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
