#include "sources/mask.h"

#include <algorithm>
#include <cmath>

namespace fleifeisa::host {
namespace {

/// Where the row at height `y` (shares) crosses the polygon's edges, from left to right. Half-open edges: a corner
/// counts once.
void crossings(const Mask& mask, double y, std::vector<double>& found) {
    found.clear();
    for (std::size_t i = 0; i < mask.size(); ++i) {
        const SharePoint a = mask[i], b = mask[(i + 1) % mask.size()];
        if ((a.y > y) != (b.y > y)) found.push_back(a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x));
    }
    std::ranges::sort(found);
}

/// A polygon in pixels of a frame.
Mask inPixels(const Mask& mask, const ShownPart& part, int width, int height) {
    Mask pixels;
    for (const SharePoint& point : mask)
        pixels.push_back({(point.x - part.left) / part.width * width, (point.y - part.top) / part.height * height});
    return pixels;
}

}  // namespace

// What lies inside is found by the middles of the rows; the edges themselves are drawn, so that no pixel which one of
// them so much as touches is left.
void paintPrivate(std::span<const Mask> areas, const ShownPart& part, int width, int height,
                  std::span<std::uint8_t> rgb) {
    constexpr double kAround = 2;
    std::vector<double> found;
    for (const Mask& area : areas) {
        const Mask pixels = inPixels(area, part, width, height);
        for (int row = 0; row < height; ++row) {
            const auto paint = [&](double from, double to) {
                const auto column = [width](double x) {
                    return static_cast<std::ptrdiff_t>(std::clamp(x, 0.0, static_cast<double>(width)));
                };
                const auto begin = rgb.begin() + std::ptrdiff_t{3} * row * width;
                const std::ptrdiff_t first = column(std::floor(from - kAround)), last = column(std::ceil(to + kAround));
                std::fill(begin + 3 * first, begin + 3 * last, std::uint8_t{0});
            };
            crossings(pixels, row + 0.5, found);
            for (std::size_t i = 0; i + 1 < found.size(); i += 2) paint(found[i], found[i + 1]);
            const double top = row - kAround, bottom = row + 1 + kAround;
            for (std::size_t i = 0; i < pixels.size(); ++i) {
                SharePoint a = pixels[i], b = pixels[(i + 1) % pixels.size()];
                if (a.y > b.y) std::swap(a, b);
                if (b.y < top || a.y > bottom) continue;
                const auto at = [&](double y) {
                    return b.y > a.y ? a.x + (std::clamp(y, a.y, b.y) - a.y) / (b.y - a.y) * (b.x - a.x) : a.x;
                };
                const double upper = at(top), lower = b.y > a.y ? at(bottom) : b.x;
                paint(std::min(upper, lower), std::max(upper, lower));
            }
        }
    }
}

void paintMasks(std::span<const Mask> masks, const ShownPart& part, int width, int height,
                std::span<std::uint8_t> rgb) {
    std::vector<double> found;
    // The first pixel whose middle is not left of a share of the width.
    const auto column = [&](double x) {
        const double pixels = std::ceil((x - part.left) / part.width * width - 0.5);
        return static_cast<std::size_t>(std::clamp(pixels, 0.0, static_cast<double>(width)));
    };
    for (const Mask& mask : masks) {
        for (int row = 0; row < height; ++row) {
            crossings(mask, part.top + (row + 0.5) / height * part.height, found);
            const std::size_t begin = static_cast<std::size_t>(row) * static_cast<std::size_t>(width);
            for (std::size_t i = 0; i + 1 < found.size(); i += 2) {
                const std::size_t from = begin + column(found[i]), to = begin + column(found[i + 1]);
                std::fill(rgb.begin() + static_cast<std::ptrdiff_t>(3 * from),
                          rgb.begin() + static_cast<std::ptrdiff_t>(3 * to), kMaskGrey);
            }
        }
    }
}

}  // namespace fleifeisa::host
