#include "compare/match.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>

namespace fleifeisa::host {
namespace {

constexpr double kSameThing = 0.3;  // mean overlap of two tracks that are one thing; boxes differ by edges and shadows
constexpr double kSamePlace = 0.3;  // overlap of two boxes in one frame, for neither to stand alone
constexpr double kPartOfShorter = 0.5;                // of the frames of the briefer track, in which both are shown
constexpr std::int64_t kSettleNs = 1'000'000'000;     // behind learning: tracks take a moment to be confirmed
constexpr std::int64_t kSameEventNs = 5'000'000'000;  // between starts of an event that is in both

/// A moment at which both runs are looked at.
struct Instant {
    std::int64_t time_ns = 0;  ///< since the first frame
    const ResultFrame *a = nullptr, *b = nullptr;
};

/// The frame nearest to a moment since the first frame, the earlier of two; null farther away than `reach`.
const ResultFrame* nearest(const ClipResult& run, std::int64_t time_ns, std::int64_t reach) {
    const std::int64_t wanted = run.frames.front().time_ns + time_ns;
    auto after = std::ranges::lower_bound(run.frames, wanted, {}, &ResultFrame::time_ns);
    if (after == run.frames.end() ||
        (after != run.frames.begin() && wanted - std::prev(after)->time_ns <= after->time_ns - wanted))
        --after;
    return std::abs(after->time_ns - wanted) <= reach ? &*after : nullptr;
}

class Matcher {
 public:
    Matcher(const ClipResult& a, const ClipResult& b) : a_(a), b_(b), step_(std::max(a.stepNs(), b.stepNs())) {
        const std::int64_t learned = std::max(a.learningNs(), b.learningNs());
        from_ = std::abs(a.learningNs() - b.learningNs()) <= step_ ? 0 : learned + kSettleNs;
        const bool by_a = a.frames.size() <= b.frames.size();
        for (const ResultFrame& frame : (by_a ? a : b).frames) {
            const std::int64_t time = frame.time_ns - (by_a ? a : b).frames.front().time_ns;
            if (time < from_) continue;
            const ResultFrame* const other = nearest(by_a ? b : a, time, step_ / 2);
            instants_.push_back({time, by_a ? &frame : other, by_a ? other : &frame});
        }
    }

    ClipComparison compare() {
        ClipComparison result;
        result.from_ns = from_;
        result.identical = a_.frames == b_.frames && a_.width == b_.width && a_.height == b_.height &&
                           std::ranges::equal(a_.events, b_.events, sameEvent);
        measure();
        result.tracks = matchTracks();
        result.events = matchEvents();
        result.parting = part();
        return result;
    }

 private:
    struct Presence {
        TimeSpan span;
        std::int64_t instants = 0;
        double largest = -1;
        std::int64_t largest_ns = 0;
    };
    struct Common {
        double overlaps = 0;
        std::int64_t instants = 0;
    };
    using Presences = std::map<std::int64_t, Presence>;

    static bool sameEvent(const CameraEvent& a, const CameraEvent& b) {
        return a.kind == b.kind && a.rule == b.rule && a.change == b.change && a.start_ns == b.start_ns &&
               a.end_ns == b.end_ns && a.value == b.value && a.held == b.held;
    }

    static void note(Presences& presences, const ResultFrame* frame, std::int64_t time_ns) {
        if (frame == nullptr) return;
        for (const ShownTrack& seen : frame->shown) {
            Presence& presence = presences[seen.track];
            ++presence.instants;
            if (seen.box.area() <= presence.largest) continue;
            presence.largest = seen.box.area();
            presence.largest_ns = time_ns;
        }
    }

    /// Where each track is, in the frames of its own run: no end is lost to the other's rate.
    static void noteSpans(Presences& presences, const ClipResult& run) {
        std::set<std::int64_t> begun;
        for (const ResultFrame& frame : run.frames)
            for (const ShownTrack& seen : frame.shown) {
                const std::int64_t time = frame.time_ns - run.frames.front().time_ns;
                Presence& presence = presences[seen.track];
                if (begun.insert(seen.track).second) presence.span.from_ns = time;
                presence.span.to_ns = time;
                if (presence.largest < 0) presence.largest_ns = time;
            }
    }

