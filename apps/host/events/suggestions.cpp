#include "events/suggestions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <tuple>

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kSecondNs = 1'000'000'000;
constexpr int kSamples = 48;          ///< of a track's way that are looked at
constexpr double kAround = 0.01;      ///< of the picture, by which a mask is wider than what it hides
constexpr double kMostMasked = 0.25;  ///< of the picture that is masked for one event
constexpr double kMostSize = 0.6;     ///< of the picture's height: whoever asks for more sees nobody
constexpr double kMostAge = 30;       ///< seconds: who is waited for longer has gone
constexpr int kMostHours = 12;        ///< in which a rule sleeps

Point middleOf(const FootPoint& point) {
    return {point.foot.x, point.foot.y - point.height / 2};
}

/// Even-odd rule, as masks are painted.
bool isInside(const std::vector<Point>& polygon, Point p) {
    bool inside = false;
    for (std::size_t i = 0, j = polygon.size() - 1; i < polygon.size(); j = i++) {
        const Point &a = polygon[i], &b = polygon[j];
        if ((a.y > p.y) != (b.y > p.y) && p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x) inside = !inside;
    }
    return inside;
}

/// Calls with samples of the track's way within that time, its ends among them; false as soon as the call says so.
template <typename Look>
bool eachSample(const PastTrack& track, std::int64_t since_ns, std::int64_t until_ns, Look look) {
    if (track.path.empty()) return true;
    const std::int64_t from = std::clamp(since_ns, track.path.front().time_ns, track.path.back().time_ns);
    const std::int64_t to = std::clamp(until_ns, from, std::max(from, track.path.back().time_ns));
    for (int i = 0; i <= kSamples; ++i)
        if (!look(pointAt(track.path, from + (to - from) / kSamples * i + (to - from) % kSamples * i / kSamples)))
            return false;
    return true;
}

/// At some moment of the event the track passes all limits, outside of the mask.
bool passes(const PastTrack& track, const JudgedEvent& event, const std::vector<Point>& mask, const Limits& limits) {
    // A mask hides it from its first moment on: what comes out of it later is seen then.
    if (!mask.empty() && eachSample(track, track.start_ns, track.end_ns,
                                    [&](const FootPoint& point) { return isInside(mask, middleOf(point)); }))
        return false;
    return !eachSample(
        track, event.start_ns, event.moment ? event.start_ns : event.end_ns, [&](const FootPoint& point) {
            const std::int64_t time_ns = event.moment ? event.start_ns : point.time_ns;
            const bool good = point.height >= limits.least_size.at(point.foot.y) &&
                              static_cast<double>(time_ns - track.start_ns) >= limits.least_age * kSecondNs &&
                              limits.when.active(time_ns);
            return !good;
        });
}

double roundedUp(double value, double step) {
    return std::ceil(value / step - 1e-9) * step;
}

