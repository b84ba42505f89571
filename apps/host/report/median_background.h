// What the scene looks like without its passers-by: the median of frames spread over the whole run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "outputs/picture.h"

namespace fleifeisa::host {

/// Keeps 12 to 24 frames, evenly spread: when the store is full, every other one goes and the distance doubles. Frames
/// of more than half a million pixels are made smaller.
class MedianBackground {
 public:
    static constexpr std::size_t kMaxSamples = 24;

    /// Every frame of the run, all of the same size.
    void add(const PictureView& frame);
    /// Median of each channel of each pixel; an empty picture where there was no frame.
    Picture median() const;
    std::size_t samples() const { return samples_.size(); }

 private:
    std::vector<Picture> samples_;
    std::int64_t seen_ = 0, stride_ = 1;
};

}  // namespace fleifeisa::host