    void measure() {
        noteSpans(in_a_, a_);
        noteSpans(in_b_, b_);
        for (const Instant& instant : instants_) {
            note(in_a_, instant.a, instant.time_ns);
            note(in_b_, instant.b, instant.time_ns);
            if (instant.a == nullptr || instant.b == nullptr) continue;
            for (const ShownTrack& one : instant.a->shown)
                for (const ShownTrack& other : instant.b->shown)
                    if (const double value = overlap(one.box, other.box); value > 0) {
                        Common& common = common_[{one.track, other.track}];
                        common.overlaps += value;
                        ++common.instants;
                    }
        }
    }

    bool sameMoment(std::int64_t one, std::int64_t other) const { return std::abs(one - other) <= step_; }

    Difference differenceOf(const TimeSpan& one, const TimeSpan& other) const {
        return sameMoment(std::max(one.from_ns, from_), std::max(other.from_ns, from_)) &&
                       sameMoment(one.to_ns, other.to_ns)
                   ? Difference::kNone
                   : Difference::kTimes;
    }

    Difference alone(const TimeSpan& span, Difference where) const {
        return span.to_ns < from_ ? Difference::kEarly : where;
    }

    /// In the middle of the longer of the two spans in which only one of them is shown.
    std::int64_t lookAtTimes(TimeSpan one, TimeSpan other) const {
        one.from_ns = std::max(one.from_ns, from_);
        other.from_ns = std::max(other.from_ns, from_);
        const std::int64_t before = std::abs(one.from_ns - other.from_ns), after = std::abs(one.to_ns - other.to_ns);
        return before >= after ? std::min(one.from_ns, other.from_ns) + before / 2
                               : std::min(one.to_ns, other.to_ns) + (after + 1) / 2;
    }

    /// Pairs that lie longest upon each other come first; of equals the earlier numbers.
    std::vector<Match> matchTracks() {
        struct Candidate {
            double overlaps;
            std::int64_t a, b;
            double likeness;
        };
        std::vector<Candidate> candidates;
        for (const auto& [numbers, common] : common_) {
            const std::int64_t shorter = std::min(in_a_[numbers.first].instants, in_b_[numbers.second].instants);
            const double likeness = common.overlaps / static_cast<double>(common.instants);
            if (likeness >= kSameThing &&
                static_cast<double>(common.instants) >= kPartOfShorter * static_cast<double>(shorter))
                candidates.push_back({common.overlaps, numbers.first, numbers.second, likeness});
        }
        std::ranges::stable_sort(candidates, std::ranges::greater{}, &Candidate::overlaps);
        std::vector<Match> matches;
        std::set<std::int64_t> taken_a, taken_b;
        for (const Candidate& one : candidates) {
            if (taken_a.contains(one.a) || taken_b.contains(one.b)) continue;
            taken_a.insert(one.a);
            taken_b.insert(one.b);
            const TimeSpan &a = in_a_[one.a].span, &b = in_b_[one.b].span;
            const Difference difference = differenceOf(a, b);
            matches.push_back({difference, one.a, one.b, a, b, one.likeness,
                               difference == Difference::kNone ? in_a_[one.a].largest_ns : lookAtTimes(a, b)});
        }
        for (const auto& [number, presence] : in_a_)
            if (!taken_a.contains(number))
                matches.push_back(
                    {alone(presence.span, Difference::kOnlyA), number, 0, presence.span, {}, 0, presence.largest_ns});
        for (const auto& [number, presence] : in_b_)
            if (!taken_b.contains(number))
                matches.push_back(
                    {alone(presence.span, Difference::kOnlyB), 0, number, {}, presence.span, 0, presence.largest_ns});
        return inOrder(std::move(matches));
    }

    static std::vector<Match> inOrder(std::vector<Match> matches) {
        std::ranges::stable_sort(matches, {}, [](const Match& match) {
            const std::int64_t from = match.a == 0                              ? match.in_b.from_ns
                                      : match.b == 0                            ? match.in_a.from_ns
                                      : match.in_a.from_ns < match.in_b.from_ns ? match.in_a.from_ns
                                                                                : match.in_b.from_ns;
            return std::tuple(from, match.a == 0, match.a, match.b);
        });
        return matches;
    }

