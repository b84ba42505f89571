// Can the picture be trusted as a whole? Two findings: the light changed everywhere, and nothing is to be seen.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analyzer/reply.h"
#include "tracks/background.h"
#include "tracks/track.h"

namespace fleifeisa::host {

class SceneWatch {
 public:
    void reset();
    /// One frame. While the light changes, the background is healed.
    SceneState update(SmoothFrame& frame, Background& background, std::span<const AnalyzerObject> objects,
                      double seconds);

 private:
    bool lightChanged(SmoothFrame& frame, const Background& background, std::span<const AnalyzerObject> objects) const;
    bool nothingToSee(const SmoothFrame& frame) const;
    bool frozen(const SmoothFrame& frame, double seconds);

    double changed_left_ = 0;    // seconds of healing still due
    double changed_for_ = 0;     // since the change began
    bool changed_over_ = false;  // lasted too long: not told again before a frame without it
    double blind_for_ = 0, sight_for_ = 0;
    bool blind_ = false;
    std::vector<std::uint8_t> samples_;  // of the latest frame
    double noisy_ = 0;                   // of the latest frames, how many changed all over; 0..1
    bool had_noise_ = false;
    double still_for_ = 0;
};

}  // namespace fleifeisa::host
