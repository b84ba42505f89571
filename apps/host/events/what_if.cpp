#include "events/what_if.h"

#include <algorithm>
#include <cmath>
#include <queue>

namespace fleifeisa::host {
namespace {

constexpr double kStep = 0.004;         ///< of the picture: less than the least margin of hysteresis
constexpr double kLongestStepNs = 1e9;  ///< so that ages and active times are looked at
constexpr int kSide = 8192;             ///< pixels of the picture that the boxes are laid into
constexpr double kReach = 0.03;         ///< farther from a rule than any margin

/// A rectangle in shares.
struct Extent {
    Point least{INFINITY, INFINITY}, greatest{-INFINITY, -INFINITY};

    void add(Point point) {
        least = {std::min(least.x, point.x), std::min(least.y, point.y)};
        greatest = {std::max(greatest.x, point.x), std::max(greatest.y, point.y)};
    }
    bool near(const Extent& other) const {
        return least.x <= other.greatest.x + kReach && other.least.x <= greatest.x + kReach &&
               least.y <= other.greatest.y + kReach && other.least.y <= greatest.y + kReach;
    }
};

struct Edge {
    Point a, b;
};

std::vector<Edge> edgesOf(const Rules& rules) {
    std::vector<Edge> edges;
    for (const ZoneRule& zone : rules.zones)
        for (std::size_t i = 0; i < zone.points.size(); ++i)
            edges.push_back({zone.points[i], zone.points[(i + 1) % zone.points.size()]});
    for (const LineRule& line : rules.lines) edges.push_back({line.from, line.to});
    return edges;
}

std::vector<Extent> extentsOf(const Rules& rules) {
    std::vector<Extent> extents;
    for (const ZoneRule& zone : rules.zones) {
        Extent& extent = extents.emplace_back();
        for (const Point& point : zone.points) extent.add(point);
    }
    for (const LineRule& line : rules.lines) {
        Extent& extent = extents.emplace_back();
        extent.add(line.from);
        extent.add(line.to);
    }
    return extents;
}

/// Beyond the border nobody hesitates, so what is beyond it counts as on it.
Point withinPicture(Point point) {
    return {std::clamp(point.x, 0.0, 1.0), std::clamp(point.y, 0.0, 1.0)};
}

bool comesNear(const PastTrack& track, const std::vector<Extent>& extents) {
    Extent way;
    for (const FootPoint& point : track.path) way.add(withinPicture(point.foot));
    return std::ranges::any_of(extents, [&way](const Extent& extent) { return extent.near(way); });
}

/// One track on its way, sample by sample.
class Walk {
 public:
    explicit Walk(const PastTrack& track) : past_(&track), time_ns_(track.path.front().time_ns) {
        track_.number = track.number;
        track_.split_from = track.split_from;
        track_.start_ns = track.start_ns;
        track_.state = TrackState::kConfirmed;
    }
    std::int64_t time() const { return time_ns_; }
    std::int64_t number() const { return track_.number; }

    /// The track at time().
    const Track& look() {
        if (over_) {
            track_.state = TrackState::kEnded;
            track_.ended = past_->ended;
            return track_;
        }
        const FootPoint point = pointAt(past_->path, time_ns_);
        const int width = pixels(point.width), height = pixels(point.height);
        // Twice half a width is even: the foot stays where it is.
        track_.box = {pixels(point.foot.x) - width / 2, pixels(point.foot.y) - height, width / 2 * 2, height};
        track_.seen_ns = time_ns_;
        return track_;
    }
    /// To the next sample; false after the end. Far from all edges nothing is decided, so strides are long there.
    bool step(const std::vector<Edge>& edges) {
        if (over_) return false;
        const auto& path = past_->path;
        if (time_ns_ >= path.back().time_ns) {
            over_ = true;
            time_ns_ = std::max(time_ns_, past_->end_ns);
            return true;
        }
        while (path[next_].time_ns <= time_ns_) ++next_;
        const FootPoint &from = path[next_ - 1], &to = path[next_];
        const double dx = to.foot.x - from.foot.x, dy = to.foot.y - from.foot.y;
        const double way = std::sqrt(dx * dx + dy * dy);
        const auto duration = static_cast<double>(to.time_ns - from.time_ns);
        double stride = INFINITY;
        const Point foot = withinPicture(pointAt(path, time_ns_).foot);
        for (const Edge& edge : edges) stride = std::min(stride, distanceToSegment(foot, edge.a, edge.b) - kReach);
        stride = std::max(stride, kStep);
        const double step_ns = std::min(way > stride ? duration * stride / way : duration, kLongestStepNs);
        time_ns_ = std::min(time_ns_ + 1 + static_cast<std::int64_t>(step_ns), to.time_ns);
        return true;
    }

