// A camera's latest frames, one a second: what a new analyzer learns the scene from.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "sources/rgb_frame.h"

namespace fleifeisa::host {

/// An answered frame, as small as it can be kept without a loss: the decoder's planes where they are smaller than the
/// picture that the analyzer gets, else that picture without its masks.
struct KeptFrame {
    std::int64_t time_ns = 0, sequence = 0;
    PixelLayout layout;         ///< of the source's frame
    bool planes = false;        ///< `bytes` are the source's
    int width = 0, height = 0;  ///< of the analyzer's picture
    std::vector<std::uint8_t> bytes;

    /// What an analyzer is given of it, under the masks of these options.
    RgbFrame picture(const SourceOptions& options) const;
};

/// Takes a frame apart as toRgbFrame() does. Keeps a copy where `keep` asks for one.
RgbFrame toRgbFrame(RawFrame& frame, const SourceOptions& options, std::vector<std::uint8_t>& spare,
                    std::shared_ptr<KeptFrame>* keep);

class FrameRing {
 public:
    static constexpr std::size_t kMostBytes = 8 << 20;

    /// @param most  frames; 0 keeps none
    explicit FrameRing(std::size_t most) : most_(most) {}

    /// Asked once a frame, in their order: a second has passed since the one for which it said so.
    bool due(std::int64_t time_ns);
    /// The oldest goes where it is full. Frames of another size than this one go, too.
    void add(std::shared_ptr<const KeptFrame> frame);
    /// Frames of before show another picture.
    void forgetBefore(std::int64_t time_ns);
    void clear() { frames_.clear(); }

    std::size_t most() const { return most_; }
    /// How many fit in; before the first frame as many as were asked for.
    std::size_t capacity() const { return capacity_ ? *capacity_ : most_; }
    bool full() const { return !frames_.empty() && frames_.size() >= capacity(); }
    /// Oldest first.
    const std::deque<std::shared_ptr<const KeptFrame>>& frames() const { return frames_; }

 private:
    std::size_t most_;
    std::optional<std::size_t> capacity_;
    std::optional<std::int64_t> latest_ns_;
    std::deque<std::shared_ptr<const KeptFrame>> frames_;
};

}  // namespace fleifeisa::host
