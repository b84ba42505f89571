#include "events/watches.h"

#include <algorithm>
#include <cmath>

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

void LineWatch::begin(const LineRule& line, const Sighting& birth, const Sighting& now) {
    // A part that grew into a whole thing has not moved.
    constexpr double kAlike = 0.7;
    if (birth.height < kAlike * now.height || now.height < kAlike * birth.height) return;
    const double distance = sideOf(birth.foot, line.from, line.to);
    if (std::abs(distance) < std::max(birth.margin(), now.margin())) return;
    side_ = distance > 0 ? 1 : -1;
    foot_ = birth.foot;
    before_ = distance;
}

bool LineWatch::beginAs(const LineWatch& other, std::int64_t time_ns) {
    const Whole* latest = nullptr;
    for (const Whole& whole : other.whole_)
        if (whole.first_ns <= time_ns &&
            (!latest || std::min(whole.last_ns, time_ns) > std::min(latest->last_ns, time_ns)))
            latest = &whole;
    if (!latest) return false;
    side_ = latest->distance > 0 ? 1 : -1;
    foot_ = latest->foot;
    before_ = latest->distance;
    return true;
}

void LineWatch::noteWhole(const LineRule& line, const Sighting& sighting, double distance, std::int64_t time_ns) {
    // Those who move as one stand anywhere in its box, not on its lower edge alone.
    double least = INFINITY, greatest = -INFINITY;
    for (const double across : {-sighting.width / 2, sighting.width / 2}) {
        for (const double up : {0.0, sighting.height}) {
            const double corner = sideOf({sighting.foot.x + across, sighting.foot.y - up}, line.from, line.to);
            least = std::min(least, corner);
            greatest = std::max(greatest, corner);
        }
    }
    for (const int side : {1, -1}) {
        Whole& whole = whole_[side > 0 ? 0 : 1];
        if ((side > 0 ? least : -greatest) < sighting.margin()) continue;
        // Its stay on this side began anew, where it was on the other one in between.
        if (whole_[side > 0 ? 1 : 0].last_ns > whole.last_ns) whole.first_ns = time_ns;
        whole.first_ns = std::min(whole.first_ns, time_ns);
        whole.last_ns = time_ns;
        whole.foot = sighting.foot;
        whole.distance = distance;
    }
}

int LineWatch::see(const LineRule& line, const Sighting& sighting, bool wait, std::int64_t time_ns) {
    const double distance = sideOf(sighting.foot, line.from, line.to);
    const double margin = sighting.margin();
    noteWhole(line, sighting, distance, time_ns);
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