 private:
    static int pixels(double share) { return static_cast<int>(std::lround(share * kSide)); }

    const PastTrack* past_;
    Track track_;
    std::int64_t time_ns_;
    std::size_t next_ = 0;  ///< the path point that is reached next
    bool over_ = false;
};

struct Later {
    bool operator()(const Walk& a, const Walk& b) const {
        return a.time() != b.time() ? a.time() > b.time() : a.number() > b.number();
    }
};

}  // namespace

std::vector<CameraEvent> eventsOfThePast(const Rules& rules, const std::string& camera,
                                         const std::vector<PastTrack>& tracks, const std::vector<PastScene>& scenes,
                                         bool wall_clock, const std::function<bool()>& stopped) {
    Rules tried = rules;
    tried.stopped = 0;
    const std::vector<Extent> extents = extentsOf(rules);
    const std::vector<Edge> edges = edgesOf(rules);
    std::vector<const PastTrack*> order;
    for (const PastTrack& track : tracks)
        if (!track.path.empty() && comesNear(track, extents)) order.push_back(&track);
    std::ranges::sort(order, [](const PastTrack* a, const PastTrack* b) {
        const auto begin_a = a->path.front().time_ns, begin_b = b->path.front().time_ns;
        return begin_a != begin_b ? begin_a < begin_b : a->number < b->number;
    });

    std::vector<CameraEvent> events;
    const auto keep = [&events](const RuleResults& results) {
        for (const CameraEvent& event : results.events)
            if (event.kind == EventKind::kZone || event.kind == EventKind::kLine) events.push_back(event);
    };
    RuleEngine engine(tried, {camera, 1, "", {}, wall_clock});
    SceneState state = SceneState::kWatching;
    auto scene = scenes.begin();
    auto next = order.begin();
    std::priority_queue<Walk, std::vector<Walk>, Later> living;
    constexpr int kBetweenQuestions = 4096;  // steps, a few milliseconds
    for (int steps = 1; next != order.end() || !living.empty(); ++steps) {
        if (stopped && steps % kBetweenQuestions == 0 && stopped()) break;
        while (next != order.end() && (living.empty() || (*next)->path.front().time_ns <= living.top().time()))
            living.emplace(**next++);
        Walk walk = living.top();
        living.pop();
        for (; scene != scenes.end() && scene->time_ns <= walk.time(); ++scene) {
            state = scene->state;
            keep(engine.frame({scene->time_ns, kSide, kSide, state, {}, 0}));
        }
        const Track& track = walk.look();
        keep(engine.frame({walk.time(), kSide, kSide, state, {&track, 1}, 0}));
        if (walk.step(edges)) living.push(std::move(walk));
    }
    // Numbers without those of visits and scenes, which were not asked for.
    std::map<std::int64_t, std::int64_t> numbers;
    for (CameraEvent& event : events) {
        event.number = numbers.try_emplace(event.number, static_cast<std::int64_t>(numbers.size()) + 1).first->second;
        event.visit = 0;
    }
    return events;
}

}  // namespace fleifeisa::host
