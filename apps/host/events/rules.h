// What is watched for at one camera: the values of its rules.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "events/geometry.h"
#include "events/schedule.h"

namespace fleifeisa::host {

/// Least height of a track's box as share of the picture's height. With perspective: `near` holds for a foot at the
/// lower edge of the picture, `far` for one at the upper edge, between them it is linear in the foot's height.
struct LeastSize {
    double near = 0, far = 0;

    double at(double foot_y) const { return far + (near - far) * (foot_y < 0 ? 0 : foot_y > 1 ? 1 : foot_y); }
};

/// What a track must have, and when a rule is active at all.
struct Limits {
    LeastSize least_size;
    double least_age = 0;  ///< seconds since it was seen first
    double cooldown = 0;   ///< seconds after the start of one of the rule's events in which no other starts
    Schedule when;
};

struct ZoneRule {
    std::string name, title;
    std::vector<Point> points;  ///< polygonFault() is ""
    Limits limits;
    double dwell = 0;    ///< seconds of stay after which the event is updated, 0: never
    double stopped = 0;  ///< seconds of standing still here after which a `stopped` event of the zone starts, 0: never
};

/// Direction from `from` to `to` as drawn: forward is from its left to its right.
struct LineRule {
    std::string name, title;
    Point from, to;
    Limits limits;
};

struct Rules {
    std::vector<ZoneRule> zones;
    std::vector<LineRule> lines;
    Limits motion;           ///< which tracks begin a visit
    double off_delay = 30;   ///< seconds without a track after which a visit ends
    double stopped = 5;      ///< seconds of standing still after which a `stopped` event starts, 0: never
    double lost_after = 10;  ///< seconds without a picture before it is `lost` ...
    double back_after = 5;   ///< ... and with one before it is back
    double hold = 60;        ///< most seconds for which events are held while the scene is changed or blind
    std::string timezone = "UTC";
};

/// All values in a fixed form: the same rules give the same text. Part of the parameters in force.
std::string rulesText(const Rules& rules);

/// Titles aside, which no event depends on.
inline bool operator==(const Rules& a, const Rules& b) {
    return rulesText(a) == rulesText(b);
}

/// Eight hexadecimal digits by which a text of parameters is named (32-bit FNV-1a).
std::string parametersHash(std::string_view text);

/// Seconds as whole nanoseconds.
std::int64_t nanoseconds(double seconds);

}  // namespace fleifeisa::host
