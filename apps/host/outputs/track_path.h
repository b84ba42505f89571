// The way of one track, in bounded memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tracks/track.h"

namespace fleifeisa::host {

/// Where the middle of a track was in a frame, to half a pixel: x2 and y2 are twice the coordinates.
struct PathPoint {
    std::int64_t time_ns;
    std::int64_t x2, y2;
};

/// Keeps every sighting up to kMaxPoints of them, then every second, every fourth ... and always the first and the
/// last: the same sightings give the same points. The length counts all sightings, kept or not.
class TrackPath {
 public:
    static constexpr std::size_t kMaxPoints = 256;

    void add(std::int64_t time_ns, Point centre);

    std::span<const PathPoint> points() const { return points_; }
    /// Sum of the distances from sighting to sighting, in pixels.
    double length() const { return length_; }
    std::int64_t sightings() const { return sightings_; }

 private:
    std::vector<PathPoint> points_;
    bool last_is_extra_ = false;  ///< the last point is there only because it is the last
    std::int64_t sightings_ = 0;
    std::int64_t stride_ = 1;
    double length_ = 0;
};

}  // namespace fleifeisa::host
