#include "scenes/event_truth.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "scenes/acts.h"

namespace fleifeisa::scenes {
namespace {

constexpr double kApart = 0.1;

struct Place {
    std::int64_t frame;
    Spot foot;
    bool still;
};

/// Where somebody stands, in the frames in which at least half of it shows.
std::vector<Place> placesOf(const SceneDescription& description, int who) {
    std::vector<Place> places;
    const std::int64_t end = description.quiet + findAct(description.act)->frames;
    for (std::int64_t frame = 0; frame < end; ++frame)
        for (const Present& one : presentIn(description, frame))
            if (one.actor.id == who && one.pose.x >= 0 && one.pose.x < description.width)
                places.push_back({frame,
                                  {static_cast<double>(one.pose.x) / description.width,
                                   static_cast<double>(one.pose.y + 1) / description.height},
                                  !one.pose.walking});
    return places;
}

/// By the edges that a ray to the right meets.
bool inside(const std::vector<Spot>& zone, Spot p) {
    bool odd = false;
    for (std::size_t i = 0; i < zone.size(); ++i) {
        const Spot a = zone[i], b = zone[(i + 1) % zone.size()];
        if ((a.y > p.y) != (b.y > p.y) && p.x < a.x + (p.y - a.y) * (b.x - a.x) / (b.y - a.y)) odd = !odd;
    }
    return odd;
}

/// Nothing where an edge is near.
std::optional<bool> certainlyInside(const std::vector<Spot>& zone, Spot p) {
    int hits = 0;
    constexpr int kAround = 16;
    for (int i = 0; i < kAround; ++i)
        hits += inside(zone, {p.x + kUncertain * std::cos(i * 2 * M_PI / kAround),
                              p.y + kUncertain * std::sin(i * 2 * M_PI / kAround)});
    if (hits == 0 || hits == kAround) return hits > 0;
    return std::nullopt;
}

void addStays(const std::vector<Place>& places, int who, std::vector<TrueEvent>& events) {
    const std::vector<Spot> yard = stageYard();
    bool in = false;
    std::int64_t edge = -1;  // on the other side of it since, -1: it is not
    for (const Place& place : places) {
        const auto now = certainlyInside(yard, place.foot);
        if (inside(yard, place.foot) == in)
            edge = -1;
        else if (edge < 0)
            edge = place.frame;
        if (!now || *now == in) continue;
        in = *now;
        events.push_back({in ? "enter" : "leave", who, edge < 0 ? place.frame : edge, place.frame});
        edge = -1;
    }
    if (in) events.push_back({"leave", who, places.back().frame, places.back().frame});
}

void addCrossings(const std::vector<Place>& places, int who, std::vector<TrueEvent>& events) {
    const std::vector<Spot> gate = stageGate();  // upright, so that sides are left and right
    int side = 0, net = 0;
    std::int64_t through = 0;
    for (std::size_t i = 1; i < places.size(); ++i) {
        const Spot a = places[i - 1].foot, b = places[i].foot;
        const double x = gate[0].x;
        if ((a.x < x) != (b.x < x)) {
            const double y = a.y + (b.y - a.y) * (x - a.x) / (b.x - a.x);
            if (y >= gate[0].y && y <= gate[1].y) {
                net += b.x >= x ? 1 : -1;
                through = places[i].frame;
            }
        }
        if (std::abs(b.x - x) < kUncertain) continue;
        const int now = b.x > x ? 1 : -1;
        if (side != 0 && now != side && net != 0)
            events.push_back({now < 0 ? "forward" : "backward", who, through, places[i].frame});
        side = now;
        net = 0;
    }
}

void addStanding(const std::vector<Place>& places, int who, std::vector<TrueEvent>& events) {
    std::int64_t still = 0;
    for (const Place& place : places) {
        still = place.still ? still + 1 : 0;
        if (still == kStandFrames) events.push_back({"stands", who, place.frame, place.frame});
    }
}

/// Of two who come as one, takes from the second what they did together.
void removeShared(const std::vector<Place>& one, const std::vector<Place>& other, int who,
                  std::vector<TrueEvent>& events) {
    std::int64_t parted = INT64_MAX;
    for (const Place& a : one)
        for (const Place& b : other)
            if (a.frame == b.frame && std::hypot(a.foot.x - b.foot.x, a.foot.y - b.foot.y) > kApart)
                parted = std::min(parted, a.frame);
    const auto mine = [who](const TrueEvent& event) { return event.who == who; };
    bool in = false;
    for (const TrueEvent& event : events)
        if (mine(event) && event.last < parted && (event.what == "enter" || event.what == "leave"))
            in = event.what == "enter";
    const auto stay_ends = std::ranges::find_if(
        events, [&](const TrueEvent& event) { return mine(event) && event.last >= parted && event.what == "leave"; });
    if (in && stay_ends != events.end()) events.erase(stay_ends);
    const auto shared = [&](const TrueEvent& event) { return mine(event) && event.last < parted; };
    std::erase_if(events, [&](const TrueEvent& event) {
        return shared(event) && (event.what == "enter" || event.what == "leave");
    });
    for (TrueEvent& event : events)
        if (shared(event)) event.certain = false;
}

}  // namespace

std::vector<Spot> stageYard() {
    return {{0.3, 0.6}, {0.7, 0.6}, {0.7, 0.9}, {0.3, 0.9}};
}

std::vector<Spot> stageGate() {
    return {{0.5, 0.35}, {0.5, 0.9}};
}

std::vector<TrueEvent> eventTruth(const SceneDescription& description) {
    const Act& act = *findAct(description.act);
    std::vector<TrueEvent> events;
    for (std::size_t i = 0; i < act.parts.size(); ++i) {
        const int who = static_cast<int>(i) + 1;
        const std::vector<Place> places = placesOf(description, who);
        addStays(places, who, events);
        addCrossings(places, who, events);
        addStanding(places, who, events);
        if (act.parts[i].with >= 0) removeShared(placesOf(description, act.parts[i].with + 1), places, who, events);
    }
    // The light changes when it begins and when it ends; what cannot be seen is unwell in between, too.
    for (const Light& light : act.lights) {
        const std::int64_t from = description.quiet + light.from, to = description.quiet + light.to;
        if (light.level < 100) {
            events.push_back({"unwell", 0, from, to});
        } else {
            events.push_back({"unwell", 0, from, from});
            if (light.to < act.frames) events.push_back({"unwell", 0, to, to});
        }
    }
    std::ranges::stable_sort(events, {}, &TrueEvent::first);
    return events;
}

}  // namespace fleifeisa::scenes
