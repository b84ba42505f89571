// The refiner's own background: per pixel and channel the usual level, and per pixel the usual difference from it.
//
// It starts from the median of frames kept while the analyzer learns and then follows by limited steps: fast where
// nothing is, slowly inside of boxes that were accepted. A quarter of the rows is brought up to date a frame.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "tracks/planes.h"

namespace fleifeisa::host {

/// Levels and noise are kept in 1/64, so that steps of a fast camera are not lost in rounding.
constexpr int kLevelBits = 6;

class Background {
 public:
    /// Forgets everything.
    void reset(int width, int height, int channels);
    bool ready() const { return ready_; }

    /// Keeps this frame where its turn has come (see kLearnSteps); the oldest go where there are too many.
    void learn(SmoothFrame& frame, int learning_frames);
    /// Starts from what was kept, or from this frame where nothing was.
    void start(SmoothFrame& frame);

    /// foreground[x] = 1 where pixel x of this row differs by more than its threshold, for x in [from, to).
    void compare(const SmoothFrame& frame, int y, int from, int to, std::uint8_t* foreground) const;
    /// Threshold in levels.
    int threshold(int x, int y) const;
    /// Level, rounded.
    int level(int channel, int x, int y) const { return (levels(channel)[at(x, y)] + 32) >> kLevelBits; }
    /// (R + 2 G + B) / 4
    int luma(int x, int y) const;

    /// One frame's share of following. `boxes`: accepted foreground, clipped to the frame.
    void follow(SmoothFrame& frame, std::span<const Box> boxes, std::int64_t time_ns);
    /// Moves a part towards the frame by at most so many levels; 256: takes it over.
    void heal(SmoothFrame& frame, const Box& box, double by);

 private:
    std::size_t at(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x);
    }
    std::vector<std::int16_t>& levels(int channel) { return levels_[static_cast<std::size_t>(channel)]; }
    const std::vector<std::int16_t>& levels(int channel) const { return levels_[static_cast<std::size_t>(channel)]; }
    void startRow(int y, std::size_t samples);
    void followRow(SmoothFrame& frame, int y, std::span<const Box> boxes, double seconds);

    int width_ = 0, height_ = 0, channels_ = kChannels;
    bool ready_ = false;
    std::array<std::vector<std::int16_t>, kChannels> levels_;  // 1/64 levels
    std::vector<std::int16_t> noise_;                          // 1/64 levels

    std::vector<std::vector<std::uint8_t>> samples_;  // while learning: planes one after the other
    int seen_ = 0, oldest_ = 0;
    std::vector<std::uint8_t> sorted_;  // one row of one channel of all samples

    int phase_ = 0;
    std::array<std::int64_t, 16> phase_ns_{};                // when each phase's rows were last followed; 0: never
    std::vector<std::int16_t> steps_, forget_, difference_;  // of one row
};

}  // namespace fleifeisa::host
