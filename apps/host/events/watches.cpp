#include "events/watches.h"

#include <algorithm>

namespace fleifeisa::host {

double Sighting::margin() const {
    return std::clamp(height * 0.1, 0.005, 0.02);
}

LimitResult testLimits(const Limits& limits, const Sighting& sighting, std::int64_t time_ns, bool wall_clock,
                       std::optional<std::int64_t> since_last_ns) {
    LimitResult result;
    result.active = !wall_clock || limits.when.active(time_ns);
    int failures = 0;
    const auto test = [&](const char* name, double value, double limit) {
        if (value >= limit) return;
        result.only_failure = NearMiss{"", name, value, limit, 0, time_ns};
        ++failures;
    };
    test("least_size", sighting.height, limits.least_size.at(sighting.foot.y));
    test("least_age", sighting.age_s, limits.least_age);
    result.counts = result.active && failures == 0;
    if (since_last_ns && *since_last_ns < nanoseconds(limits.cooldown))
        test("cooldown", static_cast<double>(*since_last_ns) / 1e9, limits.cooldown);
    result.passed = result.active && failures == 0;
    if (failures != 1 || !result.active) result.only_failure.reset();
    return result;
}

ZoneWatch::Change ZoneWatch::see(const Polygon& polygon, const Sighting& sighting) {
    const double margin = std::min(sighting.margin(), polygon.largestMargin());
    const double depth = polygon.depth(sighting.foot);
    if (inside ? depth > -margin : depth < margin) return Change::kNone;
    inside = !inside;
    return inside ? Change::kIn : Change::kOut;
}

void ZoneWatch::nearlyPassed(const NearMiss& miss) {
    if (!nearly || (nearly->value_name == miss.value_name && nearly->value < miss.value)) nearly = miss;
}

int LineWatch::see(const LineRule& line, const Sighting& sighting, bool wait) {
    const double distance = sideOf(sighting.foot, line.from, line.to);
    const double margin = sighting.margin();
    const bool clear = distance >= margin || distance <= -margin;
    if (foot_ && distance != 0 && (before_ > 0) != (distance > 0) &&
        segmentsMeet(*foot_, sighting.foot, line.from, line.to))
        crossed_ += distance > 0 ? 1 : -1;
    // Deliberate: a foot exactly on the line has crossed nothing yet; the step that leaves the line decides, and is
    // measured from where the foot last was beside it.
    if (distance != 0) {
        foot_ = sighting.foot;
        before_ = distance;
    }
    const int side = distance > 0 ? 1 : distance < 0 ? -1 : 0;
    int result = 0;
    if (side_ == 0) {
        if (clear || !wait) side_ = side;
        crossed_ = 0;
    } else if (clear) {
        // Left to right is forward. The way around an end of the line changes the side and crosses nothing.
        if (side != side_ && crossed_ == side) result = -side;
        side_ = side;
        crossed_ = 0;
    }
    return result;
}

}  // namespace fleifeisa::host
