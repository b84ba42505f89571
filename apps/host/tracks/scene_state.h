// Can the picture be trusted as a whole? Two findings: the light changed everywhere, and nothing is to be seen.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analyzer/reply.h"
#include "tracks/background.h"
#include "tracks/track.h"

namespace fleifeisa::host {

/// Of the picture, how much has any colour: 0 to 1.
double colourShare(std::span<const std::uint8_t> rgb, int width, int height);
// A coloured time stamp covers less of a night picture, the reds and greens of the dullest day more.
constexpr double kGreyShare = 0.01, kColourShare = 0.03;

class SceneWatch {
 public:
    void reset();
    /// One frame. While the light changes, the background is healed.
    /// @param by_picture  a picture that turns grey or coloured is learned, not told as a change
    SceneState update(SmoothFrame& frame, Background& background, std::span<const AnalyzerObject> objects,
                      double seconds, bool by_picture);
    /// The latest frame shows nothing. It may be told as blind only later, but says nothing about tracks or background.
    bool empty() const { return empty_; }

 private:
    bool lightChanged(SmoothFrame& frame, const Background& background, std::span<const AnalyzerObject> objects) const;
    bool nothingToSee(const SmoothFrame& frame) const;
    bool frozen(const SmoothFrame& frame, double seconds);
    bool turned(const SmoothFrame& frame, double seconds);

    double changed_left_ = 0;    // seconds of healing still due
    double changed_for_ = 0;     // since the change began
    bool changed_over_ = false;  // lasted too long: not told again before a frame without it
    enum class Colours { kUnknown, kSome, kNone };
    Colours colours_ = Colours::kUnknown;
    double turned_left_ = 0;  // seconds in which a change counts as that of the colours
    bool turning_ = false;    // the change that goes on is that
    double blind_for_ = 0, sight_for_ = 0;
    bool blind_ = false, empty_ = false;
    std::vector<std::uint8_t> samples_;  // of the latest frame
    double noisy_ = 0;                   // of the latest frames, how many changed all over; 0..1
    bool had_noise_ = false;
    double still_for_ = 0;
};

}  // namespace fleifeisa::host
