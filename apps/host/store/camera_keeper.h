// What the store is given of one camera beside its events: ways of tracks, scene states, activity by the minute.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "store/store.h"

namespace fleifeisa::host {

/// Called from the camera's thread; waits for nobody. Times are since 1970.
class CameraKeeper {
 public:
    CameraKeeper(Store& store, std::string camera) : store_(store), camera_(std::move(camera)) {}

    /// Each frame, and the end of all tracks (`seen` false: nothing was looked at).
    void frame(const TrackFrame& frame, const PictureMap& map, bool seen = true);
    /// The scene that no frame tells of.
    void scene(std::int64_t time_ns, SceneState state);
    /// The minute that runs is handed in as far as it came.
    void finish();

 private:
    struct Open {
        FootPath path;
        int width = 0, height = 0;  ///< of the frame in which it was seen last
    };
    void keepTrack(const Track& track, const TrackFrame& frame, const PictureMap& map);
    void keepMinute(const TrackFrame& frame, const PictureMap& map);

    Store& store_;
    const std::string camera_;
    std::map<std::int64_t, Open> open_;  ///< by track number
    std::optional<SceneState> scene_;
    std::int64_t minute_ = 0;
    std::int64_t frames_ = 0;  ///< of this minute
    double foreground_ = 0;    ///< its sum
    std::array<std::int64_t, ActivityMinute::kSide * ActivityMinute::kSide> cells_{};
};

}  // namespace fleifeisa::host
