// Rules over the past: the same rule engine, fed with the ways that the store keeps of tracks.
//
// What may differ from a replay: a stored way is off by up to FootPath::error() and moves evenly between its points, so
// an event comes up to as much earlier or later as the foot needs for that way, or, where a foot passes an edge by less
// than that, is there or not. Standing still is not kept: a zone's `stopped` is not answered. All other values (dwell,
// ages, sizes, active times, cooldown, light) are tried as they were.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "events/foot_path.h"
#include "events/rule_engine.h"

namespace fleifeisa::host {

/// What the store keeps of a track, as far as rules need it.
struct PastTrack {
    std::int64_t number = 0, split_from = 0;
    TrackEnd ended = TrackEnd::kNone;
    std::int64_t start_ns = 0;  ///< seen first, before it was confirmed
    std::int64_t end_ns = 0;
    std::vector<FootPoint> path;
};

/// The scene as it was, from that time on.
struct PastScene {
    std::int64_t time_ns = 0;
    SceneState state = SceneState::kWatching;
};

/// The events that these zones and lines would have raised, with numbers from 1. Visits are not told.
/// @param tracks  of one camera, in any order  @param scenes  in order of their times
/// @param stopped  asked now and then: true ends it, with what was found so far
std::vector<CameraEvent> eventsOfThePast(const Rules& rules, const std::string& camera,
                                         const std::vector<PastTrack>& tracks, const std::vector<PastScene>& scenes,
                                         bool wall_clock = true, const std::function<bool()>& stopped = nullptr);

}  // namespace fleifeisa::host
