#include "tracks/judgement.h"

#include <cmath>

#include "tracks/constants.h"

namespace fleifeisa::host {
namespace {

constexpr int kMostSamples = 512;  // of one component: more would only cost time

struct Gradient {
    int x, y;
    double size() const { return std::sqrt(static_cast<double>(x * x + y * y)); }
};

/// Sobel of anything that answers (x, y) with a level; 1 <= x < width - 1, 1 <= y < height - 1.
template <class Level>
Gradient sobel(const Level& level, int x, int y) {
    const int nw = level(x - 1, y - 1), n = level(x, y - 1), ne = level(x + 1, y - 1);
    const int w = level(x - 1, y), e = level(x + 1, y);
    const int sw = level(x - 1, y + 1), s = level(x, y + 1), se = level(x + 1, y + 1);
    return {ne + 2 * e + se - nw - 2 * w - sw, sw + 2 * s + se - nw - 2 * n - ne};
}

}  // namespace

bool isGhost(SmoothFrame& frame, const Background& background, const Foreground& foreground, const Component& one) {
    frame.needRows(one.box.top - 2, one.box.bottom() + 2);
    const auto now = [&](int x, int y) { return static_cast<int>(frame.luma(y)[x]); };
    const auto usual = [&](int x, int y) { return background.luma(x, y); };
    double more = 0, less = 0;  // gradient of the background above and below that of the frame
    int count = 0;
    const auto look = [&](int x, int y) {
        if (x < 1 || y < 1 || x >= frame.width() - 1 || y >= frame.height() - 1) return;
        const double d = sobel(usual, x, y).size() - sobel(now, x, y).size();
        (d > 0 ? more : less) += d > 0 ? d : -d;
        ++count;
    };
    // The ring: pixels of the outline and their neighbours outside.
    const int step = 1 + one.pixels / (16 * kMostSamples);
    int turn = 0;
    for (const Run& run : one.runs) {
        if (++turn % step != 0) continue;
        look(run.begin - 1, run.y);
        look(run.begin, run.y);
        look(run.end - 1, run.y);
        look(run.end, run.y);
        for (int x = run.begin; x < run.end; x += step) {
            for (const int side : {-1, 1}) {
                if (foreground.at(x, run.y + side)) continue;
                look(x, run.y);
                look(x, run.y + side);
            }
        }
    }
    if (count == 0) return false;
    return more / count > kGhostRatio * (less / count) + kGhostOffset;
}

bool isLight(SmoothFrame& frame, const Background& background, const Foreground& foreground, const Component& one,
             int least_pixels) {
    if (one.pixels < least_pixels) return false;
    const auto now = [&](int x, int y) { return static_cast<int>(frame.luma(y)[x]); };
    const auto usual = [&](int x, int y) { return background.luma(x, y); };
    const int step = 1 + one.pixels / kMostSamples;
    std::int64_t both = 0, in_now = 0, in_usual = 0, count = 0;
    int turn = 0;
    for (const Run& run : one.runs) {
        if (run.y < 1 || run.y >= frame.height() - 1) continue;
        const std::uint8_t* row = foreground.row(run.y);
        const std::uint8_t* above = foreground.row(run.y - 1);
        const std::uint8_t* below = foreground.row(run.y + 1);
        for (int x = std::max(run.begin + 1, 1); x < std::min(run.end, frame.width()) - 1; ++x) {
            if (!(row[x - 1] & row[x + 1] & above[x - 1] & above[x] & above[x + 1] & below[x - 1] & below[x] &
                  below[x + 1]))
                continue;
            ++count;
            if (++turn % step != 0) continue;
            const Gradient a = sobel(usual, x, run.y), b = sobel(now, x, run.y);
            both += std::int64_t{a.x} * b.x + std::int64_t{a.y} * b.y;
            in_usual += std::int64_t{a.x} * a.x + std::int64_t{a.y} * a.y;
            in_now += std::int64_t{b.x} * b.x + std::int64_t{b.y} * b.y;
        }
    }
    if (count < least_pixels || both <= 0) return false;
    const auto rows_taken = count / step;
    const auto samples = static_cast<double>(rows_taken);
    if (samples < 1 || static_cast<double>(in_usual) < kLightStructure * samples) return false;
    const double product = static_cast<double>(in_usual) * static_cast<double>(in_now);
    return static_cast<double>(both) * static_cast<double>(both) > kLightCorrelation * kLightCorrelation * product;
}

}  // namespace fleifeisa::host
