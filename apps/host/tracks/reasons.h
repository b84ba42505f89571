// Why a track is what it is, from what the tracker keeps of it.
#pragma once

#include <cstdint>
#include <vector>

#include "tracks/filter_view.h"

namespace fleifeisa::host {

enum class Reason {
    kTooFewSightings,  ///< not confirmed: seen fewer than kBirthSightings times ...
    kTooYoung,         ///< ... or for less than kBirthSeconds ...
    kTooSmall,         ///< ... or never as large as FilterView::least_pixels
    kInGroup,          ///< in one blob with others
    kStandsStill,      ///< stopped: its place is watched
    kPredicted,        ///< not seen, shown where it is expected
    kWaitedFor,        ///< not seen for longer: neither drawn nor counted
    kUnsupported,      ///< the analyzer has not supported it for so long that it is not looked for any more
    kNeverLeft,        ///< has not left the place of its birth
};

/// "too-few-sightings" ... as in interfaces.
const char* nameOf(Reason reason);
/// "too-small", "no-support", "ghost", "light", "healing", "too-many".
const char* nameOf(Drop drop);

/// All that hold, in the order above. @param view  of the frame, whose movers it is one of  @param time_ns  its time
std::vector<Reason> reasonsOf(const Mover& mover, const FilterView& view, std::int64_t time_ns);

}  // namespace fleifeisa::host
