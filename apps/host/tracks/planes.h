// The frame as the refiner sees it: the mean of 3x3 pixels, planar, row by row when somebody asks for the row.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "tracks/track.h"

namespace fleifeisa::host {

constexpr int kChannels = 3;

/// The part of a box that lies in a frame of this size; empty (width or height 0) where none does. Any int is allowed.
Box clipped(const Box& box, int width, int height);
/// `box` made larger by these pixels on each side; saturates far outside of any frame.
Box grown(const Box& box, int x, int y);

class SmoothFrame {
 public:
    /// @param rgb  width * height * 3; must live as long as rows are asked for
    /// @param channels  3, or 1: only the first is used
    void begin(std::span<const std::uint8_t> rgb, int width, int height, int channels);

    int width() const { return width_; }
    int height() const { return height_; }
    int channels() const { return channels_; }
    /// Makes a row available, 0 <= y < height.
    void need(int y) {
        if (!done_[static_cast<std::size_t>(y)]) smooth(y);
    }
    void needRows(int from, int to) {
        for (int y = std::max(from, 0); y < std::min(to, height_); ++y) need(y);
    }
    /// Rows that were asked for.
    const std::uint8_t* row(int channel, int y) const { return plane(channel).data() + at(y); }
    /// Luma, (R + 2 G + B) / 4.
    const std::uint8_t* luma(int y) const { return luma_.data() + at(y); }
    const std::uint8_t* pixels(int y) const { return rgb_.data() + 3 * at(y); }

 private:
    std::size_t at(int y) const { return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_); }
    const std::vector<std::uint8_t>& plane(int channel) const { return planes_[static_cast<std::size_t>(channel)]; }
    void smooth(int y);

    std::span<const std::uint8_t> rgb_;
    int width_ = 0, height_ = 0, channels_ = 3;
    std::array<std::vector<std::uint8_t>, kChannels> planes_;
    std::vector<std::uint8_t> luma_;
    std::vector<std::uint8_t> done_;   // of each row of this frame
    std::vector<std::uint16_t> sums_;  // of three rows, with one pixel more at both ends
    std::vector<std::uint8_t> mixed_;  // one smoothed row, interleaved
};

}  // namespace fleifeisa::host
