#include "media/best_view.h"

#include <algorithm>
#include <cstdlib>

namespace fleifeisa::host {
namespace {

constexpr double kCutOff = 0.4;   ///< what a view at the picture's edge is worth
constexpr double kHalfSharp = 6;  ///< mean difference of neighbouring pixels that counts half
constexpr int kMostSamples = 48;  ///< rows and columns that are looked at

/// Mean difference of neighbours, in green levels.
double sharpness(const PictureView& picture, int left, int top, int right, int bottom) {
    const auto green = [&picture](int x, int y) {
        const auto row = static_cast<std::size_t>(y) * static_cast<std::size_t>(picture.width);
        return static_cast<int>(picture.rgb[(row + static_cast<std::size_t>(x)) * 3 + 1]);
    };
    const int across = std::max(1, (right - left) / kMostSamples), down = std::max(1, (bottom - top) / kMostSamples);
    std::int64_t sum = 0, count = 0;
    for (int y = top; y + 1 < bottom; y += down)
        for (int x = left; x + 1 < right; x += across) {
            sum += std::abs(green(x + 1, y) - green(x, y)) + std::abs(green(x, y + 1) - green(x, y));
            ++count;
        }
    return count > 0 ? static_cast<double>(sum) / static_cast<double>(count) : 0;
}

}  // namespace

double viewScore(const PictureView& picture, const Box& box) {
    const int left = std::clamp(box.left, 0, picture.width), right = std::clamp(box.right(), left, picture.width);
    const int top = std::clamp(box.top, 0, picture.height), bottom = std::clamp(box.bottom(), top, picture.height);
    const bool cut_off =
        box.left <= 0 || box.top <= 0 || box.right() >= picture.width || box.bottom() >= picture.height;
    const double sharp = sharpness(picture, left, top, right, bottom);
    const double area = 1.0 + static_cast<double>(right - left) * static_cast<double>(bottom - top);
    return area * (cut_off ? kCutOff : 1) * (0.25 + sharp / (sharp + kHalfSharp));
}

Cut thumbnailCut(const PictureView& picture, const Box& box) {
    constexpr int kLeastWidth = 160, kAcross = 16, kDown = 9;
    int width = std::max({2 * box.width, kLeastWidth, (3 * box.height / 2 * kAcross + kDown - 1) / kDown});
    width = std::min(width, picture.width);
    const int height = std::min(picture.height, width * kDown / kAcross);
    const auto placed = [](int middle, int size, int all) { return std::clamp(middle - size / 2, 0, all - size); };
    return {placed(box.left + box.width / 2, width, picture.width),
            placed(box.top + box.height / 2, height, picture.height), width, height};
}

}  // namespace fleifeisa::host
