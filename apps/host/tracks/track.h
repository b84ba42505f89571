// One thing over time. What the track filter makes of the analyzer's objects, and what rules, store and outputs read.
//
// Words: an object is what the analyzer answered for one frame (evidence, never changed); a track is one thing over
// time; the scene state says how far the picture can be trusted at all. All of it is a function of the frames, the
// replies and the settings: no clock, no file, no thread takes part, so the same recording gives the same tracks, bit
// by bit, on every machine. Doubles are computed with + - * / and square roots only, in a fixed order.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace fleifeisa::host {

/// A rectangle in pixels of the analyzed frame. Right and bottom are outside: a box 0,0 1x1 is one pixel.
struct Box {
    int left = 0, top = 0, width = 0, height = 0;

    int right() const { return left + width; }
    int bottom() const { return top + height; }
    bool operator==(const Box&) const = default;
};

struct Point {
    double x = 0, y = 0;
};

/// Middle of the lower edge.
inline Point footOf(const Box& box) {
    return {box.left + box.width / 2.0, static_cast<double>(box.bottom())};
}

enum class TrackState {
    kTentative,  ///< seen, not yet believed; for debugging only
    kConfirmed,  ///< seen in this frame, or just missed and shown where it is expected
    kCoasting,   ///< not seen, still expected: not drawn, not counted, kept so that it keeps its number
    kStopped,    ///< stands still; kept as long as its place looks as it did
    kEnded,      ///< told once, in the frame in which it ends
};

enum class TrackEnd {
    kNone,     ///< has not ended
    kLeft,     ///< went over the edge of the picture
    kLost,     ///< not seen again
    kStopped,  ///< stood still, and its place looks again as before it came, or it was kept as long as any
    kSource,   ///< the source ended
    kClock,    ///< the clock was set back: everything ends and begins anew
};

/// "confirmed", "left" ... as in files and interfaces.
const char* nameOf(TrackState state);
const char* nameOf(TrackEnd end);

struct Track {
    std::int64_t number = 0;  ///< of its camera, from 1, in the order of confirmation, never used again; 0: tentative
    TrackState state = TrackState::kTentative;
    TrackEnd ended = TrackEnd::kNone;
    std::int64_t start_ns = 0;     ///< time of the frame in which it was seen first (before it was confirmed)
    std::int64_t seen_ns = 0;      ///< time of the latest frame in which it was seen
    Box box;                       ///< may reach beyond the frame
    Point centre;                  ///< of the box, pixels
    Point velocity;                ///< of the centre, pixels a second
    std::vector<int> objects;      ///< ids of the analyzer's objects in this frame that lie in it; empty when not seen
    int area = 0;                  ///< foreground pixels of this frame in it, 0 when not seen
    double path_px = 0;            ///< length of its way so far, pixels
    int frames = 0;                ///< in which it was seen
    std::int64_t split_from = 0;   ///< the track it came out of, 0: none; never changes
    std::int64_t merged_with = 0;  ///< owner of the group it moves in at this frame, 0: alone
    bool removed = false;          ///< ended because its place looks again as before it came
    std::int64_t stopped_ns = 0;   ///< since when it stands still (state kStopped), else 0
    Box birth;                     ///< where it was seen first, at start_ns; of no size: unknown

    /// Middle of the lower edge: where it stands.
    Point foot() const { return footOf(box); }
};

enum class SceneState {
    kLearning,  ///< the background is not known yet: no tracks
    kWatching,
    kChanged,  ///< the light changed everywhere: tracks are frozen, nothing is born
    kBlind,    ///< covered, black, without structure, or frozen
    kLost,     ///< no picture; told by the camera, never found in pixels
};

/// "learning", "watching" ...
const char* nameOf(SceneState state);

/// What one analyzed frame came to.
struct TrackFrame {
    std::int64_t time_ns = 0;
    int width = 0, height = 0;  ///< of the analyzed frame, pixels
    SceneState scene = SceneState::kLearning;
    /// All that live, by number, and once more those that ended in this frame (state kEnded). Tentative ones come last.
    std::span<const Track> tracks;
    double foreground = 0;  ///< share of the picture that is accepted foreground, 0..1
};

}  // namespace fleifeisa::host
