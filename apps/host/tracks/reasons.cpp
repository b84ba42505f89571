#include "tracks/reasons.h"

#include "tracks/constants.h"

namespace fleifeisa::host {

const char* nameOf(Reason reason) {
    constexpr const char* kNames[] = {"too-few-sightings", "too-young",  "too-small",   "in-group",  "stands-still",
                                      "predicted",         "waited-for", "unsupported", "never-left"};
    return kNames[static_cast<int>(reason)];
}

const char* nameOf(Drop drop) {
    constexpr const char* kNames[] = {"too-small", "no-support", "ghost", "light", "healing", "too-many"};
    return kNames[static_cast<int>(drop)];
}

std::vector<Reason> reasonsOf(const Mover& mover, const FilterView& view, std::int64_t time_ns) {
    std::vector<Reason> reasons;
    const auto say = [&reasons](bool holds, Reason reason) {
        if (holds) reasons.push_back(reason);
    };
    const bool young = !mover.confirmed, unseen = mover.missed > 0 && mover.confirmed && !mover.stopped;
    const double age = static_cast<double>(time_ns - mover.track.start_ns) / 1e9;
    say(young && mover.track.frames < kBirthSightings, Reason::kTooFewSightings);
    say(young && age + view.seconds / 2 < kBirthSeconds, Reason::kTooYoung);
    say(young && mover.area < view.least_pixels, Reason::kTooSmall);
    say(mover.track.merged_with != 0, Reason::kInGroup);
    say(mover.stopped, Reason::kStandsStill);
    say(unseen && mover.missed <= kShown, Reason::kPredicted);
    say(unseen && mover.missed > kShown, Reason::kWaitedFor);
    say(mover.confirmed && mover.unsupported > (mover.arrived ? kUnsupportedSeconds : kUnsupportedUnmoved),
        Reason::kUnsupported);
    say(mover.confirmed && !mover.arrived, Reason::kNeverLeft);
    return reasons;
}

}  // namespace fleifeisa::host
