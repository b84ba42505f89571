#include "scenes/actors.h"

#include <algorithm>
#include <array>
#include <optional>

#include "scenes/acts.h"
#include "scenes/random.h"

namespace fleifeisa::scenes {
namespace {

/// A stream of alike actors: one every `period` frames.
struct Lane {
    bool person;
    bool crosses;  ///< changes from the far to the near pavement on its way
    bool leftward;
    int y_permille;  ///< of the height, where its feet are
    int period;      ///< frames
    int min_frames;  ///< from edge to edge
    int max_frames;
    int stops_one_in;  ///< stands still on its way
};

constexpr std::array<Lane, 6> kStreet = {{
    {false, false, false, 560, 95, 50, 80, 4},
    {false, false, true, 690, 110, 55, 90, 5},
    {true, false, false, 430, 170, 190, 260, 3},
    {true, false, true, 445, 210, 200, 280, 4},
    {true, false, true, 900, 190, 180, 260, 3},
    {true, true, false, 430, 260, 230, 320, 1},
}};
constexpr std::array<Lane, 5> kWalkers = {{
    {true, false, false, 480, 120, 170, 250, 3},
    {true, false, true, 490, 140, 170, 260, 3},
    {true, false, false, 720, 150, 150, 240, 4},
    {true, false, true, 900, 160, 160, 240, 3},
    {true, true, false, 480, 230, 230, 320, 1},
}};
constexpr std::array<Lane, 8> kCrowd = {{
    {true, false, false, 440, 24, 170, 260, 4},
    {true, false, true, 470, 26, 180, 260, 4},
    {true, false, false, 560, 30, 160, 260, 3},
    {true, false, true, 640, 28, 180, 280, 3},
    {true, false, false, 730, 27, 150, 240, 4},
    {true, false, true, 820, 31, 170, 250, 3},
    {true, false, false, 930, 33, 160, 260, 5},
    {true, true, false, 450, 50, 230, 320, 1},
}};
constexpr int kLongestStop = 90;

std::span<const Lane> lanesOf(const SceneDescription& description) {
    if (description.name == "static" || description.name == "stage") return {};
    if (description.name == "walkers") return kWalkers;
    if (description.name == "crowd") return kCrowd;
    return kStreet;
}

Colour paint(Random& draw, bool grey) {
    if (grey) {  // warm against a cold background
        const auto level = static_cast<std::uint8_t>(draw.between(150, 225));
        return {level, level, level};
    }
    // One channel away from the others, and never close to the greys of the ground (100 to 150).
    constexpr std::array<Colour, 8> kPaints = {{{190, 40, 40},
                                                {40, 70, 180},
                                                {225, 225, 220},
                                                {30, 32, 38},
                                                {215, 180, 40},
                                                {40, 130, 60},
                                                {200, 110, 40},
                                                {120, 40, 130}}};
    Colour c = kPaints[static_cast<std::size_t>(draw.below(static_cast<int>(kPaints.size())))];
    const auto vary = [&draw](std::uint8_t v) {
        return static_cast<std::uint8_t>(std::clamp(v + draw.between(-15, 15), 0, 255));
    };
    c.r = vary(c.r);
    c.g = vary(c.g);
    c.b = vary(c.b);
    return c;
}

/// The way of one actor; x grows to the right here and is mirrored afterwards for leftward lanes.
std::vector<Waypoint> wayOf(const SceneDescription& description, const Lane& lane, Random& draw, int width) {
    const Sub w = static_cast<Sub>(description.width) * kSub;
    const Sub h = static_cast<Sub>(description.height) * kSub;
    const Sub y = h * lane.y_permille / 1000;
    const Sub outside = static_cast<Sub>(width) * kSub;
    std::vector<Waypoint> way = {{-outside, y, 0}};
    if (lane.crosses) {
        const Sub x = w * draw.between(250, 700) / 1000;
        const Sub near = h * draw.between(860, 940) / 1000;
        way.push_back({x, y, draw.between(5, 40)});
        way.push_back({x + w / 20, near, 0});
        way.push_back({w + outside, near, 0});
    } else {
        if (draw.below(lane.stops_one_in) == 0)
            way.push_back({w * draw.between(250, 750) / 1000, y, draw.between(25, kLongestStop)});
        way.push_back({w + outside, y, 0});
    }
    if (lane.leftward)
        for (Waypoint& point : way) point.x = w - point.x;
    return way;
}

Actor makeActor(const SceneDescription& description, std::size_t lane_index, const Lane& lane, std::int64_t k) {
    Random draw(mix(description.seed, lane_index + 1, static_cast<std::uint64_t>(k)));
    const bool grey = description.name == "night-ir";
    Actor actor;
    actor.id =
        static_cast<int>(k * static_cast<std::int64_t>(kCrowd.size()) + static_cast<std::int64_t>(lane_index)) + 1;
    actor.person = lane.person;
    actor.start = description.quiet + k * lane.period + draw.below(lane.period / 2);
    const int frames = draw.between(lane.min_frames, lane.max_frames);
    actor.speed = std::max<Sub>(1, static_cast<Sub>(description.width) * kSub / frames);
    const int scale = draw.between(88, 112);
    actor.height = std::max(1, description.height * (lane.person ? 19 : 12) * scale / 10000);
    actor.width = std::max(1, lane.person ? actor.height * 2 / 5 : actor.height * 5 / 2);
    actor.top = paint(draw, grey);
    actor.bottom = lane.person ? paint(draw, grey) : grey ? Colour{70, 70, 70} : Colour{45, 55, 70};
    actor.way = wayOf(description, lane, draw, actor.width);
    return actor;
}

/// Octagonal length: exact in integers, within 8 % of the straight one.
Sub distance(const Waypoint& a, const Waypoint& b) {
    const Sub dx = std::abs(a.x - b.x);
    const Sub dy = std::abs(a.y - b.y);
    return std::max(dx, dy) + std::min(dx, dy) * 3 / 8;
}

std::optional<Pose> poseIn(const Actor& actor, std::int64_t number) {
    std::int64_t left = number - actor.start;
    if (left < 0) return std::nullopt;
    const auto pose = [&](Sub x, Sub y, bool walking, bool leftward) {
        return Pose{static_cast<int>(x / kSub), static_cast<int>(y / kSub), walking, leftward,
                    static_cast<int>((number - actor.start) / 2 % 4)};
    };
    for (std::size_t i = 0; i + 1 < actor.way.size(); ++i) {
        const Waypoint& from = actor.way[i];
        const Waypoint& to = actor.way[i + 1];
        const bool leftward = to.x < from.x;
        if (left < from.hold) return pose(from.x, from.y, false, leftward);
        left -= from.hold;
        const std::int64_t frames = std::max<std::int64_t>(1, distance(from, to) / actor.speed);
        if (left < frames)
            return pose(from.x + (to.x - from.x) * left / frames, from.y + (to.y - from.y) * left / frames, true,
                        leftward);
        left -= frames;
    }
    return std::nullopt;
}

}  // namespace

Layout layoutOf(const SceneDescription& description) {
    return {description.height * 32 / 100, description.height * 47 / 100, description.height * 76 / 100};
}

std::vector<Present> presentIn(const SceneDescription& description, std::int64_t number) {
    std::vector<Present> present;
    const std::span<const Lane> lanes = lanesOf(description);
    for (std::size_t index = 0; index < lanes.size(); ++index) {
        const Lane& lane = lanes[index];
        const std::int64_t since = number - description.quiet;
        if (since < 0) continue;
        // Nobody stays longer than this: the ways outside the frame, the detours of those who cross, one stop.
        const std::int64_t longest = 3 * lane.max_frames + kLongestStop + lane.period;
        for (std::int64_t k = std::max<std::int64_t>(0, (since - longest) / lane.period); k <= since / lane.period;
             ++k) {
            Actor actor = makeActor(description, index, lane, k);
            if (const auto pose = poseIn(actor, number)) present.push_back({std::move(actor), *pose});
        }
    }
    if (description.name == "stage")
        for (Actor& actor : castOf(description))
            if (const auto pose = poseIn(actor, number)) present.push_back({std::move(actor), *pose});
    std::stable_sort(present.begin(), present.end(),
                     [](const Present& a, const Present& b) { return a.pose.y < b.pose.y; });
    return present;
}

}  // namespace fleifeisa::scenes
