// Loops over rows of cells, written plainly: the compiler turns them into vectors of the instruction set at hand. All
// sums are of integers far below 2^53, so their order does not matter. Included by every version of the kernels.
#include <cmath>

namespace kernels {
namespace {

// Stores the quadrant sums of cell j of a row.
inline void StoreQuadrants(const ComparisonRow& row, int j, const QuadrantSums& q) {
    constexpr int kPlace[3] = {0, 2, 1};  // in QuadrantSums, of red, green, blue
    for (int channel = 0; channel < 3; channel++) {
        std::int16_t* const to = row.sums[channel];
        if (to == nullptr) continue;
        for (int i = 0; i < 2; i++) {
            to[2 * j + i] = q.q[i][kPlace[channel]];
            to[row.sums_width + static_cast<std::size_t>(2 * j + i)] = q.q[2 + i][kPlace[channel]];
        }
    }
}

void Measure(const int* __restrict r, const int* __restrict g, const int* __restrict b, int n, double* __restrict diff,
             double& total, double& squares) {
    double t = 0, s = 0;
    constexpr int kStep = 8;  // partial sums, so that the additions do not wait for each other
    double ts[kStep] = {}, ss[kStep] = {};
    int k = 0;
    const auto measure = [&](int i) {
        const double red = r[i], green = g[i], blue = b[i];
        return std::trunc(std::sqrt(red * red + green * green + blue * blue));
    };
    for (; k + kStep <= n; k += kStep)
        for (int i = 0; i < kStep; i++) {
            const double d = measure(k + i);
            diff[k + i] = d;
            ts[i] += d;
            ss[i] += d * d;
        }
    for (; k < n; k++) {
        const double d = diff[k] = measure(k);
        t += d;
        s += d * d;
    }
    for (int i = 0; i < kStep; i++) {
        t += ts[i];
        s += ss[i];
    }
    total += t;
    squares += s;
}

void Add(const std::int16_t* __restrict upper, const std::int16_t* __restrict lower, int n, int* __restrict sums) {
    for (int j = 0; j < n; j++) sums[j] = (upper[2 * j] + upper[2 * j + 1]) + (lower[2 * j] + lower[2 * j + 1]);
}

void Derive(const int* const* up, const int* const* down, int n, double* __restrict squares) {
    const auto add = [&](const int* __restrict u, const int* __restrict d, bool first) {
        for (int j = 0; j < n; j++) {
            const double x = Slope(u[j], u[j + 1], d[j], d[j + 1]), y = Slope(u[j], d[j], u[j + 1], d[j + 1]);
            squares[j] = (first ? 0 : squares[j]) + (x * x + y * y);
        }
    };
    add(up[0], down[0], true);
    add(up[1], down[1], false);
    add(up[2], down[2], false);
}

}  // namespace
}  // namespace kernels
