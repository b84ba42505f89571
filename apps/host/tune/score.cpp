#include "tune/score.h"

#include <algorithm>
#include <cstdlib>

namespace fleifeisa::host {
namespace {

constexpr double kOnThing = 0.3;  // overlap of a track's box and a thing's: small things have fuzzy edges
constexpr double kIgnored = 0.5;  // of a track's box lies where nothing is judged
constexpr double kFound = 0.5;    // of a thing's time
constexpr double kRight = 0.5;    // of a track's frames
constexpr double kBelongs =
    0.25;  // of a track's frames on one thing: it is that thing's, if badly drawn or late to end
constexpr std::int64_t kLeastNs = 1'000'000'000;  // of a thing within the judged time, to be asked for

/// The boxes of the annotated frame nearest to a moment; none farther away than `reach`.
std::pair<std::vector<TruthBox>::const_iterator, std::vector<TruthBox>::const_iterator> boxesAt(
    const std::vector<TruthBox>& boxes, std::int64_t time_ns, std::int64_t reach) {
    auto after = std::ranges::lower_bound(boxes, time_ns, {}, &TruthBox::time_ns);
    if (after == boxes.end() ||
        (after != boxes.begin() && time_ns - std::prev(after)->time_ns <= after->time_ns - time_ns)) {
        if (after == boxes.begin()) return {boxes.end(), boxes.end()};
        --after;
    }
    if (std::abs(after->time_ns - time_ns) > reach) return {boxes.end(), boxes.end()};
    return {std::ranges::lower_bound(boxes, after->time_ns, {}, &TruthBox::time_ns),
            std::ranges::upper_bound(boxes, after->time_ns, {}, &TruthBox::time_ns)};
}

}  // namespace

Score& Score::operator+=(const Score& other) {
    things += other.things;
    found += other.found;
    again += other.again;
    wrong += other.wrong;
    judged_ns += other.judged_ns;
    present += other.present;
    seen += other.seen;
    return *this;
}

bool Scorer::judged(std::int64_t time_ns) const {
    return time_ns >= learned_ns_ &&
           (!truth_.judged || (time_ns >= truth_.judged->from_ns && time_ns <= truth_.judged->to_ns));
}

bool Scorer::ignored(std::int64_t time_ns, const ShareBox& box) const {
    const auto [begin, end] = boxesAt(truth_.ignored, time_ns, truth_.box_step_ns * 3 / 4);
    return std::any_of(begin, end, [&box](const TruthBox& there) {
        const double width = std::min(box.right, there.box.right) - std::max(box.left, there.box.left);
        const double height = std::min(box.bottom, there.box.bottom) - std::max(box.top, there.box.top);
        return width > 0 && height > 0 && width * height >= kIgnored * box.area();
    });
}

/// Things and tracks that lie on each other best belong together, each to one: two people under one box are not both
/// found. Other tracks that lie on a thing are excused.
void Scorer::onBoxes(std::int64_t time_ns, const std::vector<ShownTrack>& shown, std::set<std::int64_t>& excused) {
    struct Pairing {
        double overlaps;
        std::size_t thing;
        std::int64_t track;
    };
    std::vector<Pairing> pairings;
    for (std::size_t index = 0; index < truth_.things.size(); ++index) {
        if (truth_.things[index].rough()) continue;
        const auto [begin, end] = boxesAt(truth_.things[index].boxes, time_ns, truth_.box_step_ns * 3 / 4);
        if (begin == end) continue;
        ++things_[index].present;
        for (const ShownTrack& seen : shown) {
            const double value = overlap(seen.box, begin->box);
            if (value < kOnThing) continue;
            excused.insert(seen.track);
            pairings.push_back({value, index, seen.track});
        }
    }
    std::ranges::stable_sort(pairings, std::ranges::greater{}, &Pairing::overlaps);
    std::set<std::size_t> things;
    std::set<std::int64_t> tracks;
    for (const Pairing& one : pairings) {
        if (things.contains(one.thing) || tracks.contains(one.track)) continue;
        things.insert(one.thing);
        tracks.insert(one.track);
        ++things_[one.thing].seen;
        ++tracks_[one.track].on[one.thing].frames;
    }
}

void Scorer::onSpan(std::size_t index, std::int64_t time_ns, const std::vector<ShownTrack>& shown) {
    const Thing& what = truth_.things[index];
    if (time_ns < what.span.from_ns - kRoughNs || time_ns > what.span.to_ns + kRoughNs) return;
    const bool inside = time_ns >= what.span.from_ns && time_ns <= what.span.to_ns;
    if (inside) things_[index].candidates.emplace_back();
    for (const ShownTrack& seen : shown) {
        OnThing& on = tracks_[seen.track].on[index];
        ++on.frames;
        const Point centre = seen.box.centre();
        if (!what.about ||
            (std::abs(centre.x - what.about->x) <= what.within && std::abs(centre.y - what.about->y) <= what.within))
            on.passed = true;
        if (inside) things_[index].candidates.back().push_back(seen.track);
    }
}

void Scorer::frame(std::int64_t time_ns, const std::vector<ShownTrack>& shown) {
    if (!judged(time_ns)) return;
    std::set<std::int64_t> excused;
    onBoxes(time_ns, shown, excused);
    for (std::size_t index = 0; index < truth_.things.size(); ++index)
        if (truth_.things[index].rough()) onSpan(index, time_ns, shown);
    for (const ShownTrack& seen : shown) {
        Seen& track = tracks_[seen.track];
        ++track.frames;
        if (excused.contains(seen.track) || ignored(time_ns, seen.box)) ++track.excused;
    }
}

/// Rough: it came by the place in time. By boxes: it lay there for a good part of its life.
bool Scorer::belongs(const Seen& seen, std::size_t index) const {
    const auto found = seen.on.find(index);
    if (found == seen.on.end()) return false;
    if (truth_.things[index].rough()) return found->second.passed;
    return static_cast<double>(found->second.frames) >= kBelongs * static_cast<double>(seen.frames);
}

bool Scorer::counts(const Thing& thing, std::int64_t length_ns) const {
    std::int64_t from = std::max(thing.span.from_ns, learned_ns_), to = std::min(thing.span.to_ns, length_ns);
    if (truth_.judged) {
        from = std::max(from, truth_.judged->from_ns);
        to = std::min(to, truth_.judged->to_ns);
    }
    // What is briefer than that at all is asked for where all of it lies in the judged time.
    return to - from >= std::min(kLeastNs, thing.span.to_ns - thing.span.from_ns) && to >= from;
}

Score Scorer::finish(std::int64_t length_ns) const {
    Score score;
    const std::int64_t from = std::max(learned_ns_, truth_.judged ? truth_.judged->from_ns : 0);
    const std::int64_t to = std::min(length_ns, truth_.judged ? truth_.judged->to_ns : length_ns);
    score.judged_ns = std::max<std::int64_t>(0, to - from);
    std::set<std::int64_t> right;
    for (std::size_t index = 0; index < things_.size(); ++index) {
        std::set<std::int64_t> of_it;
        for (const auto& [number, seen] : tracks_)
            if (belongs(seen, index)) of_it.insert(number);
        right.insert(of_it.begin(), of_it.end());
        if (!counts(truth_.things[index], length_ns)) continue;
        const ThingSeen& thing = things_[index];
        std::int64_t present = thing.present, frames_seen = thing.seen;
        if (truth_.things[index].rough()) {
            present = static_cast<std::int64_t>(thing.candidates.size());
            frames_seen = std::ranges::count_if(thing.candidates, [&of_it](const auto& tracks) {
                return std::ranges::any_of(tracks, [&of_it](std::int64_t track) { return of_it.contains(track); });
            });
        }
        const bool found = truth_.things[index].rough() ? !of_it.empty()
                                                        : present > 0 && static_cast<double>(frames_seen) >=
                                                                             kFound * static_cast<double>(present);
        ++score.things;
        score.found += found ? 1 : 0;
        score.again += std::max<std::int64_t>(0, static_cast<std::int64_t>(of_it.size()) - 1);
        score.present += present;
        score.seen += frames_seen;
    }
    for (const auto& [number, seen] : tracks_)
        if (!right.contains(number) && static_cast<double>(seen.excused) < kRight * static_cast<double>(seen.frames))
            ++score.wrong;
    return score;
}

}  // namespace fleifeisa::host
