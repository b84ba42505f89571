#include "report/median_background.h"

#include <algorithm>
#include <array>

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kMaxPixels = 500'000;

/// Largest width at which the picture has no more than kMaxPixels.
int maxWidth(int width, int height) {
    int result = width;
    while (result > 1 && std::int64_t{result} * (std::int64_t{height} * result / width) > kMaxPixels) --result;
    return result;
}

}  // namespace

void MedianBackground::add(const PictureView& frame) {
    if (seen_++ % stride_ != 0) return;
    samples_.push_back(
        reduced(frame, {0, 0, frame.width, frame.height}, maxWidth(frame.width, frame.height), frame.height));
    if (samples_.size() < kMaxSamples) return;
    for (std::size_t i = 0; 2 * i < samples_.size(); ++i) std::swap(samples_[i], samples_[2 * i]);
    samples_.resize((samples_.size() + 1) / 2);
    stride_ *= 2;
}

Picture MedianBackground::median() const {
    if (samples_.empty()) return {};
    Picture result = samples_.front();
    std::array<std::uint8_t, kMaxSamples> values{};
    const std::size_t count = samples_.size();
    for (std::size_t i = 0; i < result.rgb.size(); ++i) {
        for (std::size_t s = 0; s < count; ++s) values[s] = samples_[s].rgb[i];
        auto* const middle = values.data() + count / 2;
        std::nth_element(values.data(), middle, values.data() + count);
        result.rgb[i] = *middle;
    }
    return result;
}

}  // namespace fleifeisa::host
