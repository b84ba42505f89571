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

}  // namespace

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