std::vector<Point> maskAround(const JudgedEvent& event) {
    double left = 1, top = 1, right = 0, bottom = 0;
    for (const PastTrack& track : event.tracks)
        for (const FootPoint& point : track.path) {
            left = std::min(left, point.foot.x - point.width / 2);
            right = std::max(right, point.foot.x + point.width / 2);
            top = std::min(top, point.foot.y - point.height);
            bottom = std::max(bottom, point.foot.y);
        }
    const auto share = [](double value) { return std::clamp(std::round(value * 1000) / 1000, 0.0, 1.0); };
    left = share(left - kAround), top = share(top - kAround);
    right = share(right + kAround), bottom = share(bottom + kAround);
    if (right <= left || bottom <= top || (right - left) * (bottom - top) > kMostMasked) return {};
    return {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
}

/// The least size that its tracks do not reach, in the perspective there is.
std::optional<LeastSize> sizeAbove(const JudgedEvent& event, const LeastSize& present) {
    constexpr double kMore = 1.02, kStep = 0.001;
    double most = 0;
    const bool plain = present.near <= 0 || present.far <= 0;
    for (const PastTrack& track : event.tracks)
        eachSample(track, event.start_ns, event.moment ? event.start_ns : event.end_ns, [&](const FootPoint& point) {
            most = std::max(most, plain ? point.height : point.height / present.at(point.foot.y));
            return true;
        });
    const double near = roundedUp((plain ? 1 : present.near) * most * kMore, kStep);
    const double far = roundedUp((plain ? 1 : present.far) * most * kMore, kStep);
    if (most <= 0 || std::max(near, far) > kMostSize) return std::nullopt;
    return LeastSize{near, far};
}

std::optional<double> ageAbove(const JudgedEvent& event) {
    constexpr double kStep = 0.5;
    double most = 0;
    for (const PastTrack& track : event.tracks)
        most = std::max(
            most, static_cast<double>((event.moment ? event.start_ns : event.end_ns) - track.start_ns) / kSecondNs);
    const double age = roundedUp(most + 0.1, kStep);
    return age > kMostAge ? std::nullopt : std::optional(age);
}

int hourOf(std::int64_t time_ns, const TimeZone& place) {
    const std::int64_t time_s = time_ns / kSecondNs;
    constexpr std::int64_t kHour = 3600, kDay = 24;
    return static_cast<int>(((time_s + place.offsetAt(time_s).seconds) / kHour % kDay + kDay) % kDay);
}

/// Awake but for the hours around the event in which nothing right came, as many as wrong ones reach.
std::string sleepAround(const JudgedEvent& event, const std::vector<JudgedEvent>& events, const TimeZone& place) {
    std::array<int, 24> right{}, wrong{};
    for (const JudgedEvent& each : events) {
        const auto hour = static_cast<std::size_t>(hourOf(each.start_ns, place));
        right[hour] += each.mark == JudgedEvent::Mark::kRight;
        wrong[hour] += each.mark == JudgedEvent::Mark::kWrong;
    }
    const auto at = [](const std::array<int, 24>& counts, int hour) {
        return counts[static_cast<std::size_t>((hour % 24 + 24) % 24)];
    };
    int begin = hourOf(event.start_ns, place), end = hourOf(event.end_ns, place) + 1;
    if (end <= begin) end += 24;
    while (end - begin < kMostHours && at(wrong, begin - 1) > 0 && at(right, begin - 1) == 0) --begin;
    while (end - begin < kMostHours && at(wrong, end) > 0 && at(right, end) == 0) ++end;
    if (end - begin > kMostHours) return "";
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%02d:00-%02d:00", end % 24, (begin + 24) % 24);
    return text.data();
}

Removed removedBy(const std::vector<JudgedEvent>& events, const std::vector<Point>& mask, const Limits& limits) {
    Removed removed;
    for (const JudgedEvent& event : events) {
        if (wouldCome(event, mask, limits)) continue;
        ++(event.mark == JudgedEvent::Mark::kRight   ? removed.right
           : event.mark == JudgedEvent::Mark::kWrong ? removed.wrong
                                                     : removed.unmarked);
    }
    return removed;
}

}  // namespace

bool wouldCome(const JudgedEvent& event, const std::vector<Point>& mask, const Limits& limits) {
    if (event.tracks.empty()) return true;  // nothing is known of what raised it
    return std::ranges::any_of(event.tracks,
                               [&](const PastTrack& track) { return passes(track, event, mask, limits); });
}

std::vector<Suggestion> suggestions(const JudgedEvent& event, const Limits& limits,
                                    const std::vector<JudgedEvent>& events, const TimeZone& place) {
    std::vector<Suggestion> all;
    const auto add = [&](Suggestion one, const Limits& tried) {
        if (wouldCome(event, one.mask, tried)) return;
        one.removes = removedBy(events, one.mask, tried);
        all.push_back(std::move(one));
    };
    // Only what is new is tried: events that today's limits would not raise any more are no merit of it.
    if (std::vector<Point> mask = maskAround(event); !mask.empty()) add({.mask = std::move(mask)}, {});
    if (const auto size = sizeAbove(event, limits.least_size)) {
        Limits tried;
        tried.least_size = *size;
        add({.least_size = size}, tried);
    }
    if (const auto age = ageAbove(event)) {
        Limits tried;
        tried.least_age = *age;
        add({.least_age = age}, tried);
    }
    if (limits.when.always())
        if (const std::string when = sleepAround(event, events, place); !when.empty()) {
            Limits tried;
            tried.when = Schedule(when, std::make_shared<const TimeZone>(place));
            add({.when = when}, tried);
        }
    std::ranges::stable_sort(all, [](const Suggestion& a, const Suggestion& b) {
        return std::tuple(a.removes.right, -a.removes.wrong) < std::tuple(b.removes.right, -b.removes.wrong);
    });
    return all;
}

}  // namespace fleifeisa::host
