// "Not again": what would keep an event from coming, judged by the events that people have marked right or wrong.
//
// All of it stands on the stored ways of tracks, which are off by up to FootPath::error(). A masked thing counts as
// gone where the middle of its box was in the mask all the time; what of it would still be seen beyond the edge is not
// known.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "events/rules.h"
#include "events/what_if.h"

namespace fleifeisa::host {

/// An event with the tracks that raised it: of a zone or line one, of a visit all of its time.
struct JudgedEvent {
    enum class Mark { kNone, kRight, kWrong };

    std::int64_t number = 0;
    bool moment = false;  ///< it lasts no time: a line was crossed
    std::int64_t start_ns = 0, end_ns = 0;
    Mark mark = Mark::kNone;
    std::vector<PastTrack> tracks;
};

/// How many of the events it would remove, by their marks.
struct Removed {
    int right = 0, wrong = 0, unmarked = 0;

    bool operator==(const Removed&) const = default;
};

/// One way to be rid of an event. Exactly one of the values is set.
struct Suggestion {
    std::vector<Point> mask = {};              ///< a rectangle around everything its tracks were seen in
    std::optional<LeastSize> least_size = {};  ///< of the event's rule
    std::optional<double> least_age = {};
    std::string when = {};
    Removed removes = {};
};

/// Would the event still come with this mask, these limits? @param mask  empty: none
bool wouldCome(const JudgedEvent& event, const std::vector<Point>& mask, const Limits& limits);

/// What would remove that event, what costs the fewest right ones first, then what removes the most wrong ones; only
/// what removes it for sure and leaves most of the picture, sizes and times. @param limits  of its rule, in force
/// @param events  of the same rule, `event` among them
std::vector<Suggestion> suggestions(const JudgedEvent& event, const Limits& limits,
                                    const std::vector<JudgedEvent>& events, const TimeZone& place);

}  // namespace fleifeisa::host
