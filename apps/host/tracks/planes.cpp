#include "tracks/planes.h"

#include "common/clones.h"

namespace fleifeisa::host {

Box clipped(const Box& box, int width, int height) {
    const auto limit = [](std::int64_t value, int most) {
        return static_cast<int>(std::clamp<std::int64_t>(value, 0, most));
    };
    const int left = limit(box.left, width), top = limit(box.top, height);
    const int right = limit(std::int64_t{box.left} + box.width, width);
    const int bottom = limit(std::int64_t{box.top} + box.height, height);
    return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

Box grown(const Box& box, int x, int y) {
    const auto limit = [](std::int64_t value) {
        constexpr std::int64_t kFar = 1 << 28;
        return static_cast<int>(std::clamp(value, -kFar, kFar));
    };
    const int left = limit(std::int64_t{box.left} - x), top = limit(std::int64_t{box.top} - y);
    const int right = limit(std::int64_t{box.left} + box.width + x);
    const int bottom = limit(std::int64_t{box.top} + box.height + y);
    return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

void SmoothFrame::begin(std::span<const std::uint8_t> rgb, int width, int height, int channels) {
    rgb_ = rgb;
    channels_ = channels;
    if (width != width_ || height != height_) {
        width_ = width;
        height_ = height;
        const std::size_t columns = static_cast<std::size_t>(width),
                          pixels = columns * static_cast<std::size_t>(height);
        for (std::vector<std::uint8_t>& one : planes_) one.assign(pixels, 0);
        luma_.assign(pixels, 0);
        sums_.assign((columns + 2) * kChannels, 0);
        mixed_.assign(columns * kChannels, 0);
    }
    done_.assign(static_cast<std::size_t>(height), 0);
}

namespace {

/// Three rows of `count` samples, interleaved, as their mean over 3x3 pixels.
/// @param sum  room for kChannels samples more at both ends
FLEIFEISA_CLONES void meanOfRows(const std::uint8_t* above, const std::uint8_t* here, const std::uint8_t* below,
                                 int count, std::uint16_t* sum, std::uint8_t* mean) {
    for (int i = 0; i < count; ++i) sum[i] = static_cast<std::uint16_t>(above[i] + here[i] + below[i]);
    for (int i = 0; i < kChannels; ++i) {
        sum[i - kChannels] = sum[i];
        sum[count + i] = sum[count + i - kChannels];
    }
    for (int i = 0; i < count; ++i) {
        const auto nine = static_cast<std::uint16_t>(sum[i - kChannels] + sum[i] + sum[i + kChannels]);
        mean[i] = static_cast<std::uint8_t>((static_cast<std::uint32_t>(nine) * 7282u) >> 16);  // a ninth
    }
}

FLEIFEISA_CLONES void apart(const std::uint8_t* __restrict mixed, int width, std::uint8_t* __restrict red,
                            std::uint8_t* __restrict green, std::uint8_t* __restrict blue,
                            std::uint8_t* __restrict light) {
    for (int x = 0; x < width; ++x) {
        red[x] = mixed[3 * x];
        green[x] = mixed[3 * x + 1];
        blue[x] = mixed[3 * x + 2];
    }
    for (int x = 0; x < width; ++x) light[x] = static_cast<std::uint8_t>((red[x] + 2 * green[x] + blue[x]) / 4);
}

}  // namespace

void SmoothFrame::smooth(int y) {
    done_[static_cast<std::size_t>(y)] = 1;
    std::uint8_t* mixed = mixed_.data();
    meanOfRows(pixels(std::max(y - 1, 0)), pixels(y), pixels(std::min(y + 1, height_ - 1)), width_ * kChannels,
               sums_.data() + kChannels, mixed);
    std::uint8_t* red = planes_[0].data() + at(y);
    std::uint8_t* light = luma_.data() + at(y);
    if (channels_ == 1)
        for (int x = 0; x < width_; ++x) light[x] = red[x] = mixed[3 * x];
    else
        apart(mixed, width_, red, planes_[1].data() + at(y), planes_[2].data() + at(y), light);
}

}  // namespace fleifeisa::host
