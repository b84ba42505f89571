// The tracker driven by the analyzer's rules, one frame at a time, with a pause in which its state can be looked at.
#pragma once

#include <string>

#include "host/FrameCycle.h"

namespace fleifeisa::inspect {

struct Settings {
    ImageType type = COLOR;
    BackgroundType background = MULTIPLE;
    control parameters{300, 0.25f, 0.5f, 1.0f, 2.0f};
};

/// Frames are counted from 1. Frames up to `bg_frames` are learnt, later ones are searched for objects first.
class Session {
 public:
    explicit Session(const Settings& settings)
        : settings_(settings), cycle_(settings.type, settings.parameters.bg_frames, settings.background) {}
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Whether the frame has the size of those before it, or has no pixels.
    bool fits(const KsColorImage& frame) const { return cycle_.Fits(frame); }

    /// Takes over the frame's pixels, counts it and searches it for objects. Until End, the grid and the table show
    /// this frame, and the background is the one that it was compared with. `trace` prints the detection's trace to
    /// standard output.
    Phase begin(KsColorImage frame, bool trace = false);
    /// Between begin and end, once: the analyzer's reply to this frame, to the byte but for the numbers that the host
    /// chose. The table is left as it was.
    std::string answer();
    /// Brings the background up to date with the frame and releases its pixels.
    void end();

    int number() const { return cycle_.Number(); }
    KsColorImage& frame() { return frame_; }
    ColorDiffTracker* tracker() { return cycle_.Tracker(); }  ///< null before the first frame with pixels
    const Settings& options() const { return settings_; }

 private:
    Settings settings_;
    Phase phase_ = Phase::kNoPixels;
    KsColorImage frame_;
    KsColorImage background_;  // the first frame's buffer, which a SINGLE background shares; outlives the cycle
    FrameCycle cycle_;
};

}  // namespace fleifeisa::inspect