    static TimeSpan spanOf(const CameraEvent& event, const ClipResult& run) {
        const std::int64_t first = run.frames.front().time_ns;
        return {event.start_ns - first, event.end_ns.value_or(run.frames.back().time_ns) - first};
    }

    /// Events of one rule and kind that start nearest to each other, or last at the same time.
    std::vector<Match> matchEvents() const {
        struct Candidate {
            std::int64_t apart;
            std::size_t a, b;
        };
        std::vector<Candidate> candidates;
        for (std::size_t i = 0; i < a_.events.size(); ++i)
            for (std::size_t j = 0; j < b_.events.size(); ++j) {
                const CameraEvent &one = a_.events[i], &other = b_.events[j];
                if (one.kind != other.kind || one.rule != other.rule || one.change != other.change) continue;
                const TimeSpan a = spanOf(one, a_), b = spanOf(other, b_);
                const std::int64_t apart = std::abs(a.from_ns - b.from_ns);
                if (apart <= kSameEventNs || (a.from_ns < b.to_ns && b.from_ns < a.to_ns))
                    candidates.push_back({apart, i, j});
            }
        std::ranges::stable_sort(candidates, {}, &Candidate::apart);
        std::vector<Match> matches;
        std::set<std::size_t> taken_a, taken_b;
        for (const Candidate& one : candidates) {
            if (taken_a.contains(one.a) || taken_b.contains(one.b)) continue;
            taken_a.insert(one.a);
            taken_b.insert(one.b);
            const TimeSpan a = spanOf(a_.events[one.a], a_), b = spanOf(b_.events[one.b], b_);
            const Difference difference = differenceOf(a, b);
            matches.push_back({difference, a_.events[one.a].number, b_.events[one.b].number, a, b, 0,
                               difference == Difference::kNone ? a.from_ns : lookAtTimes(a, b)});
        }
        for (std::size_t i = 0; i < a_.events.size(); ++i)
            if (const TimeSpan span = spanOf(a_.events[i], a_); !taken_a.contains(i))
                matches.push_back({alone(span, Difference::kOnlyA), a_.events[i].number, 0, span, {}, 0, span.from_ns});
        for (std::size_t i = 0; i < b_.events.size(); ++i)
            if (const TimeSpan span = spanOf(b_.events[i], b_); !taken_b.contains(i))
                matches.push_back({alone(span, Difference::kOnlyB), 0, b_.events[i].number, {}, span, 0, span.from_ns});
        return inOrder(std::move(matches));
    }

    /// A track of `frame` that nothing in `other` lies upon, 0 where there is none.
    static std::int64_t standsAlone(const ResultFrame& frame, const ResultFrame& other) {
        for (const ShownTrack& seen : frame.shown)
            if (std::ranges::none_of(other.shown, [&seen](const ShownTrack& there) {
                    return overlap(seen.box, there.box) >= kSamePlace;
                }))
                return seen.track;
        return 0;
    }

    std::optional<Parting> part() const {
        for (const Instant& instant : instants_) {
            if (instant.a == nullptr || instant.b == nullptr) continue;
            if (const std::int64_t track = standsAlone(*instant.a, *instant.b); track > 0)
                return Parting{instant.time_ns, track, 0};
            if (const std::int64_t track = standsAlone(*instant.b, *instant.a); track > 0)
                return Parting{instant.time_ns, 0, track};
        }
        return std::nullopt;
    }

    const ClipResult &a_, &b_;
    const std::int64_t step_;  ///< of the run with fewer frames
    std::int64_t from_ = 0;    ///< compared from there
    std::vector<Instant> instants_;
    Presences in_a_, in_b_;
    std::map<std::pair<std::int64_t, std::int64_t>, Common> common_;
};

}  // namespace

std::int64_t ClipComparison::count(const std::vector<Match>& matches, Difference difference) {
    return std::ranges::count(matches, difference, &Match::difference);
}

bool ClipComparison::differs() const {
    const auto same = [](const Match& match) {
        return match.difference == Difference::kNone || match.difference == Difference::kEarly;
    };
    return !std::ranges::all_of(tracks, same) || !std::ranges::all_of(events, same);
}

ClipComparison compareResults(const ClipResult& a, const ClipResult& b) {
    return Matcher(a, b).compare();
}

}  // namespace fleifeisa::host
