// Two runs of one clip laid upon each other: which tracks and events are in both, and where the runs part. Pure
// functions of the two results.
#pragma once

#include <optional>

#include "compare/clip_result.h"

namespace fleifeisa::host {

enum class Difference {
    kNone,   ///< in both, from and to the same moments
    kTimes,  ///< in both, but one is seen earlier, later or longer
    kOnlyA,
    kOnlyB,
    kEarly,  ///< in one alone, and over before the other had learned: nothing is compared then
};

/// A span of time since the clip's first frame; `to_ns` is the moment of the last sighting.
struct TimeSpan {
    std::int64_t from_ns = 0, to_ns = 0;

    bool operator==(const TimeSpan&) const = default;
};

/// One thing in A, in B, or in both. Tracks have no two partners: of a track that B has in pieces the piece that lies
/// longest on it is its partner, the others are only in B.
struct Match {
    Difference difference = Difference::kNone;
    std::int64_t a = 0, b = 0;  ///< track or event numbers, 0: not there
    TimeSpan in_a, in_b;        ///< where it is there
    double likeness = 0;        ///< of tracks in both: mean overlap of their boxes while both are shown
    std::int64_t look_ns = 0;   ///< when a picture of it says most

    bool operator==(const Match&) const = default;
};

/// The first frame in which one run shows something where the other shows nothing.
struct Parting {
    std::int64_t time_ns = 0;   ///< since the first frame
    std::int64_t a = 0, b = 0;  ///< the track that stands alone, one of them is 0
};

struct ClipComparison {
    std::vector<Match> tracks;  ///< by the time they begin
    std::vector<Match> events;  ///< likewise
    std::optional<Parting> parting;
    std::int64_t from_ns = 0;  ///< both have learned, and had a second to confirm what they see: compared from there
    bool identical = false;    ///< the same frames with the same boxes, the same events

    static std::int64_t count(const std::vector<Match>& matches, Difference difference);
    /// Something is in one of the two alone, or at other times, once both have learned.
    bool differs() const;
};

/// Frames of the two runs may have different times and distances: those of the run with fewer frames are looked at,
/// each beside the other run's nearest. What begins or ends within one such distance counts as the same moment.
ClipComparison compareResults(const ClipResult& a, const ClipResult& b);

}  // namespace fleifeisa::host
