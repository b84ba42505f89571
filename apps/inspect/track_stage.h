// The camera host's track filter behind the analyzer: the same frames, the same replies, the same code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "inspect/facts.h"
#include "tracks/filter_view.h"
#include "tracks/track_filter.h"

namespace fleifeisa::inspect {

/// Nanoseconds of a "seconds.fraction" time, with or without blanks before it; nothing where the text is none.
std::optional<std::int64_t> parseTimestamp(const std::string& text);

/// With the host's settings for a camera that sets none. Tracks depend on every frame: show it all of them.
class TrackStage {
 public:
    explicit TrackStage(const Settings& settings);

    /// Between Session::begin and end, for each frame with pixels. A frame whose time does not rise, or has none, comes
    /// a tenth of a second after the one before. `explain` keeps what the filter saw.
    void frame(Session& session, const SourceFrame& frame, bool explain);
    /// Adds this frame's tracks and why they are what they are; for a frame that was explained.
    void gather(FrameFacts& facts) const;

    const host::TrackFrame& result() const { return result_; }
    const host::FilterView& view() const { return view_; }

 private:
    TrackFacts factsOf(const host::Track& track) const;
    std::string whyOf(const host::Mover& mover) const;

    host::FilterSettings settings_;
    host::TrackFilter filter_;
    std::optional<std::int64_t> time_ns_;
    host::TrackFrame result_;
    host::FilterView view_;
    std::string refused_;  // why the host would not take this reply; else empty
};

}  // namespace fleifeisa::inspect
