// What one rule remembers of one track, and the tests that both kinds of rules share.
//
// Hysteresis: an edge is passed when the foot is farther behind it than a margin. The margin grows with the box, as the
// jitter of its foot does. Between the margins everything stays as it was.
#pragma once

#include <cstdint>
#include <optional>

#include "events/rules.h"

namespace fleifeisa::host {

/// A track in one frame in which it was seen, in shares of the source picture.
struct Sighting {
    Point foot;
    double width = 0, height = 0;  ///< of the box
    double age_s = 0;

    /// Margin of hysteresis: a tenth of the height, 0.5 to 2 % of the picture.
    double margin() const;
};

/// A track that would have raised an event, had it not failed one value of the rule.
struct NearMiss {
    std::string rule, value_name;  ///< least_size, least_age, cooldown, dwell
    double value = 0, limit = 0;
    std::int64_t track = 0, time_ns = 0;
};

/// Tests of Limits that failed in one frame. `when` is no value one could nearly reach, so it is told apart.
struct LimitResult {
    bool active = true;                    ///< by `when`
    bool counts = true;                    ///< passed all but the cooldown
    bool passed = true;                    ///< all of it
    std::optional<NearMiss> only_failure;  ///< the one value that failed (value_name, value, limit)
};

/// @param since_last_ns  since the rule's latest event, nothing: none yet
LimitResult testLimits(const Limits& limits, const Sighting& sighting, std::int64_t time_ns, bool wall_clock,
                       std::optional<std::int64_t> since_last_ns);

/// A zone and a track.
struct ZoneWatch {
    bool inside = false;
    bool suppressed = false;         ///< appeared by a split in the zone: what it split from has the event
    bool dwelled = false;            ///< told, or the rule has none
    std::int64_t inside_ns = 0;      ///< since when the event lasts
    std::int64_t event = 0;          ///< its running event, 0: none
    std::int64_t stopped = 0;        ///< its running `stopped` event, 0: none
    std::optional<NearMiss> nearly;  ///< while inside without an event: the best it came to

    enum class Change { kNone, kIn, kOut };
    Change see(const Polygon& polygon, const Sighting& sighting);
    void nearlyPassed(const NearMiss& miss);
};

/// A line and a track: on which side it stands, and how often its way led through the line since it stood there.
class LineWatch {
 public:
    /// Before the first see(), of a track that was seen before it was believed: where that was. Nothing where that is
    /// not clear of the line, or was only a part of it.
    void begin(const LineRule& line, const Sighting& birth, const Sighting& now);
    /// Before the first see(), of a track that came out of another one at that time: whoever stood wholly on one side
    /// brought all of its parts there, so a part that comes out on the other side has crossed. False where the other
    /// one was on neither side then.
    bool beginAs(const LineWatch& other, std::int64_t time_ns);
    /// @returns 1 forward, -1 backward, 0 nothing crossed
    /// @param wait  a track that came out of another one has no side before it is clear of the line
    int see(const LineRule& line, const Sighting& sighting, bool wait, std::int64_t time_ns);
    /// The track went over the edge of the picture before it was clear of the line: what was crossed counts.
    int left() const { return crossed_ == -side_ ? side_ : 0; }

 private:
    void noteWhole(const LineRule& line, const Sighting& sighting, double distance, std::int64_t time_ns);

    /// Its latest stay on one side with all of its box.
    struct Whole {
        std::int64_t first_ns = INT64_MAX, last_ns = INT64_MIN;
        Point foot;
        double distance = 0;
    };
    Whole whole_[2];             ///< left, right
    std::optional<Point> foot_;  ///< where it was seen last
    double before_ = 0;          ///< its distance then, with sign; never exactly on the line
    int side_ = 0;               ///< 1: left of the line, -1: right, 0: not known yet
    int crossed_ = 0;            ///< backward minus forward ways through the line since side_ was known
};

}  // namespace fleifeisa::host
