// How well the tracks of a clip agree with what really happened there.
#pragma once

#include <map>
#include <set>

#include "tune/truth.h"

namespace fleifeisa::host {

/// Sums over clips: all of it adds up.
struct Score {
    std::int64_t things = 0;  ///< that could be found: at least a second of each lies in the judged time
    std::int64_t found = 0;   ///< a track lay on it: for half of its time where that is known by boxes
    std::int64_t again = 0;   ///< tracks of a thing beyond its first
    std::int64_t wrong = 0;   ///< tracks that are on nothing for more than half of their time
    std::int64_t judged_ns = 0;
    std::int64_t present = 0;  ///< frames of things, summed over things ...
    std::int64_t seen = 0;     ///< ... and of these, with a track on it

    std::int64_t missed() const { return things - found; }
    double wrongAMinute() const {
        return judged_ns > 0 ? static_cast<double>(wrong) * 60e9 / static_cast<double>(judged_ns) : 0;
    }
    Score& operator+=(const Score& other);
    bool operator==(const Score&) const = default;
};

/// Given a clip's frames one by one; memory grows with tracks and things, not with the length.
class Scorer {
 public:
    /// @param learned_ns  since the first frame: nothing before that is judged, however soon the analyzer begins
    Scorer(const Truth& truth, std::int64_t learned_ns)
        : truth_(truth), learned_ns_(learned_ns), things_(truth.things.size()) {}

    /// @param time_ns  since the first frame, rising
    void frame(std::int64_t time_ns, const std::vector<ShownTrack>& shown);
    /// @param length_ns  of the clip
    Score finish(std::int64_t length_ns) const;

 private:
    struct OnThing {
        std::int64_t frames = 0;  ///< with the track on it (rough: in its span)
        bool passed = false;      ///< rough: came by the place
    };
    struct Seen {
        std::int64_t frames = 0, excused = 0;  ///< excused: on any thing known by boxes, or where nothing is judged
        std::map<std::size_t, OnThing> on;
    };
    struct ThingSeen {
        std::int64_t present = 0;                           ///< frames
        std::int64_t seen = 0;                              ///< by boxes
        std::vector<std::vector<std::int64_t>> candidates;  ///< rough: tracks shown in each frame of its span
    };

    bool judged(std::int64_t time_ns) const;
    bool ignored(std::int64_t time_ns, const ShareBox& box) const;
    void onBoxes(std::int64_t time_ns, const std::vector<ShownTrack>& shown, std::set<std::int64_t>& excused);
    void onSpan(std::size_t index, std::int64_t time_ns, const std::vector<ShownTrack>& shown);
    bool belongs(const Seen& seen, std::size_t index) const;
    bool counts(const Thing& thing, std::int64_t length_ns) const;

    const Truth& truth_;
    const std::int64_t learned_ns_;
    std::vector<ThingSeen> things_;
    std::map<std::int64_t, Seen> tracks_;
};

}  // namespace fleifeisa::host
