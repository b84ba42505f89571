// Which tracks of a frame are shown, written and counted.
#pragma once

#include "tracks/track.h"

namespace fleifeisa::host {

/// Tentative with a number: an object without a track (raw tracks only), told in one frame and never again.
inline bool isLoose(const Track& track) {
    return track.state == TrackState::kTentative && track.number > 0;
}

/// Seen in this frame, or expected for a moment where it is shown, or standing still.
inline bool isShown(const Track& track) {
    return track.state == TrackState::kConfirmed || track.state == TrackState::kStopped || isLoose(track);
}

inline bool isSeen(const Track& track, std::int64_t time_ns) {
    return isShown(track) && track.seen_ns == time_ns;
}

}  // namespace fleifeisa::host
